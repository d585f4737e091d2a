#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <memory>

namespace simulator {

/** The answer to a call of the control interface that takes a while. Answers with an error if it is given up.
 */
class DelayedReply
{
public:
    DelayedReply(const QDBusConnection& connection, const QDBusMessage& call);
    ~DelayedReply();
    DelayedReply(const DelayedReply&) = delete;
    DelayedReply& operator=(const DelayedReply&) = delete;
    DelayedReply(DelayedReply&&) = delete;
    DelayedReply& operator=(DelayedReply&&) = delete;

    void send(const QVariantList& values);
    void fail(const QString& errorName, const QString& errorMessage);

private:
    QDBusConnection m_connection;
    QDBusMessage m_call;
    bool m_isSent = false;
};

using DelayedReplyPtr = std::shared_ptr<DelayedReply>;

} // namespace simulator
