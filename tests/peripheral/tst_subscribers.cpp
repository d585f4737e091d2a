#include "Attributes.h"
#include "LogCapture.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QSignalSpy>
#include <QtTest>

using plim::Access;
using plim::Central;

class tst_subscribers : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_tree.reset(); }
    void aDeclinedSocketNamesTheSubscriber();
    void aSubscriberIsNamedOnce();
    void theEndOfAllSubscriptionsEndsEach();
    void aForgottenCentralIsSubscribedNoLonger();
    void otherInterfacesOfACentralMayGo();
    void aDisconnectionAloneEndsNoSubscription();
    void aNewRegistrationEndsAllSubscriptions();
    void theEndOfTheDaemonEndsAllSubscriptions();
    void subscribersAreNotCountedWithoutEnd();
    void aCallWithoutACentralNamesNobody();
    void withoutTrackingNobodyIsNamed();
    void aConfirmationIsTold();
    void theEndOfALinkIsNoConfirmation();
    void whatIsSentAfterTheEndOfALinkIsConfirmed();
    void othersPropertiesAreNoEndOfALink();
    void onlyIndicationsAreConfirmed();
    void slotsMayDeleteTheCharacteristic_data();
    void slotsMayDeleteTheCharacteristic();

private:
    static QList<Central> centrals(const QStringList& paths)
    {
        QList<Central> all;
        for (const QString& path : paths) {
            all << Central(path);
        }
        return all;
    }
    int startSetConnected(const QString& device, bool connected,
                          const QString& interface = "org.bluez.Device1"_qs)
    {
        return m_daemon->startSignal(
            device, "org.freedesktop.DBus.Properties"_qs, "PropertiesChanged"_qs, "sa{sv}as"_qs,
            {interface, "1"_qs, "Connected"_qs, "b"_qs, connected ? "true"_qs : "false"_qs, "0"_qs});
    }
    void setConnected(const QString& device, bool connected,
                      const QString& interface = "org.bluez.Device1"_qs)
    {
        m_daemon->answer(startSetConnected(device, connected, interface));
    }
    /** A link is lost, and open indications end. As BlueZ does, all is sent at once: how long after the loss
     * a confirmation comes decides what it is taken for. */
    void loseLink(const QString& device, int openIndications)
    {
        startSetConnected(device, false);
        QVector<int> confirmations;
        for (int i = 0; i < openIndications; ++i) {
            confirmations << m_daemon->start({m_path, "org.bluez.GattCharacteristic1"_qs, "Confirm"_qs});
        }
        for (const int confirmation : qAsConst(confirmations)) {
            QCOMPARE(outcome(m_daemon->answer(confirmation)), "method_return"_qs);
        }
    }
    /** Returns when the library knows the daemon, which has no objects yet. */
    void hearTheDaemon()
    {
        QDBusConnection bus = QDBusConnection::systemBus();
        // Each answer comes after all that was asked before.
        bus.call(QDBusMessage::createMethodCall("org.freedesktop.DBus"_qs, "/"_qs,
                                                "org.freedesktop.DBus.Peer"_qs, "Ping"_qs));
        QCoreApplication::processEvents();
        bus.call(QDBusMessage::createMethodCall("org.bluez"_qs, "/"_qs, "org.freedesktop.DBus.Peer"_qs,
                                                "Ping"_qs));
        QCoreApplication::processEvents();
    }
    void announce(const QString& device)
    {
        m_daemon->emitSignal(
            "/"_qs, "org.freedesktop.DBus.ObjectManager"_qs, "InterfacesAdded"_qs, "oa{sa{sv}}"_qs,
            {device, "2"_qs, "org.bluez.Device1"_qs, "0"_qs, "org.bluez.MediaControl1"_qs, "0"_qs});
    }
    void remove(const QString& device, const QString& interface)
    {
        m_daemon->emitSignal("/"_qs, "org.freedesktop.DBus.ObjectManager"_qs, "InterfacesRemoved"_qs,
                             "oas"_qs, {device, "1"_qs, interface});
        m_daemon->ping();
    }
    void subscribe(const QString& device)
    {
        m_daemon->acquireNotify(m_path, device);
        m_daemon->plainCall(m_path, "StartNotify");
    }

    const QString m_path = "/app/aaaa/c0"_qs;
    std::unique_ptr<Caller> m_daemon = std::make_unique<Caller>();
    std::unique_ptr<Attributes> m_tree;
    plim::Characteristic* m_characteristic = nullptr;
};

void tst_subscribers::initTestCase()
{
    QCOMPARE(m_daemon->own("org.bluez"_qs).type, "done"_qs);
}

void tst_subscribers::init()
{
    m_tree = std::make_unique<Attributes>(Access().notify().indicate());
    m_characteristic = m_tree->characteristic;
    m_characteristic->trackSubscribers();
    hearTheDaemon();
    announce(phonePath);
}

void tst_subscribers::aDeclinedSocketNamesTheSubscriber()
{
    QSignalSpy subscribed(m_characteristic, &plim::Characteristic::subscribed);
    QCOMPARE(outcome(m_daemon->acquireNotify(m_path, phonePath)), "NotSupported "_qs);
    QCOMPARE(m_characteristic->subscribers(), centrals({phonePath}));
    QCOMPARE(subscribed.size(), 1);
    QCOMPARE(subscribed.first().first().value<Central>(), Central(phonePath));
    QVERIFY(!m_characteristic->notifying());
    m_daemon->plainCall(m_path, "StartNotify");
    QVERIFY(m_characteristic->notifying());
    subscribe(tabletPath);
    QCOMPARE(m_characteristic->subscribers(), centrals({phonePath, tabletPath}));
}

void tst_subscribers::aSubscriberIsNamedOnce()
{
    QSignalSpy subscribed(m_characteristic, &plim::Characteristic::subscribed);
    subscribe(phonePath);
    subscribe(phonePath);
    QCOMPARE(m_characteristic->subscribers(), centrals({phonePath}));
    QCOMPARE(subscribed.size(), 1);
}

void tst_subscribers::theEndOfAllSubscriptionsEndsEach()
{
    subscribe(phonePath);
    subscribe(tabletPath);
    QSignalSpy unsubscribed(m_characteristic, &plim::Characteristic::unsubscribed);
    m_daemon->plainCall(m_path, "StopNotify");
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QCOMPARE(unsubscribed.size(), 2);
    QCOMPARE(unsubscribed.first().first().value<Central>(), Central(phonePath));
    QVERIFY(!m_characteristic->notifying());
}

void tst_subscribers::aForgottenCentralIsSubscribedNoLonger()
{
    subscribe(phonePath);
    subscribe(tabletPath);
    QSignalSpy unsubscribed(m_characteristic, &plim::Characteristic::unsubscribed);
    remove(phonePath, "org.bluez.Device1"_qs);
    QCOMPARE(m_characteristic->subscribers(), centrals({tabletPath}));
    QCOMPARE(unsubscribed.size(), 1);
    QCOMPARE(unsubscribed.first().first().value<Central>(), Central(phonePath));
}

void tst_subscribers::otherInterfacesOfACentralMayGo()
{
    subscribe(phonePath);
    remove(phonePath, "org.bluez.Battery1"_qs);
    remove("/org/bluez/hci0/dev_other"_qs, "org.bluez.Device1"_qs);
    QCOMPARE(m_characteristic->subscribers(), centrals({phonePath}));
}

void tst_subscribers::aDisconnectionAloneEndsNoSubscription()
{
    subscribe(phonePath);
    setConnected(phonePath, false);
    m_daemon->ping();
    QCOMPARE(m_characteristic->subscribers(), centrals({phonePath}));
}

void tst_subscribers::aNewRegistrationEndsAllSubscriptions()
{
    subscribe(phonePath);
    QSignalSpy unsubscribed(m_characteristic, &plim::Characteristic::unsubscribed);
    m_tree->app->createService("bbbb"_qs, true);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    QTRY_COMPARE(unsubscribed.size(), 1);
}

void tst_subscribers::theEndOfTheDaemonEndsAllSubscriptions()
{
    subscribe(phonePath);
    QCOMPARE(m_characteristic->subscribers(), centrals({phonePath}));
    m_daemon = std::make_unique<Caller>();
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QCOMPARE(m_daemon->own("org.bluez"_qs).type, "done"_qs);
}

void tst_subscribers::subscribersAreNotCountedWithoutEnd()
{
    for (int i = 0; i < 300; ++i) {
        m_daemon->acquireNotify(m_path, "/dev_%1"_qs.arg(i));
    }
    QCOMPARE(m_characteristic->subscribers().size(), 256);
}

void tst_subscribers::aCallWithoutACentralNamesNobody()
{
    QSignalSpy subscribed(m_characteristic, &plim::Characteristic::subscribed);
    for (const QStringList& options :
         {QStringList{"0"_qs}, QStringList{"1"_qs, "device"_qs, "s"_qs, "/x"_qs}}) {
        QCOMPARE(outcome(m_daemon->call(m_path, "org.bluez.GattCharacteristic1"_qs, "AcquireNotify"_qs,
                                        "a{sv}"_qs, options)),
                 "NotSupported "_qs);
    }
    QVERIFY(m_characteristic->subscribers().isEmpty() && subscribed.isEmpty());
}

void tst_subscribers::withoutTrackingNobodyIsNamed()
{
    auto* plain = plim::Characteristic::create(m_tree->service, "c1"_qs, Access().notify());
    QCOMPARE(m_daemon->acquireNotify(plain->dbusPath(), phonePath).errorName,
             "org.freedesktop.DBus.Error.UnknownMethod"_qs);
    m_daemon->plainCall(plain->dbusPath(), "StartNotify");
    QVERIFY(plain->notifying());
    QCOMPARE(plain->subscribers(), QList<Central>());
}

void tst_subscribers::aConfirmationIsTold()
{
    QSignalSpy confirmed(m_characteristic, &plim::Characteristic::confirmed);
    QCOMPARE(outcome(m_daemon->plainCall(m_path, "Confirm")), "method_return"_qs);
    QCOMPARE(confirmed.size(), 1);
    m_daemon->plainCall(m_path, "Confirm");
    QCOMPARE(confirmed.size(), 2);
}

void tst_subscribers::theEndOfALinkIsNoConfirmation()
{
    QSignalSpy confirmed(m_characteristic, &plim::Characteristic::confirmed);
    loseLink(phonePath, 2);
    QCOMPARE(confirmed.size(), 0);
    setConnected(phonePath, true);
    QTest::qWait(600); // what is not told is a matter of time
    m_daemon->plainCall(m_path, "Confirm");
    QCOMPARE(confirmed.size(), 1);
}

void tst_subscribers::whatIsSentAfterTheEndOfALinkIsConfirmed()
{
    QSignalSpy confirmed(m_characteristic, &plim::Characteristic::confirmed);
    loseLink(phonePath, 1);
    QCOMPARE(confirmed.size(), 0);
    subscribe(tabletPath);
    m_characteristic->setValue("new");
    m_daemon->plainCall(m_path, "Confirm");
    QCOMPARE(confirmed.size(), 1);
}

void tst_subscribers::othersPropertiesAreNoEndOfALink()
{
    QSignalSpy confirmed(m_characteristic, &plim::Characteristic::confirmed);
    setConnected(phonePath, true);
    setConnected(phonePath, false, "org.bluez.MediaControl1"_qs);
    Caller stranger;
    stranger.emitSignal(phonePath, "org.freedesktop.DBus.Properties"_qs, "PropertiesChanged"_qs,
                        "sa{sv}as"_qs,
                        {"org.bluez.Device1"_qs, "1"_qs, "Connected"_qs, "b"_qs, "false"_qs, "0"_qs});
    stranger.ping();
    m_daemon->plainCall(m_path, "Confirm");
    QCOMPARE(confirmed.size(), 1);
}

void tst_subscribers::onlyIndicationsAreConfirmed()
{
    auto* plain = plim::Characteristic::create(m_tree->service, "c1"_qs, Access().notify());
    QSignalSpy confirmed(plain, &plim::Characteristic::confirmed);
    QCOMPARE(outcome(m_daemon->plainCall(plain->dbusPath(), "Confirm")), "method_return"_qs);
    QCOMPARE(confirmed.size(), 0);
}

void tst_subscribers::slotsMayDeleteTheCharacteristic_data()
{
    QTest::addColumn<QString>("signal");
    for (const char* signal : {"subscribed", "unsubscribed", "notifyStateChanged", "confirmed"}) {
        QTest::newRow(signal) << QString::fromLatin1(signal);
    }
}

void tst_subscribers::slotsMayDeleteTheCharacteristic()
{
    QFETCH(QString, signal);
    subscribe(tabletPath);
    const QPointer<plim::Characteristic> alive = m_characteristic;
    const auto end = [this] { delete m_characteristic; };
    if (signal == "subscribed"_qs) {
        QObject::connect(m_characteristic, &plim::Characteristic::subscribed, this, end);
    } else if (signal == "unsubscribed"_qs) {
        QObject::connect(m_characteristic, &plim::Characteristic::unsubscribed, this, end);
    } else if (signal == "confirmed"_qs) {
        QObject::connect(m_characteristic, &plim::Characteristic::confirmed, this, end);
    } else {
        QObject::connect(m_characteristic, &GattCharacteristic::notifyStateChanged, this, end);
    }
    m_daemon->acquireNotify(m_path, phonePath);
    for (const char* member : {"Confirm", "StopNotify"}) {
        if (alive) {
            m_daemon->plainCall(m_path, member);
        }
    }
    QVERIFY(!alive);
}

QTEST_GUILESS_MAIN(tst_subscribers)
#include "tst_subscribers.moc"
