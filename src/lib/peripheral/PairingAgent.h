#pragma once

#include "PairingRequest.h"
#include "PlimPeripheralExport.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

namespace plim {

namespace detail {
class AgentObject;
class AgentRegistration;
class PairableSwitch;
} // namespace detail

/**
 * Decides who may pair with this device, and asks its user where that takes one.
 *
 * It makes itself BlueZ's default agent, and again whenever BlueZ has started; nothing waits for that. It
 * refuses everybody unless a pairing window is open: typically a button on the device opens one for a minute.
 * Only BlueZ may call the agent; other programs get an error, with a line at WARN.
 *
 * While it is registered, it also sets Pairable of all adapters, to true while the window is open and
 * otherwise to false. BlueZ alone would make them pairable as soon as there is an agent. With Pairable false
 * the kernel refuses a phone that wants a bond before anybody is asked, on both sides. Bonded phones connect
 * and get encryption as before.
 *
 * Use one at a time, on the thread of the event loop: BlueZ accepts one agent of each program. The last
 * program that wants to be the default agent is it, bluetoothctl for instance, and BlueZ does not tell the
 * others.
 */
class PLIM_PERIPHERAL_EXPORT PairingAgent : public QObject
{
    Q_OBJECT

public:
    /**
     * What this device can show and ask. Together with what the central has, it decides which question both
     * users get; a link keeps what was valid when it began.
     */
    enum Capability
    {
        DisplayOnly,     ///< shows six digits
        DisplayYesNo,    ///< shows six digits and has a button for yes and one for no
        KeyboardOnly,    ///< has keys for digits, and shows nothing
        NoInputNoOutput, ///< neither: a pairing takes no comparison, and a listener nearby may get in between
        KeyboardDisplay  ///< shows six digits and has keys for them
    };

    /** Whether BlueZ has accepted the agent. */
    enum State
    {
        WaitingForBlueZ, ///< BlueZ does not run; the agent is registered as soon as it does
        Pending,         ///< BlueZ has been asked
        Registered,      ///< it is the default agent
        Refused          ///< BlueZ has refused, see error(); asked again after BlueZ's next start
    };

    /** Registers it as soon as the event loop runs. Until a window is opened it refuses everybody. */
    explicit PairingAgent(Capability capability, QObject* parent = nullptr);

    /** Unregisters it and rejects what is open. BlueZ then goes back to the agent before it; without one
     * nobody can pair. */
    ~PairingAgent() override;

    /** What the constructor was given. */
    Capability capability() const { return m_capability; }

    /** Whether BlueZ has accepted the agent. */
    State state() const;
    /** BlueZ's reason in the state Refused; otherwise empty. */
    QString error() const;

    /**
     * Lets phones pair: what BlueZ asks from now on arrives as requested(). Opened again, the time starts
     * anew.
     *
     * @param seconds  until it closes by itself; 0 or less: never
     */
    void openPairingWindow(int seconds);

    /** Ends that. What has been asked before may still be answered. */
    void closePairingWindow();

    /** Whether phones may pair now. */
    bool isPairingWindowOpen() const { return m_isOpen; }

    /** Whether this process has an agent at the moment. */
    static bool exists();

signals:
    /** BlueZ has answered, ended or started. */
    void stateChanged(plim::PairingAgent::State state);

    /** openPairingWindow() was called. @param seconds  until it closes; 0 or less: never */
    void pairingWindowOpened(int seconds);
    /** The time is over, or closePairingWindow() was called. */
    void pairingWindowClosed();

    /** A question that waits for an answer: answer it, or keep a copy to do so later. */
    void requested(const plim::PairingRequest& request);

    /**
     * Nobody waits for this request any more, which was not answered: the central or BlueZ gave up, the link
     * was lost, or 60 s are over. For PairingRequest::ShowPasskey it also says that the central has paired:
     * in any case the passkey need not be shown any longer.
     */
    void requestEnded(const plim::PairingRequest& request);

    /** A central wanted to pair while no window was open. Only where BlueZ asks at all: while Pairable is
     * false that is seldom. */
    void refused(const plim::Central& central);

    /** A central has paired, by this agent or otherwise. */
    void paired(const plim::Central& central);

private:
    void on_asked(const PairingRequest& request);
    void on_stateChanged();
    void setPairable();

    const Capability m_capability;
    const std::unique_ptr<detail::AgentObject> m_object;
    const std::unique_ptr<detail::PairableSwitch> m_pairable;
    const std::unique_ptr<detail::AgentRegistration> m_registration;
    QTimer m_window;
    bool m_isOpen = false;
};

} // namespace plim
