#include "RegistrationManager.h"

#include "Daemon.h"

#include <QDBusPendingCallWatcher>
#include <algorithm>

namespace simulator {

RegistrationManager::RegistrationManager(const QString& kind, const QString& path, Daemon* daemon)
    : QObject(daemon), m_kind(kind), m_path(path), m_daemon(daemon)
{
}

void RegistrationManager::add(const QDBusMessage& call)
{
    Registration registration;
    registration.id = ++m_lastId;
    registration.manager = m_path;
    registration.sender = call.service();
    registration.path = call.arguments().value(0).value<QDBusObjectPath>().path();
    registration.call = call;

    const bool known = indexOf(registration.sender, registration.path) >= 0;
    const Refusal refusal = known ? Refusal::alreadyExists() : admission();
    if (refusal) {
        m_daemon->refuse(call, refusal);
        emit refused(m_kind, registration.path, refusal.name, refusal.message);
        return;
    }
    m_registrations += registration;
    m_daemon->watchClient(registration.sender);
    auto* watcher =
        new QDBusPendingCallWatcher(m_daemon->connection().asyncCall(readRequest(registration)), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, id = registration.id](QDBusPendingCallWatcher* finished) { onRead(id, finished); });
}

void RegistrationManager::remove(const QDBusMessage& call)
{
    const int index = indexOf(call.service(), call.arguments().constFirst().value<QDBusObjectPath>().path());
    if (index < 0) {
        m_daemon->refuse(call, Refusal::doesNotExist());
        return;
    }
    removeAt(index);
    m_daemon->answer(call, {});
}

void RegistrationManager::dropClient(const QString& sender)
{
    for (int index = int(m_registrations.size()) - 1; index >= 0; --index) {
        if (m_registrations.at(index).sender == sender) {
            removeAt(index);
        }
    }
}

void RegistrationManager::dropAll()
{
    while (!m_registrations.isEmpty()) {
        removeAt(int(m_registrations.size()) - 1);
    }
}

int RegistrationManager::indexOf(quint64 id) const
{
    const auto found = std::find_if(m_registrations.begin(), m_registrations.end(),
                                    [id](const Registration& candidate) { return candidate.id == id; });
    return found == m_registrations.end() ? -1 : int(found - m_registrations.begin());
}

void RegistrationManager::removeAt(int index)
{
    const Registration removed = m_registrations.takeAt(index);
    onRemoved(removed);
    if (removed.isRegistered) {
        emit unregistered(m_kind, removed.path);
    }
}

void RegistrationManager::onRegistered(const Registration& /*registration*/) {}

void RegistrationManager::onRemoved(const Registration& /*registration*/) {}

void RegistrationManager::onRead(quint64 id, QDBusPendingCallWatcher* watcher)
{
    watcher->deleteLater();
    const int index = indexOf(id);
    if (index < 0) {
        return; // unregistered, or its client gone, before it was read: the daemon never answers such a call
    }
    Registration& registration = at(index);
    const QDBusMessage call = registration.call;
    const QString path = registration.path;
    if (const Refusal refusal = judge(registration, watcher->reply())) {
        m_registrations.removeAt(index);
        m_daemon->refuse(call, refusal);
        emit refused(m_kind, path, refusal.name, refusal.message);
        return;
    }
    registration.isRegistered = true;
    onRegistered(registration);
    m_daemon->answer(call, {});
    emit registered(m_kind, path);
}

int RegistrationManager::indexOf(const QString& sender, const QString& path) const
{
    const auto found =
        std::find_if(m_registrations.begin(), m_registrations.end(), [&](const Registration& candidate) {
            return candidate.sender == sender && candidate.path == path;
        });
    return found == m_registrations.end() ? -1 : int(found - m_registrations.begin());
}

} // namespace simulator
