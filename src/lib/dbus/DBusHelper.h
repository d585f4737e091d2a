#pragma once

#include "DBusTypes.h"
#include "PlimDBusExport.h"

#include <QObject>
#include <QString>

/** Operations on object-manager data and on adaptors. They may be called from any thread. */
namespace DBusHelper {

/**
 * The path of the first object, in ascending order of the paths, that has the interface.
 * @return the path, or an empty string if no object has it
 */
PLIM_DBUS_EXPORT QString findFirstObjectPath(const DBusManagedObjectList& objects,
                                             const QString& interfaceName);

/**
 * An adaptor's entry in an object manager's answer: one interface, named by the adaptor's "D-Bus Interface"
 * class information, with each property that the adaptor declares and its value at this moment.
 *
 * @param adaptor  a D-Bus adaptor, read on the calling thread; null, or an object without that class
 * information, gives an empty list. Each thread looks up the properties of a class only once. So if a library
 * with an adaptor is unloaded, no class of the same name with other properties may be loaded after it.
 */
PLIM_DBUS_EXPORT DBusInterfaceList generateDBusInterfaceList(QObject* adaptor);

} // namespace DBusHelper
