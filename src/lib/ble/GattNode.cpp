#include "GattNode.h"

#include "DBusDetail.h"

#include <QDBusAbstractAdaptor>
#include <QStringBuilder>

#include <algorithm>

QString GattNode::childPath(const QString& parentPath, const QString& uuid)
{
    // Every object stores its path, so the path should not reserve memory: QStringBuilder allocates the exact
    // size.
    return parentPath % QLatin1Char('/') % QString(uuid).replace(QLatin1Char('-'), QLatin1Char('_'));
}

const QDBusObjectPath& GattNode::objectPath(const QString& path, QDBusObjectPath& checked)
{
    if (checked.path() != path) {
        checked = QDBusObjectPath(path);
    }
    return checked;
}

QObject* GattNode::servingAdaptor(const QObject* object, QObject* own)
{
    const QObjectList& children = object->children();
    const auto serves = [own](QObject* child) {
        return child == own || (qobject_cast<QDBusAbstractAdaptor*>(child) &&
                                DBusDetail::interfaceName(child) == DBusDetail::interfaceName(own));
    };
    const auto last = std::find_if(children.crbegin(), children.crend(), serves);
    return last == children.crend() ? nullptr : *last;
}
