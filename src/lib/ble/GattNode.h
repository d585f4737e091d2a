#pragma once

#include "GattSnapshot.h"

#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QMap>
#include <QObject>
#include <QString>

#include <algorithm>
#include <vector>

/** What the objects of a tree have in common as its nodes: paths and children. Internal: not installed. */
namespace GattNode {

/** A child's object path: the parent's path, "/", and the UUID with "_" for "-". */
QString childPath(const QString& parentPath, const QString& uuid);

/**
 * The path as an object path, empty if it is not a valid one.
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

/**
 * Removes a child that is being deleted from its parent's map of children.
 *
 * The child is detached from its parent at once: what follows may delete the parent, which would otherwise
 * delete the child a second time. For the same reason a deleteLater() that has been posted to it is dropped:
 * what follows may run an event loop.
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
        // Compare addresses, never dereference: the map's pointer is of a class that is gone already.
        if (static_cast<QObject*>(*it) == deleted) {
            children.erase(it);
            return true;
        }
    }
    return false;
}

/**
 * The snapshots of all children in the order of their creation, those included that a later child with the
 * same UUID has displaced from the map.
 * @param snapshot  gives a child's snapshot
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
