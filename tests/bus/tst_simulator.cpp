#include "SimulatorVerdict.h"

using namespace Scenario;

namespace {

QString refusalOf(const QDBusMessage& answer)
{
    return answer.errorName().section('.', -1) + ": " + answer.errorMessage();
}

} // namespace

/** How the stand-in daemon keeps what it is given, and the faults that can be ordered. */
class tst_simulator : public QObject
{
    Q_OBJECT

private slots:
    void callsInOrderAreNeeded();
    void aSixthAdvertisementIsNotPermitted();
    void adaptersAreApart();
    void wrongOrdersAreExplained();
    void withoutADaemonOrdersForItAreRefused();
    void leavingDropsWhatClientsHad();
    void aClientThatLeavesLosesWhatItHad();
    void answersAreAsOrdered();
    void callsAreRecorded();
    void anAdvertisementEndsWithItsTimeout();
    void propertiesAreAsOrdered();
    void busctlCanLookAround();
};

void tst_simulator::callsInOrderAreNeeded()
{
    const Simulator daemon;
    const Application app("/app");
    const QString unknown("org.bluez.Error.DoesNotExist: Does Not Exist");
    const QString wrong(
        "org.freedesktop.DBus.Error.UnknownMethod: Method \"%1\" with signature \"%2\" on interface "
        "\"org.bluez.GattManager1\" doesn't exist\n");
    QCOMPARE(verdict(gattManager, "UnregisterApplication", {asPath("/app")}), unknown);
    QCOMPARE(registerApplication("/app"), QString("accepted"));
    QCOMPARE(registerApplication("/app"), QString("org.bluez.Error.AlreadyExists: Already Exists"));
    QCOMPARE(verdict(gattManager, "RegisterApplication", {asPath("/app")}),
             wrong.arg("RegisterApplication", "o"));
    QCOMPARE(verdict(gattManager, "UnregisterApplication", {"/app"}),
             wrong.arg("UnregisterApplication", "s"));
    QCOMPARE(verdict(gattManager, "UnregisterApplication", {asPath("/app")}), QString("accepted"));
    QCOMPARE(verdict(gattManager, "UnregisterApplication", {asPath("/app")}), unknown);
    QCOMPARE(verdict(advertisingManager, "UnregisterAdvertisement", {asPath("/app")}), unknown);
    QCOMPARE(registerApplication("/nowhere"), QString("org.bluez.Error.Failed: No object received"));
    QCOMPARE(registerAdvertisement("/nowhere"),
             QString("org.bluez.Error.Failed: Failed to parse advertisement."));
    QVERIFY(registerApplication("/app", "/org/bluez/hci9").startsWith("org.freedesktop.DBus.Error.Unknown"));
}

void tst_simulator::aSixthAdvertisementIsNotPermitted()
{
    const Simulator daemon(acceptEverything);
    std::vector<std::unique_ptr<GapAdvertisement>> advertisements;
    for (int i = 0; i < 6; ++i) {
        const QString path = QString("/adv%1").arg(i);
        advertisements.push_back(std::make_unique<GapAdvertisement>(nullptr, path));
        QCOMPARE(
            registerAdvertisement(path),
            QString(i < 5 ? "accepted" : "org.bluez.Error.NotPermitted: Maximum advertisements reached"));
    }
}

void tst_simulator::adaptersAreApart()
{
    Simulator daemon({"--adapter", "hci0", "--adapter", "hci1"});
    const Application app("/app");
    QCOMPARE(registerApplication("/app"), QString("accepted"));
    QCOMPARE(registerApplication("/app", "/org/bluez/hci1"), QString("accepted"));
    QCOMPARE(daemon.applications().size(), 2);
    daemon.removeAdapter("hci0");
    QCOMPARE(daemon.applications(), QStringList("/app"));
    QVERIFY(registerApplication("/app").startsWith("org.freedesktop.DBus.Error.Unknown"));
    daemon.addAdapter("hci0");
    QCOMPARE(registerApplication("/app"), QString("accepted"));
}

void tst_simulator::wrongOrdersAreExplained()
{
    const Simulator daemon;
    const QString invalid("InvalidArgument: ");
    QCOMPARE(refusalOf(Simulator::control("AddAdapter", {"hci0"})),
             invalid + "There is an adapter hci0 already");
    QCOMPARE(refusalOf(Simulator::control("AddAdapter", {""})),
             invalid + "\"\" cannot be an adapter's name: letters, digits and _ only");
    QCOMPARE(refusalOf(Simulator::control("AddAdapterAt", {"hci1", "somewhere"})),
             invalid + "\"somewhere\" is no address such as 00:AA:01:01:00:02");
    QCOMPARE(refusalOf(Simulator::control("RemoveAdapter", {"hci1"})), invalid + "There is no adapter hci1");
    QCOMPARE(refusalOf(Simulator::control("SetAnswer", {"X", "slow", "", "", 0U})),
             invalid + "\"slow\" is not one of the modes normal, error, late, never");
    QCOMPARE(refusalOf(Simulator::control("SetAnswer", {"X", "error", "no name", "", 0U})),
             invalid + "\"no name\" is not a D-Bus error name");
    QCOMPARE(refusalOf(Simulator::control("Advertisement", {asPath("/adv")})),
             QString("UnknownPath: No advertisement /adv is registered"));
    QCOMPARE(refusalOf(Simulator::control("Tree", {asPath("/app")})),
             QString("UnknownPath: No application /app is registered"));
    QCOMPARE(refusalOf(Simulator::control("ReleaseAdvertisement", {asPath("/adv")})),
             QString("UnknownPath: No advertisement /adv is registered"));
}

void tst_simulator::withoutADaemonOrdersForItAreRefused()
{
    const Simulator daemon({"--absent"});
    const QString absent("Absent: org.bluez is not on the bus");
    QCOMPARE(refusalOf(Simulator::control("Announce", {asPath("/x"), QStringList("a.b")})), absent);
    QCOMPARE(refusalOf(Simulator::control("Withdraw", {asPath("/x"), QStringList("a.b")})), absent);
    QCOMPARE(refusalOf(Simulator::control("Tree", {asPath("/app")})), absent);
    QCOMPARE(refusalOf(Simulator::control("Read", {asPath("/app"), QVariant::fromValue(ushort(0))})), absent);
    QCOMPARE(daemon.applications() + daemon.advertisements(), QStringList());
}

void tst_simulator::leavingDropsWhatClientsHad()
{
    Simulator daemon(acceptEverything);
    const Application app("/app");
    const GapAdvertisement adv(nullptr, "/adv");
    for (int round = 0; round < 3; ++round) {
        QCOMPARE(registerApplication("/app"), QString("accepted"));
        QCOMPARE(registerAdvertisement("/adv"), QString("accepted"));
        QCOMPARE(daemon.applications() + daemon.advertisements(), QStringList({"/app", "/adv"}));
        if (round == 0) {
            daemon.vanish();
            daemon.appear();
        } else {
            daemon.restart();
        }
        QCOMPARE(daemon.applications() + daemon.advertisements(), QStringList());
    }
}

void tst_simulator::aClientThatLeavesLosesWhatItHad()
{
    const Simulator daemon(acceptEverything);
    GapAdvertisement adv(nullptr, "/adv");
    QCOMPARE(registerAdvertisement("/adv"), QString("accepted"));
    {
        QDBusConnection other =
            QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), "other");
        QVERIFY(other.registerObject("/other", &adv));
        QCOMPARE(verdict(advertisingManager, "RegisterAdvertisement", {asPath("/other"), QVariantMap()},
                         adapter, other),
                 QString("accepted"));
        QCOMPARE(daemon.advertisements(), QStringList({"/adv", "/other"}));
    }
    QDBusConnection::disconnectFromBus("other");
    EVENTUALLY_COMPARE(daemon.advertisements(), QStringList("/adv"));
}

void tst_simulator::answersAreAsOrdered()
{
    Simulator daemon;
    const Application app("/app");
    daemon.answerWithError("RegisterApplication", "org.example.Error.Odd", "As told");
    QCOMPARE(registerApplication("/app"), QString("org.example.Error.Odd: As told"));
    QCOMPARE(daemon.applications(), QStringList());

    daemon.neverAnswer("RegisterApplication");
    QDBusMessage call =
        QDBusMessage::createMethodCall("org.bluez", adapter, gattManager, "RegisterApplication");
    call.setArguments({asPath("/app"), QVariantMap()});
    const QDBusPendingCall ignored = QDBusConnection::systemBus().asyncCall(call);
    daemon.settle();
    QVERIFY(!ignored.isFinished());
    QCOMPARE(daemon.applications(), QStringList());

    daemon.answerLate("RegisterApplication", 1);
    QCOMPARE(registerApplication("/app"), QString("accepted"));
    daemon.answerNormally("RegisterApplication");
    QCOMPARE(registerApplication("/app"), QString("org.bluez.Error.AlreadyExists: Already Exists"));
    QVERIFY(!ignored.isFinished());
}

void tst_simulator::callsAreRecorded()
{
    Simulator daemon;
    verdict(advertisingManager, "UnregisterAdvertisement", {asPath("/adv")});
    verdict(gattManager, "RegisterApplication", {asPath("/app"), QVariantMap{{"key", "text"}}});
    const QList<QVariantMap> records = daemon.callRecords();
    QCOMPARE(records.size(), 2);
    const QVariantMap& last = records.at(1);
    QCOMPARE(last.value("order").toUInt(), records.at(0).value("order").toUInt() + 1);
    QCOMPARE(last.value("member"), QVariant("RegisterApplication"));
    QCOMPARE(last.value("interface"), QVariant(gattManager));
    QCOMPARE(last.value("path"), QVariant(adapter));
    QCOMPARE(last.value("signature"), QVariant("oa{sv}"));
    QCOMPARE(last.value("sender"), QVariant(QDBusConnection::systemBus().baseService()));
    QCOMPARE(last.value("text"), QVariant("/org/bluez/hci0 org.bluez.GattManager1.RegisterApplication(/app, "
                                          "{\"key\": <\"text\">})"));
    daemon.restart();
    QCOMPARE(daemon.callRecords().size(), 2);
    daemon.clearCalls();
    verdict(gattManager, "UnregisterApplication", {asPath("/app")});
    QCOMPARE(daemon.callRecords().value(0).value("order"), QVariant(1U));
}

void tst_simulator::anAdvertisementEndsWithItsTimeout()
{
    const Simulator daemon;
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
    adv.setTimeout(1);
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    QCOMPARE(registerAdvertisement("/adv"), QString("accepted"));
    EVENTUALLY_COMPARE(log.texts(log4cplus::DEBUG_LOG_LEVEL), QStringList("Gap advertisement release: /adv"));
    QCOMPARE(daemon.advertisements(), QStringList());
}

void tst_simulator::propertiesAreAsOrdered()
{
    Simulator daemon;
    const auto roles = [] {
        QDBusMessage call = QDBusMessage::createMethodCall("org.bluez", "/org/bluez/hci0",
                                                           "org.freedesktop.DBus.Properties", "Get");
        call << "org.bluez.Adapter1"
             << "Roles";
        return QDBusConnection::systemBus().call(call).arguments().value(0).value<QDBusVariant>().variant();
    };
    QCOMPARE(roles().toStringList(), QStringList({"central", "peripheral"}));
    daemon.setProperty("/org/bluez/hci0", "org.bluez.Adapter1", "Roles", QStringList("central"));
    QCOMPARE(roles().toStringList(), QStringList("central"));
    QCOMPARE(refusalOf(Simulator::control("SetProperty", {asPath("/org/bluez/hci0"), "org.bluez.Device1",
                                                          "Name", QVariant::fromValue(QDBusVariant("x"))})),
             QString("UnknownPath: There is no org.bluez.Device1 at /org/bluez/hci0"));
}

void tst_simulator::busctlCanLookAround()
{
    const Simulator daemon;
    const QString address = "--address=" + qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    for (const QStringList& object : {QStringList{"org.bluez", "/"}, QStringList{"org.bluez", "/org"},
                                      QStringList{"org.bluez", "/org/bluez/hci0"},
                                      QStringList{"org.plim.BluezSimulator", "/org/plim/BluezSimulator"}}) {
        QProcess busctl;
        busctl.start("busctl", QStringList({address, "introspect"}) + object);
        QVERIFY(busctl.waitForFinished());
        QVERIFY2(busctl.exitCode() == 0, busctl.readAllStandardError());
    }
    const QDBusMessage ping = QDBusConnection::systemBus().call(
        QDBusMessage::createMethodCall("org.bluez", "/org/bluez/hci0", "org.freedesktop.DBus.Peer", "Ping"));
    QCOMPARE(refusalOf(ping), QString(": "));
}

QTEST_GUILESS_MAIN(tst_simulator)
#include "tst_simulator.moc"
