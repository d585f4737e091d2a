#include "PlimBleTest.h"
#include "RawPeripheral.h"

#include <QElapsedTimer>

namespace {

const QStringList levels{"open", "encrypted", "authenticated", "secure-connections"};
const QString characteristic = "/app/s/c";
const QString phoneInterface = "org.plim.BluezSimulator1.Phone";

/** Calls a method of a phone's control object; the answer may be any error. */
QDBusMessage tell(const PlimBleTest::Phone& phone, const QString& method, const QVariantList& arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.plim.BluezSimulator", QString(phone.device()).replace("/org/bluez", "/org/plim/BluezSimulator"),
        phoneInterface, method);
    call.setArguments(arguments);
    return PlimBleTestDetail::callWithEventLoop(QDBusConnection::systemBus(), call);
}

QString errorOf(const QDBusMessage& answer)
{
    return answer.errorName().section('.', -1) + ": " + answer.errorMessage();
}

QVariant asPath(const QString& path)
{
    return QVariant::fromValue(QDBusObjectPath(path));
}

QVariantMap optionsOf(const QDBusMessage& call)
{
    return qdbus_cast<QVariantMap>(call.arguments().last());
}

} // namespace

#define EVENTUALLY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 10000)

/** The phones that are added to the stand-in daemon, and how it treats them. */
class tst_simulator_phones : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void flagsAndProtectionDecide_data();
    void flagsAndProtectionDecide();
    void flagsThatTheDaemonKnowsAreTaken();
    void otherFlagsAreRefused_data();
    void otherFlagsAreRefused();
    void errorsBecomeCodes_data();
    void errorsBecomeCodes();
    void answersOfAnotherTypeAreAnError();
    void aRequestEndsAfterFiveSeconds();
    void callsHaveTheDaemonsOptions();
    void writesThatNeedNoAnswerGetNone();
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
    void start(const QStringList& flags, const QVariantMap& more = {})
    {
        m_raw->add(characteristic, flags, more);
        QCOMPARE(m_raw->registerApplication(), QString());
        m_raw->takeMembers();
    }
    /** The service's handle, which the daemon writes back. */
    int handleOf(const QString& path)
    {
        const auto hasCome = [&] { return m_raw->last("Set").path() == path; };
        if (!QTest::qWaitFor(hasCome, 10000)) {
            return -1;
        }
        return m_raw->last("Set").arguments().last().value<QDBusVariant>().variant().toInt();
    }

    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<RawPeripheral> m_raw;
};

void tst_simulator_phones::init()
{
    m_ble = std::make_unique<PlimBleTest>();
    m_raw = std::make_unique<RawPeripheral>();
}

void tst_simulator_phones::cleanup()
{
    m_raw.reset();
    m_ble.reset();
}

void tst_simulator_phones::flagsAndProtectionDecide_data()
{
    QTest::addColumn<QStringList>("flags");
    QTest::addColumn<QStringList>("read"); // by level
    QTest::addColumn<QStringList>("write");
    QTest::addColumn<QStringList>("subscribe");
    const auto always = [](const QString& error) { return QStringList{error, error, error, error}; };
    const QStringList yes = always({});
    const QStringList noRead = always("0x02 Read Not Permitted");
    const QStringList noWrite = always("0x03 Write Not Permitted");
    const QStringList nothing = always("0x0a Attribute Not Found");
    const QString authentication("0x05 Insufficient Authentication");
    const QStringList encrypted{"0x0f Insufficient Encryption", {}, {}, {}};
    const QStringList authenticated{authentication, authentication, {}, {}};
    const QStringList secure{authentication, authentication, authentication, {}};
    const auto row = [](const char* flags, const QStringList& read, const QStringList& write,
                        const QStringList& subscribe) {
        QTest::newRow(flags) << QString(flags).split(' ') << read << write << subscribe;
    };
    row("read", yes, noWrite, nothing);
    row("write", noRead, yes, nothing);
    row("notify", yes, yes, yes);
    row("read write notify", yes, yes, yes);
    row("encrypt-read", encrypted, noWrite, nothing);
    row("read encrypt-read write", encrypted, yes, nothing);
    row("encrypt-authenticated-read write", authenticated, yes, nothing);
    row("secure-read encrypt-write", secure, encrypted, nothing);
    row("encrypt-authenticated-write", noRead, authenticated, nothing);
    row("read secure-write encrypt-notify", yes, secure, encrypted);
    row("read encrypt-authenticated-notify", yes, noWrite, authenticated);
    row("read secure-notify", yes, noWrite, secure);
}

void tst_simulator_phones::flagsAndProtectionDecide()
{
    QFETCH(const QStringList, flags);
    QFETCH(const QStringList, read);
    QFETCH(const QStringList, write);
    QFETCH(const QStringList, subscribe);
    start(flags);
    for (int level = 0; level < levels.size(); ++level) {
        PlimBleTest::Phone phone("00:AA:01:01:00:1" + QString::number(level));
        phone.protect(levels[level]);
        phone.read(characteristic);
        QCOMPARE(phone.error(), read[level]);
        phone.write(characteristic, "x");
        QCOMPARE(phone.error(), write[level]);
        phone.subscribe(characteristic);
        QCOMPARE(phone.error(), subscribe[level]);
        const auto asked = [](const QStringList& errors, int index) { return errors[index].isEmpty(); };
        QCOMPARE(m_raw->last("ReadValue").type() == QDBusMessage::MethodCallMessage, asked(read, level));
        QCOMPARE(m_raw->last("WriteValue").type() == QDBusMessage::MethodCallMessage, asked(write, level));
        QCOMPARE(m_raw->last("StartNotify").type() == QDBusMessage::MethodCallMessage,
                 asked(subscribe, level));
        m_raw->takeMembers();
    }
}

void tst_simulator_phones::flagsThatTheDaemonKnowsAreTaken()
{
    m_raw->add(characteristic, {"broadcast",
                                "read",
                                "write-without-response",
                                "write",
                                "notify",
                                "indicate",
                                "authenticated-signed-writes",
                                "extended-properties",
                                "reliable-write",
                                "writable-auxiliaries",
                                "encrypt-read",
                                "encrypt-write",
                                "encrypt-notify",
                                "encrypt-indicate",
                                "encrypt-authenticated-read",
                                "encrypt-authenticated-write",
                                "encrypt-authenticated-notify",
                                "encrypt-authenticated-indicate",
                                "secure-read",
                                "secure-write",
                                "secure-notify",
                                "secure-indicate",
                                "authorize"});
    m_raw->addDescriptor(characteristic + "/d", characteristic,
                         {"read", "write", "encrypt-read", "encrypt-write", "encrypt-authenticated-read",
                          "encrypt-authenticated-write", "secure-read", "secure-write", "authorize"});
    QCOMPARE(m_raw->registerApplication(), QString());
}

void tst_simulator_phones::otherFlagsAreRefused_data()
{
    QTest::addColumn<QString>("flag");
    QTest::addColumn<bool>("isOfDescriptor");
    for (const char* flag :
         {"Read", "encrypted-read", "secure-broadcast", "encrypt-write-without-response", ""}) {
        QTest::addRow("characteristic %s", flag) << flag << false;
    }
    for (const char* flag : {"notify", "write-without-response", "encrypt-notify"}) {
        QTest::addRow("descriptor %s", flag) << flag << true;
    }
}

void tst_simulator_phones::otherFlagsAreRefused()
{
    QFETCH(const QString, flag);
    QFETCH(const bool, isOfDescriptor);
    m_raw->add(characteristic, isOfDescriptor ? QStringList("read") : QStringList{"read", flag});
    if (isOfDescriptor) {
        m_raw->addDescriptor(characteristic + "/d", characteristic, {"read", flag});
    }
    QCOMPARE(m_raw->registerApplication(), QString("No valid service object found"));
}

void tst_simulator_phones::errorsBecomeCodes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("text"); // none where it is invalid
    QTest::addColumn<QString>("read");
    QTest::addColumn<QString>("write");
    const auto row = [](const char* name, const QVariant& text, const QString& read,
                        const QString& write = {}) {
        QTest::addRow("%s \"%s\"", name, qPrintable(text.toString()))
            << QString(name) << text << read << (write.isEmpty() ? read : write);
    };
    const QString unlikely("0x0e Unlikely Error");
    const QString first("0x80 Application Error");
    row("org.bluez.Error.Failed", {}, first);
    row("org.bluez.Error.Failed", "", unlikely);
    row("org.bluez.Error.Failed", "no such luck", first);
    row("org.bluez.Error.Failed", "0x81 and more", first);
    row("org.bluez.Error.Failed", "0x80", first);
    row("org.bluez.Error.Failed", "0x9f", "0x9f Application Error");
    row("org.bluez.Error.Failed", "129", "0x81 Application Error");
    row("org.bluez.Error.Failed", "0x7f", unlikely);
    row("org.bluez.Error.Failed", "0xa0", unlikely);
    row("org.bluez.Error.Failed", "-1", unlikely);
    row("org.bluez.Error.NotPermitted", "0x81", "0x02 Read Not Permitted", "0x03 Write Not Permitted");
    row("org.bluez.Error.NotAuthorized", "", "0x08 Insufficient Authorization");
    row("org.bluez.Error.InvalidValueLength", "", "0x0d Invalid Attribute Value Length");
    row("org.bluez.Error.InvalidOffset", "", "0x07 Invalid Offset");
    row("org.bluez.Error.NotSupported", "", "0x06 Request Not Supported");
    row("org.bluez.Error.InProgress", "", "0xfe Procedure Already in Progress");
    row("org.bluez.Error.ImproperlyConfigured", "", "0xfd Improperly Configured");
    row("org.bluez.Error.Unknown", "0x81", unlikely);
    row("com.example.Failed", "0x81", unlikely);
}

void tst_simulator_phones::errorsBecomeCodes()
{
    QFETCH(const QString, name);
    QFETCH(const QVariant, text);
    QFETCH(const QString, read);
    QFETCH(const QString, write);
    for (const QString& version : QStringList{"5.66", "5.82"}) {
        cleanup();
        m_ble = std::make_unique<PlimBleTest>(QStringList{"--bluez", version});
        m_raw = std::make_unique<RawPeripheral>();
        start({"read", "write"});
        m_raw->answerWith([&](const QDBusMessage& call) {
            QDBusMessage error = call.createErrorReply(name, text.toString());
            error.setArguments(text.isValid() ? QVariantList{text} : QVariantList());
            return error;
        });
        const bool isOlder = version == "5.66" && name.endsWith("ImproperlyConfigured");
        PlimBleTest::Phone phone;
        phone.read(characteristic);
        QCOMPARE(phone.error(), isOlder ? "0x0e Unlikely Error" : read);
        phone.write(characteristic, "x");
        QCOMPARE(phone.error(), isOlder ? "0x0e Unlikely Error" : write);
    }
}

void tst_simulator_phones::answersOfAnotherTypeAreAnError()
{
    start({"read"});
    PlimBleTest::Phone phone;
    m_raw->answerWith([](const QDBusMessage& call) { return call.createReply("text"); });
    phone.read(characteristic);
    QCOMPARE(phone.error(), QString("0x06 Request Not Supported"));
    m_raw->answerWith([](const QDBusMessage& call) { return call.createReply(QByteArray(513, 'x')); });
    QCOMPARE(phone.read(characteristic).size(), 512);
}

void tst_simulator_phones::aRequestEndsAfterFiveSeconds()
{
    start({"read"});
    m_raw->answerWith([](const QDBusMessage&) { return QDBusMessage(); }); // never
    PlimBleTest::Phone phone;
    QElapsedTimer clock;
    clock.start();
    phone.read(characteristic);
    QCOMPARE(phone.error(), QString("0x0e Unlikely Error"));
    QVERIFY2(clock.elapsed() >= 4990 && clock.elapsed() < 20000,
             qPrintable(QString::number(clock.elapsed())));
    m_raw->send(m_raw->last("ReadValue").createReply(QByteArray("too late")));
    m_raw->answerWith({});
    QCOMPARE(phone.read(characteristic), QByteArray("value"));
}

void tst_simulator_phones::callsHaveTheDaemonsOptions()
{
    start({"read", "write", "notify"}, {{"NotifyAcquired", false}});
    PlimBleTest::Phone phone("00:AA:01:01:00:07");
    const QStringList usual{"device", "link", "mtu"};
    phone.read(characteristic);
    QVariantMap options = optionsOf(m_raw->last("ReadValue"));
    QCOMPARE(QStringList(options.keys()), usual);
    QCOMPARE(options["device"].value<QDBusObjectPath>().path(),
             QString("/org/bluez/hci0/dev_00_AA_01_01_00_07"));
    QCOMPARE(options["link"].toString(), QString("LE"));
    QCOMPARE(options["mtu"].value<quint16>(), quint16(517));
    phone.read(characteristic, 3);
    options = optionsOf(m_raw->last("ReadValue"));
    QCOMPARE(QStringList(options.keys()), usual + QStringList("offset"));
    QCOMPARE(options["offset"].value<quint16>(), quint16(3));
    phone.write(characteristic, "x");
    QCOMPARE(QStringList(optionsOf(m_raw->last("WriteValue")).keys()), usual);
    QVERIFY(m_raw->last("WriteValue").isReplyRequired());
    m_raw->answerWith(
        [](const QDBusMessage& call) { return call.createErrorReply("org.bluez.Error.NotSupported", ""); });
    phone.subscribe(characteristic);
    QCOMPARE(QStringList(optionsOf(m_raw->last("AcquireNotify")).keys()), usual);
}

void tst_simulator_phones::writesThatNeedNoAnswerGetNone()
{
    start({"write", "write-without-response"});
    m_raw->answerWith([](const QDBusMessage&) { return QDBusMessage(); }); // never
    PlimBleTest::Phone phone;
    phone.write(characteristic, "request");
    QCOMPARE(phone.error(), QString());
    phone.writeWithoutResponse(characteristic, "command");
    EVENTUALLY_COMPARE(m_raw->last("WriteValue").arguments().value(0).toByteArray(), QByteArray("command"));
    QVERIFY(!m_raw->last("WriteValue").isReplyRequired());
    QCOMPARE(m_raw->takeMembers().filter("WriteValue").size(), 2);

    // The daemon hands commands on whatever the flags say.
    m_raw->unregisterApplication();
    start({"notify"});
    phone.writeWithoutResponse(characteristic, "command");
    EVENTUALLY_COMPARE(m_raw->last("WriteValue").arguments().value(0).toByteArray(), QByteArray("command"));
    QVERIFY(m_raw->last("WriteValue").isReplyRequired());

    m_raw->unregisterApplication();
    start({"encrypt-write", "write-without-response"});
    phone.writeWithoutResponse(characteristic, "refused");
    QCOMPARE(m_raw->takeMembers(), QStringList());
}

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
    QCOMPARE(subscribe({}), QString("AcquireNotify InvalidAnswer: AcquireNotify answered with a socket, "
                                    "which is not played"));
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
