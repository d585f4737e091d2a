#include "GattValue.h"

#include "DBusDetail.h"
#include "UserCallback.h"
#include "plimlog.h"

#include <QPointer>

#include <limits>

namespace {

int toInt(qint64 number)
{
    using Limits = std::numeric_limits<int>;
    return int(qBound(qint64(Limits::min()), number, qint64(Limits::max())));
}

} // namespace

qint64 GattValue::offsetOf(const QVariantMap& options)
{
    return options.value(QStringLiteral("offset")).toInt();
}

QByteArray GattValue::mid(const QByteArray& bytes, qint64 start, qint64 length)
{
    if (start < 0) {
        length = length < 0 ? length : qMax<qint64>(0, start + length);
        start = 0;
    }
    if (length < 0 || length > DBusDetail::maximumLength) {
        length = DBusDetail::maximumLength;
    }
    return bytes.mid(toInt(start), int(length));
}

bool GattValue::overwrite(QByteArray& value, qint64 offset, const QByteArray& bytes, const QString& uuid)
{
    const qint64 kept = qBound<qint64>(0, offset, value.size());
    if (kept + bytes.size() > DBusDetail::maximumLength) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO,
                 "Value of " << uuid << " would become too long to be sent");
        return false;
    }
    value.truncate(toInt(offset));
    value.append(bytes);
    return true;
}

QByteArray GattValue::refresh(const QObject* attribute, QByteArray& value,
                              const std::function<QByteArray()>& callback, const QString& uuid)
{
    // Copies, since the callback may delete the attribute, and with it what the references refer to.
    const QPointer<const QObject> alive = attribute;
    const std::function<QByteArray()> ownCallback(callback);
    const QString ownUuid(uuid); // NOLINT(performance-unnecessary-copy-initialization)
    const QByteArray old(value);
    QByteArray fresh;
    const auto outcome =
        UserCallback::call("Read callback", ownUuid, [&fresh, &ownCallback] { fresh = ownCallback(); });
    if (outcome != UserCallback::Returned) {
        return alive ? value : old;
    }
    if (alive) {
        value = fresh;
    }
    return fresh;
}
