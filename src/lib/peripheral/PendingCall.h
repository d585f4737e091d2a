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
 * A call of BlueZ that waits for its answer. The copies of a request share it. All functions but the
 * destructor may be called from several threads at the same time. Internal: not installed.
 */
class PendingCall
{
public:
    /**
     * @param call       the call; setDelayedReply() was called for it. An invalid message for a request that
     * came without a call
     * @param options    the call's options
     * @param attribute  the attribute's name in log lines
     */
    PendingCall(const QDBusMessage& call, const QDBusConnection& connection, const QVariantMap& options,
                const QString& attribute);

    /** Rejects the call with UnlikelyError if no answer was sent. Logs a line at WARN if nobody claimed it.
     */
    virtual ~PendingCall();
    Q_DISABLE_COPY(PendingCall)

    Central central() const { return m_central; }
    int offset() const { return m_offset; }
    int mtu() const { return m_mtu; }
    QString link() const { return m_link; }
    QString attribute() const { return m_attribute; }

    /** Whether BlueZ waits for the answer; otherwise none is sent. */
    bool wantsReply() const { return m_wantsReply; }

    bool isClaimed() const { return m_claimed; }

    /** Takes the right to answer. @return false if it is taken already */
    bool claim() { return !m_claimed.exchange(true); }

    /** Sends the reply. To be called once, after a successful claim(). */
    void succeed(const QVariantList& results = {});

    /** Sends an error instead of the reply. */
    void fail(const AttError& error);

    /** Rejects the call with UnlikelyError if nobody has claimed it. */
    void abandon();

    /** The same, and logs the reason at WARN. */
    void abandon(const char* reason);

private:
    void send(const QDBusMessage& answer);

    const QDBusMessage m_call;
    const QDBusConnection m_connection;
    const bool m_wantsReply;
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
