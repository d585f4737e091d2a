// A beacon: nobody can connect, everybody hears the machine's load.
//
// The manufacturer's data are four bytes after the company identifier: a counter, and the load of the last
// minute in hundredths, both little-endian.

#include "BleManager.h"
#include "GapAdvertisement.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>
#include <QtEndian>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

namespace {

constexpr unsigned short company = 0xffff; // for tests; one's own is assigned by the Bluetooth SIG

QByteArray littleEndian(quint16 number)
{
    QByteArray bytes(2, 0);
    qToLittleEndian(number, bytes.data());
    return bytes;
}

quint16 load()
{
    QFile file("/proc/loadavg");
    file.open(QIODevice::ReadOnly);
    return quint16(file.readLine().split(' ').value(0).toDouble() * 100);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    GapAdvertisement beacon(nullptr, "/com/example/beacon", GapAdvertisement::SetProperties);
    beacon.setType(GapAdvertisement::Broadcast);
    quint16 count = 0;
    const auto tell = [&] {
        beacon.setManufacturerData({{company, littleEndian(count++) + littleEndian(load())}});
    };
    tell();
    BleManager::instance()->add(&beacon);

    // Each setter call is a new registration with the daemon, so not too often.
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &program, tell);
    timer.start(2000);
    return program.exec();
}
