#pragma once

#include "GattSnapshot.h"

#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QMap>
#include <QObject>
#include <QString>

#include <algorithm>
#include <vector>

/** Functions for all objects of a tree: paths and children. Internal: not installed. */
namespace GattNode {

/** A child's object path: the parent's path, "/", and the UUID with "_" for "-". */
QString childPath(const QString& parentPath, const QString& uuid);

/**
 * The path as an object path; empty if the path is not valid.
 * @param checked  where the caller stores the result: to check a path takes longer than everything else that
 * is done to list an object
 */
const QDBusObjectPath& objectPath(const QString& path, QDBusObjectPath& checked);

/**
 * The object's adaptor that answers calls to a D-Bus interface: Qt calls the one that was created last.
 * @param own  the base class's adaptor for the interface; it is returned unless there is a later one
 */
QObject* servingAdaptor(const QObject* object, QObject* own);

/**
 * Removes a child that is being deleted from its parent's map of children.
 *
 * The child is detached from its parent at once: the caller's next signal may delete the parent, which would
 * delete the child a second time. A deleteLater() that was posted to the child is dropped for the same
 * reason: the next signal may also run an event loop.
 *
 * @param deleted  the child; only its QObject part is left
 * @return whether the map held it
 */
template <typename Child>
bool forgetChild(QMap<QString, Child*>& children, QObject* deleted)
{
    deleted->setParent(nullptr);
    QCoreApplication::removePostedEvents(deleted);
    for (auto it = children.begin(); it != children.end(); ++it) {
        // Compare addresses, never dereference: only the QObject part of the child is left.
        if (static_cast<QObject*>(*it) == deleted) {
            children.erase(it);
            return true;
        }
    }
    return false;
}

/**
 * The snapshots of all children in the order of their creation. This includes children that were replaced in
 * the map by a later one with the same UUID.
 * @param snapshot  returns the snapshot of a child
 */
template <typename Child, typename Snapshot>
std::vector<GattSnapshot> childSnapshots(const QObject& parent, const QMap<QString, Child*>& children,
                                         Snapshot snapshot)
{
    std::vector<GattSnapshot> snapshots;
    const auto all = parent.findChildren<Child*>(QString(), Qt::FindDirectChildrenOnly);
    for (const Child* child : all) {
        snapshots.push_back(snapshot(*child));
        snapshots.back().isDisplaced = std::find(children.begin(), children.end(), child) == children.end();
    }
    return snapshots;
}

} // namespace GattNode
