// A beacon: it cannot be connected to; it broadcasts the machine's load.
//
// After the company identifier, the manufacturer data has four bytes: a counter, and the load average of the
// last minute in hundredths, both little-endian.

#include "BleManager.h"

#include <QCoreApplication>
#include <QFile>
#include <QTimer>
#include <QtEndian>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <plim/peripheral.h>

namespace {

constexpr unsigned short company = 0xffff; // for tests; the Bluetooth SIG assigns real ones

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

    plim::Advertisement beacon(nullptr, "/com/example/beacon");
    beacon.setType(GapAdvertisement::Broadcast);
    beacon.setUpdateMode(plim::Advertisement::InPlace); // where BlueZ can do it; otherwise it registers again
    quint16 count = 0;
    const auto update = [&] {
        beacon.setManufacturerData({{company, littleEndian(count++) + littleEndian(load())}});
    };
    update();
    BleManager::instance()->add(&beacon);
    plim::AdvertisingKeeper keeper; // also after the adapter was switched off and on
    keeper.keep(&beacon);

    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &program, update);
    timer.start(2000);
    return program.exec();
}
