#include "AgentManager.h"

#include "Daemon.h"
#include "Names.h"

#include <QDBusObjectPath>

namespace simulator {

AgentManager::AgentManager(Daemon* daemon) : QObject(daemon), m_daemon(daemon) {}

bool AgentManager::handle(const QDBusMessage& call)
{
    if (call.path() != Names::BluezPath ||
        (!call.interface().isEmpty() && call.interface() != Names::AgentManager)) {
        return false;
    }
    const QString form = call.member() + QLatin1Char(' ') + call.signature();
    if (form == QLatin1String("RegisterAgent os")) {
        add(call);
    } else if (form == QLatin1String("UnregisterAgent o")) {
        remove(call);
    } else if (form == QLatin1String("RequestDefaultAgent o")) {
        makeDefault(call);
    } else {
        return false;
    }
    return true;
}

void AgentManager::dropClient(const QString& sender)
{
    for (int index = 0; index < m_agents.size(); ++index) {
        if (m_agents.at(index).sender == sender) {
            m_agents.removeAt(index);
            emit dropped(sender);
            if (m_agents.isEmpty()) {
                setPairable(false);
            }
            return;
        }
    }
}

void AgentManager::prepare(const QString& adapter)
{
    if (!m_agents.isEmpty()) {
        m_daemon->changeProperty(adapter, Names::Adapter, QStringLiteral("Pairable"), true);
    }
}

void AgentManager::add(const QDBusMessage& call)
{
    static const QStringList capabilities{QString(),
                                          QStringLiteral("DisplayOnly"),
                                          QStringLiteral("DisplayYesNo"),
                                          QStringLiteral("KeyboardOnly"),
                                          QStringLiteral("NoInputNoOutput"),
                                          QStringLiteral("KeyboardDisplay")};
    QString capability = call.arguments().at(1).toString();
    if (!capabilities.contains(capability)) {
        m_daemon->refuse(call, Refusal::invalidArguments());
        return;
    }
    for (const Agent& agent : qAsConst(m_agents)) {
        if (agent.sender == call.service()) {
            m_daemon->refuse(call, Refusal::alreadyExists());
            return;
        }
    }
    if (capability.isEmpty()) {
        capability = QStringLiteral("KeyboardDisplay");
    }
    m_daemon->watchClient(call.service());
    m_agents += Agent{call.service(), call.arguments().at(0).value<QDBusObjectPath>().path(), capability};
    if (m_agents.size() == 1) {
        setPairable(true);
    }
    m_daemon->answer(call, {});
}

void AgentManager::remove(const QDBusMessage& call)
{
    if (indexOf(call.service(), call.arguments().at(0).value<QDBusObjectPath>().path()) < 0) {
        m_daemon->refuse(call, Refusal::doesNotExist());
        return;
    }
    dropClient(call.service());
    m_daemon->answer(call, {});
}

void AgentManager::makeDefault(const QDBusMessage& call)
{
    const int index = indexOf(call.service(), call.arguments().at(0).value<QDBusObjectPath>().path());
    if (index < 0) {
        m_daemon->refuse(call, Refusal::doesNotExist());
        return;
    }
    m_agents.move(index, 0);
    setPairable(true);
    m_daemon->answer(call, {});
}

int AgentManager::indexOf(const QString& sender, const QString& path) const
{
    for (int index = 0; index < m_agents.size(); ++index) {
        if (m_agents.at(index).sender == sender && m_agents.at(index).path == path) {
            return index;
        }
    }
    return -1;
}

void AgentManager::setPairable(bool isPairable)
{
    const DBusManagedObjectList objects = m_daemon->tree().objects();
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        if (object->contains(Names::Adapter)) {
            m_daemon->changeProperty(object.key().path(), Names::Adapter, QStringLiteral("Pairable"),
                                     isPairable);
        }
    }
}

} // namespace simulator
