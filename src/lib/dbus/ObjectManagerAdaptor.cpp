#include "ObjectManagerAdaptor.h"

#include "DBusDetail.h"

ObjectManagerAdaptor::ObjectManagerAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent) {}

DBusManagedObjectList ObjectManagerAdaptor::GetManagedObjects()
{
    DBusManagedObjectList objects;
    QMetaObject::invokeMethod(parent(), "GetManagedObjects", Q_RETURN_ARG(DBusManagedObjectList, objects));
    // QDBusObjectPath makes an empty path of an invalid one. If it were sent, libdbus would abort the
    // process.
    objects.remove(QDBusObjectPath());
    return DBusDetail::withinOneMessage(objects);
}
