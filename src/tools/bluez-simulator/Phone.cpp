#include "Phone.h"

#include "Daemon.h"
#include "Names.h"
#include "State.h"

#include <QDBusPendingCallWatcher>

#include <iterator>

namespace simulator {

namespace {

constexpr int MaximumValueLength = 512;
constexpr quint16 UsualTransferUnit = 517;
constexpr quint16 SmallestTransferUnit = 23;
constexpr int SmallestPiece = SmallestTransferUnit - 1; // one byte says what the packet is
constexpr int MaximumPages = 65536;

} // namespace

Phone::Phone(Daemon* daemon) : QObject(daemon), m_daemon(daemon) {}

void Phone::read(const QString& path, quint16 offset, const DelayedReplyPtr& reply)
{
    readValue(path, offset, UsualTransferUnit, reply,
              [reply](const QByteArray& value) { reply->send({value}); });
}

void Phone::readLong(const QString& path, const DelayedReplyPtr& reply)
{
    readPiece(path, QByteArray(), reply);
}

void Phone::readPages(const QString& data, const QString& control, const DelayedReplyPtr& reply)
{
    fetchPage(std::make_shared<PageFetch>(PageFetch{data, control, {}, reply}));
}

void Phone::write(const QString& path, const QByteArray& value, quint16 offset, const DelayedReplyPtr& reply)
{
    writeValue(path, value, offset, reply, [reply](const QDBusMessage&) { reply->send({}); });
}

void Phone::subscribe(const QString& path, const DelayedReplyPtr& reply)
{
    // The daemon listens from the moment it asks, so a value that arrives before the answer counts.
    m_subscriptions[path] = m_daemon->attribute(path).sender;
    call(path, QStringLiteral("StartNotify"), {}, reply, [reply](const QDBusMessage&) { reply->send({}); });
}

void Phone::unsubscribe(const QString& path, const DelayedReplyPtr& reply)
{
    const bool wasSubscribed = m_subscriptions.remove(path) != 0;
    if (m_daemon->attribute(path) && (!wasSubscribed || m_daemon->hasSubscriber(path))) {
        reply->send({}); // the daemon does not bother a client that nobody listens to
        return;
    }
    call(path, QStringLiteral("StopNotify"), {}, reply, [reply](const QDBusMessage&) { reply->send({}); });
}

void Phone::notice(const QString& sender, const QString& path, const QVariantMap& changed)
{
    const QVariant value = changed.value(QStringLiteral("Value"));
    if (value.userType() != QMetaType::QByteArray || m_subscriptions.value(path) != sender) {
        return;
    }
    const QByteArray bytes = value.toByteArray().left(MaximumValueLength);
    m_daemon->state().notifications[path] += bytes;
    emit notified(path, bytes);
}

void Phone::forget(const Registration& application)
{
    for (auto subscription = m_subscriptions.begin(); subscription != m_subscriptions.end();) {
        const bool isGone = subscription.value() == application.sender &&
                            application.objects.contains(QDBusObjectPath(subscription.key()));
        subscription = isGone ? m_subscriptions.erase(subscription) : std::next(subscription);
    }
}

void Phone::call(const QString& path, const QString& member, const QVariantList& arguments,
                 const DelayedReplyPtr& reply, const Next& next)
{
    const Attribute attribute = m_daemon->attribute(path);
    if (!attribute) {
        m_subscriptions.remove(path);
        reply->fail(
            Names::error("UnknownPath"),
            QStringLiteral("No registered application has a characteristic or descriptor %1").arg(path));
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(
        m_daemon->connection().asyncCall(attribute.call(member, arguments)), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, path, member, reply, next](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                const QDBusMessage answer = finished->reply();
                if (answer.type() == QDBusMessage::ReplyMessage) {
                    next(answer);
                    return;
                }
                if (member == QLatin1String("StartNotify")) {
                    m_subscriptions.remove(path);
                }
                reply->fail(answer.errorName(), answer.errorMessage());
            });
}

void Phone::readValue(const QString& path, int offset, quint16 transferUnit, const DelayedReplyPtr& reply,
                      const NextValue& next)
{
    call(path, QStringLiteral("ReadValue"), {options(path, offset, transferUnit)}, reply,
         [reply, next](const QDBusMessage& answer) {
             if (answer.signature() != QLatin1String("ay")) {
                 reply->fail(
                     Names::error("InvalidAnswer"),
                     QStringLiteral("ReadValue answered with signature \"%1\"").arg(answer.signature()));
                 return;
             }
             next(answer.arguments().constFirst().toByteArray().left(MaximumValueLength));
         });
}

void Phone::readPiece(const QString& path, const QByteArray& soFar, const DelayedReplyPtr& reply)
{
    readValue(path, int(soFar.size()), SmallestTransferUnit, reply,
              [this, path, soFar, reply](const QByteArray& value) {
                  const QByteArray piece = value.left(SmallestPiece);
                  const QByteArray whole = (soFar + piece).left(MaximumValueLength);
                  if (piece.size() < SmallestPiece || whole.size() == MaximumValueLength) {
                      reply->send({whole});
                  } else {
                      readPiece(path, whole, reply);
                  }
              });
}

void Phone::writeValue(const QString& path, const QByteArray& value, int offset, const DelayedReplyPtr& reply,
                       const Next& next)
{
    // The daemon names the type of a write only where it is no request.
    call(path, QStringLiteral("WriteValue"), {value, options(path, offset, UsualTransferUnit)}, reply, next);
}

void Phone::fetchPage(const std::shared_ptr<PageFetch>& fetch)
{
    if (fetch->pages.size() >= MaximumPages) {
        fetch->reply->fail(Names::error("TooManyPages"),
                           QStringLiteral("No short page among the first %1").arg(MaximumPages));
        return;
    }
    const auto onPage = [this, fetch](const QByteArray& page) {
        fetch->pages += page;
        if (page.size() == MaximumValueLength) {
            fetchPage(fetch);
            return;
        }
        writeValue(fetch->control, QByteArrayLiteral("0"), 0, fetch->reply,
                   [fetch](const QDBusMessage&) { fetch->reply->send({QVariant::fromValue(fetch->pages)}); });
    };
    writeValue(fetch->control, QByteArray::number(fetch->pages.size()), 0, fetch->reply,
               [this, fetch, onPage](const QDBusMessage&) {
                   readValue(fetch->data, 0, UsualTransferUnit, fetch->reply, onPage);
               });
}

QVariantMap Phone::options(const QString& path, int offset, quint16 transferUnit) const
{
    const QString device = devicePath(m_daemon->attribute(path).adapter, address());
    QVariantMap options{{QStringLiteral("device"), QVariant::fromValue(QDBusObjectPath(device))},
                        {QStringLiteral("link"), QStringLiteral("LE")},
                        {QStringLiteral("mtu"), QVariant::fromValue(transferUnit)}};
    if (offset != 0) {
        options[QStringLiteral("offset")] = QVariant::fromValue(quint16(offset));
    }
    return options;
}

} // namespace simulator
