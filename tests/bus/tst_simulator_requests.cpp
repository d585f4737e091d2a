#include "SimulatorPhones.h"

#include <QElapsedTimer>

namespace {

const QStringList levels{"open", "encrypted", "authenticated", "secure-connections"};

QVariantMap optionsOf(const QDBusMessage& call)
{
    return qdbus_cast<QVariantMap>(call.arguments().last());
}

} // namespace

/** How the phones of the stand-in daemon read and write, and what it makes of the answers. */
class tst_simulator_requests : public QObject, private SimulatorPhones
{
    Q_OBJECT

private slots:
    void init() { begin(); }
    void cleanup() { end(); }
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
};

void tst_simulator_requests::flagsAndProtectionDecide_data()
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

void tst_simulator_requests::flagsAndProtectionDecide()
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

void tst_simulator_requests::flagsThatTheDaemonKnowsAreTaken()
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

void tst_simulator_requests::otherFlagsAreRefused_data()
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

void tst_simulator_requests::otherFlagsAreRefused()
{
    QFETCH(const QString, flag);
    QFETCH(const bool, isOfDescriptor);
    m_raw->add(characteristic, isOfDescriptor ? QStringList("read") : QStringList{"read", flag});
    if (isOfDescriptor) {
        m_raw->addDescriptor(characteristic + "/d", characteristic, {"read", flag});
    }
    QCOMPARE(m_raw->registerApplication(), QString("No valid service object found"));
}

void tst_simulator_requests::errorsBecomeCodes_data()
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

void tst_simulator_requests::errorsBecomeCodes()
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

void tst_simulator_requests::answersOfAnotherTypeAreAnError()
{
    start({"read"});
    PlimBleTest::Phone phone;
    m_raw->answerWith([](const QDBusMessage& call) { return call.createReply("text"); });
    phone.read(characteristic);
    QCOMPARE(phone.error(), QString("0x06 Request Not Supported"));
    m_raw->answerWith([](const QDBusMessage& call) { return call.createReply(QByteArray(513, 'x')); });
    QCOMPARE(phone.read(characteristic).size(), 512);
}

void tst_simulator_requests::aRequestEndsAfterFiveSeconds()
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

void tst_simulator_requests::callsHaveTheDaemonsOptions()
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

void tst_simulator_requests::writesThatNeedNoAnswerGetNone()
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
    m_raw->settle();
    QCOMPARE(m_raw->takeMembers(), QStringList());
}

QTEST_GUILESS_MAIN(tst_simulator_requests)
#include "tst_simulator_requests.moc"
