#include "Device.h"

using plim::Access;
using plim::Central;

/** Who subscribes, and what becomes of notifications and indications, by the stand-in daemon. */
class tst_phone_subscriptions : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void subscribersAreNamed();
    void withoutTrackingASubscriptionWorksTheSame();
    void anUnbondedPhoneThatLeavesIsUnsubscribed();
    void aBondedPhoneThatLeavesStaysSubscribed();
    void aForgottenPhoneIsUnsubscribed();
    void aNewRegistrationTakesSubscriptionsAway();
    void theEndOfTheDaemonTakesSubscriptionsAway();
    void anIndicationIsConfirmed();
    void anIndicationIsNotConfirmedByALostLink();
    void twoPhonesConfirmEach();

private:
    QStringList subscribers() const
    {
        QStringList paths;
        for (const Central& central : m_value->subscribers()) {
            paths << central.path();
        }
        return paths;
    }

    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<Device> m_device;
    plim::Characteristic* m_value = nullptr;
    QString m_path;
};

void tst_phone_subscriptions::init()
{
    m_ble = std::make_unique<PlimBleTest>();
    m_device = std::make_unique<Device>();
    m_value = m_device->add(Access().read().notify().indicate());
    m_path = m_value->dbusPath();
    if (QLatin1String(QTest::currentTestFunction()) != "withoutTrackingASubscriptionWorksTheSame") {
        m_value->trackSubscribers();
    }
    QVERIFY(m_device->ready(*m_ble));
}

void tst_phone_subscriptions::cleanup()
{
    m_device.reset();
    m_ble.reset();
}

void tst_phone_subscriptions::subscribersAreNamed()
{
    QSignalSpy subscribed(m_value, &plim::Characteristic::subscribed);
    QSignalSpy unsubscribed(m_value, &plim::Characteristic::unsubscribed);
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribe(m_path);
    QCOMPARE(subscribers(), QStringList(phone.device()));
    tablet.subscribe(m_path);
    QCOMPARE(subscribers(), (QStringList{phone.device(), tablet.device()}));
    QVERIFY(subscribed.size() == 2 && m_value->notifying());
    m_value->setValue("1");
    EVENTUALLY_COMPARE(tablet.notifications(m_path), QList<QByteArray>{"1"});
    QCOMPARE(phone.notifications(m_path), QList<QByteArray>{"1"});

    // The daemon says nothing until the last one has gone.
    phone.unsubscribe(m_path);
    QCOMPARE(subscribers().size(), 2);
    tablet.unsubscribe(m_path);
    QCOMPARE(subscribers(), QStringList());
    QVERIFY(unsubscribed.size() == 2 && !m_value->notifying());
}

void tst_phone_subscriptions::withoutTrackingASubscriptionWorksTheSame()
{
    PlimBleTest::Phone phone;
    phone.subscribe(m_path);
    QVERIFY(m_value->notifying());
    QCOMPARE(subscribers(), QStringList());
    m_value->setValue("1");
    EVENTUALLY_COMPARE(phone.notifications(m_path), QList<QByteArray>{"1"});
}

void tst_phone_subscriptions::anUnbondedPhoneThatLeavesIsUnsubscribed()
{
    PlimBleTest::Phone phone;
    phone.subscribe(m_path);
    phone.disconnect();
    EVENTUALLY_COMPARE(subscribers(), QStringList());
    QVERIFY(!m_value->notifying());
}

void tst_phone_subscriptions::aBondedPhoneThatLeavesStaysSubscribed()
{
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.subscribe(m_path);
    phone.disconnect();
    phone.connect();
    QCOMPARE(subscribers(), QStringList(phone.device()));
    m_value->setValue("2");
    EVENTUALLY_COMPARE(phone.notifications(m_path), QList<QByteArray>{"2"});
}

void tst_phone_subscriptions::aForgottenPhoneIsUnsubscribed()
{
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribe(m_path);
    tablet.subscribe(m_path);
    phone.forget();
    EVENTUALLY_COMPARE(subscribers(), QStringList(tablet.device()));
    QVERIFY(m_value->notifying());
}

void tst_phone_subscriptions::aNewRegistrationTakesSubscriptionsAway()
{
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.subscribe(m_path);
    m_device->app.createService("180f", true);
    QCOMPARE(subscribers(), QStringList());
    const auto isRegistered = [this] {
        const auto state = BleManager::instance()->registrationState(&m_device->app);
        return state.phase == BleRegistrationState::Registered;
    };
    EVENTUALLY_VERIFY(isRegistered());
    m_value->setValue("unheard");
    QCOMPARE(phone.read(m_path), QByteArray("unheard"));
    QCOMPARE(phone.notifications(m_path), QList<QByteArray>());
    phone.subscribe(m_path);
    QCOMPARE(subscribers(), QStringList(phone.device()));
}

void tst_phone_subscriptions::theEndOfTheDaemonTakesSubscriptionsAway()
{
    PlimBleTest::Phone phone;
    phone.subscribe(m_path);
    m_ble->vanish();
    EVENTUALLY_COMPARE(subscribers(), QStringList());
}

void tst_phone_subscriptions::anIndicationIsConfirmed()
{
    QSignalSpy confirmed(m_value, &plim::Characteristic::confirmed);
    PlimBleTest::Phone phone;
    phone.subscribeToIndications(m_path);
    m_value->setValue("1");
    EVENTUALLY_COMPARE(confirmed.size(), 1);
    phone.confirmIndications(false);
    m_value->setValue("2");
    EVENTUALLY_COMPARE(phone.notifications(m_path), (QList<QByteArray>{"1", "2"}));
    QCOMPARE(phone.read(m_path), QByteArray("2"));
    QCOMPARE(confirmed.size(), 1);
    phone.confirmIndications(true);
    EVENTUALLY_COMPARE(confirmed.size(), 2);
}

void tst_phone_subscriptions::anIndicationIsNotConfirmedByALostLink()
{
    QSignalSpy confirmed(m_value, &plim::Characteristic::confirmed);
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.subscribeToIndications(m_path);
    phone.confirmIndications(false);
    m_value->setValue("1");
    m_value->setValue("2");
    QCOMPARE(phone.read(m_path), QByteArray("2")); // behind both indications
    QCOMPARE(phone.notifications(m_path), QList<QByteArray>{"1"});
    phone.disconnect();
    phone.connect();
    QCOMPARE(phone.read(m_path), QByteArray("2")); // behind what the daemon called before
    QCOMPARE(confirmed.size(), 0);
}

void tst_phone_subscriptions::twoPhonesConfirmEach()
{
    QSignalSpy confirmed(m_value, &plim::Characteristic::confirmed);
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribeToIndications(m_path);
    tablet.subscribe(m_path);
    m_value->setValue("1");
    EVENTUALLY_COMPARE(tablet.notifications(m_path), QList<QByteArray>{"1"});
    EVENTUALLY_COMPARE(confirmed.size(), 1);
    tablet.subscribeToIndications(m_path);
    m_value->setValue("2");
    EVENTUALLY_COMPARE(confirmed.size(), 3);
}

QTEST_GUILESS_MAIN(tst_phone_subscriptions)
#include "tst_phone_subscriptions.moc"
