#pragma once

#include "AttError.h"
#include "Central.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QVariantMap>

#include <atomic>

namespace plim {
namespace detail {

/**
 * A call of BlueZ that waits for its answer, shared by the copies of a request. Everything but the destructor
 * may be called from any thread at once. Internal: not installed.
 */
class PendingCall
{
public:
    /**
     * @param call       the call; its reply has been marked as delayed
     * @param options    the call's options
     * @param attribute  what log lines call the attribute
     */
    PendingCall(const QDBusMessage& call, const QDBusConnection& connection, const QVariantMap& options,
                const QString& attribute);

    /** Rejects with UnlikelyError where no answer was sent, and logs it where none was given. */
    virtual ~PendingCall();
    Q_DISABLE_COPY(PendingCall)

    Central central() const { return m_central; }
    int offset() const { return m_offset; }
    int mtu() const { return m_mtu; }
    QString link() const { return m_link; }
    QString attribute() const { return m_attribute; }

    bool isClaimed() const { return m_claimed; }

    /** Takes the right to answer. @return false if somebody has it already */
    bool claim() { return !m_claimed.exchange(true); }

    /** Sends the reply; to be called once, by who has claimed it. */
    void succeed(const QVariantList& results = {});

    /** Sends an error instead. */
    void fail(const AttError& error);

    /** Rejects with UnlikelyError where nobody has claimed it. */
    void abandon();

    /** The same, with a line at WARN. @param reason  what the line says */
    void abandon(const char* reason);

private:
    void send(const QDBusMessage& answer);

    const QDBusMessage m_call;
    const QDBusConnection m_connection;
    const QString m_attribute;
    const Central m_central;
    const int m_offset;
    const int m_mtu;
    const QString m_link;
    std::atomic_bool m_claimed{false};
    std::atomic_bool m_sent{false};
};

} // namespace detail
} // namespace plim
