#include "RawPeer.h"

#include "Finding.h"
#include "WireValue.h"

#include <QCoreApplication>
#include <QDBusError>
#include <QtEndian>

#include <dbus/dbus.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr quint32 callSerial = 1;
constexpr int fixedHeader = 16;

enum MessageType : quint64
{
    MethodCall = 1,
    MethodReturn = 2
};

enum Field : quint64
{
    Path = 1,
    Member = 3,
    ReplySerial = 5,
    Signature = 8
};

void check(bool success, const char* what)
{
    if (!success) {
        std::perror(what);
        std::exit(2);
    }
}

/** A name of its own for each process, in the abstract space, where no file is left behind. */
std::string socketName()
{
    return "plim-fuzz-" + std::to_string(getpid());
}

quint32 number(const QByteArray& bytes, int at)
{
    const char* data = bytes.constData() + at;
    return bytes[0] == 'B' ? qFromBigEndian<quint32>(data) : qFromLittleEndian<quint32>(data);
}

int aligned(int position, int boundary)
{
    return (position + boundary - 1) / boundary * boundary;
}

/** The length of the message that begins here, going by its header. */
qint64 declaredLength(const QByteArray& bytes)
{
    const qint64 fields = number(bytes, 12);
    return (fixedHeader + fields + 7) / 8 * 8 + number(bytes, 4);
}

WireValue field(Field code, const WireValue& value)
{
    return {"(yv)", {}, 0, {WireValue::number('y', code), WireValue::variant(value)}};
}

QByteArray methodCall(const std::string& member, const std::string& signature, const QByteArray& body,
                      quint32 serial, bool bigEndian)
{
    WireWriter writer(bigEndian);
    const quint64 bytes[] = {quint64(bigEndian ? 'B' : 'l'), MethodCall, 0, 1};
    for (const quint64 byte : bytes) {
        writer.write(WireValue::number('y', byte));
    }
    writer.write(WireValue::number('u', quint64(body.size())));
    writer.write(WireValue::number('u', serial));
    WireValue fields{"a(yv)", {}, 0, {field(Path, {"o", "/", 0, {}}), field(Member, {"s", member, 0, {}})}};
    if (!signature.empty()) {
        fields.children.push_back(field(Signature, {"g", signature, 0, {}}));
    }
    writer.write(fields);
    writer.align(8);
    return writer.data + body;
}

struct Answer
{
    RawAnswer content;
    quint32 serial = 0;
};

/** Reads what Qt wrote, which needs no distrust. */
Answer parse(const QByteArray& message)
{
    Answer answer;
    answer.content.kind = message[1] == char(MethodReturn) ? RawAnswer::Return : RawAnswer::Error;
    const int end = fixedHeader + int(number(message, 12));
    for (int at = fixedHeader; at < end;) {
        at = aligned(at, 8);
        const char code = message[at];
        const char type = message[at + 2];
        at += 4;
        if (type == 'g') {
            const int length = static_cast<unsigned char>(message[at]);
            if (code == char(Signature)) {
                answer.content.signature = message.mid(at + 1, length).toStdString();
            }
            at += 1 + length + 1;
        } else {
            at = aligned(at, 4);
            const quint32 value = number(message, at);
            if (code == char(ReplySerial)) {
                answer.serial = value;
            }
            at += type == 'u' ? 4 : 4 + int(value) + 1;
        }
    }
    answer.content.body = message.mid(aligned(end, 8));
    return answer;
}

} // namespace

RawPeer::RawPeer(QObject& object)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = socketName();
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    const auto length = socklen_t(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(listening >= 0, "socket");
    check(bind(listening, reinterpret_cast<const sockaddr*>(&address), length) == 0, "bind");
    check(listen(listening, 1) == 0, "listen");
    QDBusConnection connection = QDBusConnection::connectToPeer(
        QStringLiteral("unix:abstract=") + QString::fromStdString(name), QStringLiteral("fuzz"));
    m_socket = accept(listening, nullptr, nullptr);
    check(m_socket >= 0, "accept");
    close(listening);
    m_notifier = std::make_unique<QSocketNotifier>(m_socket, QSocketNotifier::Read);
    shakeHands();
    check(connection.registerObject(QStringLiteral("/"), &object, QDBusConnection::ExportAllSlots),
          "registerObject");
}

/** The server's half of the authentication; whatever identity the client claims is fine. */
void RawPeer::shakeHands()
{
    for (QByteArray line; line != "BEGIN";) {
        while (!m_received.contains("\r\n")) {
            receive();
        }
        const auto length = m_received.indexOf("\r\n");
        line = m_received.left(length);
        m_received.remove(0, length + 2);
        if (line == "NEGOTIATE_UNIX_FD") {
            send("AGREE_UNIX_FD\r\n");
        } else if (line != "BEGIN") {
            send("OK 0123456789abcdef0123456789abcdef\r\n");
        }
    }
}

void RawPeer::send(const QByteArray& bytes) const
{
    for (int sent = 0; sent < bytes.size();) {
        const ssize_t count =
            ::send(m_socket, bytes.constData() + sent, std::size_t(bytes.size() - sent), MSG_NOSIGNAL);
        check(count > 0, "send");
        sent += int(count);
    }
}

void RawPeer::receive()
{
    pollfd readable{m_socket, POLLIN, 0};
    while (poll(&readable, 1, 0) == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    char buffer[65536];
    const ssize_t count = recv(m_socket, buffer, sizeof buffer, 0);
    require(count > 0, [] { return QStringLiteral("the connection was dropped"); });
    m_received.append(buffer, int(count));
}

std::optional<QByteArray> RawPeer::takeMessage()
{
    if (m_received.size() < fixedHeader || m_received.size() < declaredLength(m_received)) {
        return std::nullopt;
    }
    const int length = int(declaredLength(m_received));
    const QByteArray message = m_received.left(length);
    m_received.remove(0, length);
    return message;
}

RawAnswer RawPeer::answerTo(quint32 serial, RawAnswer* other)
{
    for (;;) {
        while (const auto message = takeMessage()) {
            const Answer answer = parse(*message);
            if (answer.serial == serial) {
                return answer.content;
            }
            *other = answer.content;
        }
        receive();
    }
}

QByteArray RawPeer::call(const std::string& member, const std::string& signature, const QByteArray& body,
                         bool bigEndian)
{
    return methodCall(member, signature, body, callSerial, bigEndian);
}

bool RawPeer::isMessage(const QByteArray& bytes)
{
    if (bytes.size() < fixedHeader || declaredLength(bytes) != bytes.size()) {
        return false;
    }
    DBusMessage* message = dbus_message_demarshal(bytes.constData(), int(bytes.size()), nullptr);
    if (!message) {
        return false;
    }
    dbus_message_unref(message);
    return true;
}

RawAnswer RawPeer::exchange(const QByteArray& message)
{
    send(message);
    RawAnswer other;
    return answerTo(callSerial, &other);
}

RawAnswer RawPeer::exchangeAnything(const QByteArray& message)
{
    send(message);
    // A call behind it, which is answered once the former is dealt with, even if that gets no answer.
    const quint32 serial = ++m_serial;
    send(methodCall("Ping", "", {}, serial, false));
    RawAnswer answer;
    answerTo(serial, &answer);
    return answer;
}
