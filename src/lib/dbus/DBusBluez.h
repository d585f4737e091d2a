#pragma once

#include "PlimDBusExport.h"

#include <QString>

/** The bus name of the BlueZ daemon: "org.bluez". */
PLIM_DBUS_EXPORT QString DBusBluezServiceName();

/** The object path at which BlueZ serves org.freedesktop.DBus.ObjectManager: "/". */
PLIM_DBUS_EXPORT QString DBusBluezObjectManagerPath();
