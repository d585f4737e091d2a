#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure(); // errors are logged
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);

    GattApplication app(nullptr, "/com/example/battery", "com.example.Battery");
    GattService* service = app.createService("0000180f-0000-1000-8000-00805f9b34fb", true);
    GattCharacteristic* level = service->createCharacteristic(
        "00002a19-0000-1000-8000-00805f9b34fb", GattCharacteristic::Read | GattCharacteristic::Notify);
    level->setValue(QByteArray(1, 87)); // per cent; call it again whenever the level changes

    GapAdvertisement adv(nullptr, "/com/example/battery/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Battery");
    adv.setServiceUUIDs({"0000180f-0000-1000-8000-00805f9b34fb"});

    BleManager* manager = BleManager::instance();
    manager->setRegistrationObserver(
        [](const BleRegistrationEvent& event) { qInfo("%s", qPrintable(event.text())); });
    manager->add(&app);
    manager->add(&adv);
    return program.exec();
}
