#include "KeeperScenario.h"

#include <functional>

using namespace KeeperScenario;

namespace {

/** The match rules of this process's connection. Asked over the same connection, so that none is on its way.
 */
QStringList matchRules()
{
    const QDBusConnection bus = QDBusConnection::systemBus();
    const QDBusMessage answer = bus.call(
        QDBusMessage::createMethodCall("org.freedesktop.DBus"_qs, "/org/freedesktop/DBus"_qs,
                                       "org.freedesktop.DBus.Debug.Stats"_qs, "GetAllMatchRules"_qs));
    return qdbus_cast<QMap<QString, QStringList>>(answer.arguments().value(0)).value(bus.baseService());
}

} // namespace

Q_DECLARE_METATYPE(std::function<void()>)

/** A keeper, the program and the manager side by side, and the ends of each. */
class tst_advertising_keeper_lifetimes : public Scenario
{
    Q_OBJECT

private slots:
    void whatTheProgramUnregisteredIsLeftAlone();
    void whatTheProgramRemovedIsLeftAlone();
    void aRestartIsTheManagersAlone();
    void aRestartIsToldAfterwards();
    void theObserverStaysTheProgrammers();
    void itIsKeptBeforeItIsAdded();
    void whatItLeavesIsLeftAlone();
    void nullIsIgnored();
    void slotsMayEndAnything_data();
    void slotsMayEndAnything();
    void aSlotMayRunAnEventLoop_data();
    void aSlotMayRunAnEventLoop();
    void aDeletedAdvertisementIsForgotten();
    void powerCyclesLeaveNothingBehind();
};

void tst_advertising_keeper_lifetimes::whatTheProgramUnregisteredIsLeftAlone()
{
    keep();
    BleManager::instance()->unregisterAdv(m_adv.get());
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Unregistered"_qs}));
    setPowered(false);
    setPowered(true);
    expectQuiet(0);
    BleManager::instance()->registerAdv(m_adv.get());
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Unregistered"_qs, "on"_qs}));
    setPowered(false);
    setPowered(true);
    EVENTUALLY_COMPARE(more(), 2);
}

void tst_advertising_keeper_lifetimes::whatTheProgramRemovedIsLeftAlone()
{
    keep();
    BleManager::instance()->remove(m_adv.get());
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "Unregistered"_qs}));
    setPowered(false);
    setPowered(true);
    expectQuiet(0);
}

void tst_advertising_keeper_lifetimes::aRestartIsTheManagersAlone()
{
    keep();
    m_ble.restart();
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "BluezGone"_qs, "on"_qs}));
    expectQuiet(1);
}

void tst_advertising_keeper_lifetimes::aRestartIsToldAfterwards()
{
    keep();
    // The process was busy: when its event loop runs again, BlueZ's end and its next start are both there.
    PlimBleTestDetail::control("Restart"_qs, {}, PlimBleTestDetail::Waiting::Blocked);
    PlimBleTestDetail::control("Calls"_qs, {}, PlimBleTestDetail::Waiting::Blocked);
    EVENTUALLY_COMPARE(m_told, (QStringList{"on"_qs, "BluezGone"_qs, "on"_qs}));
    EVENTUALLY_VERIFY(isBroadcast());
}

void tst_advertising_keeper_lifetimes::theObserverStaysTheProgrammers()
{
    QStringList told;
    BleManager::instance()->setRegistrationObserver(
        [&](const BleRegistrationEvent& event) { told << event.step; });
    keep();
    setPowered(false);
    setPowered(true);
    EVENTUALLY_COMPARE(told.size(), 2);
    QVERIFY(told.contains("RegisterAdvertisement"_qs));
}

void tst_advertising_keeper_lifetimes::itIsKeptBeforeItIsAdded()
{
    BleManager::instance()->remove(m_adv.get());
    EVENTUALLY_COMPARE(m_ble.advertisements(), QStringList());
    m_keeper = std::make_unique<AdvertisingKeeper>();
    m_keeper->keep(m_adv.get());
    m_keeper->keep(m_adv.get());
    QTest::qWait(50);
    QVERIFY(!m_keeper->isOnAir(m_adv.get()));
    BleManager::instance()->add(m_adv.get());
    EVENTUALLY_VERIFY(m_keeper->isOnAir(m_adv.get()));
    awaitAdapter();
    setPowered(false);
    setPowered(true);
    EVENTUALLY_COMPARE(more(), 2);
    expectQuiet(2);
}

void tst_advertising_keeper_lifetimes::whatItLeavesIsLeftAlone()
{
    keep();
    m_keeper->leave(m_adv.get());
    m_keeper->leave(m_adv.get());
    setPowered(false);
    setPowered(true);
    expectQuiet(0);
    QCOMPARE(m_told, QStringList("on"_qs));
    QVERIFY(!m_keeper->isOnAir(m_adv.get()));
}

void tst_advertising_keeper_lifetimes::nullIsIgnored()
{
    AdvertisingKeeper keeper;
    keeper.keep(nullptr);
    keeper.leave(nullptr);
    QVERIFY(!keeper.isOnAir(nullptr));
    QVERIFY(keeper.children().isEmpty());
}

void tst_advertising_keeper_lifetimes::slotsMayEndAnything_data()
{
    QTest::addColumn<QString>("what");
    for (const char* what : {"keeper", "advertisement", "leave", "remove"}) {
        QTest::newRow(what) << QString::fromLatin1(what);
    }
}

void tst_advertising_keeper_lifetimes::slotsMayEndAnything()
{
    QFETCH(QString, what);
    const auto end = [&] {
        if (what == "keeper"_qs) {
            m_keeper.reset();
        } else if (what == "advertisement"_qs) {
            m_adv.reset();
        } else if (what == "leave"_qs) {
            m_keeper->leave(m_adv.get());
        } else {
            BleManager::instance()->remove(m_adv.get());
        }
    };
    GapAdvertisement other(nullptr, "/other"_qs, GapAdvertisement::SetProperties);
    BleManager::instance()->add(&other);
    EVENTUALLY_VERIFY(isBroadcast("/other"_qs));
    int ends = 0;
    m_keeper = std::make_unique<AdvertisingKeeper>();
    for (GapAdvertisement* each : {static_cast<GapAdvertisement*>(m_adv.get()), &other}) {
        m_keeper->keep(each);
    }
    EVENTUALLY_VERIFY(m_keeper->isOnAir(m_adv.get()) && m_keeper->isOnAir(&other));
    connect(m_keeper.get(), &AdvertisingKeeper::offAir, this, [&] {
        ++ends;
        end();
    });
    setPowered(false);
    EVENTUALLY_VERIFY(ends > 0);
    setPowered(true);
    QTest::qWait(quietMs);
    if (m_keeper) {
        EVENTUALLY_VERIFY(isBroadcast("/other"_qs));
    }
    BleManager::instance()->remove(&other);
}

void tst_advertising_keeper_lifetimes::aSlotMayRunAnEventLoop_data()
{
    using Deed = std::function<void()>;
    QTest::addColumn<Deed>("end");
    QTest::addColumn<Deed>("begin");
    QTest::newRow("BlueZ restarts") << Deed([this] { m_ble.vanish(); }) << Deed([this] { m_ble.appear(); });
    QTest::newRow("the adapter is switched")
        << Deed([] { setPowered(false); }) << Deed([] { setPowered(true); });
    QTest::newRow("the machine sleeps")
        << Deed([this] { sleep(true, m_login); }) << Deed([this] { sleep(false, m_login); });
}

/** In which all advertisements come back before the end of the second one is told. */
void tst_advertising_keeper_lifetimes::aSlotMayRunAnEventLoop()
{
    QFETCH(const std::function<void()>, end);
    QFETCH(const std::function<void()>, begin);
    const auto second = std::make_unique<Advertisement>(nullptr, "/second"_qs);
    BleManager::instance()->add(second.get());
    m_keeper = std::make_unique<AdvertisingKeeper>();
    m_keeper->keep(m_adv.get());
    m_keeper->keep(second.get());
    const auto areOnAir = [&] { return m_keeper->isOnAir(m_adv.get()) && m_keeper->isOnAir(second.get()); };
    EVENTUALLY_VERIFY(areOnAir());
    const GapAdvertisement* first = nullptr;
    bool hasReturned = false;
    connect(m_keeper.get(), &AdvertisingKeeper::offAir, this, [&](const GapAdvertisement* advertisement) {
        if (!first) {
            first = advertisement;
            begin();
            EVENTUALLY_VERIFY(m_keeper->isOnAir(first));
            QTest::qWait(quietMs);
            hasReturned = true;
        }
    });
    end();
    EVENTUALLY_VERIFY(hasReturned);
    EVENTUALLY_VERIFY(areOnAir());
    m_keeper.reset();
    BleManager::instance()->remove(second.get());
}

void tst_advertising_keeper_lifetimes::aDeletedAdvertisementIsForgotten()
{
    keep();
    m_adv.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(m_keeper->children().isEmpty());
    setPowered(false);
    setPowered(true);
    expectQuiet(0);
    QCOMPARE(m_told, QStringList("on"_qs));
    m_adv = std::make_unique<Advertisement>(nullptr, path); // perhaps at the same address
    QVERIFY(!m_keeper->isOnAir(m_adv.get()));
}

/** As often as $PLIM_POWER_CYCLES says. */
void tst_advertising_keeper_lifetimes::powerCyclesLeaveNothingBehind()
{
    keep();
    const int cycles = qMax(10, qEnvironmentVariableIntValue("PLIM_POWER_CYCLES"));
    QStringList rules;
    qsizetype objects = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        setPowered(false);
        setPowered(true);
        EVENTUALLY_COMPARE(m_told.size(), 1 + 2 * cycle);
        if (!isBroadcast()) {
            QFAIL(qPrintable("not broadcast after cycle %1"_qs.arg(cycle)));
        }
        PlimBleTest::control("ClearCalls"_qs);
        if (cycle == 1) { // what the first cycle needs may stay
            rules = matchRules();
            objects = m_keeper->findChildren<QObject*>().size();
        }
    }
    QVERIFY(!rules.isEmpty());
    QCOMPARE(matchRules(), rules);
    QCOMPARE(qsizetype(m_keeper->findChildren<QObject*>().size()), objects);
    QCOMPARE(m_ble.advertisements(), QStringList(path));
}

QTEST_GUILESS_MAIN(tst_advertising_keeper_lifetimes)
#include "tst_advertising_keeper_lifetimes.moc"
