#include "Doctor.h"
#include "FullAdapter.h"
#include "SimulatorScenario.h"

#include <QtTest>

namespace {

const QString hci0 = QStringLiteral("/org/bluez/hci0");
const QString adapter = QStringLiteral("org.bluez.Adapter1");

} // namespace

/** What the doctor says about adapters and what they can do. */
class tst_doctor_adapters : public QObject
{
    Q_OBJECT

private slots:
    void anAdapterThatIsOnIsDescribed();
    void noAdapterIsAProblem();
    void anAdapterThatIsOffIsAProblem();
    void aBlockedAdapterIsAProblem();
    void anAdapterThatCannotBeAPeripheralIsAProblem();
    void severalAdaptersAreAWarning();
    void aMissingGattManagerIsAProblem();
    void aMissingAdvertisingManagerIsAProblem();
    void whatAdvertisingCanDoIsTold();
    void whatAnOldDaemonDoesNotTellIsLeftOut();
    void noFreeAdvertisementIsAProblem();
};

void tst_doctor_adapters::anAdapterThatIsOnIsDescribed()
{
    Simulator simulator;
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.stand-in", "adapter.on", "gatt.present",
                                        "advertising.instances", "advertising.capabilities"}));
    QCOMPARE(result.line("adapter.on"),
             "ok hci0 (00:AA:01:00:00:00) is switched on, and not discoverable by itself.");
    QCOMPARE(result.finding("adapter.on").values, QJsonObject({{"adapter", hci0},
                                                               {"address", "00:AA:01:00:00:00"},
                                                               {"powered", true},
                                                               {"discoverable", false}}));
    QCOMPARE(result.line("gatt.present"), "ok hci0 takes GATT applications.");
    QCOMPARE(result.exitCode, 0);

    simulator.setProperty(hci0, adapter, "Discoverable", true);
    QCOMPARE(Doctor::examine().line("adapter.on"),
             "ok hci0 (00:AA:01:00:00:00) is switched on, and discoverable by itself.");
}

void tst_doctor_adapters::noAdapterIsAProblem()
{
    Simulator simulator;
    simulator.removeAdapter("hci0");
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.stand-in", "adapter.none"}));
    QCOMPARE(
        result.line("adapter.none"),
        "problem bluetoothd has no Bluetooth adapter. | Connect one, or have the kernel load its driver: ls "
        "/sys/class/bluetooth shows what the kernel has.");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::anAdapterThatIsOffIsAProblem()
{
    Simulator simulator;
    simulator.setProperty(hci0, adapter, "Powered", false);
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(
        result.line("adapter.off"),
        "problem hci0 (00:AA:01:00:00:00) is switched off. | Switch it on: busctl set-property org.bluez "
        "/org/bluez/hci0 org.bluez.Adapter1 Powered b true");
    QCOMPARE(result.finding("adapter.off").values["powered"].toBool(true), false);
    QCOMPARE(result.exitCode, 1);

    QProcess cure;
    const QString command = result.finding("adapter.off").cure.section(": ", 1);
    cure.start("sh", {"-c", command + " --address=" + qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS")});
    QVERIFY(cure.waitForFinished());
    QCOMPARE(cure.exitCode(), 0);
    QCOMPARE(Doctor::examine().finding("adapter.on").severity, "ok");
}

void tst_doctor_adapters::aBlockedAdapterIsAProblem()
{
    Simulator simulator;
    simulator.setProperty(hci0, adapter, "Powered", false);
    simulator.setProperty(hci0, adapter, "PowerState", "off-blocked");
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("adapter.blocked"),
             "problem hci0 (00:AA:01:00:00:00) is switched off, and blocked by the kernel's radio switch. | "
             "Lift the block: rfkill unblock bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::anAdapterThatCannotBeAPeripheralIsAProblem()
{
    Simulator simulator;
    simulator.setProperty(hci0, adapter, "Roles", QStringList("central"));
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("adapter.no-peripheral"), "problem hci0 (00:AA:01:00:00:00) cannot be a peripheral. "
                                                   "| Use another Bluetooth adapter, one that can.");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::severalAdaptersAreAWarning()
{
    const Simulator simulator({"--adapter", "hci1", "--adapter", "hci0"});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.names.count("adapter.on"), 2);
    QCOMPARE(result.line("adapter.several"),
             "warning There are 2 adapters. A program that starts now registers with the first, hci0; after "
             "bluetoothd has started again, with the one that it announces last. | Disconnect the adapters "
             "that the "
             "program is not meant to use.");
    QCOMPARE(result.line("gatt.present"), "ok hci0 takes GATT applications.");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_adapters::aMissingGattManagerIsAProblem()
{
    Simulator simulator;
    simulator.withdraw(hci0, {Scenario::gattManager});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(
        result.line("gatt.missing"),
        "problem No adapter takes GATT applications: there is no org.bluez.GattManager1. | Start the daemon "
        "again: systemctl restart bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::aMissingAdvertisingManagerIsAProblem()
{
    Simulator simulator;
    simulator.withdraw(hci0, {Scenario::advertisingManager});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("advertising.missing"),
             "problem No adapter takes advertisements: there is no org.bluez.LEAdvertisingManager1. | Use an "
             "adapter "
             "with Bluetooth Low Energy, and do not set ControllerMode = bredr in /etc/bluetooth/main.conf.");
    QVERIFY(!result.names.contains("advertising.instances"));
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::whatAdvertisingCanDoIsTold()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("advertising.instances"), "ok hci0 can take 5 more advertisements; 0 are active.");
    QCOMPARE(
        result.line("advertising.capabilities"),
        "ok hci0 can include tx-power, appearance, local-name; secondary channels: 1M, 2M, Coded; features: "
        "CanSetTxPower. It takes up to 31 bytes of advertising data and 31 of scan response. Its transmit "
        "power "
        "can be set from -127 to 20 dBm.");
    QCOMPARE(
        result.finding("advertising.capabilities").values["limits"].toObject(),
        QJsonObject({{"MaxAdvLen", 31}, {"MaxScnRspLen", 31}, {"MinTxPower", -127}, {"MaxTxPower", 20}}));
}

void tst_doctor_adapters::whatAnOldDaemonDoesNotTellIsLeftOut()
{
    Simulator simulator;
    simulator.setProperty(hci0, Scenario::advertisingManager, "SupportedSecondaryChannels", QStringList());
    simulator.setProperty(hci0, Scenario::advertisingManager, "SupportedFeatures", QStringList());
    simulator.setProperty(hci0, Scenario::advertisingManager, "SupportedCapabilities", QVariantMap());
    QCOMPARE(
        Doctor::examine().line("advertising.capabilities"),
        "ok hci0 can include tx-power, appearance, local-name; secondary channels: none; features: none.");
}

void tst_doctor_adapters::noFreeAdvertisementIsAProblem()
{
    const FullAdapter fullAdapter;
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("advertising.exhausted"), "problem hci0 takes no further advertisement: 5 are "
                                                   "active. | End a program that advertises; which do is "
                                                   "shown by: busctl list");
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_doctor_adapters)
#include "tst_doctor_adapters.moc"
