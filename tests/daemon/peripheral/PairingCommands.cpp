// The commands for plim/peripheral's pairing.

#include "Interpreter.h"

namespace {

plim::PairingAgent::Capability capabilityOf(const QString& word)
{
    static const QMap<QString, plim::PairingAgent::Capability> capabilities{
        {"DisplayOnly", plim::PairingAgent::DisplayOnly},
        {"DisplayYesNo", plim::PairingAgent::DisplayYesNo},
        {"KeyboardOnly", plim::PairingAgent::KeyboardOnly},
        {"NoInputNoOutput", plim::PairingAgent::NoInputNoOutput},
        {"KeyboardDisplay", plim::PairingAgent::KeyboardDisplay},
    };
    if (!capabilities.contains(word)) {
        throw "the capability " + word;
    }
    return capabilities.value(word);
}

QString stateOf(const plim::PairingAgent& agent)
{
    const QStringList states{"waiting", "pending", "registered", "refused"};
    return (states.at(agent.state()) + ' ' + agent.error()).trimmed();
}

QString described(const plim::PairingRequest& request)
{
    const QStringList kinds{"authorize", "compare", "show", "enter", "service"};
    return QString("%1 %2 %3")
        .arg(kinds.at(request.kind()), request.central().path(), request.passkey() + request.service())
        .trimmed();
}

} // namespace

void Interpreter::agent(const QStringList& words)
{
    m_agent.reset();
    if (words.size() == 1) {
        return;
    }
    m_agent = std::make_unique<plim::PairingAgent>(capabilityOf(words.at(1)));
    observeBonds();
    using plim::PairingAgent;
    connect(m_agent.get(), &PairingAgent::stateChanged, this, [this] { say("agent " + stateOf(*m_agent)); });
    connect(m_agent.get(), &PairingAgent::requested, this, [this](const plim::PairingRequest& request) {
        m_pairing = request;
        say("pairing " + described(request));
    });
    connect(m_agent.get(), &PairingAgent::requestEnded, this,
            [](const plim::PairingRequest& request) { say("pairing-ended " + described(request)); });
    connect(m_agent.get(), &PairingAgent::refused, this,
            [](const plim::Central& central) { say("pairing-refused " + central.path()); });
    connect(m_agent.get(), &PairingAgent::paired, this,
            [](const plim::Central& central) { say("paired " + central.path()); });
}

void Interpreter::observeBonds()
{
    if (m_bonds) {
        return;
    }
    m_bonds = new plim::Bonds(this);
    connect(m_bonds, &plim::Bonds::removed, this,
            [](const plim::Central& central) { say("bond-removed " + central.path()); });
    connect(m_bonds, &plim::Bonds::forgotten, this, [](const plim::Central& central, const QString& error) {
        say(QString("forgotten " + central.path() + ' ' + error).trimmed());
    });
    connect(m_bonds, &plim::Bonds::allForgotten, this,
            [](const QString& error) { say(QString("all-forgotten " + error).trimmed()); });
}

void Interpreter::bonds(const QStringList&)
{
    QStringList line{"bonds"};
    for (const plim::Bond& bond : m_bonds ? m_bonds->bonds() : QList<plim::Bond>()) {
        line << bond.central.path();
    }
    say(line.join(' '));
}

void Interpreter::forget(const QStringList& words)
{
    if (!m_bonds) {
        throw QString("the bonds: there is no agent");
    }
    if (words.value(1) == "all") {
        m_bonds->forgetAll();
    } else {
        m_bonds->forget(plim::Central(words.value(1)));
    }
}

void Interpreter::window(const QStringList& words)
{
    if (!m_agent) {
        throw QString("the time: there is no agent");
    }
    if (words.value(1) == "close") {
        m_agent->closePairingWindow();
    } else {
        m_agent->openPairingWindow(words.value(1).toInt());
    }
}

void Interpreter::decide(const QStringList& words)
{
    const QString what = words.value(1);
    if (what == "accept") {
        m_pairing.accept();
    } else if (what == "reject") {
        m_pairing.reject();
    } else if (what == "drop") {
        m_pairing = plim::PairingRequest();
    } else if (!m_pairing.accept(what)) {
        throw "the passkey " + what;
    }
}
