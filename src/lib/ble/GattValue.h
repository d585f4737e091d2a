#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

/** Values of characteristics and descriptors. Internal: not installed. */
namespace GattValue {

/** Bytes in one page of a paged read: the longest attribute value that ATT knows. */
constexpr qint64 pageSize = 512;

/** The "offset" in BlueZ's options; 0 if there is none. */
qint64 offsetOf(const QVariantMap& options);

/**
 * Like QByteArray::mid(), but positions need not fit an int. A start beyond the end gives nothing. A negative
 * length gives everything from the start on. A negative start counts against the length, as if bytes were
 * missing there. The result has at most DBusDetail::maximumLength bytes, since nothing longer can be sent.
 */
QByteArray mid(const QByteArray& bytes, qint64 start, qint64 length = -1);

/**
 * Cuts the value at the offset, if it is longer, and appends the bytes. If the result would be longer than
 * DBusDetail::maximumLength, the value stays as it is, and a line is logged at ERROR: peers could otherwise
 * append until the memory is full.
 * @return whether the bytes were written
 */
bool overwrite(QByteArray& value, qint64 offset, const QByteArray& bytes, const QString& uuid);

/**
 * Calls the read callback and stores its result as the attribute's value.
 *
 * The callback may do anything, even delete or replace itself or delete the attribute. So a copy of it is
 * called, and afterwards `value` and `attribute` are used only if the attribute still exists. If the callback
 * throws an exception, or if too many callbacks are nested, the value stays as it is: see
 * UserCallback::call().
 *
 * @param value  the attribute's own value
 * @return the value to answer with, valid even if the attribute was deleted
 */
QByteArray refresh(const QObject* attribute, QByteArray& value, const std::function<QByteArray()>& callback,
                   const QString& uuid);

} // namespace GattValue
