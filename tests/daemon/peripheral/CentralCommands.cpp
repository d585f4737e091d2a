// The commands for centrals and adapters.

#include "BleManager.h"
#include "Interpreter.h"

#include <plim/peripheral.h>

#include <QMetaEnum>

namespace {

QString described(const plim::Central& central)
{
    return central.path() + ' ' + QString::number(central.mtu());
}

std::function<void(const QDBusError&)> tellEnd(const QString& what)
{
    return [what](const QDBusError& error) { say(QString("ended " + what + ' ' + error.name()).trimmed()); };
}

template <typename Object>
Object& existing(Object* object)
{
    if (!object) {
        throw QString("the order of the commands");
    }
    return *object;
}

} // namespace

void Interpreter::choose(const QStringList& words)
{
    BleManager::instance()->setAdapter(words.value(1));
}

void Interpreter::centrals(const QStringList& words)
{
    using plim::Centrals;
    m_centrals = new Centrals(words.value(1) == "all" ? QString() : words.value(1), this);
    connect(m_centrals, &Centrals::centralConnected, this,
            [](const plim::Central& central) { say("connected " + described(central)); });
    connect(m_centrals, &Centrals::centralChanged, this,
            [](const plim::Central& central) { say("changed " + described(central)); });
    connect(m_centrals, &Centrals::centralDisconnected, this,
            [](const plim::Central& central, Centrals::Reason reason) {
                say("disconnected " + central.path() + ' ' +
                    QMetaEnum::fromType<Centrals::Reason>().valueToKey(reason));
            });
}

void Interpreter::disconnectCentral(const QStringList& words)
{
    existing(m_centrals).disconnect(plim::Central(words.value(1)), tellEnd("disconnect"));
}

void Interpreter::adapter(const QStringList& words)
{
    m_adapter = new plim::Adapter(words.value(1), this);
    connect(m_adapter, &plim::Adapter::pathChanged, this,
            [this] { say("adapter " + (m_adapter->isPresent() ? m_adapter->path() : QString("-"))); });
    connect(m_adapter, &plim::Adapter::poweredChanged, this,
            [this] { say(QString("powered ") + (m_adapter->isPowered() ? '1' : '0')); });
}

void Interpreter::switchAdapter(const QStringList& words)
{
    existing(m_adapter).setPowered(words.value(1) == "on", tellEnd("switch"));
}
