#include "AttClient.h"

#include "Expect.h"
#include "MonotonicTime.h"

#include <QStringList>
#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The kernel's, which none of its installed headers declares.
constexpr int protocolL2cap = 0;
constexpr int levelBluetooth = 274;
constexpr int optionSecurity = 4;
constexpr quint8 publicAddress = 1;
constexpr quint16 channelAtt = 4;
struct Address
{
    sa_family_t family;
    quint16 psm;
    quint8 bluetooth[6];
    quint16 channel;
    quint8 type;
};
struct SecurityOption
{
    quint8 level;
    quint8 keySize;
};

enum Opcode : quint8
{
    ErrorResponse = 0x01,
    ExchangeMtuRequest = 0x02,
    ExchangeMtuResponse = 0x03,
    FindInformationRequest = 0x04,
    ReadRequest = 0x0a,
    WriteRequest = 0x12,
    WriteResponse = 0x13,
    PrepareWriteRequest = 0x16,
    ExecuteWriteRequest = 0x18,
    ValueNotification = 0x1b,
    ValueIndication = 0x1d,
    ValueConfirmation = 0x1e,
    MultipleValueNotification = 0x23,
    WriteCommand = 0x52
};
constexpr quint8 attributeNotFound = 0x0a;
constexpr quint16 packetSize = 517;
constexpr int pieceSize = 100; // of a prepared write
constexpr int patienceMs = 60000;

QByteArray packet(Opcode opcode, std::initializer_list<quint16> numbers = {}, const QByteArray& rest = {})
{
    QByteArray bytes(1, char(opcode));
    for (const quint16 number : numbers) {
        bytes += char(number & 0xff);
        bytes += char(number >> 8);
    }
    return bytes + rest;
}

quint16 number(const QByteArray& bytes, int at)
{
    return bytes.size() < at + 2 ? quint16(0) : qFromLittleEndian<quint16>(bytes.constData() + at);
}

QString hexadecimal(int number, int digits)
{
    return QStringLiteral("0x%1").arg(number, digits, 16, QLatin1Char('0'));
}

Address addressOf(const QString& text)
{
    Address address{};
    address.family = AF_BLUETOOTH;
    address.channel = qToLittleEndian(channelAtt);
    address.type = publicAddress;
    QByteArray bytes = QByteArray::fromHex(text.toLatin1());
    std::reverse(bytes.begin(), bytes.end());
    std::memcpy(address.bluetooth, bytes.constData(), std::min<size_t>(6, size_t(bytes.size())));
    return address;
}

QString uuidText(QByteArray littleEndian)
{
    if (littleEndian.size() == 2) {
        return longUuid(number(littleEndian, 0));
    }
    std::reverse(littleEndian.begin(), littleEndian.end());
    QString text = QString::fromLatin1(littleEndian.toHex());
    for (const int dash : {8, 13, 18, 23}) {
        text.insert(dash, '-');
    }
    return text;
}

} // namespace

QString longUuid(quint16 uuid)
{
    return QStringLiteral("0000%1-0000-1000-8000-00805f9b34fb").arg(uuid, 4, 16, QLatin1Char('0'));
}

AttClient::AttClient(const QString& own, const QString& peripheral) : m_own(own), m_peripheral(peripheral) {}

AttClient::~AttClient()
{
    closeSocket();
}

void AttClient::connectDevice()
{
    connectLink();
    // A kernel that is left without this answer has trouble later.
    Expect::require([this] { return m_knowsPacketSize || !connected(); },
                    "the daemon to ask for the packet size");
    if (!connected()) {
        throw Expect::Impossible{"the link is lost before the daemon has asked for the packet size"};
    }
    discover();
}

QString AttClient::connectAndRead(quint16 handle)
{
    connectLink();
    try {
        const Answer answer = read(handle);
        return answer.error == 0 ? QString(answer.value.toHex()) : hexadecimal(answer.error, 2);
    } catch (const Expect::Impossible&) {
        return QStringLiteral("link lost");
    }
}

void AttClient::connectLink()
{
    m_knowsPacketSize = false;
    // An attempt ends by itself where the controllers miss each other.
    Expect::require(
        [this] {
            if (m_socket < 0) {
                openSocket();
            }
            pollfd state{m_socket, POLLOUT, 0};
            if (::poll(&state, 1, 0) == 0) {
                return false;
            }
            int error = 0;
            socklen_t size = sizeof error;
            ::getsockopt(m_socket, SOL_SOCKET, SO_ERROR, &error, &size);
            if (error == 0 && (state.revents & POLLHUP) == 0) {
                return true;
            }
            Expect::note(QString("connecting is tried again after: ") + std::strerror(error));
            closeSocket();
            return false;
        },
        "a connection");
    m_readable = std::make_unique<QSocketNotifier>(m_socket, QSocketNotifier::Read);
    QObject::connect(m_readable.get(), &QSocketNotifier::activated, m_readable.get(), [this] { receive(); });
}

void AttClient::openSocket()
{
    m_socket = ::socket(AF_BLUETOOTH, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, protocolL2cap);
    const Address own = addressOf(m_own);
    const Address peripheral = addressOf(m_peripheral);
    if (m_socket < 0 || ::bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        (::connect(m_socket, reinterpret_cast<const sockaddr*>(&peripheral), sizeof peripheral) != 0 &&
         errno != EINPROGRESS)) {
        throw Expect::Impossible{QString("no ATT socket: ") + std::strerror(errno)};
    }
    // The kernel drops what finds no room here, and on a busy machine this program reads late.
    const int room = 16 << 20;
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
}

void AttClient::closeSocket()
{
    m_readable.reset();
    if (m_socket >= 0) {
        ::close(m_socket);
        m_socket = -1;
    }
}

void AttClient::disconnectDevice()
{
    closeSocket();
}

void AttClient::protect(Security security)
{
    const SecurityOption option{quint8(security), 0};
    if (::setsockopt(m_socket, levelBluetooth, optionSecurity, &option, sizeof option) != 0) {
        throw Expect::Impossible{QString("the link cannot be protected: ") + std::strerror(errno)};
    }
}

void AttClient::receive()
{
    char buffer[packetSize + 1];
    ssize_t size = 0;
    while ((size = ::read(m_socket, buffer, sizeof buffer)) > 0) {
        take(QByteArray(buffer, int(size)));
    }
    if (size == 0 || errno != EAGAIN) {
        m_readable->setEnabled(false);
        m_readable.release()->deleteLater(); // it is what calls here
        closeSocket();
    }
}

void AttClient::take(const QByteArray& received)
{
    const auto opcode = quint8(received.at(0));
    if (opcode == ExchangeMtuRequest) {
        send(packet(ExchangeMtuResponse, {packetSize}));
        m_knowsPacketSize = true;
    } else if (opcode == ValueNotification || opcode == ValueIndication) {
        m_notifications << Notification{number(received, 1), received.mid(3), opcode == ValueIndication,
                                        monotonicTime()};
        if (opcode == ValueIndication && m_confirming) {
            send(packet(ValueConfirmation));
        }
    } else if (opcode == MultipleValueNotification) {
        for (int at = 1; at + 4 <= received.size(); at += 4 + number(received, at + 2)) {
            m_notifications << Notification{
                number(received, at), received.mid(at + 4, number(received, at + 2)), false, monotonicTime()};
        }
    } else if (opcode % 2 == 1) {
        m_response = received;
    } else if ((opcode & 0x40) == 0) {
        // A request: the daemon looks for a server here. There is none.
        const auto asked = quint16(number(received, 1));
        send(QByteArray(1, char(ErrorResponse)) + received.left(1) + char(asked & 0xff) + char(asked >> 8) +
             char(attributeNotFound));
    }
}

void AttClient::send(const QByteArray& bytes)
{
    pollfd room{m_socket, POLLOUT, 0};
    ssize_t sent = -1;
    while ((sent = ::write(m_socket, bytes.constData(), size_t(bytes.size()))) < 0 && errno == EAGAIN &&
           ::poll(&room, 1, patienceMs) > 0) {
    }
    if (sent != bytes.size()) {
        throw Expect::Impossible{"nothing can be sent over the link"};
    }
}

void AttClient::receiveUntil(const std::function<bool()>& condition)
{
    pollfd packets{m_socket, POLLIN, 0};
    while (connected() && !condition() && ::poll(&packets, 1, patienceMs) > 0) {
        receive();
    }
}

void AttClient::awaitNotifications(qsizetype count)
{
    receiveUntil([&] { return m_notifications.size() >= count; });
}

AttClient::Answer AttClient::ask(const QByteArray& request)
{
    m_response.clear();
    send(request);
    Expect::require([this] { return !m_response.isEmpty() || !connected(); }, "an answer over the link");
    if (m_response.isEmpty()) {
        throw Expect::Impossible{"the link is lost"};
    }
    if (quint8(m_response.at(0)) != ErrorResponse) {
        return {0, m_response.mid(1)};
    }
    const auto error = quint8(m_response.at(m_response.size() - 1));
    if (error != attributeNotFound) {
        m_errors << hexadecimal(number(m_response, 2), 4) + ' ' + hexadecimal(error, 2);
    }
    return {error, {}};
}

void AttClient::discover()
{
    m_attributes.clear();
    quint16 from = 1;
    for (;;) {
        const Answer answer = ask(packet(FindInformationRequest, {from, 0xffff}));
        if (answer.error != 0) {
            return;
        }
        addAttributes(answer.value);
        if (m_attributes.isEmpty() || m_attributes.last().handle == 0xffff) {
            return;
        }
        from = quint16(m_attributes.last().handle + 1);
    }
}

void AttClient::addAttributes(const QByteArray& information)
{
    const int uuidSize = information.startsWith('\1') ? 2 : 16;
    for (int at = 1; at + 2 + uuidSize <= information.size(); at += 2 + uuidSize) {
        m_attributes << Attribute{number(information, at), uuidText(information.mid(at + 2, uuidSize))};
    }
}

QList<quint16> AttClient::handles(const QString& type) const
{
    QList<quint16> found;
    for (const Attribute& attribute : m_attributes) {
        if (attribute.type == type) {
            found << attribute.handle;
        }
    }
    return found;
}

quint16 AttClient::handle(const QString& type) const
{
    const QList<quint16> found = handles(type);
    if (found.size() != 1) {
        throw Expect::Impossible{
            QString("there are %1 attributes with the UUID %2").arg(found.size()).arg(type)};
    }
    return found.first();
}

quint16 AttClient::next(quint16 handle, const QString& type) const
{
    for (const quint16 candidate : handles(type)) {
        if (candidate > handle) {
            return candidate;
        }
    }
    throw Expect::Impossible{"there is no attribute with the UUID " + type + " there"};
}

AttClient::Answer AttClient::read(quint16 handle)
{
    return ask(packet(ReadRequest, {handle}));
}

AttClient::Answer AttClient::write(quint16 handle, const QByteArray& value)
{
    return ask(packet(WriteRequest, {handle}, value));
}

AttClient::Answer AttClient::writePrepared(quint16 handle, const QByteArray& value)
{
    for (int offset = 0; offset < value.size(); offset += pieceSize) {
        Answer answer =
            ask(packet(PrepareWriteRequest, {handle, quint16(offset)}, value.mid(offset, pieceSize)));
        if (answer.error != 0) {
            return answer;
        }
    }
    return ask(packet(ExecuteWriteRequest, {}, QByteArray(1, 1)));
}

int AttClient::writeEach(quint16 handle, const QList<QByteArray>& values)
{
    int accepted = 0;
    for (const QByteArray& value : values) {
        m_response.clear();
        send(packet(WriteRequest, {handle}, value));
        receiveUntil([this] { return !m_response.isEmpty(); });
        accepted += m_response == packet(WriteResponse) ? 1 : 0;
    }
    return accepted;
}

void AttClient::command(quint16 handle, const QByteArray& value)
{
    send(packet(WriteCommand, {handle}, value));
}

AttClient::Answer AttClient::subscribe(quint16 handle, int what)
{
    return write(next(handle, longUuid(0x2902)), QByteArray(1, char(what)) + '\0');
}
