#include "GattNode.h"

#include "DBusDetail.h"

#include <QDBusAbstractAdaptor>
#include <QStringBuilder>

#include <algorithm>

QString GattNode::childPath(const QString& parentPath, const QString& uuid)
{
    // QStringBuilder makes it exactly as long as it has to be: every object keeps one.
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
