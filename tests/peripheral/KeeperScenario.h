#pragma once

#include "BleManager.h"
#include "Literals.h"
#include "PlimBleTest.h"
#include "RawBusClient.h"

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

#define EVENTUALLY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 10000)
#define EVENTUALLY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 10000)

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

inline void setPowered(bool isOn)
{
    PlimBleTest::control("SetProperty"_qs,
                         {QVariant::fromValue(QDBusObjectPath("/org/bluez/hci0"_qs)), "org.bluez.Adapter1"_qs,
                          "Powered"_qs, QVariant::fromValue(QDBusVariant(isOn))});
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
    }
    /** login1's announcement. */
    void sleep(bool isAsleep, RawBusClient& sender)
    {
        sender.emitSignal("/org/freedesktop/login1"_qs, "org.freedesktop.login1.Manager"_qs,
                          "PrepareForSleep"_qs, "b"_qs, {isAsleep ? "true"_qs : "false"_qs});
        sender.ping();
    }
    template <typename Condition>
    static void awaitTrue(const Condition& condition)
    {
        QVERIFY(QTest::qWaitFor(condition, 10000));
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
    RawBusClient m_login;
    std::unique_ptr<Advertisement> m_adv;
    std::unique_ptr<AdvertisingKeeper> m_keeper;
    QStringList m_told;
    int m_before = 0;
};

inline void Scenario::initTestCase()
{
    QCOMPARE(m_login.own("org.freedesktop.login1"_qs).type, "done"_qs);
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
