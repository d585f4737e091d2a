// A whole device to start a product from: device information, battery, own service, advertisement.

#include "BleManager.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <QTimer>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <plim/peripheral.h>

namespace {
using Char = GattCharacteristic;
QString assigned(quint16 number) // by the Bluetooth SIG
{
    return QStringLiteral("%1-0000-1000-8000-00805f9b34fb").arg(number, 8, 16, QLatin1Char('0'));
}

// Made with uuidgen. The target is one byte, 5 to 30 degrees Celsius.
const QString thermostatService = QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0005");
const QString targetTemperature = QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0005");

void addDeviceInformation(GattApplication& app)
{
    GattService* service = app.createService(assigned(0x180a), true);
    service->createCharacteristic(assigned(0x2a29), Char::Read)->setValue("Example Devices"); // manufacturer
    service->createCharacteristic(assigned(0x2a24), Char::Read)->setValue("Thermostat 1");    // model
    service->createCharacteristic(assigned(0x2a26), Char::Read)->setValue("1.0.0");           // firmware
}

void addBattery(GattApplication& app)
{
    GattService* service = app.createService(assigned(0x180f), true);
    Char* level = service->createCharacteristic(assigned(0x2a19), Char::Read | Char::Notify);
    level->setValue(QByteArray(1, 100)); // per cent
    auto* drain = new QTimer(level);     // ask the hardware here
    drain->callOnTimeout([level] { level->setValue(QByteArray(1, char(qMax(0, level->value()[0] - 1)))); });
    drain->start(1000);
}

void addThermostat(GattApplication& app)
{
    GattService* service = app.createService(thermostatService, true);
    Char* target = service->createCharacteristic(targetTemperature, Char::Read | Char::Write | Char::Notify);
    GattDescriptor* name = target->addDescriptor(assigned(0x2901), GattDescriptor::Read);
    name->setReadCallback([] { return QByteArray("Target temperature"); });
    target->setValue(QByteArray(1, 20));
    QObject::connect(target, &Char::valueChanged, target, [target, accepted = target->value()]() mutable {
        const QByteArray set = target->value();
        if (set.size() == 1 && set[0] >= 5 && set[0] <= 30) {
            accepted = set; // tell the hardware here
        } else {
            target->setValue(accepted);
        }
    });
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator::doConfigure();
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::INFO_LOG_LEVEL);
    GattApplication app(nullptr, "/com/example/thermostat", "com.example.Thermostat");
    addDeviceInformation(app);
    addBattery(app);
    addThermostat(app);
    plim::Advertisement adv(nullptr, "/com/example/thermostat/advertisement");
    adv.setLocalName("Thermostat");
    adv.setServiceUUIDs({thermostatService});
    adv.setDiscoverable(true);
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    plim::AdvertisingKeeper keeper; // on the air again when the adapter was off, and for a second phone
    keeper.setWhileConnected(true);
    keeper.keep(&adv);
    return program.exec();
}
