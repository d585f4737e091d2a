// A value that is longer than the 512 bytes that Bluetooth allows: the device's log. It has 1,300 bytes, and
// each transfer adds a line.
//
// A control characteristic selects the page. The phone writes "0" to it and reads the first 512 bytes of the
// log, writes "1" and reads the next 512, and so on. The last page is shorter. Then the phone writes "0"
// again.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

namespace {

const QString logService = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0003");
const QString pageNumber = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0003");
const QString logText = QStringLiteral("c0de0003-5f2a-4d6b-9a57-1f6d0a3b0003");

QByteArray line(int number)
{
    return QByteArray::number(number).rightJustified(4, '0') + " all is well\n";
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    QByteArray log;
    int lines = 0;
    while (log.size() < 1300) {
        log += line(lines++);
    }

    GattApplication app(nullptr, "/com/example/log", "com.example.Log");
    GattService* service = app.createService(logService, true);
    // Create the control first: the other characteristic takes it as an argument.
    GattCharacteristic* page =
        service->createCharacteristic(pageNumber, GattCharacteristic::Read | GattCharacteristic::Write);
    GattCharacteristic* text = service->createCharacteristic(logText, GattCharacteristic::Read, page);
    // Called at the start of page 0 only, so that all pages of a transfer come from the same log.
    text->setReadCallback([&] { return log += line(lines++); });

    GapAdvertisement adv(nullptr, "/com/example/log/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Log");
    adv.setServiceUUIDs({logService});

    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}
