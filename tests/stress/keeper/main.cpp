// Keepers of advertisements: power cycles that must leave nothing behind, and random operations of a program
// that ends keepers and advertisements at any time, also in a keeper's own slots.

#include "BleManager.h"
#include "Figures.h"
#include "LoadOptions.h"
#include "Simulator.h"

#include <plim/peripheral/Advertisement.h>
#include <plim/peripheral/AdvertisingKeeper.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QDeadlineTimer>
#include <QPointer>

#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>

namespace {

using plim::Advertisement;
using plim::AdvertisingKeeper;

constexpr int patienceMs = 30000;
constexpr qint64 heapSlack = 256 << 10; // caches of Qt, and what the keeper's log lines take
const QString adapter = QStringLiteral("/org/bluez/hci0");

[[noreturn]] void fail(const QString& what)
{
    qFatal("FAILED: %s", qPrintable(what));
}

void spin(int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
}

void waitUntil(const QString& what, const std::function<bool()>& condition)
{
    const QDeadlineTimer deadline(patienceMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            fail(what + QStringLiteral(" has not come true"));
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    }
}

void setPowered(Simulator& daemon, bool isOn)
{
    daemon.setProperty(adapter, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Powered"), isOn);
}

bool isBroadcast()
{
    const QDBusMessage answer = Simulator::control(QStringLiteral("OnAir"));
    const auto references = answer.arguments().value(0).value<QDBusArgument>();
    references.beginArray();
    const bool isAny = !references.atEnd();
    references.endArray(); // or Qt keeps what it began
    return isAny;
}

/** How many match rules the bus has, of everybody. */
QString matchRules()
{
    const QDBusMessage answer = QDBusConnection::systemBus().call(QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus.Debug.Stats"), QStringLiteral("GetStats")));
    const auto stats = qdbus_cast<QVariantMap>(answer.arguments().value(0));
    return stats.value(QStringLiteral("MatchRules")).toString();
}

/** Each has to give exactly one registration, and after all of them there is what was there before. */
void cyclePower(int cycles)
{
    Simulator daemon;
    Advertisement advertisement(nullptr, QStringLiteral("/keeper/adv"));
    advertisement.setManufacturerData({{0xffff, "x"}});
    BleManager::instance()->add(&advertisement);
    AdvertisingKeeper keeper;
    int onAir = 0;
    QObject::connect(&keeper, &AdvertisingKeeper::onAir, &keeper, [&] { ++onAir; });
    keeper.keep(&advertisement);
    waitUntil(QStringLiteral("the first registration"), [&] { return onAir == 1; });
    Figures before = Figures::now();
    QString rulesBefore;
    const int warmUp = qMin(50, cycles / 2);
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        setPowered(daemon, false);
        setPowered(daemon, true);
        waitUntil(QStringLiteral("power cycle %1").arg(cycle), [&] { return onAir == 1 + cycle; });
        if (!isBroadcast()) {
            fail(QStringLiteral("nothing is broadcast after cycle %1").arg(cycle));
        }
        if (daemon.calls().filter(QStringLiteral(" RegisterAdvertisement")).size() != (cycle == 1 ? 2 : 1)) {
            fail(QStringLiteral("cycle %1 took more than one registration").arg(cycle));
        }
        daemon.clearCalls();
        if (cycle == warmUp) {
            before = Figures::now();
            rulesBefore = matchRules();
        }
    }
    waitUntil(QStringLiteral("the last answers"), [] { return Figures::now().watchers == 0; });
    const Figures after = Figures::now();
    std::fprintf(stderr, "%d power cycles: before %s rules %s\n                 after %s rules %s\n", cycles,
                 qPrintable(before.text()), qPrintable(rulesBefore), qPrintable(after.text()),
                 qPrintable(matchRules()));
    if (after.objects > before.objects || matchRules() != rulesBefore || rulesBefore.isEmpty() ||
        after.heap > before.heap + heapSlack + heapNoise() || after.descriptors > before.descriptors) {
        fail(QStringLiteral("something is left behind"));
    }
    BleManager::instance()->remove(&advertisement);
    daemon.settle();
}

/** A program that does anything at any time. */
class RandomProgram
{
public:
    explicit RandomProgram(unsigned seed) : m_random(seed), m_login(loginConnection())
    {
        if (!m_login.registerService(QStringLiteral("org.freedesktop.login1"))) {
            fail(QStringLiteral("login1's name is taken"));
        }
    }

    void run(int operations)
    {
        for (int i = 0; i < operations; ++i) {
            operate(below(14));
            if (chance(3)) {
                spin(below(30));
            }
        }
        for (auto& keeper : m_keepers) {
            keeper.reset();
        }
        for (auto& advertisement : m_advertisements) {
            BleManager::instance()->remove(advertisement.get());
            advertisement.reset();
        }
        m_daemon.settle();
    }

private:
    static QDBusConnection loginConnection()
    {
        return QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"),
                                             QStringLiteral("login"));
    }
    int below(int limit) { return int(m_random() % unsigned(limit)); }
    bool chance(int oneOf) { return below(oneOf) == 0; }

    void operate(int operation)
    {
        const int place = below(int(m_advertisements.size()));
        auto& advertisement = m_advertisements[size_t(place)];
        auto& keeper = m_keepers[size_t(below(int(m_keepers.size())))];
        switch (operation) {
        case 0:
            advertisement.reset();
            advertisement = std::make_unique<Advertisement>(nullptr, QStringLiteral("/random/%1").arg(place));
            advertisement->setUpdateMode(chance(2) ? Advertisement::InPlace : Advertisement::RegisterAgain);
            break;
        case 1:
            advertisement.reset();
            break;
        case 2:
            BleManager::instance()->add(advertisement.get());
            break;
        case 3:
            BleManager::instance()->remove(advertisement.get());
            break;
        case 4:
            make(keeper);
            break;
        case 5:
            keeper.reset();
            break;
        case 6:
        case 7:
            if (keeper) {
                keeper->keep(advertisement.get());
            }
            break;
        case 8:
            if (keeper) {
                keeper->leave(advertisement.get());
            }
            break;
        case 9:
            setPowered(m_daemon, chance(2));
            break;
        case 10:
            sleep();
            break;
        case 11:
            change(advertisement.get());
            break;
        case 12:
            fault();
            break;
        default:
            setPowered(m_daemon, true);
        }
    }

    void make(std::unique_ptr<AdvertisingKeeper>& keeper)
    {
        keeper = std::make_unique<AdvertisingKeeper>();
        keeper->setAfterTimeout(chance(2));
        keeper->setWhileConnected(chance(2));
        const auto interfere = [this] {
            if (m_depth < 3 && chance(3)) {
                ++m_depth;
                operate(below(9));
                --m_depth;
            }
        };
        QObject::connect(keeper.get(), &AdvertisingKeeper::onAir, keeper.get(), interfere);
        QObject::connect(keeper.get(), &AdvertisingKeeper::offAir, keeper.get(), interfere);
    }

    void sleep()
    {
        QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                                         QStringLiteral("org.freedesktop.login1.Manager"),
                                                         QStringLiteral("PrepareForSleep"));
        signal << chance(3);
        m_login.send(signal);
    }

    void change(Advertisement* advertisement)
    {
        if (!advertisement) {
            return;
        }
        switch (below(4)) {
        case 0:
            advertisement->setManufacturerData({{0xffff, QByteArray(below(40), 'x')}});
            break;
        case 1:
            advertisement->setTimeout(ushort(below(2)));
            break;
        case 2:
            BleManager::instance()->unregisterAdv(advertisement);
            break;
        default:
            advertisement->setLocalName(QString(below(5), QLatin1Char('n')));
        }
    }

    void fault()
    {
        const QString method = QStringLiteral("RegisterAdvertisement");
        switch (below(5)) {
        case 0:
            m_daemon.restart();
            break;
        case 1:
            m_daemon.answerWithError(method, QStringLiteral("org.bluez.Error.Failed"),
                                     QStringLiteral("Failed to register advertisement"));
            break;
        case 2:
            m_daemon.answerLate(method, 50);
            break;
        default:
            m_daemon.answerNormally(method);
        }
    }

    std::mt19937 m_random;
    Simulator m_daemon;
    QDBusConnection m_login;
    std::array<std::unique_ptr<Advertisement>, 7> m_advertisements; // more than the daemon takes
    std::array<std::unique_ptr<AdvertisingKeeper>, 3> m_keepers;
    int m_depth = 0;
};

} // namespace

int main(int argc, char** argv)
{
    followObjects();
    QCoreApplication program(argc, argv);
    LoadOptions options(7);
    options.addCount("cycles", "Power cycles.", 1000);
    options.addCount("operations", "Random operations.", 10000);
    options.process(program);
    QDBusConnection::systemBus();
    QCoreApplication::processEvents();
    buildEveryLogLine();
    cyclePower(int(options.count("cycles")));
    const qint64 operations = options.count("operations");
    RandomProgram(options.seed()).run(int(operations));
    std::printf("%lld random operations\n", operations);
    return 0;
}
