#pragma once

#include <QByteArray>
#include <QList>

#include <mutex>
#include <thread>

/**
 * Collects every single notification from the pipe that the daemon gives to one who asks for it. It reads on
 * a thread of its own, ahead of everybody else: a few hundred notifications fill the pipe, and the daemon
 * drops what does not fit.
 */
class NotificationReader
{
public:
    /** @param pipe  becomes this object's own */
    explicit NotificationReader(int pipe);
    /** Closes the pipe, which ends the subscription. */
    ~NotificationReader();
    Q_DISABLE_COPY(NotificationReader)

    QList<QByteArray> values() const;
    /** Waits until there are so many, or none more has come for 30 seconds. */
    QList<QByteArray> await(int count) const;

private:
    void run();

    int m_pipe;
    mutable std::mutex m_mutex;
    QList<QByteArray> m_values;
    std::thread m_thread;
};
