#include "BleManagerInternals.h"

#include "plimlog.h"

#include <QDBusError>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>

bool BleManager::Internals::canBeSent(const RegistrationTracker::Step& step, const char* signature)
{
    if (!QDBusObjectPath(step.objectPath).path().isEmpty()) {
        return true;
    }
    const QDBusError error(QDBusError::InvalidObjectPath,
                           QLatin1String("Invalid object path: ") + step.objectPath);
    PLIM_LOG(plim::bleLogger(), ERROR, signature,
             "D-Bus call from '" << step.tag << "' failed: " << error.message());
    tracker.stepNotSent(step, error);
    return false;
}

void BleManager::Internals::watch(const QDBusPendingCall& call, const RegistrationTracker::Step& step)
{
    auto* watcher = new QDBusPendingCallWatcher(call);
    watcher->setProperty("function", QString::fromLatin1(step.tag));
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, manager, &BleManager::on_dbusWatcher_finished);
    // Only a manager that was made without instance() can be deleted before its calls finish.
    plim::connect(manager, &QObject::destroyed, watcher, &QObject::deleteLater);
    tracker.stepSent(step, watcher);
}

void BleManager::Internals::forget(const QObject* deleted)
{
    otherThreads.forget(deleted);
    tracker.remove(deleted);
}
