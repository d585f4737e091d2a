#include "SimulatorPhones.h"

namespace {

const QStringList levels{"open", "encrypted", "authenticated", "secure-connections"};

} // namespace

/** The phones of the stand-in daemon: subscriptions, objects, handles. */
class tst_simulator_phones : public QObject, private SimulatorPhones
{
    Q_OBJECT

private slots:
    void init() { begin(); }
    void cleanup() { end(); }
    void aSocketIsOfferedOnlyWhereItIsShown();
    void aKindThatTheFlagsLackIsRefused();
    void indicationsWaitForEachOther();
    void theEndOfALinkEndsIndications();
    void theLastSubscriptionEndsThemAll();
    void aBondedPhoneStaysSubscribed();
    void aPhoneIsAnObjectOfTheDaemon();
    void phonesOutliveTheDaemon();
    void phonesGoWithTheirAdapter();
    void handlesAreGivenOutAndKept();
    void handlesThatAreTakenAreRefused();
    void wrongOrdersAreExplained();

private:
    /** The service's handle, which the daemon writes back. */
    int handleOf(const QString& path)
    {
        const auto hasCome = [&] { return m_raw->last("Set").path() == path; };
        if (!QTest::qWaitFor(hasCome, 10000)) {
            return -1;
        }
        return m_raw->last("Set").arguments().last().value<QDBusVariant>().variant().toInt();
    }
};

void tst_simulator_phones::aSocketIsOfferedOnlyWhereItIsShown()
{
    start({"notify"});
    PlimBleTest::Phone phone;
    phone.subscribe(characteristic);
    QCOMPARE(m_raw->takeMembers().filter("Notify"), QStringList("StartNotify"));
    phone.subscribe(characteristic); // again: nothing changes
    QCOMPARE(m_raw->takeMembers(), QStringList());

    m_raw->unregisterApplication();
    start({"notify"}, {{"NotifyAcquired", false}});
    const auto subscribe = [&](const QString& error) {
        m_raw->takeMembers();
        m_raw->answerWith([=](const QDBusMessage& call) {
            return error.isEmpty() ? call.createReply() : call.createErrorReply(error, "");
        });
        const QString outcome = errorOf(tell(phone, "Subscribe", {asPath(characteristic), "notifications"}));
        phone.unsubscribe(characteristic);
        return m_raw->takeMembers().join(' ') + ' ' + outcome;
    };
    QCOMPARE(subscribe("org.bluez.Error.NotSupported"), QString("AcquireNotify StartNotify StopNotify : "));
    QCOMPARE(subscribe("org.freedesktop.DBus.Error.UnknownMethod"),
             QString("AcquireNotify StartNotify StopNotify : "));
    QCOMPARE(subscribe("org.bluez.Error.Failed"), QString("AcquireNotify StopNotify : "));
    QCOMPARE(subscribe({}),
             QString("AcquireNotify InvalidAnswer: AcquireNotify answered with signature \"\""));
}

void tst_simulator_phones::aKindThatTheFlagsLackIsRefused()
{
    start({"indicate"});
    PlimBleTest::Phone phone;
    phone.subscribe(characteristic);
    QCOMPARE(phone.error(), QString("0xfd Improperly Configured"));
    phone.subscribeToIndications(characteristic);
    QCOMPARE(phone.error(), QString());
}

void tst_simulator_phones::indicationsWaitForEachOther()
{
    start({"notify", "indicate"});
    PlimBleTest::Phone phone;
    phone.confirmIndications(false);
    phone.subscribeToIndications(characteristic);
    m_raw->setValue(characteristic, "1");
    m_raw->setValue(characteristic, "2");
    EVENTUALLY_COMPARE(phone.notifications(characteristic), QList<QByteArray>{"1"});
    m_raw->takeMembers();
    phone.confirmIndications(true);
    EVENTUALLY_COMPARE(phone.notifications(characteristic), (QList<QByteArray>{"1", "2"}));
    EVENTUALLY_COMPARE(m_raw->last("Confirm").type(), QDBusMessage::MethodCallMessage);
    m_raw->setValue(characteristic, "3");
    EVENTUALLY_COMPARE(phone.notifications(characteristic).size(), 3);
    phone.unsubscribe(characteristic);
    QCOMPARE(m_raw->takeMembers(), (QStringList{"Confirm", "Confirm", "Confirm", "StopNotify"}));
}

void tst_simulator_phones::theEndOfALinkEndsIndications()
{
    start({"indicate"});
    PlimBleTest::Phone phone;
    phone.confirmIndications(false);
    phone.subscribeToIndications(characteristic);
    m_raw->setValue(characteristic, "1");
    m_raw->setValue(characteristic, "2");
    m_raw->settle();
    QCOMPARE(phone.notifications(characteristic), QList<QByteArray>{"1"});
    m_raw->takeMembers();
    phone.disconnect();
    EVENTUALLY_COMPARE(m_raw->last("StopNotify").type(), QDBusMessage::MethodCallMessage);
    QCOMPARE(m_raw->takeMembers(), (QStringList{"PropertiesChanged", "Confirm", "Confirm", "StopNotify"}));
}

void tst_simulator_phones::theLastSubscriptionEndsThemAll()
{
    start({"notify"});
    PlimBleTest::Phone phone;
    PlimBleTest::Phone other("00:AA:01:01:00:03");
    phone.subscribe(characteristic);
    other.subscribe(characteristic);
    m_ble->subscribe(characteristic);
    QCOMPARE(m_raw->takeMembers().filter("Notify"),
             (QStringList{"StartNotify", "StartNotify", "StartNotify"}));
    m_raw->setValue(characteristic, "1");
    EVENTUALLY_COMPARE(other.notifications(characteristic), QList<QByteArray>{"1"});
    QCOMPARE(phone.notifications(characteristic), QList<QByteArray>{"1"});
    QCOMPARE(m_ble->notifications(characteristic), QList<QByteArray>{"1"});
    phone.unsubscribe(characteristic);
    m_ble->unsubscribe(characteristic);
    QCOMPARE(m_raw->takeMembers().filter("Notify"), QStringList());
    other.unsubscribe(characteristic);
    QCOMPARE(m_raw->takeMembers(), QStringList("StopNotify"));
    m_ble->subscribe(characteristic);
    phone.subscribe(characteristic);
    phone.unsubscribe(characteristic);
    QCOMPARE(m_raw->takeMembers(), (QStringList{"StartNotify", "StartNotify"}));
}

void tst_simulator_phones::aBondedPhoneStaysSubscribed()
{
    start({"notify"});
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.subscribe(characteristic);
    phone.disconnect();
    m_raw->setValue(characteristic, "missed");
    m_raw->settle();
    phone.connect();
    m_raw->setValue(characteristic, "delivered");
    EVENTUALLY_COMPARE(phone.notifications(characteristic), QList<QByteArray>{"delivered"});
    QCOMPARE(m_raw->takeMembers().filter("Notify"), QStringList("StartNotify"));

    m_raw->unregisterApplication();
    m_raw->registerApplication();
    phone.unsubscribe(characteristic);
    QCOMPARE(m_raw->takeMembers().filter("Notify"), QStringList());
}

void tst_simulator_phones::aPhoneIsAnObjectOfTheDaemon()
{
    start({"read"});
    const auto connected = [] {
        QDBusMessage call = QDBusMessage::createMethodCall(
            "org.bluez", "/org/bluez/hci0/dev_00_AA_01_01_00_02", "org.freedesktop.DBus.Properties", "Get");
        call << "org.bluez.Device1"
             << "Connected";
        const QDBusMessage answer = QDBusConnection::systemBus().call(call);
        return answer.arguments().value(0).value<QDBusVariant>().variant().toString() + answer.errorName();
    };
    PlimBleTest::Phone phone;
    EVENTUALLY_COMPARE(m_raw->last("InterfacesAdded").arguments().value(0).value<QDBusObjectPath>().path(),
                       phone.device());
    const auto added = qdbus_cast<DBusInterfaceList>(m_raw->last("InterfacesAdded").arguments().value(1));
    QCOMPARE(added["org.bluez.Device1"]["Connected"], QVariant(true));
    QCOMPARE(added["org.bluez.Device1"]["Address"], QVariant("00:AA:01:01:00:02"));
    QCOMPARE(connected(), QString("true"));

    m_raw->takeMembers();
    phone.disconnect();
    phone.disconnect();
    EVENTUALLY_COMPARE(m_raw->last("PropertiesChanged").path(), phone.device());
    const auto changed = qdbus_cast<QVariantMap>(m_raw->last("PropertiesChanged").arguments().value(1));
    QCOMPARE(changed, (QVariantMap{{"Connected", false}, {"ServicesResolved", false}}));
    QCOMPARE(connected(), QString("false"));
    QCOMPARE(errorOf(tell(phone, "Read", {asPath(characteristic), QVariant::fromValue(quint16(0))})),
             QString("NotConnected: The phone 00:AA:01:01:00:02 is not connected"));
    phone.connect();
    QCOMPARE(connected(), QString("true"));
    phone.protect("authenticated");
    phone.forget();
    EVENTUALLY_COMPARE(m_raw->last("InterfacesRemoved").type(), QDBusMessage::SignalMessage);
    QCOMPARE(m_raw->takeMembers(), (QStringList{"PropertiesChanged", "PropertiesChanged", "PropertiesChanged",
                                                "PropertiesChanged", "InterfacesRemoved"}));
    QVERIFY(connected().startsWith("org.freedesktop.DBus.Error."));
    phone.forget();
    phone.connect();
    QCOMPARE(connected(), QString("true"));
    EVENTUALLY_COMPARE(m_raw->last("InterfacesAdded").type(), QDBusMessage::SignalMessage);
    QCOMPARE(m_raw->takeMembers(), QStringList("InterfacesAdded"));
}

void tst_simulator_phones::phonesOutliveTheDaemon()
{
    start({"encrypt-read"});
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    m_ble->restart();
    m_raw->registerApplication();
    QCOMPARE(errorOf(tell(phone, "Disconnect", {})), QString(": "));
    phone.connect();
    QCOMPARE(phone.read(characteristic), QByteArray("value"));
    m_ble->vanish();
    QCOMPARE(errorOf(tell(phone, "Connect", {})), QString("Absent: org.bluez is not on the bus"));
}

void tst_simulator_phones::phonesGoWithTheirAdapter()
{
    start({"read"});
    const PlimBleTest::Phone phone;
    EVENTUALLY_COMPARE(m_raw->last("InterfacesAdded").type(), QDBusMessage::SignalMessage);
    m_raw->takeMembers();
    QCOMPARE(PlimBleTest::control("RemoveAdapter", {"hci0"}).errorMessage(), QString());
    EVENTUALLY_COMPARE(m_raw->last("InterfacesRemoved").arguments().value(0).value<QDBusObjectPath>().path(),
                       QString("/org/bluez/hci0"));
    QCOMPARE(m_raw->takeMembers(),
             (QStringList{"PropertiesChanged", "InterfacesRemoved", "InterfacesRemoved"}));
}

void tst_simulator_phones::handlesAreGivenOutAndKept()
{
    m_raw->addService("/app/s", {{"Handle", QVariant::fromValue(quint16(0))}});
    QList<int> handles;
    for (int round = 0; round < 2; ++round) {
        QCOMPARE(m_raw->registerApplication(), QString());
        handles << handleOf("/app/s");
        m_raw->takeMembers();
        m_raw->unregisterApplication();
    }
    QCOMPARE(handles, (QList<int>{21, 22}));

    // One service, and a characteristic with a subscription and a descriptor: five handles.
    m_raw->addService("/app/s", {{"Handle", QVariant::fromValue(quint16(100))}});
    m_raw->addService("/app/t", {{"Handle", QVariant::fromValue(quint16(0))}});
    start({"read", "notify"});
    m_raw->unregisterApplication();
    m_raw->addService("/app/s", {{"Handle", QVariant::fromValue(quint16(100))}});
    m_raw->addDescriptor(characteristic + "/d", characteristic, {"read"});
    QCOMPARE(m_raw->registerApplication(), QString());
    QCOMPARE(handleOf("/app/t"), 105);
    QCOMPARE(m_raw->takeMembers(), QStringList("Set")); // a handle that is fixed is not written back
}

void tst_simulator_phones::handlesThatAreTakenAreRefused()
{
    m_raw->addService("/app/s", {{"Handle", QVariant::fromValue(quint16(100))}});
    m_raw->addService("/app/t", {{"Handle", QVariant::fromValue(quint16(100))}});
    QCOMPARE(m_raw->registerApplication(), QString("Failed to create entry in database"));
    m_raw->addService("/app/t", {{"Handle", QVariant::fromValue(quint16(0xffff))}});
    QCOMPARE(m_raw->registerApplication(), QString());
    m_raw->unregisterApplication();
    m_raw->addService("/app/u");
    QCOMPARE(m_raw->registerApplication(), QString("Failed to create entry in database"));
}

void tst_simulator_phones::wrongOrdersAreExplained()
{
    start({"notify"});
    const auto add = [](const QString& adapter, const QString& address) {
        return errorOf(PlimBleTest::control("AddPhone", {adapter, address}));
    };
    QCOMPARE(add("hci0", "phone"),
             QString("InvalidArgument: \"phone\" is no address such as 00:AA:01:01:00:02"));
    QCOMPARE(add("hci1", "00:AA:01:01:00:02"), QString("InvalidArgument: There is no adapter hci1"));
    QCOMPARE(add("hci0", "00:AA:01:01:00:01"),
             QString("InvalidArgument: There is a phone 00:AA:01:01:00:01 already"));
    PlimBleTest::Phone phone;
    QCOMPARE(add("hci0", "00:AA:01:01:00:02"),
             QString("InvalidArgument: There is a phone 00:AA:01:01:00:02 already"));
    QCOMPARE(errorOf(tell(phone, "SetProtection", {"high"})),
             QString("InvalidArgument: \"high\" is none of the levels open, encrypted, authenticated, "
                     "secure-connections"));
    QCOMPARE(errorOf(tell(phone, "Subscribe", {asPath(characteristic), "both"})),
             QString("InvalidArgument: \"both\" is neither notifications nor indications"));
    QCOMPARE(errorOf(tell(phone, "Unsubscribe", {asPath("/nowhere")})),
             QString("UnknownPath: No application at /org/bluez/hci0 has a characteristic or descriptor "
                     "/nowhere"));
}

QTEST_GUILESS_MAIN(tst_simulator_phones)
#include "tst_simulator_phones.moc"
