// The demo's peripheral: heart rate with notifications, device information read on demand, a record of 1,300
// bytes fetched page by page, and a name that a phone may write.

#include "BleManager.h"
#include "DemoDevice.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QTimer>

#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>

#include <cstdio>

namespace {

using Char = GattCharacteristic;

void say(const QString& text)
{
    std::printf("    peripheral: %s\n", qPrintable(text));
    std::fflush(stdout);
}

void addDeviceInformation(GattApplication& app)
{
    GattService* service = app.createService(DemoDevice::deviceInformation, true);
    Char* name = service->createCharacteristic(DemoDevice::manufacturerName, Char::Read);
    name->setReadCallback([] {
        say("read callback for the manufacturer's name");
        return QByteArray("Example Devices");
    });
}

void addHeartRate(GattApplication& app)
{
    GattService* service = app.createService(DemoDevice::heartRate, true);
    Char* measurement =
        service->createCharacteristic(DemoDevice::heartRateMeasurement, Char::Read | Char::Notify);
    GattDescriptor* description =
        measurement->addDescriptor(DemoDevice::userDescription, GattDescriptor::Read);
    description->setReadCallback([] { return QByteArray("beats per minute"); });

    auto* timer = new QTimer(service);
    timer->setInterval(100);
    QObject::connect(timer, &QTimer::timeout, measurement, [measurement, beat = 0]() mutable {
        measurement->setValue(QByteArray(1, 0) + QByteArray(1, char(70 + beat++ % 10)));
    });
    // Do not measure while nobody has subscribed.
    QObject::connect(measurement, &Char::notifyStateChanged, timer, [timer](bool notifying) {
        say(notifying ? "heart rate subscribed" : "heart rate unsubscribed");
        notifying ? timer->start() : timer->stop();
    });
}

void addStorage(GattApplication& app)
{
    QByteArray record;
    for (int i = 0; record.size() < 1300; ++i) {
        record += QByteArray::number(i).rightJustified(12, '.') + '\n';
    }
    record.resize(1300);

    GattService* service = app.createService(DemoDevice::storage, true);
    Char* page = service->createCharacteristic(DemoDevice::storagePage, Char::Read | Char::Write);
    Char* data = service->createCharacteristic(DemoDevice::storageRecord, Char::Read, page);
    data->setValue(record);
    Char* digest = service->createCharacteristic(DemoDevice::storageDigest, Char::Read);
    digest->setValue(QCryptographicHash::hash(record, QCryptographicHash::Sha256));
}

void addName(GattApplication& app, GapAdvertisement& advertisement)
{
    GattService* service = app.createService(DemoDevice::own(0x0100), true);
    Char* name = service->createCharacteristic(DemoDevice::deviceName, Char::Read | Char::Write);
    name->setValue("Heart");
    QObject::connect(name, &Char::valueChanged, &advertisement, [name, &advertisement] {
        say("the phone wrote the name \"" + name->value() + "\"");
        advertisement.setLocalName(QString::fromUtf8(name->value()));
    });
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    log4cplus::BasicConfigurator(log4cplus::Logger::getDefaultHierarchy(), true).configure(); // to stderr
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);

    GapAdvertisement advertisement(nullptr, DemoDevice::advertisementPath, GapAdvertisement::SetProperties);
    advertisement.setLocalName("Heart");
    advertisement.setServiceUUIDs({DemoDevice::heartRate});
    advertisement.setDiscoverable(true);
    advertisement.setManufacturerData({{0xffff, QByteArray("demo")}});
    advertisement.setAdvData(0x26, QByteArray("\x01", 1));
    advertisement.setScanRspData(0x26, QByteArray("\x00\x01", 2));

    GattApplication app(nullptr, DemoDevice::applicationPath, "com.example.HeartRate");
    addDeviceInformation(app);
    addHeartRate(app);
    addStorage(app);
    addName(app, advertisement);

    BleManager::instance()->setRegistrationObserver(
        [](const BleRegistrationEvent& event) { say(event.text()); });
    BleManager::instance()->add(&app);
    BleManager::instance()->add(&advertisement);
    return program.exec();
}
