#include "Device.h"

#include <QElapsedTimer>
#include <QTimer>

using plim::Access;
using plim::AttError;
using plim::ReadRequest;
using plim::WriteRequest;

namespace {

Access protectedBy(Access::Level level)
{
    return Access().read(level).write(level).notify(level);
}

} // namespace

/** What a phone gets when it reads and writes, by the stand-in daemon. */
class tst_phone_requests : public QObject
{
    Q_OBJECT

private slots:
    void anAccessLevelLetsThroughWhoIsProtectedEnough_data();
    void anAccessLevelLetsThroughWhoIsProtectedEnough();
    void whatTheAccessLacksIsRefused();
    void everyErrorReachesThePhone_data();
    void everyErrorReachesThePhone();
    void aRefusedWriteLeavesTheValueUnchanged();
    void aLateAnswerArrives();
    void anAnswerThatNeverComesIsAnErrorAfterFiveSeconds();
    void fiftyReadsWaitAtOnce();
    void aWriteWithoutResponseArrives();
    void writesAreAcknowledgedBeforeTheProgramAnswers();
    void twoPhonesAreToldApart();
    void characteristicsOfOneUuidAreReadApart();
    void descriptorsAreProtectedToo();
    void theDaemonsHandleIsKept();
};

void tst_phone_requests::anAccessLevelLetsThroughWhoIsProtectedEnough_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("below");
    QTest::addColumn<QString>("enough");
    const QString authentication = "0x05 Insufficient Authentication";
    QTest::newRow("encrypted") << int(Access::Encrypted) << "open"
                               << "0x0f Insufficient Encryption"
                               << "encrypted";
    QTest::newRow("authenticated") << int(Access::Authenticated) << "encrypted" << authentication
                                   << "authenticated";
    QTest::newRow("secure") << int(Access::SecureConnections) << "authenticated" << authentication
                            << "secure-connections";
}

void tst_phone_requests::anAccessLevelLetsThroughWhoIsProtectedEnough()
{
    QFETCH(const int, level);
    QFETCH(const QString, before);
    QFETCH(const QString, below);
    QFETCH(const QString, enough);
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(protectedBy(Access::Level(level)));
    value->setValue("secret");
    int asked = 0;
    value->setWriteHandler([&](const WriteRequest& request) {
        ++asked;
        request.accept();
    });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    phone.protect(before);
    QCOMPARE(phone.read(value->dbusPath()), QByteArray());
    QCOMPARE(phone.error(), below);
    phone.write(value->dbusPath(), "x");
    QCOMPARE(phone.error(), below);
    phone.writeWithoutResponse(value->dbusPath(), "x");
    phone.subscribe(value->dbusPath());
    QCOMPARE(phone.error(), below);
    QVERIFY(asked == 0 && !value->notifying());

    phone.protect(enough);
    QCOMPARE(phone.read(value->dbusPath()), QByteArray("secret"));
    phone.write(value->dbusPath(), "new");
    QCOMPARE(phone.error(), QString());
    QCOMPARE(value->value(), QByteArray("new"));
    phone.subscribe(value->dbusPath());
    QVERIFY(phone.error().isEmpty() && value->notifying());
}

void tst_phone_requests::whatTheAccessLacksIsRefused()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* notified = device.add(Access().notify(), "notified");
    plim::Characteristic* written = device.add(Access().write(), "written");
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    // The daemon lets the first two through.
    phone.read(notified->dbusPath());
    QCOMPARE(phone.error(), QString("0x02 Read Not Permitted"));
    phone.write(notified->dbusPath(), "x");
    QCOMPARE(phone.error(), QString("0x03 Write Not Permitted"));
    phone.writeWithoutResponse(notified->dbusPath(), "x");
    QCOMPARE(notified->value(), QByteArray());
    phone.read(written->dbusPath());
    QCOMPARE(phone.error(), QString("0x02 Read Not Permitted"));
    phone.subscribe(written->dbusPath());
    QCOMPARE(phone.error(), QString("0x0a Attribute Not Found"));
}

void tst_phone_requests::everyErrorReachesThePhone_data()
{
    QTest::addColumn<AttError>("error");
    QTest::addColumn<QString>("read");
    QTest::addColumn<QString>("write");
    const auto row = [](const AttError& error, const char* read, const char* write = nullptr) {
        QTest::newRow(read) << error << QString(read) << QString(write ? write : read);
    };
    row(AttError::ReadNotPermitted, "0x02 Read Not Permitted", "0x03 Write Not Permitted");
    row(AttError::RequestNotSupported, "0x06 Request Not Supported");
    row(AttError::InvalidOffset, "0x07 Invalid Offset");
    row(AttError::InsufficientAuthorization, "0x08 Insufficient Authorization");
    row(AttError::InvalidAttributeValueLength, "0x0d Invalid Attribute Value Length");
    row(AttError::UnlikelyError, "0x0e Unlikely Error");
    row(AttError::ProcedureAlreadyInProgress, "0xfe Procedure Already in Progress");
    row(AttError::ImproperlyConfigured, "0xfd Improperly Configured");
    row(AttError::application(0x80), "0x80 Application Error");
    row(AttError::application(0x9f), "0x9f Application Error");
}

void tst_phone_requests::everyErrorReachesThePhone()
{
    QFETCH(const AttError, error);
    QFETCH(const QString, read);
    QFETCH(const QString, write);
    for (const QString& version : QStringList{"5.66", "5.82"}) {
        const PlimBleTest ble({"--bluez", version});
        Device device;
        plim::Characteristic* value = device.add(Access().read().write());
        value->setReadHandler([&](const ReadRequest& request) { request.reject(error); });
        value->setWriteHandler([&](const WriteRequest& request) { request.reject(error); });
        QVERIFY(device.ready(ble));
        const bool isOlder = version == "5.66" && error == AttError::ImproperlyConfigured;
        PlimBleTest::Phone phone;
        phone.read(value->dbusPath());
        QCOMPARE(phone.error(), isOlder ? "0x0e Unlikely Error" : read);
        phone.write(value->dbusPath(), "x");
        QCOMPARE(phone.error(), isOlder ? "0x0e Unlikely Error" : write);
    }
}

void tst_phone_requests::aRefusedWriteLeavesTheValueUnchanged()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().read().write().notify());
    value->setValue("old");
    value->setWriteHandler([](const WriteRequest& request) { request.reject(AttError::application(0x81)); });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    phone.subscribe(value->dbusPath());
    phone.write(value->dbusPath(), "new");
    QCOMPARE(phone.error(), QString("0x81 Application Error"));
    QCOMPARE(phone.read(value->dbusPath()), QByteArray("old"));
    QCOMPARE(phone.notifications(value->dbusPath()), QList<QByteArray>());
}

void tst_phone_requests::aLateAnswerArrives()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().read());
    value->setReadHandler([](const ReadRequest& request) {
        QTimer::singleShot(3000, Qt::PreciseTimer, qApp, [request] { request.accept("measured"); });
    });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(phone.read(value->dbusPath()), QByteArray("measured"));
    QVERIFY2(clock.elapsed() >= 3000, qPrintable(QString::number(clock.elapsed())));
}

void tst_phone_requests::anAnswerThatNeverComesIsAnErrorAfterFiveSeconds()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().read());
    QList<ReadRequest> kept;
    value->setReadHandler([&](const ReadRequest& request) { kept << request; });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    QElapsedTimer clock;
    clock.start();
    phone.read(value->dbusPath());
    QCOMPARE(phone.error(), QString("0x0e Unlikely Error"));
    // D-Bus itself would give up after 25 s.
    QVERIFY2(clock.elapsed() >= 4700 && clock.elapsed() < 20000,
             qPrintable(QString::number(clock.elapsed())));
    EVENTUALLY_VERIFY(kept[0].isAnswered());
    kept[0].accept("too late");
    value->setReadHandler([](const ReadRequest& request) { request.accept("in time"); });
    QCOMPARE(phone.read(value->dbusPath()), QByteArray("in time"));
}

void tst_phone_requests::fiftyReadsWaitAtOnce()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().read());
    QList<ReadRequest> kept;
    value->setReadHandler([&](const ReadRequest& request) { kept << request; });
    QVERIFY(device.ready(ble));
    const PlimBleTest::Phone phone;
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.plim.BluezSimulator", QString(phone.device()).replace("/org/bluez", "/org/plim/BluezSimulator"),
        "org.plim.BluezSimulator1.Phone", "Read");
    call << QVariant::fromValue(QDBusObjectPath(value->dbusPath())) << QVariant::fromValue(quint16(0));
    QList<QDBusPendingCall> reads;
    for (int i = 0; i < 50; ++i) {
        reads << QDBusConnection::systemBus().asyncCall(call);
    }
    EVENTUALLY_COMPARE(kept.size(), 50);
    for (int i = 49; i >= 0; --i) {
        kept[i].accept(QByteArray::number(i));
    }
    for (int i = 0; i < 50; ++i) {
        EVENTUALLY_VERIFY(reads[i].isFinished());
        QCOMPARE(reads[i].reply().arguments().value(0).toByteArray(), QByteArray::number(i));
    }
}

void tst_phone_requests::aWriteWithoutResponseArrives()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().writeWithoutResponse());
    QStringList writers;
    value->setWriteHandler([&](const WriteRequest& request) {
        writers << request.central().path();
        request.accept();
    });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    phone.writeWithoutResponse(value->dbusPath(), "command");
    EVENTUALLY_COMPARE(value->value(), QByteArray("command"));
    QCOMPARE(writers, QStringList(phone.device()));
}

void tst_phone_requests::writesAreAcknowledgedBeforeTheProgramAnswers()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().write().writeWithoutResponse());
    value->setValue("old");
    QList<WriteRequest> kept;
    value->setWriteHandler([&](const WriteRequest& request) { kept << request; });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    phone.write(value->dbusPath(), "new");
    QCOMPARE(phone.error(), QString());
    EVENTUALLY_COMPARE(kept.size(), 1);
    QVERIFY(!kept[0].isAnswered());
    kept[0].reject(AttError::application(0x81));
    QCOMPARE(value->value(), QByteArray("old"));
}

void tst_phone_requests::twoPhonesAreToldApart()
{
    const PlimBleTest ble;
    Device device;
    plim::Characteristic* value = device.add(Access().read().write());
    QMap<QString, QByteArray> written;
    value->setReadHandler(
        [&](const ReadRequest& request) { request.accept(written[request.central().path()]); });
    value->setWriteHandler([&](const WriteRequest& request) {
        written[request.central().path()] = request.value();
        request.accept();
    });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone("00:AA:01:01:00:02");
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.write(value->dbusPath(), "phone's");
    tablet.write(value->dbusPath(), "tablet's");
    QCOMPARE(phone.read(value->dbusPath()), QByteArray("phone's"));
    QCOMPARE(tablet.read(value->dbusPath()), QByteArray("tablet's"));
    QCOMPARE(written.keys(), (QStringList{phone.device(), tablet.device()}));
}

void tst_phone_requests::characteristicsOfOneUuidAreReadApart()
{
    const PlimBleTest ble;
    Device device;
    const QStringList names{"report1", "report2", "report3"};
    for (const QString& name : names) {
        plim::Characteristic* report = device.add(Access().read().notify(), name);
        report->setValue(name.toUtf8());
    }
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    for (const QString& name : names) {
        const QString path = device.service->dbusPath() + '/' + name;
        QCOMPARE(phone.read(path), name.toUtf8());
        phone.subscribe(path);
    }
    for (GattCharacteristic* report : device.service->characteristics()) {
        report->setValue("pressed");
        EVENTUALLY_COMPARE(phone.notifications(report->dbusPath()), QList<QByteArray>{"pressed"});
    }
}

void tst_phone_requests::descriptorsAreProtectedToo()
{
    const PlimBleTest ble;
    Device device;
    plim::Descriptor* note = plim::Descriptor::create(device.add(Access().read()), "2901",
                                                      Access().read().write(Access::Encrypted));
    note->setReadHandler([](const ReadRequest& request) { request.accept("note"); });
    note->setWriteHandler([](const WriteRequest& request) { request.reject(AttError::application(0x90)); });
    QVERIFY(device.ready(ble));
    PlimBleTest::Phone phone;
    QCOMPARE(phone.read(note->dbusPath()), QByteArray("note"));
    phone.write(note->dbusPath(), "x");
    QCOMPARE(phone.error(), QString("0x0f Insufficient Encryption"));
    phone.protect("encrypted");
    phone.write(note->dbusPath(), "x");
    QCOMPARE(phone.error(), QString("0x90 Application Error"));
}

void tst_phone_requests::theDaemonsHandleIsKept()
{
    PlimBleTest ble;
    Device device;
    device.add(Access().read());
    device.service->setHandle(0);
    QVERIFY(device.ready(ble));
    EVENTUALLY_VERIFY(device.service->handle() != 0);
    const quint16 handle = device.service->handle();
    ble.restart();
    EVENTUALLY_COMPARE(ble.applications().size(), 1);
    const auto tree =
        PlimBleTest::control("Tree", {QVariant::fromValue(QDBusObjectPath(device.app.dbusPath()))});
    const auto objects =
        qdbus_cast<QMap<QDBusObjectPath, QMap<QString, QVariantMap>>>(tree.arguments().value(0));
    QCOMPARE(objects[QDBusObjectPath(device.service->dbusPath())]["org.bluez.GattService1"]["Handle"],
             QVariant::fromValue(handle));
}

QTEST_GUILESS_MAIN(tst_phone_requests)
#include "tst_phone_requests.moc"
