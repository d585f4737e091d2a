#include "PairingAgent.h"

#include "AgentObject.h"
#include "AgentRegistration.h"
#include "PairableSwitch.h"
#include "plim.h"
#include "plimlog.h"

#include <algorithm>
#include <atomic>
#include <limits>

namespace {

std::atomic_int agents{0};

/** In seconds: a timer counts milliseconds. */
constexpr int longestWindow = std::numeric_limits<int>::max() / 1000;

QString nameOf(plim::PairingAgent::Capability capability)
{
    switch (capability) {
    case plim::PairingAgent::DisplayOnly:
        return QStringLiteral("DisplayOnly");
    case plim::PairingAgent::DisplayYesNo:
        return QStringLiteral("DisplayYesNo");
    case plim::PairingAgent::KeyboardOnly:
        return QStringLiteral("KeyboardOnly");
    case plim::PairingAgent::NoInputNoOutput:
        break;
    case plim::PairingAgent::KeyboardDisplay:
        return QStringLiteral("KeyboardDisplay");
    }
    return QStringLiteral("NoInputNoOutput");
}

} // namespace

plim::PairingAgent::PairingAgent(Capability capability, QObject* parent)
    : QObject(parent),
      m_capability(capability),
      m_object(std::make_unique<detail::AgentObject>()),
      m_pairable(std::make_unique<detail::PairableSwitch>()),
      m_registration(std::make_unique<detail::AgentRegistration>(m_object->path(), nameOf(capability)))
{
    qRegisterMetaType<plim::PairingRequest>();
    qRegisterMetaType<plim::Central>();
    ++agents;
    m_window.setSingleShot(true);
    plim::connect(&m_window, &QTimer::timeout, this, &PairingAgent::closePairingWindow);
    plim::connect(m_object.get(), &detail::AgentObject::asked, this, &PairingAgent::on_asked);
    plim::connect(m_object.get(), &detail::AgentObject::ended, this, &PairingAgent::requestEnded);
    plim::connect(m_object.get(), &detail::AgentObject::released, m_registration.get(),
                  &detail::AgentRegistration::released);
    plim::connect(m_registration.get(), &detail::AgentRegistration::daemonChanged, m_object.get(),
                  &detail::AgentObject::setDaemon);
    plim::connect(m_registration.get(), &detail::AgentRegistration::stateChanged, this,
                  &PairingAgent::on_stateChanged);
    plim::connect(m_object.get(), &detail::AgentObject::paired, this, &PairingAgent::paired);
    m_registration->start();
}

plim::PairingAgent::~PairingAgent()
{
    --agents;
}

plim::PairingAgent::State plim::PairingAgent::state() const
{
    switch (m_registration->state()) {
    case detail::AgentRegistration::Pending:
        return Pending;
    case detail::AgentRegistration::Registered:
        return Registered;
    case detail::AgentRegistration::Refused:
        return Refused;
    case detail::AgentRegistration::WaitingForBlueZ:
        break;
    }
    return WaitingForBlueZ;
}

QString plim::PairingAgent::error() const
{
    return m_registration->error();
}

void plim::PairingAgent::openPairingWindow(int seconds)
{
    if (seconds > 0) {
        m_window.start(1000 * std::min(seconds, longestWindow));
    } else {
        m_window.stop();
    }
    m_isOpen = true;
    setPairable();
    emit pairingWindowOpened(seconds);
}

void plim::PairingAgent::closePairingWindow()
{
    if (!m_isOpen) {
        return;
    }
    m_window.stop();
    m_isOpen = false;
    setPairable();
    emit pairingWindowClosed();
}

bool plim::PairingAgent::exists()
{
    return agents > 0;
}

void plim::PairingAgent::on_asked(const PairingRequest& request)
{
    if (m_isOpen) {
        emit requested(request);
        return;
    }
    PLIM_LOG(bleLogger(), INFO, Q_FUNC_INFO,
             "Pairing of " << request.central().path() << " refused: no pairing window is open");
    request.reject();
    emit refused(request.central());
}

void plim::PairingAgent::on_stateChanged()
{
    setPairable();
    emit stateChanged(state());
}

/** BlueZ makes the adapters pairable when the agent becomes the default one. */
void plim::PairingAgent::setPairable()
{
    if (state() == Registered) {
        m_pairable->set(m_isOpen);
    } else {
        m_pairable->stop();
    }
}
