#pragma once

#include "PairingRequest.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include <atomic>

namespace plim {
namespace detail {

/**
 * A question of BlueZ's about a pairing, shared by the copies of a request. Everything but the destructor may
 * be called from any thread at once. Internal: not installed.
 */
class PendingPairing
{
public:
    /** What BlueZ told of it. */
    struct Question
    {
        PairingRequest::Kind kind = PairingRequest::Authorize;
        Central central;
        QString passkey;
        QString service;
        bool wantsPin = false; ///< EnterPasskey is answered with a text, not with a number
    };

    /** @param call  the call; its reply has been marked as delayed */
    PendingPairing(const QDBusMessage& call, const QDBusConnection& connection, const Question& question);

    /** Refuses where nobody has answered, and logs that. */
    ~PendingPairing();
    Q_DISABLE_COPY(PendingPairing)

    const Question& question() const { return m_question; }
    bool isAnswered() const { return m_isAnswered; }

    void accept();
    bool accept(const QString& passkey);
    void reject();

    /** Ends it because nobody waits any more. @return false if it has been answered */
    bool end();

private:
    bool claim() { return !m_isAnswered.exchange(true); }
    void send(const QDBusMessage& answer);

    const QDBusMessage m_call;
    const QDBusConnection m_connection;
    const Question m_question;
    std::atomic_bool m_isAnswered{false};
};

} // namespace detail
} // namespace plim
