// Tests of your own peripheral: what a phone sees of it, and what happens when the daemon restarts. They need
// no Bluetooth, no privileges, and no program that runs already.

#include "PlimBleTest.h"
#include "Thermometer.h"

class TestThermometer : public QObject
{
    Q_OBJECT

private slots:
    void aPhoneReadsTheTemperature()
    {
        PlimBleTest ble;
        Thermometer thermometer;
        QTRY_COMPARE(ble.applications(), QStringList("/com/example/thermometer"));
        QCOMPARE(ble.read(ble.find(Thermometer::temperatureUuid())), QByteArray("20.0"));
    }

    void aPhoneIsNotifiedOfEachMeasurement()
    {
        PlimBleTest ble;
        Thermometer thermometer;
        QTRY_VERIFY(!ble.applications().isEmpty());
        const QString temperature = ble.find(Thermometer::temperatureUuid());
        ble.subscribe(temperature);
        thermometer.measured(20.5);
        thermometer.measured(21);
        QTRY_COMPARE(ble.notifications(temperature), (QList<QByteArray>{"20.5", "21.0"}));
    }

    void aPhoneChoosesTheUnit()
    {
        PlimBleTest ble;
        Thermometer thermometer;
        QTRY_VERIFY(!ble.applications().isEmpty());
        ble.write(ble.find(Thermometer::unitUuid()), "F");
        QCOMPARE(ble.read(ble.find(Thermometer::temperatureUuid())), QByteArray("68.0"));
    }

    void anUnknownUnitIsCelsius()
    {
        PlimBleTest ble;
        Thermometer thermometer;
        QTRY_VERIFY(!ble.applications().isEmpty());
        ble.write(ble.find(Thermometer::unitUuid()), "K");
        QCOMPARE(ble.read(ble.find(Thermometer::unitUuid())), QByteArray("C"));
        QCOMPARE(ble.read(ble.find(Thermometer::temperatureUuid())), QByteArray("20.0"));
    }

    void itComesBackWithTheDaemon()
    {
        PlimBleTest ble;
        Thermometer thermometer;
        QTRY_VERIFY(!ble.applications().isEmpty());
        ble.restart();
        QTRY_COMPARE(ble.applications(), QStringList("/com/example/thermometer"));
    }
};

QTEST_GUILESS_MAIN(TestThermometer)
#include "tst_thermometer.moc"
