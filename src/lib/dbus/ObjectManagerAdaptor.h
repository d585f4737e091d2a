#pragma once

#include "DBusTypes.h"
#include "PlimDBusExport.h"

#include <QDBusAbstractAdaptor>

/**
 * Serves org.freedesktop.DBus.ObjectManager wherever its parent is exported with its adaptors.
 *
 * GetManagedObjects is answered with what the parent's invokable GetManagedObjects returns, less the objects
 * whose path D-Bus cannot carry; a parent without one gives an empty answer. The signals of the interface are
 * not served: a changed tree is announced by a new registration.
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
    /** @param parent  the object to answer for; it owns the adaptor and is exported after the adaptor was
     * made */
    explicit ObjectManagerAdaptor(QObject* parent);

public slots:
    /** Answered by the parent's slot of this name. */
    DBusManagedObjectList GetManagedObjects();
};
