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

/** The "offset" of BlueZ's options as an int, 0 where there is none. */
qint64 offsetOf(const QVariantMap& options);

/**
 * QByteArray::mid() for positions that do not fit an int: a start beyond the end gives nothing, a negative
 * length everything from the start on, and bytes before the start of the value count as absent. Of longer
 * results only the first DBusDetail::maximumLength bytes are given, since nothing longer can be sent.
 */
QByteArray mid(const QByteArray& bytes, qint64 start, qint64 length = -1);

/**
 * Cuts the value off at the offset, or leaves it where it is shorter, and appends the bytes. Nothing is done
 * if the value became longer than DBusDetail::maximumLength, which is logged at ERROR: peers could append
 * until the memory is full.
 * @return whether it was done
 */
bool overwrite(QByteArray& value, qint64 offset, const QByteArray& bytes, const QString& uuid);

/**
 * Asks the caller's read callback for a fresh value and stores it as the attribute's value.
 *
 * The callback may do anything, even delete or replace itself or delete the attribute: it is called as a
 * copy, and `value` and `attribute` are touched only if the attribute has survived. Whatever it throws is
 * logged at ERROR and leaves the value as it is, since an exception must not travel through Qt.
 *
 * One that runs an event loop is called again, inside, by each read that waits. Beyond 32 callbacks inside
 * each other the value is answered as it is, with a line at ERROR: otherwise a client that sends many reads
 * at once could exhaust the stack.
 *
 * @param value  the attribute's own value
 * @return the value to answer with, valid even if the attribute is gone
 */
QByteArray refresh(const QObject* attribute, QByteArray& value, const std::function<QByteArray()>& callback,
                   const QString& uuid);

} // namespace GattValue
