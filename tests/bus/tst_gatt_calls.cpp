#include "GattTree.h"
#include "LogCapture.h"
#include "RawBusClient.h"

#include <QSignalSpy>
#include <QtTest>

class tst_gatt_calls : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void readsReturnWhatTheSlotReturned_data();
    void readsReturnWhatTheSlotReturned();
    void aReadAtOffsetZeroCallsTheCallbackOfTheProcess();
    void readsAndWritesPageThroughAControl();
    void everyMethodGetsAnEmptyReply_data();
    void everyMethodGetsAnEmptyReply();
    void aCallThatWantsNoReplyTakesEffectAllTheSame();
    void optionsReachTheLogWithTheirValues();
    void notificationsAreSentOnceEachWithTheWholeValue();
    void aWriteFromTheBusNotifiesToo();
    void theReleaseOfAParkedValueNotifies();
    void nothingIsNotifiedAfterStopNotify();
    void aCharacteristicThatFailedToExportNotifiesNobody();
    void dyingTreesAnswerNoMore();

private:
    BusMessage call(const GattCharacteristic* characteristic, const QString& member,
                    const QString& signature = {}, const QStringList& arguments = {})
    {
        return m_client.call(characteristic->dbusPath(), characteristicInterface(), member, signature,
                             arguments);
    }
    BusMessage read(const GattCharacteristic* characteristic, int offset)
    {
        return call(characteristic, "ReadValue"_qs, "a{sv}"_qs,
                    {"1"_qs, "offset"_qs, "q"_qs, QString::number(offset)});
    }
    BusMessage write(const GattCharacteristic* characteristic, const QByteArray& bytes)
    {
        return call(characteristic, "WriteValue"_qs, "aya{sv}"_qs,
                    {QString::fromLatin1(bytes.toHex()), "0"_qs});
    }
    static QString changed(const QByteArray& value)
    {
        return R"("org.bluez.GattCharacteristic1", {"Value": <ay [%1]>}, [])"_qs.arg(
            QString::fromLatin1(value.toHex()));
    }

    RawBusClient m_client;
    std::unique_ptr<GattTree> m_tree;
};

void tst_gatt_calls::initTestCase()
{
    m_client.match("type='signal',interface='org.freedesktop.DBus.Properties'"_qs);
}

void tst_gatt_calls::init()
{
    m_tree = std::make_unique<GattTree>();
}

void tst_gatt_calls::cleanup()
{
    m_tree.reset();
    m_client.takeSignals();
}

void tst_gatt_calls::readsReturnWhatTheSlotReturned_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("text") << QByteArray("abc");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("zero bytes") << QByteArray("\0\xff\0", 3);
    QTest::newRow("long") << numberedBytes(1300);
    QTest::newRow("a million") << QByteArray(1000000, 'm');
}

void tst_gatt_calls::readsReturnWhatTheSlotReturned()
{
    QFETCH(QByteArray, value);
    m_tree->plain->setValue(value);
    const BusMessage reply = read(m_tree->plain, 0);
    QCOMPARE(reply.type, "method_return"_qs);
    QCOMPARE(reply.signature, "ay"_qs);
    QCOMPARE(reply.bytes(), value);
    m_tree->descriptor->WriteValue(value, {});
    const BusMessage ofDescriptor = m_client.call(m_tree->descriptor->dbusPath(), descriptorInterface(),
                                                  "ReadValue"_qs, "a{sv}"_qs, {"0"_qs});
    QCOMPARE(ofDescriptor.signature, "ay"_qs);
    QCOMPARE(ofDescriptor.bytes(), value.left(512));
}

void tst_gatt_calls::aReadAtOffsetZeroCallsTheCallbackOfTheProcess()
{
    int calls = 0;
    m_tree->plain->setReadCallback([&] { return QByteArray::number(++calls) + " fetched"; });
    QCOMPARE(read(m_tree->plain, 0).bytes(), QByteArray("1 fetched"));
    QCOMPARE(read(m_tree->plain, 2).bytes(), QByteArray("fetched"));
    QCOMPARE(read(m_tree->plain, 0).bytes(), QByteArray("2 fetched"));
    QCOMPARE(calls, 2);
}

void tst_gatt_calls::readsAndWritesPageThroughAControl()
{
    m_tree->paged->setValue(numberedBytes(1300));
    for (const int page : {0, 1, 2, 3}) {
        write(m_tree->control, QByteArray::number(page));
        QCOMPARE(read(m_tree->paged, 0).bytes(), numberedBytes(1300).mid(512 * page, 512));
        QCOMPARE(read(m_tree->paged, 100).bytes(), numberedBytes(1300).mid(512 * page + 100, 412));
    }
    write(m_tree->control, "1");
    QCOMPARE(write(m_tree->paged, "end").type, "method_return"_qs);
    QCOMPARE(m_tree->paged->value(), QByteArray(numberedBytes(512) + "end"));
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    write(m_tree->control, "-1");
    // The write is dropped, but not refused.
    QCOMPARE(write(m_tree->paged, "lost").type, "method_return"_qs);
    QCOMPARE(read(m_tree->paged, 0).bytes(), QByteArray(numberedBytes(512) + "end"));
}

void tst_gatt_calls::everyMethodGetsAnEmptyReply_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QStringList>("arguments");
    for (const QString& member : {"StartNotify"_qs, "StopNotify"_qs, "Confirm"_qs}) {
        QTest::newRow(qPrintable(member)) << member << QString() << QStringList();
    }
    QTest::newRow("WriteValue") << "WriteValue"_qs
                                << "aya{sv}"_qs << QStringList{"61"_qs, "0"_qs};
}

void tst_gatt_calls::everyMethodGetsAnEmptyReply()
{
    QFETCH(QString, member);
    QFETCH(QString, signature);
    QFETCH(QStringList, arguments);
    const BusMessage reply = call(m_tree->plain, member, signature, arguments);
    QCOMPARE(reply.type, "method_return"_qs);
    QCOMPARE(reply.signature, QString());
}

void tst_gatt_calls::aCallThatWantsNoReplyTakesEffectAllTheSame()
{
    const QSignalSpy told(m_tree->plain, &GattCharacteristic::notifyStateChanged);
    BusCall startNotify{m_tree->plain->dbusPath(), characteristicInterface(), "StartNotify"_qs};
    startNotify.noReply = true;
    QCOMPARE(m_client.call(startNotify).type, "sent"_qs);
    QCOMPARE(read(m_tree->plain, 0).type, "method_return"_qs);
    QCOMPARE(told.size(), 1);
}

void tst_gatt_calls::optionsReachTheLogWithTheirValues()
{
    const LogCapture log;
    call(m_tree->plain, "ReadValue"_qs, "a{sv}"_qs,
         {"4"_qs, "offset"_qs, "q"_qs, "7"_qs, "mtu"_qs, "q"_qs, "517"_qs, "link"_qs, "s"_qs, "LE"_qs,
          "device"_qs, "o"_qs, "/org/bluez/hci0/dev_1"_qs});
    QCOMPARE(log.texts(log4cplus::TRACE_LOG_LEVEL),
             QStringList(
                 "Enter GattCharacteristic::ReadValue: uuid: e0 options: QMap((device, /org/bluez/hci0/dev_1)"
                 "(link, LE)(mtu, 517)(offset, 7))"_qs));
}

void tst_gatt_calls::notificationsAreSentOnceEachWithTheWholeValue()
{
    call(m_tree->paged, "StartNotify"_qs);
    m_tree->paged->setValue("one");
    m_tree->paged->setValue(numberedBytes(1300));
    m_tree->paged->setValue("");
    const QVector<BusMessage> notifications = m_client.takeSignals();
    QCOMPARE(notifications.size(), 3);
    for (const BusMessage& notification : notifications) {
        QCOMPARE(notification.path, m_tree->paged->dbusPath());
        QCOMPARE(notification.interface, propertiesInterface());
        QCOMPARE(notification.member, "PropertiesChanged"_qs);
        QCOMPARE(notification.signature, "sa{sv}as"_qs);
    }
    QCOMPARE(notifications.at(0).text, changed("one"));
    QCOMPARE(notifications.at(1).text, changed(numberedBytes(1300)));
    QCOMPARE(notifications.at(2).text, changed(""));
}

void tst_gatt_calls::aWriteFromTheBusNotifiesToo()
{
    write(m_tree->plain, "unheard");
    call(m_tree->plain, "StartNotify"_qs);
    QCOMPARE(m_client.takeSignals().size(), 0);
    write(m_tree->plain, "heard");
    const QVector<BusMessage> notifications = m_client.takeSignals();
    QCOMPARE(notifications.size(), 1);
    QCOMPARE(notifications.at(0).text, changed("heard"));
}

void tst_gatt_calls::theReleaseOfAParkedValueNotifies()
{
    call(m_tree->paged, "StartNotify"_qs);
    write(m_tree->control, "3");
    m_tree->paged->setValue("parked");
    QCOMPARE(m_client.takeSignals().size(), 0);
    write(m_tree->control, "0");
    const QVector<BusMessage> notifications = m_client.takeSignals();
    QCOMPARE(notifications.size(), 1);
    QCOMPARE(notifications.at(0).path, m_tree->paged->dbusPath());
    QCOMPARE(notifications.at(0).text, changed("parked"));
}

void tst_gatt_calls::nothingIsNotifiedAfterStopNotify()
{
    call(m_tree->plain, "StartNotify"_qs);
    QVERIFY(m_tree->plain->notifying());
    call(m_tree->plain, "StopNotify"_qs);
    m_tree->plain->setValue("unheard");
    QCOMPARE(m_client.takeSignals().size(), 0);
}

void tst_gatt_calls::aCharacteristicThatFailedToExportNotifiesNobody()
{
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    GattCharacteristic* unexported = m_tree->service->createCharacteristic("e0"_qs, readWriteNotify, nullptr);
    unexported->StartNotify();
    const QSignalSpy notified(unexported, &GattCharacteristic::PropertiesChanged);
    unexported->setValue("x");
    QCOMPARE(notified.size(), 1);
    QCOMPARE(m_client.takeSignals().size(), 0);
}

void tst_gatt_calls::dyingTreesAnswerNoMore()
{
    const QString path = m_tree->plain->dbusPath();
    m_tree.reset();
    const BusMessage reply = m_client.call(path, characteristicInterface(), "StartNotify"_qs);
    QCOMPARE(reply.errorName, "org.freedesktop.DBus.Error.UnknownObject"_qs);
}

QTEST_GUILESS_MAIN(tst_gatt_calls)
#include "tst_gatt_calls.moc"
