#pragma once

#include <QtGlobal>

#if defined(PLIM_CORE_LIBRARY)
#define PLIM_CORE_EXPORT Q_DECL_EXPORT
#else
#define PLIM_CORE_EXPORT Q_DECL_IMPORT
#endif
