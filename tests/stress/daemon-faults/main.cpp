// Lets the stand-in daemon show every fault, again and again, with an application and two advertisements
// held. After each cycle everything held is registered exactly where a manager is present, no call is watched
// any more, and no memory is taken.

#include "BleManager.h"
#include "Figures.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "LoadOptions.h"
#include "Simulator.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>

#include <cstdio>
#include <functional>
#include <memory>
#include <random>

namespace {

constexpr int patienceMs = 60000;
constexpr qint64 heapSlack = 256 << 10; // caches of Qt, such as those of types and of the event loop
const char* const members[] = {"RegisterApplication", "UnregisterApplication", "RegisterAdvertisement",
                               "UnregisterAdvertisement"};

[[noreturn]] void fail(const QString& what)
{
    qFatal("FAILED: %s", qPrintable(what));
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

/** What is held, and the daemon that it is held for. */
class DaemonFaults
{
public:
    explicit DaemonFaults(unsigned seed) : m_random(seed)
    {
        m_app.createService(QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb"), true);
        BleManager::instance()->add(&m_app);
        BleManager::instance()->add(&m_first);
        BleManager::instance()->add(&m_second);
        expectRegisteredAt({QStringLiteral("hci0")});
    }

    void absent();
    void restarts();
    void vanishesAtEachStep();
    void answersLate();
    void neverAnswers();
    void answersAfterTheEnd();
    void refuses();
    void twoAdapters();
    void announcesTwice();

private:
    /** Everything held once in each place, nothing else, and no call watched. */
    void expectRegisteredAt(const QStringList& adapters)
    {
        expectHeldAt(adapters);
        waitUntil(QStringLiteral("answers"), nothingIsWatched);
    }
    /** The same with calls that may be watched: those that a later one overtakes a daemon never answers. */
    void expectHeldAt(const QStringList& adapters)
    {
        m_daemon.settle(); // what it has announced and withdrawn is known
        waitUntil(QStringLiteral("registration at ") + adapters.join(' '), [&] {
            QStringList applications;
            QStringList advertisements;
            for (int i = 0; i < adapters.size(); ++i) {
                applications << QStringLiteral("/faults");
                advertisements << QStringLiteral("/faults/first") << QStringLiteral("/faults/second");
            }
            QStringList found = m_daemon.advertisements();
            found.sort();
            advertisements.sort();
            return m_daemon.applications() == applications && found == advertisements;
        });
    }
    static bool nothingIsWatched() { return Figures::now().watchers == 0; }
    void change()
    {
        m_app.createService(QStringLiteral("0000180d-0000-1000-8000-00805f9b34fb"), true);
        delete m_app.services().constFirst();
        m_first.setAppearance(1);
    }
    void answerNormally()
    {
        for (const char* member : members) {
            m_daemon.answerNormally(QLatin1String(member));
        }
    }
    bool chance() { return m_random() % 2 == 0; }

    std::mt19937 m_random;
    Simulator m_daemon{{QStringLiteral("--accept-everything")}};
    GattApplication m_app{nullptr, QStringLiteral("/faults"), QStringLiteral("org.plim.faults")};
    GapAdvertisement m_first{nullptr, QStringLiteral("/faults/first")};
    GapAdvertisement m_second{nullptr, QStringLiteral("/faults/second"), GapAdvertisement::SetProperties};
};

void DaemonFaults::absent()
{
    m_daemon.vanish();
    waitUntil(QStringLiteral("the news that it is gone"), nothingIsWatched);
    change();
    QCoreApplication::processEvents();
    waitUntil(QStringLiteral("answers for a daemon that is absent"), nothingIsWatched);
    m_daemon.appear();
    expectRegisteredAt({QStringLiteral("hci0")});
}

void DaemonFaults::restarts()
{
    m_daemon.restart();
    expectRegisteredAt({QStringLiteral("hci0")});
}

void DaemonFaults::vanishesAtEachStep()
{
    // Each time a little later: when nothing, some or all of what follows an announcement has been done.
    for (int rounds = 0; rounds < 6; ++rounds) {
        m_daemon.restart();
        for (int i = 0; i < rounds; ++i) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 2);
        }
        if (chance()) {
            change();
        }
    }
    m_daemon.restart();
    expectRegisteredAt({QStringLiteral("hci0")});
}

void DaemonFaults::answersLate()
{
    for (const char* member : members) {
        m_daemon.answerLate(QLatin1String(member), 20);
    }
    change();
    answerNormally();
    restarts();
}

void DaemonFaults::neverAnswers()
{
    for (const char* member : members) {
        m_daemon.neverAnswer(QLatin1String(member));
    }
    change();
    m_daemon.settle();
    answerNormally();
    restarts();
}

void DaemonFaults::answersAfterTheEnd()
{
    m_daemon.answerLate(QStringLiteral("RegisterApplication"), 20);
    m_daemon.answerLate(QStringLiteral("RegisterAdvertisement"), 20);
    {
        GattApplication app(nullptr, QStringLiteral("/short"), QStringLiteral("org.plim.short"));
        app.createService(QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb"), true);
        const GapAdvertisement adv(nullptr, QStringLiteral("/short/adv"));
        BleManager::instance()->add(&app);
        BleManager::instance()->add(&adv);
        if (chance()) {
            m_daemon.settle();
        }
    }
    waitUntil(QStringLiteral("late answers"), nothingIsWatched);
    answerNormally();
    restarts();
}

void DaemonFaults::refuses()
{
    for (const char* member : members) {
        m_daemon.answerWithError(QLatin1String(member), QStringLiteral("org.bluez.Error.NotReady"),
                                 QStringLiteral("Not now"));
    }
    change();
    m_daemon.restart();
    m_daemon.settle();
    waitUntil(QStringLiteral("refusals"), nothingIsWatched);
    if (!m_daemon.applications().isEmpty() || !m_daemon.advertisements().isEmpty()) {
        fail(QStringLiteral("a daemon that refuses has registered something"));
    }
    answerNormally();
    restarts();
}

void DaemonFaults::twoAdapters()
{
    const QString hci0 = QStringLiteral("hci0");
    const QString hci1 = QStringLiteral("hci1");
    m_daemon.addAdapter(hci1);
    expectRegisteredAt({hci0, hci1});
    const QString first = chance() ? hci0 : hci1;
    const QString other = first == hci0 ? hci1 : hci0;
    m_daemon.removeAdapter(first);
    expectRegisteredAt({other});
    change(); // goes nowhere: an interface that is gone clears the manager, wherever it was
    expectRegisteredAt({other});
    m_daemon.addAdapter(first);
    expectRegisteredAt({hci0, hci1});
    change(); // the one announced last
    expectHeldAt({hci0, hci1});
    m_daemon.removeAdapter(hci1);
    restarts();
}

void DaemonFaults::announcesTwice()
{
    const QStringList both{QStringLiteral("org.bluez.GattManager1"),
                           QStringLiteral("org.bluez.LEAdvertisingManager1")};
    for (int i = 0; i < 3; ++i) {
        m_daemon.announce(QStringLiteral("/org/bluez/hci0"), both);
    }
    expectRegisteredAt({QStringLiteral("hci0")});
    change();
    expectHeldAt({QStringLiteral("hci0")});
    restarts();
}

struct Fault
{
    const char* name;
    void (DaemonFaults::*run)();
};

constexpr Fault allFaults[] = {
    {"absent", &DaemonFaults::absent},
    {"restarting", &DaemonFaults::restarts},
    {"vanishing at each step", &DaemonFaults::vanishesAtEachStep},
    {"late", &DaemonFaults::answersLate},
    {"never answering", &DaemonFaults::neverAnswers},
    {"answering after the end", &DaemonFaults::answersAfterTheEnd},
    {"refusing everything", &DaemonFaults::refuses},
    {"two adapters", &DaemonFaults::twoAdapters},
    {"the same path again", &DaemonFaults::announcesTwice},
};

void cycle(DaemonFaults& faults, const Fault& fault, int count)
{
    Figures first = {};
    QElapsedTimer time;
    time.start();
    for (int i = 0; i < count; ++i) {
        (faults.*fault.run)();
        if (i == count / 10) {
            first = Figures::now();
        }
    }
    const Figures last = Figures::now();
    std::printf("%-24s %5d cycles %7lld ms: heap %+lld, resident %+lld, %s\n", fault.name, count,
                time.elapsed(), last.heap - first.heap, last.resident - first.resident,
                qPrintable(last.text()));
    std::fflush(stdout);
    if (last.heap > first.heap + heapSlack || last.objects != first.objects ||
        last.descriptors != first.descriptors || last.watchers != 0) {
        fail(QStringLiteral("not returned to ") + first.text());
    }
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    LoadOptions options(1);
    options.addCount(QStringLiteral("cycles"), QStringLiteral("How often each fault is shown."), 1000);
    options.addPositionalArgument(QStringLiteral("fault"), QStringLiteral("Only these."),
                                  QStringLiteral("[fault...]"));
    options.process(program);
    followObjects();
    buildEveryLogLine();
    DaemonFaults faults(options.seed());
    const QStringList wanted = options.positionalArguments();
    const int cycles = int(options.count(QStringLiteral("cycles")));
    for (const Fault& fault : allFaults) {
        if (wanted.isEmpty() || wanted.contains(QLatin1String(fault.name))) {
            cycle(faults, fault, cycles);
        }
    }
    return 0;
}
