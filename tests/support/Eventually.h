#pragma once

#include <QtTest>

/** Waits for what another process or the event loop brings about, long enough for a slow, busy machine. */
#define EVENTUALLY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 20000)
#define EVENTUALLY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 20000)
