#pragma once

#include "DBusTypes.h"
#include "PlimDBusExport.h"

#include <QDBusAbstractAdaptor>

/**
 * Serves org.freedesktop.DBus.ObjectManager wherever its parent is exported with its adaptors.
 *
 * GetManagedObjects returns what the parent's invokable method of this name returns, without objects whose
 * paths are not valid, and without byte arrays that do not fit in one message. If the parent has no such
 * method, the answer is empty. The signals of the interface are not served: a changed tree is registered
 * again instead.
 */
class PLIM_DBUS_EXPORT ObjectManagerAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.ObjectManager")
    Q_CLASSINFO(
        "D-Bus Introspection",
        "  <interface name=\"org.freedesktop.DBus.ObjectManager\">\n"
        "    <method name=\"GetManagedObjects\">\n"
        "      <arg direction=\"out\" type=\"a{oa{sa{sv}}}\" name=\"objects\"/>\n"
        "      <annotation value=\"DBusManagedObjectList\" name=\"org.qtproject.QtDBus.QtTypeName.Out0\"/>\n"
        "    </method>\n"
        "  </interface>\n")
public:
    /** @param parent  the object that the adaptor answers for, and its owner; export it after the adaptor was
     * created */
    explicit ObjectManagerAdaptor(QObject* parent);

public slots:
    /** Calls the parent's slot of this name. */
    DBusManagedObjectList GetManagedObjects();
};
