// A setting that a phone may write: the brightness of a lamp, one byte from 0 to 100.
//
// BlueZ passes on whatever a phone writes, and tells the phone that the write succeeded. So the program
// checks the value afterwards. To reject it, the program sets the old value again; subscribed phones are
// notified.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>

namespace {

const QString lampService = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0002");
const QString brightnessValue = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0002");

bool isBrightness(const QByteArray& value)
{
    return value.size() == 1 && uchar(value[0]) <= 100;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    GattApplication app(nullptr, "/com/example/lamp", "com.example.Lamp");
    GattService* service = app.createService(lampService, true);
    GattCharacteristic* brightness = service->createCharacteristic(
        brightnessValue, GattCharacteristic::Read | GattCharacteristic::Write | GattCharacteristic::Notify);
    QByteArray accepted(1, 50); // per cent
    brightness->setValue(accepted);

    QObject::connect(brightness, &GattCharacteristic::valueChanged, &program, [&] {
        const QByteArray written = brightness->value();
        if (isBrightness(written)) {
            accepted = written;
            std::printf("brightness set to %d per cent\n", uchar(accepted[0]));
        } else {
            std::printf("rejected: %s\n", written.toHex(' ').constData());
            brightness->setValue(accepted);
        }
        std::fflush(stdout);
    });

    GapAdvertisement adv(nullptr, "/com/example/lamp/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Lamp");
    adv.setServiceUUIDs({lampService});

    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}
