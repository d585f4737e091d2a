// A value that is longer than the 512 bytes which Bluetooth allows for one: the device's log of 1,300 bytes,
// and more with each start of a transfer.
//
// A control characteristic selects the page. The phone writes "0" there and reads the log's first 512 bytes,
// writes "1" and reads the next, and so on until a page is shorter than 512 bytes; then it writes "0" again.

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
    // The control comes first: the characteristic that it belongs to is created with it.
    GattCharacteristic* page =
        service->createCharacteristic(pageNumber, GattCharacteristic::Read | GattCharacteristic::Write);
    GattCharacteristic* text = service->createCharacteristic(logText, GattCharacteristic::Read, page);
    // Asked at the start of page 0 only, so that the pages of one transfer fit together.
    text->setReadCallback([&] { return log += line(lines++); });

    GapAdvertisement adv(nullptr, "/com/example/log/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Log");
    adv.setServiceUUIDs({logService});

    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}
