#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QMap>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

/** What the objects of the GATT tree share. Internal: not installed. */
namespace GattDetail {

/** Bytes in one page of a paged read: the longest attribute value that ATT knows. */
constexpr qint64 pageSize = 512;

/** A child's object path: the parent's path, "/", and the UUID with "_" for "-". */
QString childPath(const QString& parentPath, const QString& uuid);

/**
 * The path as an object path, empty where it is none.
 * @param checked  what was returned for the same path before: checking each character of a path takes more
 *                 time than all else that lists an object
 */
const QDBusObjectPath& objectPath(const QString& path, QDBusObjectPath& checked);

/**
 * The object's adaptor that answers calls to a D-Bus interface: the last one that was made for it, as Qt has
 * it.
 * @param own  one that serves the interface; what is returned unless a later one does
 */
QObject* servingAdaptor(const QObject* object, QObject* own);

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
 * each other the value is answered as it is, with a line at ERROR: whoever sends many reads at once would
 * otherwise end the process, which has one stack.
 *
 * @param value  the attribute's own value
 * @return the value to answer with, valid even if the attribute is gone
 */
QByteArray refresh(const QObject* attribute, QByteArray& value, const std::function<QByteArray()>& callback,
                   const QString& uuid);

/**
 * Drops a child that is being destroyed from its parent's map of children.
 *
 * The child is detached from its parent at once: what follows may delete the parent, which would otherwise
 * delete the child a second time. For the same reason a deleteLater() that has been posted to it is dropped:
 * what follows may run an event loop.
 *
 * @param dying  a child of which nothing but the QObject is left
 * @return whether the map held it
 */
template <typename Child>
bool forget(QMap<QString, Child*>& children, QObject* dying)
{
    dying->setParent(nullptr);
    QCoreApplication::removePostedEvents(dying);
    for (auto it = children.begin(); it != children.end(); ++it) {
        if (static_cast<QObject*>(*it) == dying) {
            children.erase(it);
            return true;
        }
    }
    return false;
}

} // namespace GattDetail
