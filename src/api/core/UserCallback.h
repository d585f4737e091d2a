#pragma once

#include "PlimCoreExport.h"

#include <functional>

class QString;

/** Calls of functions that the user of the library has set. Internal: not installed. */
namespace UserCallback {

enum Outcome : quint8
{
    Returned,
    Failed,   ///< the function threw an exception
    NotCalled ///< too many functions were running
};

/**
 * Calls the function, unless 32 such calls are nested on this thread already. They nest if a function runs an
 * event loop: each waiting request then calls it again, and a client that sends many requests could exhaust
 * the stack. An exception ends here, since it must not pass through Qt. Both cases are logged at ERROR.
 *
 * @param kind   for the log: what is called, for instance "Read callback"
 * @param name   for the log: whose function it is. It must outlive the call.
 */
PLIM_CORE_EXPORT Outcome call(const char* kind, const QString& name, const std::function<void()>& callback);

} // namespace UserCallback
