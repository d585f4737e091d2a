#include "ClientSockets.h"

#include "ClientSocket.h"
#include "Daemon.h"
#include "PhoneState.h"
#include "Registration.h"
#include "State.h"

#include <QDBusPendingCallWatcher>
#include <QTimer>
#include <algorithm>
#include <utility>

namespace simulator {

namespace {

constexpr int ReadLimitMs = 5000;

} // namespace

ClientSockets::ClientSockets(Daemon* daemon) : QObject(daemon), m_daemon(daemon) {}

void ClientSockets::acquireNotify(const Attribute& attribute, const QString& device,
                                  const QVariantMap& options, const Acquired& acquired)
{
    if (find(Use::Notify, attribute.path, device)) {
        acquired(QString());
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(
        m_daemon->connection().asyncCall(attribute.call(QStringLiteral("AcquireNotify"), {options})), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, attribute, device, acquired](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusMessage answer = finished->reply();
                if (answer.type() == QDBusMessage::ReplyMessage) {
                    acquired(addNotifying(attribute, device, answer)
                                 ? QString()
                                 : QStringLiteral("AcquireNotify answered with signature \"%1\"")
                                       .arg(answer.signature()));
                    return;
                }
                // After these two the real daemon leaves it at that; the phone counts as subscribed.
                if (answer.errorName() != QLatin1String("org.bluez.Error.Failed") &&
                    answer.errorName() != QLatin1String("org.freedesktop.DBus.Error.NoReply")) {
                    m_daemon->connection().send(attribute.call(QStringLiteral("StartNotify")));
                }
                acquired(QString());
            });
}

bool ClientSockets::addNotifying(const Attribute& attribute, const QString& device,
                                 const QDBusMessage& answer)
{
    ClientSocket* socket = add(Use::Notify, attribute, device, answer);
    if (!socket) {
        return false;
    }
    connect(socket, &ClientSocket::received, this,
            [this, attribute, target = owner(device)](const QByteArray& value) {
                emit notified(attribute.sender, attribute.path, target, value);
            });
    const auto phone = m_daemon->state().phones.find(device);
    socket->setReading(phone == m_daemon->state().phones.end() || phone->second.reads);
    return true;
}

bool ClientSockets::endSubscription(const QString& path, const QString& device, bool isLast, bool isLinkLost)
{
    if (isSingle() && !isLast) {
        return false;
    }
    return closeIf(
        [&, target = owner(device)](const Entry& entry) {
            return entry.use == Use::Notify && entry.path == path && (isLinkLost || entry.device == target);
        },
        1);
}

bool ClientSockets::confirm(const QString& path, const QString& device)
{
    const ClientSocket* socket = isSingle() ? nullptr : find(Use::Notify, path, device);
    return socket && socket->send(QByteArrayLiteral("\x01"));
}

void ClientSockets::setReading(const QString& device, bool reading)
{
    for (const Entry& entry : qAsConst(m_entries)) {
        if (entry.use == Use::Notify && entry.device == owner(device)) {
            entry.socket->setReading(reading);
        }
    }
}

void ClientSockets::write(const Attribute& attribute, const QString& device, const QVariantMap& options,
                          const QByteArray& value, const Written& written)
{
    if (const ClientSocket* socket = find(Use::Write, attribute.path, device)) {
        written(socket->send(value) ? AttCode::Success : AttCode::UnlikelyError);
        return;
    }
    const bool isAsking = std::any_of(m_writes.begin(), m_writes.end(), [&](const PendingWrite& pending) {
        return pending.path == attribute.path;
    });
    m_writes += PendingWrite{attribute.path, device, options, value, written};
    if (isAsking) {
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(
        m_daemon->connection().asyncCall(attribute.call(QStringLiteral("AcquireWrite"), {options})), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, attribute, device](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                finishWrites(attribute, device, finished->reply());
            });
}

/** The end of AcquireWrite: all that waits for it, of whatever phone, goes the same way. */
void ClientSockets::finishWrites(const Attribute& attribute, const QString& device,
                                 const QDBusMessage& answer)
{
    QList<PendingWrite> waiting;
    for (const PendingWrite& write : std::exchange(m_writes, {})) {
        (write.path == attribute.path ? waiting : m_writes) += write;
    }
    const ClientSocket* socket =
        answer.type() == QDBusMessage::ReplyMessage ? add(Use::Write, attribute, device, answer) : nullptr;
    const AttCode refusal = answer.type() == QDBusMessage::ReplyMessage
                                ? AttCode::UnlikelyError
                                : attCodeOf(answer, AttCode::WriteNotPermitted, m_daemon->state().version);
    for (const PendingWrite& write : qAsConst(waiting)) {
        if (socket && socket->send(write.value)) {
            write.written(AttCode::Success);
        } else if (!socket && refusal != AttCode::UnlikelyError) {
            write.written(refusal);
        } else {
            m_daemon->connection().send(
                attribute.call(QStringLiteral("WriteValue"), {write.value, write.options}));
            write.written(AttCode::Success);
        }
    }
}

void ClientSockets::whenRead(const QString& path, const QString& device, const std::function<void()>& done)
{
    const ClientSocket* socket = find(Use::Write, path, device);
    if (!socket || socket->isDrained()) {
        done();
        return;
    }
    // Nothing tells that a socket is empty.
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, [this, timer, path, device, done, left = ReadLimitMs]() mutable {
        const ClientSocket* present = find(Use::Write, path, device);
        if (!present || present->isDrained() || --left == 0) {
            timer->stop();
            timer->deleteLater();
            done();
        }
    });
    timer->start(1);
}

void ClientSockets::disconnect(const QString& device)
{
    // A socket for all phones stays.
    if (!isSingle()) {
        closeIf([&](const Entry& entry) { return entry.device == device; });
    }
}

void ClientSockets::drop(const Registration& application)
{
    closeIf([&](const Entry& entry) {
        return entry.sender == application.sender &&
               application.objects.contains(QDBusObjectPath(entry.path));
    });
}

bool ClientSockets::isSingle() const
{
    return m_daemon->state().version == BluezVersion::Bluez566;
}

QString ClientSockets::owner(const QString& device) const
{
    return isSingle() ? QString() : device;
}

ClientSocket* ClientSockets::find(Use use, const QString& path, const QString& device) const
{
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [&, target = owner(device)](const Entry& entry) {
            return entry.use == use && entry.path == path && entry.device == target;
        });
    return found == m_entries.end() ? nullptr : found->socket;
}

ClientSocket* ClientSockets::add(Use use, const Attribute& attribute, const QString& device,
                                 const QDBusMessage& answer)
{
    if (answer.signature() != QLatin1String("hq")) {
        return nullptr;
    }
    auto* socket = new ClientSocket(answer.arguments().constFirst().value<QDBusUnixFileDescriptor>(), this);
    m_entries += Entry{use, attribute.sender, attribute.path, owner(device), socket};
    connect(socket, &ClientSocket::closed, this,
            [this, socket] { closeIf([socket](const Entry& entry) { return entry.socket == socket; }); });
    return socket;
}

/** Closes sockets, at most so many if there is a limit. @return whether it closed any */
bool ClientSockets::closeIf(const std::function<bool(const Entry&)>& ends, int limit)
{
    const int before = int(m_entries.size());
    for (auto entry = m_entries.begin(); entry != m_entries.end() && limit != 0;) {
        if (ends(*entry)) {
            entry->socket->close();
            entry->socket->deleteLater(); // not now: it may be what calls this
            entry = m_entries.erase(entry);
            --limit;
        } else {
            ++entry;
        }
    }
    return m_entries.size() < before;
}

} // namespace simulator
