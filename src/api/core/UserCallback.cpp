#include "UserCallback.h"

#include "plimlog.h"

#include <exception>

namespace {

constexpr int maximumNesting = 32;
thread_local int nesting = 0;

/** Counts a function while it runs. */
struct Nested
{
    Nested() { ++nesting; }
    ~Nested() { --nesting; }
    Q_DISABLE_COPY(Nested)
};

} // namespace

UserCallback::Outcome UserCallback::call(const char* kind, const QString& name,
                                         const std::function<void()>& callback)
{
    if (nesting >= maximumNesting) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO,
                 kind << " of " << name << " not called: too many are running");
        return NotCalled;
    }
    const Nested nested;
    try {
        callback();
        return Returned;
    } catch (const std::exception& error) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO,
                 kind << " of " << name << " failed: " << error.what());
    } catch (...) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO, kind << " of " << name << " failed");
    }
    return Failed;
}
