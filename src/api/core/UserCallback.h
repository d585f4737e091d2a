#pragma once

#include "PlimCoreExport.h"

#include <functional>

class QString;

/** Calls of what the library's user has set. Internal: not installed. */
namespace UserCallback {

enum Outcome : quint8
{
    Returned,
    Failed,   ///< it threw
    NotCalled ///< too many were running
};

/**
 * Calls it, unless 32 such calls already run inside each other on this thread: one that runs an event loop is
 * called again, inside, by each request that waits, and a client that sends many could exhaust the stack.
 * What it throws ends here, since an exception must not travel through Qt. Either is logged at ERROR.
 *
 * @param kind   for the log: "Read callback"
 * @param name   for the log: whose callback it is. It must outlive the call.
 */
PLIM_CORE_EXPORT Outcome call(const char* kind, const QString& name, const std::function<void()>& callback);

} // namespace UserCallback
