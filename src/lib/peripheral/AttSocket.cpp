#include "AttSocket.h"

#include "AttLimits.h"
#include "plim.h"

#include <QDBusObjectPath>
#include <QPointer>
#include <QSocketNotifier>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using plim::detail::maximumAttributeSize;

/** Packets that are read before other sockets and events have their turn. */
constexpr int packetsInARow = 64;

/** More than fits into a socket; a longer history need not be kept. */
constexpr std::size_t maximumHistory = 4096;

bool makePair(int (&ends)[2])
{
    return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0;
}

/** What of its buffer a sending socket has in use. */
int usedBuffer(int descriptor)
{
    int used = 0;
    return ::ioctl(descriptor, SIOCOUTQ, &used) == 0 ? used : 0;
}

/** What a packet takes of the buffer, which the kernel counts with its own data. */
int usedBy(int length)
{
    thread_local std::array<int, maximumAttributeSize + 1> known{};
    int& used = known[std::size_t(length)];
    int ends[2];
    if (used == 0 && makePair(ends)) {
        const std::array<char, maximumAttributeSize> packet{};
        ::send(ends[0], packet.data(), std::size_t(length), MSG_NOSIGNAL);
        used = usedBuffer(ends[0]);
        ::close(ends[0]);
        ::close(ends[1]);
    }
    return std::max(used, 1);
}

} // namespace

plim::detail::AttSocket::AttSocket(const QVariantMap& options, QObject* parent)
    : QObject(parent),
      m_options(options),
      m_central(options.value(QStringLiteral("device")).value<QDBusObjectPath>().path())
{
}

plim::detail::AttSocket::~AttSocket()
{
    close();
}

QDBusUnixFileDescriptor plim::detail::AttSocket::open()
{
    QDBusUnixFileDescriptor given;
    int ends[2];
    if (!makePair(ends)) {
        return given;
    }
    given.giveFileDescriptor(ends[1]);
    m_descriptor = ends[0];
    // Each packet then brings the sender's credentials, which tells an empty packet from the end.
    const int on = 1;
    ::setsockopt(m_descriptor, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    m_incoming = new QSocketNotifier(m_descriptor, QSocketNotifier::Read, this);
    plim::connect(m_incoming, &QSocketNotifier::activated, this, &AttSocket::read);
    return given;
}

bool plim::detail::AttSocket::isHungUp() const
{
    pollfd state{m_descriptor, 0, 0};
    return !isOpen() || (::poll(&state, 1, 0) == 1 && (state.revents & POLLHUP));
}

plim::detail::AttSocket::Sent plim::detail::AttSocket::send(const QByteArray& packet)
{
    if (m_outgoing) {
        return Sent::NoRoom;
    }
    ssize_t sent = 0;
    do {
        sent = ::send(m_descriptor, packet.constData(), std::size_t(packet.size()), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0) {
        m_sent.push_back(int(packet.size()));
        if (m_sent.size() > maximumHistory) {
            unread();
        }
        return Sent::Yes;
    }
    if (errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM) {
        return Sent::HungUp;
    }
    m_outgoing = new QSocketNotifier(m_descriptor, QSocketNotifier::Write, this);
    plim::connect(m_outgoing, &QSocketNotifier::activated, this, &AttSocket::on_writable);
    return Sent::NoRoom;
}

qint64 plim::detail::AttSocket::unread()
{
    const int used = isOpen() ? usedBuffer(m_descriptor) : 0;
    int counted = 0;
    qint64 bytes = 0;
    std::size_t packets = 0;
    for (auto length = m_sent.rbegin(); length != m_sent.rend() && counted < used; ++length) {
        counted += usedBy(*length);
        bytes += *length;
        ++packets;
    }
    while (m_sent.size() > packets) {
        m_sent.pop_front();
    }
    return bytes;
}

void plim::detail::AttSocket::setReading(bool isReading)
{
    if (m_incoming) {
        m_incoming->setEnabled(isReading);
    }
}

void plim::detail::AttSocket::read()
{
    const QPointer<AttSocket> self = this;
    for (int i = 0; i < packetsInARow && self && isOpen() && m_incoming->isEnabled(); ++i) {
        QByteArray packet;
        switch (receive(packet)) {
        case Received::Packet:
            emit received(packet);
            break;
        case Received::OversizedPacket:
            emit oversized();
            break;
        case Received::Nothing:
            return;
        case Received::End:
            close();
            emit closed();
            return;
        }
    }
}

plim::detail::AttSocket::Received plim::detail::AttSocket::receive(QByteArray& packet) const
{
    std::array<char, maximumAttributeSize> bytes;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> credentials;
    iovec vector{bytes.data(), bytes.size()};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = credentials.data();
    message.msg_controllen = credentials.size();
    const ssize_t length = ::recvmsg(m_descriptor, &message, MSG_CMSG_CLOEXEC);
    if (length < 0) {
        return errno == EAGAIN || errno == EINTR ? Received::Nothing : Received::End;
    }
    if (length == 0 && message.msg_controllen == 0) {
        return Received::End;
    }
    packet = QByteArray(bytes.data(), int(length));
    return message.msg_flags & MSG_TRUNC ? Received::OversizedPacket : Received::Packet;
}

void plim::detail::AttSocket::close()
{
    delete std::exchange(m_outgoing, nullptr);
    if (m_incoming) {
        m_incoming->setEnabled(false);
        // Not now: it may be what calls this.
        std::exchange(m_incoming, nullptr)->deleteLater();
    }
    if (isOpen()) {
        ::close(std::exchange(m_descriptor, -1));
    }
}

void plim::detail::AttSocket::on_writable()
{
    m_outgoing->setEnabled(false);
    std::exchange(m_outgoing, nullptr)->deleteLater();
    emit writable();
}
