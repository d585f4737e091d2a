#include "Registrations.h"

#include "DBusBluez.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "OrgBluezGattManager1Interface.h"
#include "OrgBluezLEAdvertisingManager1Interface.h"
#include "ReleaseNotice.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingCallWatcher>

#include <exception>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

const char* gattInterface()
{
    return OrgBluezGattManager1Interface::staticInterfaceName();
}

const char* advertisingInterface()
{
    return OrgBluezLEAdvertisingManager1Interface::staticInterfaceName();
}

} // namespace

// The manager's proxies watch the same name in the same way, so that this makes no call on the bus.
Registrations::Registrations()
    : m_daemon(DBusBluezServiceName(), QDBusConnection::systemBus(), QDBusServiceWatcher::WatchForOwnerChange)
{
    // A daemon that was killed has not taken its managers back.
    plim::connect(&m_daemon, &QDBusServiceWatcher::serviceOwnerChanged, &m_daemon,
                  [this](const QString& /*name*/, const QString& former, const QString& /*owner*/) {
                      if (!former.isEmpty()) {
                          managerGone(gattInterface());
                          managerGone(advertisingInterface());
                      }
                  });
}

void Registrations::setObserver(const BleRegistrationObserver& observer)
{
    m_observer = observer;
}

BleRegistrationState Registrations::state(const QObject* object) const
{
    return m_entries.value(object).state;
}

void Registrations::hold(const GattApplication* app)
{
    hold(app, gattInterface());
}

void Registrations::hold(const GapAdvertisement* adv)
{
    hold(adv, advertisingInterface());
    const QSharedPointer<QObject> ear(new QObject);
    plim::connect(adv->m_releaseNotice.data(), &ReleaseNotice::released, ear.data(),
                  [this, adv, path = adv->dbusPath()] { released(adv, path); });
    m_entries[adv].ear = ear;
}

void Registrations::hold(const QObject* object, const char* managerInterface)
{
    Entry& entry = m_entries[object];
    entry.managerInterface = QLatin1String(managerInterface);
    entry.state.phase = BleRegistrationState::WaitingForBlueZ;
}

void Registrations::forget(const QObject* object)
{
    m_entries.remove(object);
}

void Registrations::managerAppeared(const char* interface, const QString& path)
{
    BleRegistrationEvent event;
    event.kind = BleRegistrationEvent::ManagerAppeared;
    event.managerInterface = QLatin1String(interface);
    event.managerPath = path;
    m_managers.insert(event.managerInterface, path);
    tell(event);
}

void Registrations::managerGone(const char* interface)
{
    BleRegistrationEvent event;
    event.kind = BleRegistrationEvent::ManagerGone;
    event.managerInterface = QLatin1String(interface);
    event.managerPath = m_managers.take(event.managerInterface);
    for (Entry& entry : m_entries) {
        if (entry.managerInterface == event.managerInterface) {
            entry.latestStep = 0;
            entry.state = {};
            entry.state.phase = BleRegistrationState::WaitingForBlueZ;
        }
    }
    if (!event.managerPath.isEmpty()) {
        tell(event);
    }
}

void Registrations::sent(const Step& step, const QDBusPendingCallWatcher* watcher)
{
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, &m_daemon,
                  [this, step, number = begin(step)](const QDBusPendingCallWatcher* finished) {
                      finish(step, number, finished->error());
                  });
}

void Registrations::notSent(const Step& step, const QDBusError& error)
{
    finish(step, begin(step), error);
}

/** @return the step's number, or 0 where the object is not held */
quint64 Registrations::begin(const Step& step)
{
    const auto entry = m_entries.find(step.object);
    if (entry == m_entries.end()) {
        return 0;
    }
    entry->latestStep = ++m_steps;
    entry->state = {step.until, step.managerPath, {}, {}};
    return entry->latestStep;
}

void Registrations::finish(const Step& step, quint64 number, const QDBusError& error)
{
    const auto entry = m_entries.find(step.object);
    const bool counts = number != 0 && entry != m_entries.end() && entry->latestStep == number;
    if (counts && step.until == BleRegistrationState::Pending) {
        if (!error.isValid()) {
            entry->state.phase = BleRegistrationState::Registered;
        } else if (m_managers.contains(step.managerInterface)) {
            entry->state = {BleRegistrationState::Refused, step.managerPath, error.name(), error.message()};
        } else {
            entry->state = {BleRegistrationState::WaitingForBlueZ, {}, {}, {}};
        }
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
    tell(event);
}

void Registrations::released(const QObject* object, const QString& path)
{
    const auto entry = m_entries.find(object);
    if (entry == m_entries.end()) {
        return;
    }
    // While BlueZ is asked anew, the release is of what it had before.
    if (entry->state.phase == BleRegistrationState::Registered) {
        entry->state.phase = BleRegistrationState::Dropped;
    }
    BleRegistrationEvent event;
    event.kind = BleRegistrationEvent::AdvertisementReleased;
    event.managerInterface = entry->managerInterface;
    event.managerPath = m_managers.value(entry->managerInterface);
    event.objectPath = path;
    tell(event);
}

void Registrations::tell(const BleRegistrationEvent& event)
{
    if (m_observer) {
        QMetaObject::invokeMethod(
            &m_daemon, [this, event] { call(event); }, Qt::QueuedConnection);
    }
}

/** The observer may end whatever there is, itself and this included. */
void Registrations::call(const BleRegistrationEvent& event) const
{
    const BleRegistrationObserver observer = m_observer;
    if (!observer) {
        return;
    }
    try {
        observer(event);
    } catch (const std::exception& error) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Registration observer failed: " << error.what());
    } catch (...) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Registration observer failed");
    }
}
