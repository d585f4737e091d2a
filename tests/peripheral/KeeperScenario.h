#pragma once

#include "BleManager.h"
#include "Eventually.h"
#include "Literals.h"
#include "PlimBleTest.h"

#include <plim/peripheral/Adapter.h>
#include <plim/peripheral/Advertisement.h>
#include <plim/peripheral/AdvertisingKeeper.h>

#include <memory>
#include <vector>

/** What the tests of the keeper share: one advertisement that the stand-in daemon has registered, and what a
 * keeper tells of it. */
namespace KeeperScenario {

using plim::Advertisement;
using plim::AdvertisingKeeper;
using Reason = AdvertisingKeeper::Reason;
using PlimBleTestDetail::Waiting;

inline const QString path = QStringLiteral("/adv");

/** Long enough for a registration that must not come. */
constexpr int quietMs = 400;

inline int registrations(const QString& advertisement = path)
{
    int count = 0;
    const auto calls = PlimBleTest::control("Calls"_qs).arguments().value(0).value<QDBusArgument>();
    for (const QVariantMap& call : qdbus_cast<QList<QVariantMap>>(calls)) {
        const auto arguments = qdbus_cast<QVariantList>(call.value("arguments"_qs));
        count += call.value("member"_qs).toString() == "RegisterAdvertisement"_qs &&
                         arguments.value(0).value<QDBusObjectPath>().path() == advertisement
                     ? 1
                     : 0;
    }
    return count;
}

inline bool isBroadcast(const QString& advertisement = path)
{
    const auto references = PlimBleTest::control("OnAir"_qs).arguments().value(0).value<QDBusArgument>();
    bool found = false;
    references.beginArray();
    while (!references.atEnd()) {
        QString owner;
        QDBusObjectPath each;
        references.beginStructure();
        references >> owner >> each;
        references.endStructure();
        found = found || each.path() == advertisement;
    }
    references.endArray();
    return found;
}

inline void setPowered(bool isOn, Waiting waiting = Waiting::EventLoop)
{
    PlimBleTestDetail::control("SetProperty"_qs,
                               {QVariant::fromValue(QDBusObjectPath("/org/bluez/hci0"_qs)),
                                "org.bluez.Adapter1"_qs, "Powered"_qs,
                                QVariant::fromValue(QDBusVariant(isOn))},
                               waiting);
}

inline void answerRegistrations(const char* mode, uint delayMs = 0)
{
    PlimBleTest::control("SetAnswer"_qs, {"RegisterAdvertisement"_qs, QString::fromLatin1(mode), QString(),
                                          QString(), delayMs});
}

/** The stand-in knows a phone for ever. */
inline QString newAddress()
{
    static int number = 0x10;
    return "00:AA:01:01:00:%1"_qs.arg(++number, 2, 16);
}

inline BleRegistrationState::Phase phase(const GapAdvertisement& advertisement)
{
    return BleManager::instance()->registrationState(&advertisement).phase;
}

/** A connection of a program of its own. */
inline QDBusConnection join(const QString& name)
{
    return QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), name);
}

class Scenario : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

protected:
    void keep()
    {
        m_keeper = std::make_unique<AdvertisingKeeper>();
        connect(m_keeper.get(), &AdvertisingKeeper::onAir, this, [this] { m_told << "on"_qs; });
        connect(m_keeper.get(), &AdvertisingKeeper::offAir, this,
                [this](const GapAdvertisement* advertisement, Reason reason) {
                    QCOMPARE(advertisement, m_adv.get());
                    m_told << QString::fromLatin1(QMetaEnum::fromType<Reason>().valueToKey(reason));
                });
        m_keeper->keep(m_adv.get());
        EVENTUALLY_COMPARE(m_told, QStringList("on"_qs));
        awaitAdapter();
    }
    /** Waits until the keeper knows the adapter: of a power cycle before that, it may hear of the end only.
     */
    static void awaitAdapter()
    {
        const plim::Adapter adapter; // shares what is known of the daemon with all objects of this thread
        EVENTUALLY_VERIFY(adapter.isPresent());
    }
    /** login1's announcement. When this returns, the bus has passed it on. */
    static void sleep(bool isAsleep, const QDBusConnection& sender)
    {
        QDBusMessage signal = QDBusMessage::createSignal(
            "/org/freedesktop/login1"_qs, "org.freedesktop.login1.Manager"_qs, "PrepareForSleep"_qs);
        signal << isAsleep;
        sender.send(signal);
        sender.interface()->isServiceRegistered("org.bluez"_qs); // is answered after what was sent before
    }
    template <typename Condition>
    static void awaitTrue(const Condition& condition)
    {
        QVERIFY(QTest::qWaitFor(condition, 20000));
    }
    /** Fills the daemon with other advertisements, so that it has refused the one. */
    std::vector<std::unique_ptr<GapAdvertisement>> takeAllRoom()
    {
        BleManager::instance()->remove(m_adv.get());
        std::vector<std::unique_ptr<GapAdvertisement>> others;
        for (int i = 0; i < 5; ++i) {
            others.push_back(std::make_unique<GapAdvertisement>(nullptr, "/other%1"_qs.arg(i),
                                                                GapAdvertisement::SetProperties));
            BleManager::instance()->add(others.back().get());
        }
        awaitTrue(
            [&] { return m_ble.advertisements().size() == 5 && !m_ble.advertisements().contains(path); });
        BleManager::instance()->add(m_adv.get());
        awaitTrue([&] { return phase(*m_adv) == BleRegistrationState::Refused; });
        awaitTrue([&] {
            return BleManager::instance()->registrationState(m_adv.get()).errorMessage ==
                   "Maximum advertisements reached"_qs;
        });
        return others;
    }
    int more() const { return registrations() - m_before; }
    void expectQuiet(int expected)
    {
        QTest::qWait(quietMs);
        QCOMPARE(more(), expected);
    }

    PlimBleTest m_ble;
    QDBusConnection m_login = join("login"_qs);
    std::unique_ptr<Advertisement> m_adv;
    std::unique_ptr<AdvertisingKeeper> m_keeper;
    QStringList m_told;
    int m_before = 0;
};

inline void Scenario::initTestCase()
{
    QVERIFY(m_login.registerService("org.freedesktop.login1"_qs));
}

inline void Scenario::init()
{
    m_adv = std::make_unique<Advertisement>(nullptr, path);
    m_adv->setManufacturerData({{0xffff, "x"}});
    BleManager::instance()->add(m_adv.get());
    EVENTUALLY_VERIFY(isBroadcast());
    EVENTUALLY_COMPARE(phase(*m_adv), BleRegistrationState::Registered);
    m_before = registrations();
    m_told.clear();
}

inline void Scenario::cleanup()
{
    answerRegistrations("normal");
    BleManager::instance()->setRegistrationObserver({});
    m_keeper.reset();
    BleManager::instance()->remove(m_adv.get());
    m_adv.reset();
    m_ble.restart();
    setPowered(true);
    QTest::qWait(20);
}

} // namespace KeeperScenario
