#pragma once

#include <QtGlobal>

#if defined(PLIM_PERIPHERAL_LIBRARY)
#define PLIM_PERIPHERAL_EXPORT Q_DECL_EXPORT
#else
#define PLIM_PERIPHERAL_EXPORT Q_DECL_IMPORT
#endif
