#include "AttPhone.h"

#include "ClientSockets.h"
#include "Daemon.h"
#include "Pairing.h"
#include "Permissions.h"
#include "Registration.h"
#include "State.h"

#include <QDBusPendingCallWatcher>
#include <QTimer>
#include <algorithm>
#include <utility>

namespace simulator {

namespace {

constexpr int MaximumValueLength = 512;
constexpr quint16 TransferUnit = 517;
constexpr int RequestLimitMs = 5000;
const QString withoutResponse = QStringLiteral("write-without-response");
const QString writeAcquired = QStringLiteral("WriteAcquired");

void fail(const DelayedReplyPtr& reply, AttCode code)
{
    reply->fail(Names::error("Att"), attText(code));
}

} // namespace

AttPhone::AttPhone(PhoneState& state, Daemon* daemon)
    : QObject(daemon), m_state(state), m_daemon(daemon), m_pairing(new Pairing(this, daemon))
{
}

void AttPhone::connectLink()
{
    if (m_isConnected) {
        return;
    }
    m_isConnected = true;
    if (m_isKnown) {
        m_daemon->changeProperty(m_state.device(), Names::Device, QStringLiteral("Connected"), true);
        return;
    }
    m_isKnown = true;
    m_daemon->announceObject(m_state.device(), Names::Device, m_state.properties());
}

void AttPhone::loseLink(const QString& reason)
{
    if (!m_isConnected) {
        return;
    }
    m_isConnected = false;
    m_pairing->loseLink();
    if (!reason.isEmpty()) {
        QDBusMessage signal =
            QDBusMessage::createSignal(m_state.device(), Names::Device, QStringLiteral("Disconnected"));
        signal << QString(QStringLiteral("org.bluez.Reason.") + reason)
               << QStringLiteral("Connection terminated");
        m_daemon->connection().send(signal);
    }
    m_daemon->changeProperties(
        m_state.device(), Names::Device,
        {{QStringLiteral("Connected"), false}, {QStringLiteral("ServicesResolved"), false}});
    // The daemon ends what it waits for in the same way as what has been confirmed.
    confirmIndications();
    if (!m_state.isBonded) {
        dropSubscriptions();
    }
    m_daemon->sockets().disconnect(m_state.device());
}

void AttPhone::forget()
{
    m_state.isBonded = false;
    m_state.protection = Protection::Open;
    loseLink();
    dropSubscriptions();
    if (std::exchange(m_isKnown, false)) {
        m_daemon->withdraw(m_state.device(), {Names::Device, Names::Introspectable, Names::Properties});
    }
}

void AttPhone::protect(Protection protection)
{
    m_state.protection = protection;
    if (protection != Protection::Open && !m_state.isBonded) {
        m_state.isBonded = true;
        m_daemon->changeProperties(m_state.device(), Names::Device,
                                   {{QStringLiteral("Bonded"), true}, {QStringLiteral("Paired"), true}});
    }
}

void AttPhone::setConfirming(bool confirms)
{
    m_state.confirms = confirms;
    deliverNextIndication();
}

void AttPhone::setReading(bool reads)
{
    m_state.reads = reads;
    m_daemon->sockets().setReading(m_state.device(), reads);
}

void AttPhone::read(const QString& path, quint16 offset, const DelayedReplyPtr& reply)
{
    const Attribute attribute = find(path, reply);
    if (!attribute) {
        return;
    }
    const AttCode refusal = Permissions(attribute.flags()).read(m_state.protection);
    if (refusal != AttCode::Success) {
        fail(reply, refusal);
        return;
    }
    request(attribute.call(QStringLiteral("ReadValue"), {options(offset)}), AttCode::ReadNotPermitted, reply,
            [reply](const QDBusMessage& answer) {
                if (answer.signature() == QLatin1String("ay")) {
                    reply->send({answer.arguments().constFirst().toByteArray().left(MaximumValueLength)});
                } else {
                    fail(reply, AttCode::RequestNotSupported);
                }
            });
}

void AttPhone::write(const QString& path, const QByteArray& value, quint16 offset,
                     const DelayedReplyPtr& reply)
{
    const Attribute attribute = find(path, reply);
    if (!attribute) {
        return;
    }
    const AttCode refusal = Permissions(attribute.flags()).write(m_state.protection);
    if (refusal != AttCode::Success) {
        fail(reply, refusal);
        return;
    }
    if (attribute.properties.contains(writeAcquired)) {
        m_daemon->sockets().write(attribute, m_state.device(), options(0), value, [reply](AttCode code) {
            code == AttCode::Success ? reply->send({}) : fail(reply, code);
        });
        return;
    }
    const QDBusMessage call = attribute.call(QStringLiteral("WriteValue"), {value, options(offset)});
    if (attribute.flags().contains(withoutResponse)) {
        // The daemon then wants no answer to any write, and tells every phone that it has succeeded.
        send(call);
        reply->send({});
        return;
    }
    request(call, AttCode::WriteNotPermitted, reply, [reply](const QDBusMessage&) { reply->send({}); });
}

void AttPhone::writeWithoutResponse(const QString& path, const QByteArray& value,
                                    const DelayedReplyPtr& reply)
{
    const Attribute attribute = find(path, reply);
    if (!attribute) {
        return;
    }
    // Nobody is told of a refusal, neither the daemon's nor the client's.
    const bool isAllowed = Permissions(attribute.flags()).write(m_state.protection) == AttCode::Success;
    if (isAllowed && attribute.properties.contains(writeAcquired)) {
        m_daemon->sockets().write(
            attribute, m_state.device(), options(0), value, [this, attribute, reply](AttCode) {
                m_daemon->sockets().whenRead(attribute.path, m_state.device(),
                                             [=] { answerWhenHandled(attribute, reply); });
            });
        return;
    }
    if (isAllowed) {
        const QDBusMessage call = attribute.call(QStringLiteral("WriteValue"), {value, options(0)});
        if (attribute.flags().contains(withoutResponse)) {
            send(call);
        } else {
            m_daemon->connection().asyncCall(call, RequestLimitMs);
        }
    }
    answerWhenHandled(attribute, reply);
}

void AttPhone::subscribe(const QString& path, bool indications, const DelayedReplyPtr& reply)
{
    const Attribute attribute = find(path, reply);
    if (!attribute) {
        return;
    }
    const QString kind = indications ? QStringLiteral("indicate") : QStringLiteral("notify");
    AttCode refusal = Permissions(attribute.flags()).subscribe(m_state.protection);
    if (refusal == AttCode::Success && attribute.flags().filter(kind).isEmpty()) {
        refusal = AttCode::ImproperlyConfigured;
    }
    if (refusal != AttCode::Success) {
        fail(reply, refusal);
        return;
    }
    const bool isNew = !isSubscribed(path) || m_subscriptions.value(path).indications != indications;
    m_subscriptions[path] = {attribute.sender, indications};
    if (isNew && attribute.properties.contains(QStringLiteral("NotifyAcquired"))) {
        acquire(attribute, reply);
        return;
    }
    if (isNew) {
        send(attribute.call(QStringLiteral("StartNotify")));
    }
    answerWhenHandled(attribute, reply);
}

void AttPhone::unsubscribe(const QString& path, const DelayedReplyPtr& reply)
{
    const Attribute attribute = find(path, reply);
    if (!attribute) {
        return;
    }
    if (m_subscriptions.remove(path) != 0) {
        stopNotifying(path, false);
    }
    answerWhenHandled(attribute, reply);
}

void AttPhone::notice(const QString& sender, const QString& path, const QVariantMap& changed)
{
    const QVariant value = changed.value(QStringLiteral("Value"));
    if (value.userType() == QMetaType::QByteArray) {
        notify(sender, path, value.toByteArray().left(MaximumValueLength), false);
    }
}

void AttPhone::notify(const QString& sender, const QString& path, const QByteArray& bytes, bool throughSocket)
{
    const Subscription subscription = m_subscriptions.value(path);
    if (!m_isConnected || subscription.sender != sender) {
        return;
    }
    if (!subscription.indications) {
        deliver(path, bytes);
        return;
    }
    m_indications += {m_daemon->attribute(path, m_state.adapter), bytes, throughSocket};
    if (m_indications.size() == 1) {
        deliver(path, bytes);
        deliverNextIndication();
    }
}

void AttPhone::drop(const Registration& application)
{
    const QStringList paths = m_subscriptions.keys();
    for (const QString& path : paths) {
        if (m_subscriptions.value(path).sender == application.sender &&
            application.objects.contains(QDBusObjectPath(path))) {
            m_subscriptions.remove(path);
        }
    }
    const auto isGone = [&application](const Indication& indication) {
        return indication.attribute.sender == application.sender &&
               application.objects.contains(QDBusObjectPath(indication.attribute.path));
    };
    m_indications.erase(std::remove_if(m_indications.begin(), m_indications.end(), isGone),
                        m_indications.end());
}

/** Answers the reply where the phone cannot ask for it: it has no link, or there is no such attribute. */
Attribute AttPhone::find(const QString& path, const DelayedReplyPtr& reply) const
{
    Attribute attribute = m_daemon->attribute(path, m_state.adapter);
    if (!m_isConnected) {
        reply->fail(Names::error("NotConnected"),
                    QStringLiteral("The phone %1 is not connected").arg(m_state.address));
        return Attribute();
    }
    if (!attribute) {
        reply->fail(Names::error("UnknownPath"),
                    QStringLiteral("No application at %1 has a characteristic or descriptor %2")
                        .arg(m_state.adapter, path));
    }
    return attribute;
}

void AttPhone::request(const QDBusMessage& call, AttCode notPermitted, const DelayedReplyPtr& reply,
                       const Next& next)
{
    auto* watcher = new QDBusPendingCallWatcher(m_daemon->connection().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, watcher, &QObject::deleteLater);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, notPermitted, reply, next](QDBusPendingCallWatcher* finished) {
                const QDBusMessage answer = finished->reply();
                if (answer.type() == QDBusMessage::ReplyMessage) {
                    next(answer);
                } else {
                    fail(reply, attCodeOf(answer, notPermitted, m_daemon->state().version));
                }
            });
    QTimer::singleShot(RequestLimitMs, Qt::PreciseTimer, watcher, [this, watcher, reply] {
        if (!watcher->isFinished()) {
            watcher->disconnect(this); // an answer that comes later finds nobody waiting
            fail(reply, AttCode::UnlikelyError);
        }
    });
}

/** A call to which the daemon wants no answer. */
void AttPhone::send(const QDBusMessage& call)
{
    m_daemon->connection().send(call);
}

/** Replies when a client has handled what the attribute was sent before. */
void AttPhone::answerWhenHandled(const Attribute& attribute, const DelayedReplyPtr& reply)
{
    // A ping would not do: libdbus answers it before the object's thread gets to earlier calls.
    const QDBusMessage question = QDBusMessage::createMethodCall(
        attribute.sender, attribute.path, Names::Introspectable, QStringLiteral("Introspect"));
    auto* watcher =
        new QDBusPendingCallWatcher(m_daemon->connection().asyncCall(question, RequestLimitMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [reply](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        reply->send({});
    });
}

void AttPhone::acquire(const Attribute& attribute, const DelayedReplyPtr& reply)
{
    m_daemon->sockets().acquireNotify(attribute, m_state.device(), options(0),
                                      [this, attribute, reply](const QString& problem) {
                                          if (problem.isEmpty()) {
                                              answerWhenHandled(attribute, reply);
                                              return;
                                          }
                                          m_subscriptions.remove(attribute.path);
                                          reply->fail(Names::error("InvalidAnswer"), problem);
                                      });
}

/** After the end of a subscription: the client is told when it was the last one. */
void AttPhone::stopNotifying(const QString& path, bool isLinkLost)
{
    const Attribute attribute = m_daemon->attribute(path, m_state.adapter);
    const bool isLast = !m_daemon->hasSubscriber(path);
    if (!m_daemon->sockets().endSubscription(path, m_state.device(), isLast, isLinkLost) && attribute &&
        isLast) {
        send(attribute.call(QStringLiteral("StopNotify")));
    }
}

void AttPhone::dropSubscriptions()
{
    const QStringList paths = m_subscriptions.keys();
    m_subscriptions.clear();
    for (const QString& path : paths) {
        stopNotifying(path, true);
    }
}

void AttPhone::deliver(const QString& path, const QByteArray& value)
{
    m_state.notifications[path] += value;
    emit notified(path, value);
}

/** A phone gets an indication when it has confirmed the one before. */
void AttPhone::deliverNextIndication()
{
    while (m_state.confirms && !m_indications.isEmpty()) {
        const Indication first = m_indications.takeFirst();
        if (!first.throughSocket || !m_daemon->sockets().confirm(first.attribute.path, m_state.device())) {
            send(first.attribute.call(QStringLiteral("Confirm")));
        }
        if (!m_indications.isEmpty()) {
            deliver(m_indications.constFirst().attribute.path, m_indications.constFirst().value);
        }
    }
}

/** After the end of the link. A socket is told nothing: it is closed. */
void AttPhone::confirmIndications()
{
    for (const Indication& indication : std::exchange(m_indications, {})) {
        if (!indication.throughSocket) {
            send(indication.attribute.call(QStringLiteral("Confirm")));
        }
    }
}

QVariantMap AttPhone::options(quint16 offset) const
{
    QVariantMap options{{QStringLiteral("device"), QVariant::fromValue(QDBusObjectPath(m_state.device()))},
                        {QStringLiteral("link"), QStringLiteral("LE")},
                        {QStringLiteral("mtu"), QVariant::fromValue(TransferUnit)}};
    if (offset != 0) {
        options[QStringLiteral("offset")] = QVariant::fromValue(offset);
    }
    return options;
}

} // namespace simulator
