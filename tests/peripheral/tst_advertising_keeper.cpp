#include "KeeperScenario.h"

#include <utility>

using namespace KeeperScenario;

namespace {

/** Looks whether a refused advertisement was registered again soon after start(). However busy the machine
 * is, a timer of this thread that the keeper started at the same time with a shorter delay has fired before.
 */
class SoonAfter
{
public:
    void start(const GapAdvertisement& advertisement)
    {
        QTimer::singleShot(500, &m_context, [this, &advertisement] {
            m_isOver = true;
            m_isTried = phase(advertisement) != BleRegistrationState::Refused;
        });
    }
    bool isOver() const { return m_isOver; }
    bool isTried() const { return m_isTried; }

private:
    QObject m_context;
    bool m_isOver = false;
    bool m_isTried = false;
};

} // namespace

/** When a keeper registers an advertisement again, and when it does not. */
class tst_advertising_keeper : public Scenario
{
    Q_OBJECT

private slots:
    void withoutAKeeperAPowerCycleEndsTheBroadcast();
    void aPowerCycleGivesOneRegistration();
    void everyPowerCycleIsTold();
    void wakingUpGivesOneRegistration();
    void asleepItRegistersNothing();
    void othersCannotPretendToSuspend();
    void causesAtOnceGiveOneRegistration();
    void aCauseWhileOneIsPendingWaitsForTheAnswer();
    void aChangeByTheProgramCoversACause();
    void aRefusedOneIsTriedAgainEverLater();
    void whatOnlyAChangeCanHelpIsNotTriedAgain();
    void itWaitsForRoomAndTakesIt();
    void roomFromBeforeItListenedIsTakenAtOnce();
    void afterATimeoutItIsOverUnlessWanted();
    void afterATimeoutItIsRegisteredAgainIfWanted();
    void aReleaseWithoutATimeoutIsNoEnd();
    void aCentralGivesARegistrationOnlyIfWanted();
    void aBroadcastIsNotRegisteredForACentral();
};

void tst_advertising_keeper::withoutAKeeperAPowerCycleEndsTheBroadcast()
{
    setPowered(false);
    setPowered(true);
    expectQuiet(0);
    QVERIFY(!isBroadcast());
    QCOMPARE(phase(*m_adv), BleRegistrationState::Registered);
}

void tst_advertising_keeper::aPowerCycleGivesOneRegistration()
{
    keep();
    setPowered(false);
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "PoweredOff"_qs}));
    QVERIFY(!m_keeper->isOnAir(m_adv.get()));
    expectQuiet(0);
    setPowered(true);
    EVENTUALLY_VERIFY(isBroadcast());
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "PoweredOff"_qs, "on"_qs}));
    QVERIFY(m_keeper->isOnAir(m_adv.get()));
    expectQuiet(1);
}

void tst_advertising_keeper::everyPowerCycleIsTold()
{
    keep();
    for (int cycle = 1; cycle <= 3; ++cycle) {
        setPowered(false);
        setPowered(true);
        EVENTUALLY_COMPARE(more(), cycle);
        EVENTUALLY_COMPARE(m_told.size(), 1 + 2 * cycle);
        QVERIFY(isBroadcast());
    }
}

void tst_advertising_keeper::wakingUpGivesOneRegistration()
{
    keep();
    sleep(true, m_login);
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Suspended"_qs}));
    sleep(false, m_login);
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Suspended"_qs, "on"_qs}));
    expectQuiet(1);
}

void tst_advertising_keeper::asleepItRegistersNothing()
{
    keep();
    sleep(true, m_login);
    setPowered(false);
    setPowered(true);
    expectQuiet(0);
    sleep(false, m_login);
    EVENTUALLY_VERIFY(isBroadcast());
    expectQuiet(1);
}

void tst_advertising_keeper::othersCannotPretendToSuspend()
{
    keep();
    const QDBusConnection stranger = join("stranger"_qs);
    sleep(true, stranger);
    sleep(false, stranger);
    expectQuiet(0);
    QCOMPARE(m_told, QStringList("on"_qs));
}

void tst_advertising_keeper::causesAtOnceGiveOneRegistration()
{
    keep();
    m_keeper->setWhileConnected(true);
    sleep(true, m_login);
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Suspended"_qs}));
    // All of it is there before the event loop runs again, so that no time passes in between.
    sleep(false, m_login);
    for (int cycle = 0; cycle < 2; ++cycle) {
        setPowered(false, Waiting::Blocked);
        setPowered(true, Waiting::Blocked);
    }
    PlimBleTestDetail::control("AddPhone"_qs, {"hci0"_qs, newAddress()}, Waiting::Blocked);
    PlimBleTestDetail::awaitDaemon();
    QCoreApplication::sendPostedEvents();
    EVENTUALLY_VERIFY(isBroadcast());
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Suspended"_qs, "on"_qs}));
    expectQuiet(1);
}

void tst_advertising_keeper::aCauseWhileOneIsPendingWaitsForTheAnswer()
{
    keep();
    answerRegistrations("late", 3000); // later than what follows, even if this machine is slow
    setPowered(false);
    setPowered(true);
    EVENTUALLY_COMPARE(more(), 1);
    for (int i = 0; i < 3; ++i) {
        setPowered(false);
        setPowered(true);
        QTest::qWait(50);
    }
    QCOMPARE(phase(*m_adv), BleRegistrationState::Pending);
    QCOMPARE(more(), 1);
    answerRegistrations("normal");
    EVENTUALLY_COMPARE(more(), 2);
    EVENTUALLY_COMPARE(phase(*m_adv), BleRegistrationState::Registered);
    QVERIFY(isBroadcast());
    expectQuiet(2);
}

void tst_advertising_keeper::aChangeByTheProgramCoversACause()
{
    keep();
    const plim::Adapter adapter("hci0"_qs);
    EVENTUALLY_VERIFY(adapter.isPowered());
    bool isChanged = false;
    // What is queued here comes after the keeper has heard of it, and before any of its timers. If it has
    // heard of both changes by then, it comes twice.
    connect(
        &adapter, &plim::Adapter::poweredChanged, this,
        [&] {
            if (adapter.isPowered() && !std::exchange(isChanged, true)) {
                m_adv->setManufacturerData({{0xffff, "y"}});
            }
        },
        Qt::QueuedConnection);
    setPowered(false);
    setPowered(true);
    EVENTUALLY_COMPARE(m_adv->manufacturerData().value(0xffff), QByteArray("y"));
    EVENTUALLY_VERIFY(isBroadcast());
    expectQuiet(1);
}

void tst_advertising_keeper::aRefusedOneIsTriedAgainEverLater()
{
    keep();
    m_ble.refuse("RegisterAdvertisement"_qs, "org.bluez.Error.Failed"_qs,
                 "Failed to register advertisement"_qs);
    QElapsedTimer timer;
    setPowered(false);
    timer.start(); // before the first try, so that a busy machine can only make the times longer
    setPowered(true);
    EVENTUALLY_VERIFY(more() >= 1);
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "PoweredOff"_qs}));
    EVENTUALLY_VERIFY(more() >= 2);
    QVERIFY2(timer.elapsed() > 900, qPrintable(QString::number(timer.elapsed())));
    EVENTUALLY_VERIFY(more() >= 3);
    QVERIFY2(timer.elapsed() > 2800, qPrintable(QString::number(timer.elapsed())));
    // Switched on, it is tried at once, not after the next delay of 4 s.
    SoonAfter soonAfter;
    const plim::Adapter adapter;
    connect(&adapter, &plim::Adapter::poweredChanged, this, [&] {
        if (adapter.isPowered()) {
            soonAfter.start(*m_adv);
        }
    });
    setPowered(false);
    EVENTUALLY_VERIFY(!adapter.isPowered());
    const int before = more();
    answerRegistrations("normal");
    setPowered(true);
    EVENTUALLY_VERIFY(soonAfter.isOver());
    QVERIFY(soonAfter.isTried());
    EVENTUALLY_VERIFY(isBroadcast());
    EVENTUALLY_COMPARE(m_told.last(), "on"_qs);
    expectQuiet(before + 1);
}

void tst_advertising_keeper::whatOnlyAChangeCanHelpIsNotTriedAgain()
{
    keep();
    m_adv->setManufacturerData({{0xffff, QByteArray(40, 'x')}});
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Refused"_qs}));
    QTest::qWait(1500);
    QCOMPARE(more(), 1);
    m_adv->setManufacturerData({{0xffff, "y"}});
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Refused"_qs, "on"_qs}));
    expectQuiet(2);
}

void tst_advertising_keeper::itWaitsForRoomAndTakesIt()
{
    const auto others = takeAllRoom();
    m_keeper = std::make_unique<AdvertisingKeeper>();
    m_keeper->keep(m_adv.get());
    m_before = registrations();
    QTest::qWait(3500);  // longer than the first two delays
    QCOMPARE(more(), 0); // it knows that there is no room
    BleManager::instance()->remove(others.back().get());
    EVENTUALLY_VERIFY(m_keeper->isOnAir(m_adv.get()));
    expectQuiet(1);
    for (const auto& other : others) {
        BleManager::instance()->remove(other.get());
    }
}

void tst_advertising_keeper::roomFromBeforeItListenedIsTakenAtOnce()
{
    const auto others = takeAllRoom();
    BleManager::instance()->remove(others.back().get());
    EVENTUALLY_COMPARE(m_ble.advertisements().size(), 4);
    m_keeper = std::make_unique<AdvertisingKeeper>();
    m_keeper->keep(m_adv.get());
    SoonAfter soonAfter; // and before the first delay of 1 s is over
    const plim::Adapter adapter;
    connect(&adapter, &plim::Adapter::presentChanged, this, [&] { soonAfter.start(*m_adv); });
    EVENTUALLY_VERIFY(soonAfter.isOver());
    QVERIFY(soonAfter.isTried());
    EVENTUALLY_VERIFY(m_keeper->isOnAir(m_adv.get()));
    for (const auto& other : others) {
        BleManager::instance()->remove(other.get());
    }
}

void tst_advertising_keeper::afterATimeoutItIsOverUnlessWanted()
{
    keep();
    m_adv->setTimeout(1); // registers it
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Released"_qs}));
    setPowered(false);
    setPowered(true);
    expectQuiet(1);
}

void tst_advertising_keeper::afterATimeoutItIsRegisteredAgainIfWanted()
{
    keep();
    m_keeper->setAfterTimeout(true);
    connect(m_keeper.get(), &AdvertisingKeeper::onAir, this,
            [this] { m_keeper->setAfterTimeout(m_told.count("on"_qs) < 3); });
    m_adv->setTimeout(1); // registers it
    EVENTUALLY_COMPARE(m_told,
                       (QStringList{"on"_qs, "Released"_qs, "on"_qs, "Released"_qs, "on"_qs, "Released"_qs}));
    expectQuiet(3);
}

void tst_advertising_keeper::aReleaseWithoutATimeoutIsNoEnd()
{
    keep();
    PlimBleTest::control("ReleaseAdvertisement"_qs, {QVariant::fromValue(QDBusObjectPath(path))});
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Released"_qs, "on"_qs}));
    expectQuiet(1);
}

void tst_advertising_keeper::aCentralGivesARegistrationOnlyIfWanted()
{
    keep();
    PlimBleTest::Phone phone(newAddress());
    expectQuiet(0);
    m_keeper->setWhileConnected(true);
    phone.disconnect();
    expectQuiet(0);
    phone.connect();
    EVENTUALLY_COMPARE(more(), 1);
    phone.forget();
    PlimBleTest::Phone second(newAddress()); // unknown until now
    EVENTUALLY_COMPARE(more(), 2);
    QCOMPARE(m_told, QStringList("on"_qs));
    second.forget();
    expectQuiet(2);
}

void tst_advertising_keeper::aBroadcastIsNotRegisteredForACentral()
{
    m_adv->setType(GapAdvertisement::Broadcast);
    EVENTUALLY_COMPARE(phase(*m_adv), BleRegistrationState::Registered);
    m_before = registrations();
    keep();
    m_keeper->setWhileConnected(true);
    PlimBleTest::Phone phone(newAddress());
    expectQuiet(0);
    phone.forget();
}

QTEST_GUILESS_MAIN(tst_advertising_keeper)
#include "tst_advertising_keeper.moc"
