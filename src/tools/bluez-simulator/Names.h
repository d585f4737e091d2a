#pragma once

#include "BluezInterfaces.h"

#include <QString>

namespace simulator {

/** The names that a Bluetooth daemon and its clients use on the bus, and those of the control interface. */
namespace Names {

inline const QString BluezService = QStringLiteral("org.bluez");
inline const QString BluezPath = QStringLiteral("/org/bluez");

using namespace BluezInterfaces;
inline const QString GattProfile = QStringLiteral("org.bluez.GattProfile1");

inline const QString Introspectable = QStringLiteral("org.freedesktop.DBus.Introspectable");
inline const QString Properties = QStringLiteral("org.freedesktop.DBus.Properties");
inline const QString ObjectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");

inline const QString ControlService = QStringLiteral("org.plim.BluezSimulator");
inline const QString ControlPath = QStringLiteral("/org/plim/BluezSimulator");

/** The full name of an error of the control interface. */
inline QString error(const char* name)
{
    return ControlService + QStringLiteral(".Error.") + QLatin1String(name);
}

} // namespace Names

} // namespace simulator
