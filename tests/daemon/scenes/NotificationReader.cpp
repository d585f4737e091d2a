#include "NotificationReader.h"

#include "Expect.h"

#include <QDeadlineTimer>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

NotificationReader::NotificationReader(int pipe) : m_pipe(pipe), m_thread([this] { run(); }) {}

NotificationReader::~NotificationReader()
{
    ::shutdown(m_pipe, SHUT_RDWR);
    m_thread.join();
    ::close(m_pipe);
}

QList<QByteArray> NotificationReader::values() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_values;
}

QList<QByteArray> NotificationReader::await(int count) const
{
    constexpr int quietMs = 30000;
    QDeadlineTimer quiet(quietMs);
    qsizetype known = 0;
    const auto isOver = [&] {
        const auto now = values().size();
        if (now > known) {
            known = now;
            quiet.setRemainingTime(quietMs);
        }
        return now >= count || quiet.hasExpired();
    };
    Expect::waitFor(isOver, 180);
    return values();
}

void NotificationReader::run()
{
    ::setpriority(PRIO_PROCESS, id_t(::gettid()), -15); // of this thread alone
    char buffer[600];
    for (ssize_t size = ::read(m_pipe, buffer, sizeof buffer); size > 0;
         size = ::read(m_pipe, buffer, sizeof buffer)) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_values << QByteArray(buffer, int(size));
    }
}
