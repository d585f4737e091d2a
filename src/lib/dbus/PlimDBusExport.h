#pragma once

#include <QtGlobal>

#if defined(PLIM_DBUS_LIBRARY)
#define PLIM_DBUS_EXPORT Q_DECL_EXPORT
#else
#define PLIM_DBUS_EXPORT Q_DECL_IMPORT
#endif
