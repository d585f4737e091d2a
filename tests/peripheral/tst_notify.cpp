#include "Attributes.h"
#include "FakeBluez.h"
#include "LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

using plim::Access;
using plim::Central;
using plim::Characteristic;

/** notify() over the bus, and what BlueZ says about links with its calls. */
class tst_notify : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void theTransportIsTheBusAtFirst();
    void aValueIsStoredAndNotified();
    void withoutASubscriberAValueIsStored();
    void whileAPageIsSelectedAValueIsHeldBack();
    void oneCentralAloneIsNotNotifiedOverTheBus();
    void theLengthComesFromTheMtu();
    void aLengthIsTakenFromBluezAndForItsDevicesOnly();
    void aWriteThatWantsNoReplyIsAcknowledged();

private:
    /** What was notified on the bus since the last call. */
    QStringList notified()
    {
        m_listener.ping();
        QStringList texts;
        for (const BusMessage& signal : m_listener.takeSignals()) {
            texts << signal.text;
        }
        return texts;
    }
    static QString notification(const QString& hexadecimal)
    {
        return "\"org.bluez.GattCharacteristic1\", {\"Value\": <ay [%1]>}, []"_qs.arg(hexadecimal);
    }

    const QString m_path = "/app/aaaa/c0"_qs;
    RawBusClient m_listener;
    std::unique_ptr<FakeBluez> m_bluez;
    std::unique_ptr<Attributes> m_tree;
    Characteristic* m_characteristic = nullptr;
};

void tst_notify::initTestCase()
{
    m_listener.match("type='signal',member='PropertiesChanged',path='%1'"_qs.arg(m_path));
}

void tst_notify::init()
{
    m_bluez = std::make_unique<FakeBluez>("bluez"_qs);
    m_bluez->objects[QDBusObjectPath(phonePath)] = {{"org.bluez.Device1"_qs, {}}};
    QVERIFY(m_bluez->appear());
    m_tree = std::make_unique<Attributes>(Access().write().notify());
    m_characteristic = m_tree->characteristic;
    m_characteristic->trackSubscribers();
    EVENTUALLY_COMPARE(m_bluez->descriptions, 1);
    notified();
}

void tst_notify::cleanup()
{
    m_tree.reset();
    m_bluez.reset();
}

void tst_notify::theTransportIsTheBusAtFirst()
{
    QCOMPARE(m_characteristic->transport(), Characteristic::Transport::Bus);
    m_characteristic->setTransport(Characteristic::Transport::Sockets);
    QCOMPARE(m_characteristic->transport(), Characteristic::Transport::Sockets);
    m_characteristic->setTransport(Characteristic::Transport::Bus);
    QCOMPARE(m_characteristic->transport(), Characteristic::Transport::Bus);
}

void tst_notify::aValueIsStoredAndNotified()
{
    QSignalSpy changed(m_characteristic, &GattCharacteristic::valueChanged);
    m_bluez->send(m_path, "StartNotify"_qs);
    EVENTUALLY_VERIFY(m_characteristic->notifying());
    QVERIFY(m_characteristic->notify("one"));
    QVERIFY(m_characteristic->notify(""));
    QCOMPARE(notified(), (QStringList{notification("6f6e65"_qs), notification(""_qs)}));
    QVERIFY(m_characteristic->value().isEmpty());
    QVERIFY(m_characteristic->notify("two"));
    QCOMPARE(m_characteristic->value(), QByteArray("two"));
    QVERIFY(m_characteristic->missed().isEmpty());
    QCOMPARE(m_characteristic->bytesToWrite(Central(phonePath)), 0);
    QCOMPARE(changed.size(), 0);
}

void tst_notify::withoutASubscriberAValueIsStored()
{
    QVERIFY(m_characteristic->notify("one"));
    QCOMPARE(m_characteristic->value(), QByteArray("one"));
    QCOMPARE(notified(), QStringList());
}

void tst_notify::whileAPageIsSelectedAValueIsHeldBack()
{
    auto* control = Characteristic::create(m_tree->service, "c1"_qs, Access().write());
    auto* paged = Characteristic::create(m_tree->service, "c2"_qs, Access().notify(), {}, control);
    control->setValue("1");
    QVERIFY(paged->notify("later"));
    QCOMPARE(paged->value(), QByteArray());
}

void tst_notify::oneCentralAloneIsNotNotifiedOverTheBus()
{
    m_bluez->send(m_path, "StartNotify"_qs);
    EVENTUALLY_VERIFY(m_characteristic->notifying());
    m_characteristic->notify("all");
    QCOMPARE(notified().size(), 1);
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    QVERIFY(!m_characteristic->notify(Central(phonePath), "one"));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList("%1 has no socket for %2"_qs.arg(phonePath, m_path)));
    QCOMPARE(m_characteristic->value(), QByteArray("all"));
    QCOMPARE(notified(), QStringList());
}

void tst_notify::theLengthComesFromTheMtu()
{
    const Central phone(phonePath);
    QCOMPARE(m_characteristic->maximumLength(phone), 20);
    QDBusPendingCall acquire =
        m_bluez->call(m_path, "AcquireNotify"_qs, {FakeBluez::options(phonePath, "LE"_qs, 247)});
    EVENTUALLY_VERIFY(acquire.isFinished());
    QCOMPARE(m_characteristic->maximumLength(phone), 244);
    m_bluez->send(m_path, "WriteValue"_qs, {QByteArray("x"), FakeBluez::options(phonePath, "LE"_qs, 517)});
    EVENTUALLY_COMPARE(m_characteristic->maximumLength(phone), 514);
    m_bluez->send(m_path, "WriteValue"_qs, {QByteArray("y"), FakeBluez::options(phonePath, "LE"_qs, 0)});
    EVENTUALLY_COMPARE(m_characteristic->value(), QByteArray("y"));
    QCOMPARE(m_characteristic->maximumLength(phone), 514);
    // The next link may have shorter packets.
    m_bluez->change(phonePath, "org.bluez.Device1"_qs, {{"Connected"_qs, false}});
    EVENTUALLY_COMPARE(m_characteristic->maximumLength(phone), 20);
    m_bluez->send(m_path, "WriteValue"_qs, {QByteArray("z"), FakeBluez::options(phonePath, "LE"_qs, 100)});
    EVENTUALLY_COMPARE(m_characteristic->maximumLength(phone), 97);
    m_bluez->remove(phonePath, {"org.bluez.Device1"_qs});
    EVENTUALLY_COMPARE(m_characteristic->maximumLength(phone), 20);
}

void tst_notify::aLengthIsTakenFromBluezAndForItsDevicesOnly()
{
    Caller stranger;
    QVERIFY(!stranger.write(m_path, "x").isError());
    QCOMPARE(m_characteristic->maximumLength(Central(phonePath)), 20);
    m_bluez->send(m_path, "WriteValue"_qs, {QByteArray("y"), FakeBluez::options(tabletPath, "LE"_qs, 517)});
    EVENTUALLY_COMPARE(m_characteristic->value(), QByteArray("y"));
    QCOMPARE(m_characteristic->maximumLength(Central(tabletPath)), 20);
}

void tst_notify::aWriteThatWantsNoReplyIsAcknowledged()
{
    QList<bool> acknowledged;
    m_characteristic->setWriteHandler([&](const plim::WriteRequest& request) {
        acknowledged << request.isAcknowledged();
        request.accept();
    });
    const QVariantList arguments{QByteArray("x"), FakeBluez::options(phonePath, "LE"_qs, 247)};
    m_bluez->send(m_path, "WriteValue"_qs, arguments);
    const QDBusPendingCall write = m_bluez->call(m_path, "WriteValue"_qs, arguments);
    EVENTUALLY_VERIFY(write.isFinished());
    QCOMPARE(acknowledged, (QList<bool>{true, false}));
    QVERIFY(!plim::WriteRequest().isAcknowledged());
}

QTEST_GUILESS_MAIN(tst_notify)
#include "tst_notify.moc"
