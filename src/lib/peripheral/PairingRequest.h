#pragma once

#include "Central.h"
#include "PlimPeripheralExport.h"

#include <QMetaType>
#include <QString>

#include <memory>

namespace plim {

namespace detail {
class AgentObject;
class PendingPairing;
} // namespace detail

/**
 * One question of a pairing, for the user of this device or for the program. Copies are the same request:
 * keep one to answer later.
 *
 * It is answered once, by accept() or reject(), at once or later, from any thread; what comes after the first
 * answer is ignored. BlueZ waits for 60 s, and a central often less: the kernel ends a pairing over LE that
 * makes no progress for 30 s. A request whose last copy goes without an answer is rejected, with a line at
 * WARN. PairingAgent::requestEnded() tells that nobody waits any more.
 */
class PLIM_PERIPHERAL_EXPORT PairingRequest
{
public:
    /** What is asked. */
    enum Kind
    {
        Authorize,       ///< may this central pair, without any comparison ("Just Works")?
        CompareNumbers,  ///< does the central show the same passkey() as this device?
        ShowPasskey,     ///< show passkey(), which its user types on the central; see reject()
        EnterPasskey,    ///< which number does the central show? accept(const QString&) answers
        AuthorizeService ///< may this central use the service()? Asked over classic Bluetooth only, and like
                         ///< the others rejected by the agent while no pairing window is open
    };

    /** No request: it has been answered already. */
    PairingRequest() = default;

    /** What BlueZ asks. */
    Kind kind() const;

    /** Who wants to pair. */
    Central central() const;

    /**
     * What both sides are to show, or this one: six digits, zeros in front included. With classic Bluetooth
     * and old devices ShowPasskey has a PIN of up to 16 characters. Empty for the other kinds.
     */
    QString passkey() const;

    /** The UUID of the service, for AuthorizeService; otherwise empty. */
    QString service() const;

    /** Whether an answer would do nothing any more. */
    bool isAnswered() const;

    /**
     * Says yes. A passkey that is shown needs no answer, and EnterPasskey needs the other accept(): for these
     * two it does nothing.
     */
    void accept() const;

    /**
     * Says what the user has typed in for EnterPasskey: one to six digits. (For old devices that pair over
     * classic Bluetooth, 1 to 16 characters.)
     *
     * @return false if the text cannot be a passkey, or if the request is of another kind; it then waits on
     */
    bool accept(const QString& passkey) const;

    /** Refuses. Nobody asked whether a passkey may be shown: this ends the link to the central. */
    void reject() const;

    /** Whether both are the same request, or both are none. */
    friend bool operator==(const PairingRequest& a, const PairingRequest& b) { return a.m_call == b.m_call; }
    /** Whether they differ. */
    friend bool operator!=(const PairingRequest& a, const PairingRequest& b) { return !(a == b); }

private:
    friend class detail::AgentObject;
    explicit PairingRequest(const std::shared_ptr<detail::PendingPairing>& call) : m_call(call) {}

    std::shared_ptr<detail::PendingPairing> m_call;
};

} // namespace plim

Q_DECLARE_METATYPE(plim::PairingRequest)
