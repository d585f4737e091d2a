// A peripheral as a system service. It belongs to the unit, the bus policy and the log configuration.
//
// usage: example-peripheral LOGGING-CONFIGURATION

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace {

const QString batteryService = QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb");
const QString batteryLevel = QStringLiteral("00002a19-0000-1000-8000-00805f9b34fb");

} // namespace

class Service : public QObject
{
    Q_OBJECT

public:
    /** Qt does not reconnect to the system bus: the program ends, and its supervisor restarts it. */
    bool endsWithItsBus()
    {
        return QDBusConnection::systemBus().connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                                                    QStringLiteral("org.freedesktop.DBus.Local"),
                                                    QStringLiteral("Disconnected"), this, SLOT(busLost()));
    }

private slots:
    void busLost()
    {
        LOG4CPLUS_ERROR(log4cplus::Logger::getInstance("Service"), "the system bus is gone");
        QCoreApplication::exit(1);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    if (argc != 2) {
        qCritical("usage: example-peripheral LOGGING-CONFIGURATION");
        return 2;
    }
    log4cplus::PropertyConfigurator::doConfigure(argv[1]);
    Service service;
    if (!QDBusConnection::systemBus().isConnected() || !service.endsWithItsBus()) {
        LOG4CPLUS_ERROR(log4cplus::Logger::getInstance("Service"), "there is no system bus");
        return 1;
    }

    GattApplication app(nullptr, "/org/example/peripheral", "org.example.Peripheral");
    GattService* battery = app.createService(batteryService, true);
    battery->createCharacteristic(batteryLevel, GattCharacteristic::Read | GattCharacteristic::Notify)
        ->setValue(QByteArray(1, 87)); // per cent

    GapAdvertisement adv(nullptr, "/org/example/peripheral/advertisement", GapAdvertisement::SetProperties);
    adv.setLocalName("Peripheral");
    adv.setServiceUUIDs({batteryService});

    BleManager::instance()->add(&app);
    BleManager::instance()->add(&adv);
    return program.exec();
}

#include "peripheral.moc"
