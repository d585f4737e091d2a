#pragma once

#include <QtGlobal>

#if defined(PLIM_BLE_LIBRARY)
#define PLIM_BLE_EXPORT Q_DECL_EXPORT
#else
#define PLIM_BLE_EXPORT Q_DECL_IMPORT
#endif
