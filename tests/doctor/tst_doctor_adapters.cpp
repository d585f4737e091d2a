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
    QCOMPARE(result.names,
             QStringList({"bus.reached", "daemon.stand-in", "adapter.on", "adapter.alias", "pairing.off",
                          "gatt.present", "advertising.instances", "advertising.capabilities"}));
    QCOMPARE(result.line("adapter.on"),
             "ok hci0 (00:AA:01:00:00:00) is switched on. It is not discoverable without an advertisement.");
    QCOMPARE(result.finding("adapter.on").values, QJsonObject({{"adapter", hci0},
                                                               {"address", "00:AA:01:00:00:00"},
                                                               {"powered", true},
                                                               {"discoverable", false}}));
    QCOMPARE(result.line("gatt.present"), "ok hci0 accepts GATT applications.");
    QCOMPARE(result.exitCode, 0);

    simulator.setProperty(hci0, adapter, "Discoverable", true);
    QCOMPARE(Doctor::examine().line("adapter.on"),
             "ok hci0 (00:AA:01:00:00:00) is switched on. It is discoverable without an advertisement.");
}

void tst_doctor_adapters::noAdapterIsAProblem()
{
    Simulator simulator;
    simulator.removeAdapter("hci0");
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.stand-in", "adapter.none"}));
    QCOMPARE(result.line("adapter.none"),
             "problem bluetoothd has no Bluetooth adapter. | Connect one, or load its kernel driver. To list "
             "the adapters that the kernel knows: ls /sys/class/bluetooth");
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

    QProcess remedy;
    const QString command = result.finding("adapter.off").remedy.section(": ", 1);
    remedy.start("sh", {"-c", command + " --address=" + qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS")});
    QVERIFY(remedy.waitForFinished());
    QCOMPARE(remedy.exitCode(), 0);
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
             "Remove the block: rfkill unblock bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::anAdapterThatCannotBeAPeripheralIsAProblem()
{
    Simulator simulator;
    simulator.setProperty(hci0, adapter, "Roles", QStringList("central"));
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("adapter.no-peripheral"),
             "problem hci0 (00:AA:01:00:00:00) cannot be a peripheral. "
             "| Use another Bluetooth adapter that supports the peripheral role.");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::severalAdaptersAreAWarning()
{
    const Simulator simulator({"--adapter", "hci1", "--adapter", "hci0"});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.names.count("adapter.on"), 2);
    QCOMPARE(result.line("adapter.several"),
             "warning There are 2 adapters. A program that starts now uses the first one, hci0. After a "
             "restart of bluetoothd it uses the one that bluetoothd announces last. | Disconnect the "
             "adapters that the program should not use.");
    QCOMPARE(result.line("gatt.present"), "ok hci0 accepts GATT applications.");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_adapters::aMissingGattManagerIsAProblem()
{
    Simulator simulator;
    simulator.withdraw(hci0, {Scenario::gattManager});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("gatt.missing"),
             "problem No adapter accepts GATT applications: there is no org.bluez.GattManager1. | Restart "
             "the daemon: systemctl restart bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::aMissingAdvertisingManagerIsAProblem()
{
    Simulator simulator;
    simulator.withdraw(hci0, {Scenario::advertisingManager});
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(
        result.line("advertising.missing"),
        "problem No adapter accepts advertisements: there is no org.bluez.LEAdvertisingManager1. | Use an "
        "adapter "
        "with Bluetooth Low Energy, and do not set ControllerMode = bredr in /etc/bluetooth/main.conf.");
    QVERIFY(!result.names.contains("advertising.instances"));
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_adapters::whatAdvertisingCanDoIsTold()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine();
    QCOMPARE(result.line("advertising.instances"), "ok hci0 accepts 5 more advertisements; 0 are active.");
    QCOMPARE(
        result.line("advertising.capabilities"),
        "ok hci0 can include tx-power, appearance, local-name; secondary channels: 1M, 2M, Coded; features: "
        "CanSetTxPower. It accepts up to 31 bytes of advertising data and 31 bytes of scan response. Its "
        "transmit "
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
    QCOMPARE(result.line("advertising.exhausted"),
             "problem hci0 accepts no more advertisements: 5 are "
             "active. | Stop another program that advertises. Only bluetoothd knows which programs do: stop "
             "them one by one.");
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_doctor_adapters)
#include "tst_doctor_adapters.moc"
