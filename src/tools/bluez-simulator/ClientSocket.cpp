#include "ClientSocket.h"

#include <array>
#include <cerrno>

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace simulator {

namespace {

constexpr std::size_t MaximumPacket = 512;

} // namespace

ClientSocket::ClientSocket(const QDBusUnixFileDescriptor& descriptor, QObject* parent)
    : QObject(parent),
      m_descriptor(descriptor),
      m_incoming(descriptor.fileDescriptor(), QSocketNotifier::Read)
{
    connect(&m_incoming, &QSocketNotifier::activated, this, &ClientSocket::read);
}

void ClientSocket::setReading(bool reading)
{
    m_incoming.setEnabled(reading && !m_isDeaf);
}

bool ClientSocket::send(const QByteArray& packet) const
{
    return ::send(m_descriptor.fileDescriptor(), packet.constData(), std::size_t(packet.size()),
                  MSG_NOSIGNAL | MSG_DONTWAIT) == packet.size();
}

void ClientSocket::close()
{
    m_incoming.setEnabled(false);
    m_descriptor = QDBusUnixFileDescriptor();
}

bool ClientSocket::isDrained() const
{
    int unread = 0;
    return ::ioctl(m_descriptor.fileDescriptor(), SIOCOUTQ, &unread) != 0 || unread == 0;
}

/** One packet at a time, so that other events have their turn. */
void ClientSocket::read()
{
    std::array<char, MaximumPacket> packet;
    const ssize_t size = ::recv(m_descriptor.fileDescriptor(), packet.data(), packet.size(), MSG_DONTWAIT);
    if (size > 0) {
        emit received(QByteArray(packet.data(), int(size)));
        return;
    }
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    // As the real daemon, which reads nothing any more after an empty packet.
    m_isDeaf = true;
    m_incoming.setEnabled(false);
    pollfd state{m_descriptor.fileDescriptor(), 0, 0};
    if (::poll(&state, 1, 0) == 1 && (state.revents & POLLHUP)) {
        emit closed();
    }
}

} // namespace simulator
