#include "RegistrationTracker.h"

#include "BluezInterfaces.h"
#include "DBusBluez.h"
#include "GapAdvertisementInternals.h"
#include "GattApplication.h"
#include "RegistrationNews.h"
#include "plimlog.h"

#include <QDBusAbstractInterface>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingCallWatcher>

#include <exception>

RegistrationTracker::Step::Step(const char* tag_, const char* method_, const QObject* object_,
                                const QString& objectPath_, const QDBusAbstractInterface& manager,
                                BleRegistrationState::Phase phase)
    : tag(tag_),
      method(QLatin1String(method_)),
      object(object_),
      objectPath(objectPath_),
      managerInterface(manager.interface()),
      managerPath(manager.path()),
      phaseUntilAnswer(phase)
{
}

// The manager's proxies make Qt watch the same name in the same way, so this watcher adds no call on the bus.
RegistrationTracker::RegistrationTracker()
    : m_daemonWatcher(DBusBluezServiceName(), QDBusConnection::systemBus(),
                      QDBusServiceWatcher::WatchForOwnerChange)
{
    // A daemon that was killed has not announced that its managers are gone.
    plim::connect(&m_daemonWatcher, &QDBusServiceWatcher::serviceOwnerChanged, &m_context,
                  [this](const QString& /*name*/, const QString& former, const QString& /*owner*/) {
                      if (!former.isEmpty()) {
                          managerGone(BluezInterfaces::GattManager);
                          managerGone(BluezInterfaces::AdvertisingManager);
                      }
                  });
}

void RegistrationTracker::setObserver(const BleRegistrationObserver& observer)
{
    m_observer = observer;
}

BleRegistrationState RegistrationTracker::state(const QObject* object) const
{
    return m_entries.value(object).state;
}

void RegistrationTracker::add(const GattApplication* app)
{
    add(app, BluezInterfaces::GattManager);
}

void RegistrationTracker::add(const GapAdvertisement* adv)
{
    add(adv, BluezInterfaces::AdvertisingManager);
    const QSharedPointer<QObject> context(new QObject);
    plim::connect(&adv->m_internals->releaseNotice, &ReleaseNotice::released, context.data(),
                  [this, adv, path = adv->dbusPath()] { onReleased(adv, path); });
    m_entries[adv].releaseContext = context;
}

void RegistrationTracker::add(const QObject* object, const QString& managerInterface)
{
    Entry& entry = m_entries[object];
    entry.managerInterface = managerInterface;
    entry.state.phase = BleRegistrationState::WaitingForBlueZ;
}

void RegistrationTracker::remove(const QObject* object)
{
    m_entries.remove(object);
}

void RegistrationTracker::managerAppeared(const QString& interface, const QString& path)
{
    BleRegistrationEvent event;
    event.kind = BleRegistrationEvent::ManagerAppeared;
    event.managerInterface = interface;
    event.managerPath = path;
    m_managerPaths.insert(event.managerInterface, path);
    queue(event);
}

void RegistrationTracker::managerGone(const QString& interface)
{
    BleRegistrationEvent event;
    event.kind = BleRegistrationEvent::ManagerGone;
    event.managerInterface = interface;
    event.managerPath = m_managerPaths.take(event.managerInterface);
    for (Entry& entry : m_entries) {
        if (entry.managerInterface == event.managerInterface) {
            entry.latestStep = 0;
            entry.state = {};
            entry.state.phase = BleRegistrationState::WaitingForBlueZ;
        }
    }
    if (!event.managerPath.isEmpty()) {
        queue(event);
    }
}

void RegistrationTracker::stepSent(const Step& step, const QDBusPendingCallWatcher* watcher)
{
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, &m_context,
                  [this, step, number = begin(step)](const QDBusPendingCallWatcher* finished) {
                      finish(step, number, finished->error());
                  });
}

void RegistrationTracker::stepNotSent(const Step& step, const QDBusError& error)
{
    finish(step, begin(step), error);
}

/** @return the step's number, or 0 where the object is not held */
quint64 RegistrationTracker::begin(const Step& step)
{
    const auto entry = m_entries.find(step.object);
    if (entry == m_entries.end()) {
        return 0;
    }
    if (step.phaseUntilAnswer != BleRegistrationState::Pending ||
        step.managerPath != entry->state.managerPath) {
        entry->endedStep = m_lastStep;
    }
    entry->latestStep = ++m_lastStep;
    entry->state = {step.phaseUntilAnswer, step.managerPath, {}, {}};
    return entry->latestStep;
}

void RegistrationTracker::finish(const Step& step, quint64 number, const QDBusError& error)
{
    const auto entry = m_entries.find(step.object);
    const bool counts = number != 0 && entry != m_entries.end() && entry->latestStep == number;
    if (number != 0 && entry != m_entries.end() && step.phaseUntilAnswer == BleRegistrationState::Pending) {
        takeAnswer(*entry, step, number, error);
    }
    BleRegistrationEvent event;
    event.kind = error.isValid() ? BleRegistrationEvent::StepFailed : BleRegistrationEvent::StepSucceeded;
    event.step = step.method;
    event.managerInterface = step.managerInterface;
    event.managerPath = step.managerPath;
    event.objectPath = step.objectPath;
    event.errorName = error.name();
    event.errorMessage = error.message();
    event.superseded = number != 0 && !counts;
    queue(event);
}

/** Records what BlueZ has answered to a registration, the latest or an earlier one. */
void RegistrationTracker::takeAnswer(Entry& entry, const Step& step, quint64 number,
                                     const QDBusError& error) const
{
    if (!error.isValid()) {
        entry.acceptedStep = qMax(entry.acceptedStep, number);
    }
    if (entry.latestStep == number) {
        if (!error.isValid()) {
            entry.state.phase = BleRegistrationState::Registered;
        } else if (m_managerPaths.contains(step.managerInterface)) {
            entry.state = {BleRegistrationState::Refused, step.managerPath, error.name(), error.message()};
        } else {
            entry.state = {BleRegistrationState::WaitingForBlueZ, {}, {}, {}};
        }
    }
    // A manager that announces itself twice is asked twice: it accepts the one and rejects the other. The
    // answers can arrive in any order.
    if (entry.acceptedStep > entry.endedStep && entry.state.phase == BleRegistrationState::Refused &&
        entry.state.errorName == QLatin1String("org.bluez.Error.AlreadyExists")) {
        entry.state = {BleRegistrationState::Registered, entry.state.managerPath, {}, {}};
    }
}

void RegistrationTracker::onReleased(const QObject* object, const QString& path)
{
    const auto entry = m_entries.find(object);
    if (entry == m_entries.end()) {
        return;
    }
    // If a new registration is pending, the release belongs to the one before.
    if (entry->state.phase == BleRegistrationState::Registered) {
        entry->state.phase = BleRegistrationState::Dropped;
    }
    entry->endedStep = entry->acceptedStep;
    BleRegistrationEvent event;
    event.kind = BleRegistrationEvent::AdvertisementReleased;
    event.managerInterface = entry->managerInterface;
    event.managerPath = m_managerPaths.value(entry->managerInterface);
    event.objectPath = path;
    queue(event);
}

void RegistrationTracker::queue(const BleRegistrationEvent& event)
{
    // On its own, since a receiver may delete this tracker.
    QMetaObject::invokeMethod(
        &m_context, [event] { emit RegistrationNews::instance()->happened(event); }, Qt::QueuedConnection);
    if (m_observer) {
        QMetaObject::invokeMethod(
            &m_context, [this, event] { callObserver(event); }, Qt::QueuedConnection);
    }
}

/** The observer may delete anything, even itself and this tracker: no member is used after the call. */
void RegistrationTracker::callObserver(const BleRegistrationEvent& event) const
{
    const BleRegistrationObserver observer = m_observer;
    if (!observer) {
        return;
    }
    try {
        observer(event);
    } catch (const std::exception& error) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO, "Registration observer failed: " << error.what());
    } catch (...) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO, "Registration observer failed");
    }
}
