#include "RandomLifetimes.h"

#include "BleManager.h"
#include "Figures.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>

#include <algorithm>
#include <cstdio>

namespace {

constexpr int maximumDepth = 5;
constexpr int pathCount = 6; // more than ever live at once, so that paths are used again
constexpr int patienceMs = 60000;

bool waitFor(const std::function<bool()>& condition)
{
    const QDeadlineTimer deadline(patienceMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
    }
    return true;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

int totalWeight()
{
    int total = 0;
    for (const Operation& operation : allOperations()) {
        total += operation.weight;
    }
    return total;
}

} // namespace

RandomLifetimes::RandomLifetimes(unsigned seed, Simulator* daemon, bool verbose)
    : m_random(seed), m_daemon(daemon), m_verbose(verbose)
{
    observe();
}

RandomLifetimes::~RandomLifetimes()
{
    BleManager::instance()->setRegistrationObserver({});
}

/** Hears of all registrations by an observer that asks back and replaces itself each time. */
void RandomLifetimes::observe()
{
    BleManager::instance()->setRegistrationObserver([this](const BleRegistrationEvent& event) {
        observe();
        event.text();
        misjudged();
    });
}

void RandomLifetimes::run()
{
    static const int total = totalWeight();
    int choice = below(total);
    auto operation = allOperations().cbegin();
    for (; choice >= operation->weight; ++operation) {
        choice -= operation->weight;
    }
    ++m_operations;
    m_nested += m_depth > 0 ? 1 : 0;
    m_digest.addData(QByteArray::number(m_depth) + operation->name);
    if (m_verbose) {
        std::fprintf(stderr, "%lld %*s%s\n", m_operations, 2 * m_depth, "", operation->name);
    }
    ++m_depth;
    operation->run(*this);
    --m_depth;
}

void RandomLifetimes::interfere()
{
    if (m_depth < maximumDepth && chance(3)) {
        run();
    }
}

QByteArray RandomLifetimes::bytes()
{
    static const QByteArray controls[] = {"0", "1", "2", "-1", "x", ""};
    if (chance(3)) {
        return controls[below(6)];
    }
    return QByteArray(below(chance(20) ? 3000 : 40), char('a' + below(26)));
}

template <typename Object, typename Signal>
void RandomLifetimes::interfereAt(Object* object, Signal signal)
{
    QObject::connect(object, signal, object, [this] { interfere(); });
}

void RandomLifetimes::interfereAtTheEndOf(QObject* object)
{
    // No context: the receiver would be gone before its signal arrives.
    QObject::connect(object, &QObject::destroyed, [this] {
        ++m_ending;
        interfere();
        --m_ending;
    });
}

void RandomLifetimes::build()
{
    const QVector<GattApplication*> living = alive(m_applications);
    for (int i = 0; i < pathCount; ++i) {
        const QString path = QStringLiteral("/stress%1").arg(i);
        const bool taken = std::any_of(living.begin(), living.end(), [&path](const GattApplication* app) {
            return app->dbusPath() == path;
        });
        if (!taken && living.size() < pathCount - 2) {
            auto* app = new GattApplication(nullptr, path, QStringLiteral("org.plim.stress%1").arg(i));
            m_applications.removeAll(nullptr);
            m_applications << app;
            ++m_builtApplications;
            interfereAt(app, &GattApplication::applicationChanged);
            interfereAtTheEndOf(app);
            return;
        }
    }
}

void RandomLifetimes::follow(GattService* service)
{
    if (service) {
        interfereAt(service, &GattService::handlesChanged);
        interfereAtTheEndOf(service);
    }
}

void RandomLifetimes::follow(GattCharacteristic* characteristic)
{
    if (characteristic) {
        interfereAt(characteristic, &GattCharacteristic::valueChanged);
        interfereAt(characteristic, &GattCharacteristic::handlesChanged);
        interfereAt(characteristic, &GattCharacteristic::notifyStateChanged);
        interfereAt(characteristic, &GattCharacteristic::PropertiesChanged);
        interfereAtTheEndOf(characteristic);
    }
}

void RandomLifetimes::advertise()
{
    const QVector<GapAdvertisement*> living = alive(m_advertisements);
    if (living.size() >= 3) {
        return;
    }
    QString path;
    for (int i = 0; path.isEmpty(); ++i) {
        const QString candidate = QStringLiteral("/advertised%1").arg(i);
        const bool taken =
            std::any_of(living.begin(), living.end(),
                        [&candidate](const GapAdvertisement* adv) { return adv->dbusPath() == candidate; });
        path = taken ? QString() : candidate;
    }
    auto* adv = new GapAdvertisement(
        nullptr, path, chance(2) ? GapAdvertisement::SetProperties : GapAdvertisement::AllProperties);
    m_advertisements.removeAll(nullptr);
    m_advertisements << adv;
    interfereAt(adv, &GapAdvertisement::dataChanged);
    interfereAtTheEndOf(adv);
}

template <>
QVector<QPointer<const GattApplication>>& RandomLifetimes::held<GattApplication>()
{
    return m_heldApplications;
}

template <>
QVector<QPointer<const GapAdvertisement>>& RandomLifetimes::held<GapAdvertisement>()
{
    return m_heldAdvertisements;
}

template <typename Object>
void RandomLifetimes::hold(Object* object)
{
    held<Object>().removeAll(nullptr);
    if (object && !held<Object>().contains(object)) {
        held<Object>() << object;
    }
    BleManager::instance()->add(object);
}

template <typename Object>
void RandomLifetimes::release(Object* object)
{
    held<Object>().removeAll(object);
    BleManager::instance()->remove(object);
}

template void RandomLifetimes::hold(GattApplication*);
template void RandomLifetimes::hold(GapAdvertisement*);
template void RandomLifetimes::release(GattApplication*);
template void RandomLifetimes::release(GapAdvertisement*);

void RandomLifetimes::ask(const QString& path, const QString& member, const QString& signature,
                          const QStringList& arguments)
{
    if (!maySpin()) {
        return;
    }
    const BusMessage answer =
        m_client.call(path, QStringLiteral("org.bluez.GattCharacteristic1"), member, signature, arguments);
    if (!answer.isReply() && !answer.isError()) {
        qFatal("%s was not answered", qPrintable(member));
    }
}

void RandomLifetimes::comeAndGo()
{
    switch (below(4)) {
    case 0:
        m_daemon->vanish();
        break;
    case 1:
        m_daemon->appear();
        break;
    case 2:
        m_daemon->restart();
        break;
    default:
        // Without an adapter the daemon is there, but its managers are not.
        m_daemon->removeAdapter(QStringLiteral("hci0"));
        m_daemon->addAdapter(QStringLiteral("hci0"));
    }
}

QStringList RandomLifetimes::registrable() const
{
    QStringList paths;
    for (const GattApplication* app : alive(m_heldApplications)) {
        // The daemon refuses a tree without services.
        if (!app->services().isEmpty()) {
            paths << app->dbusPath();
        }
    }
    return sorted(paths);
}

/** The paths of the objects that the manager says are held and are not, or are not held and are. */
QStringList RandomLifetimes::misjudged() const
{
    QStringList paths;
    const auto judge = [&paths](const auto& all, const auto& held) {
        for (const auto* object : all) {
            const auto phase = BleManager::instance()->registrationState(object).phase;
            if ((phase == BleRegistrationState::NotHeld) == held.contains(object)) {
                paths << object->dbusPath();
            }
        }
    };
    judge(alive(m_applications), alive(m_heldApplications));
    judge(alive(m_advertisements), alive(m_heldAdvertisements));
    return paths;
}

/** The paths of the objects that the manager says are registered. */
QStringList RandomLifetimes::registered() const
{
    QStringList paths;
    const auto list = [&paths](const auto& all) {
        for (const auto* object : all) {
            const BleRegistrationState state = BleManager::instance()->registrationState(object);
            if (state.phase == BleRegistrationState::Registered) {
                paths << object->dbusPath();
            }
        }
    };
    list(alive(m_applications));
    list(alive(m_advertisements));
    return sorted(paths);
}

QString RandomLifetimes::discrepancy()
{
    for (const char* member : {"RegisterApplication", "UnregisterApplication", "RegisterAdvertisement",
                               "UnregisterAdvertisement"}) {
        m_daemon->answerNormally(QLatin1String(member));
    }
    // What has to be seen now is the library: nothing more is to happen meanwhile.
    m_depth += maximumDepth;
    QString wrong;
    m_daemon->vanish();
    if (!waitFor([] { return Figures::now().watchers == 0; })) {
        wrong = QStringLiteral("calls to a daemon that is gone are still watched");
    }
    m_daemon->appear();
    QStringList advertisements;
    for (const GapAdvertisement* adv : alive(m_heldAdvertisements)) {
        advertisements << adv->dbusPath();
    }
    advertisements.sort();
    const bool complete = waitFor([&] {
        return sorted(m_daemon->applications()) == registrable() &&
               sorted(m_daemon->advertisements()) == advertisements && Figures::now().watchers == 0;
    });
    if (!complete) {
        wrong = QStringLiteral("held: %1 and %2; registered: %3 and %4; watched calls: %5")
                    .arg(registrable().join(' '), advertisements.join(' '),
                         m_daemon->applications().join(' '), m_daemon->advertisements().join(' '))
                    .arg(Figures::now().watchers);
    } else if (!misjudged().isEmpty() || registered() != sorted(registrable() + advertisements)) {
        wrong = QStringLiteral("the manager misjudges: %1; held: %2; said to be registered: %3")
                    .arg(misjudged().join(' '), (registrable() + advertisements).join(' '),
                         registered().join(' '));
    }
    m_depth -= maximumDepth;
    return wrong;
}

void RandomLifetimes::clear()
{
    m_depth += maximumDepth;
    qDeleteAll(alive(m_applications));
    qDeleteAll(alive(m_advertisements));
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    waitFor([] { return Figures::now().watchers == 0; });
    m_depth -= maximumDepth;
}
