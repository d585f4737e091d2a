#include "BleManagerInternals.h"

#include "DBusBluez.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>

BleManager::Internals::Internals(BleManager* manager_)
    : manager(manager_),
      daemon(DBusBluezServiceName(), QDBusConnection::systemBus(), QDBusServiceWatcher::WatchForOwnerChange),
      otherThreads(manager_)
{
    // A daemon that was killed has not announced that its adapters are gone. Adapters may have other names
    // with the next one.
    plim::connect(&daemon, &QDBusServiceWatcher::serviceOwnerChanged, manager,
                  [this](const QString& /*name*/, const QString& former) {
                      if (!former.isEmpty()) {
                          adapters.clear();
                      }
                  });
}

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
