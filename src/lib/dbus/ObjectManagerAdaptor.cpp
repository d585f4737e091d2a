#include "ObjectManagerAdaptor.h"

#include "DBusDetail.h"

ObjectManagerAdaptor::ObjectManagerAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent) {}

DBusManagedObjectList ObjectManagerAdaptor::GetManagedObjects()
{
    DBusManagedObjectList objects;
    QMetaObject::invokeMethod(parent(), "GetManagedObjects", Q_RETURN_ARG(DBusManagedObjectList, objects));
    // A text that is not a valid object path is an empty QDBusObjectPath, which libdbus answers by aborting
    // the process.
    objects.remove(QDBusObjectPath());
    return DBusDetail::withinOneMessage(objects);
}
