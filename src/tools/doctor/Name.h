#pragma once

#include <QString>

namespace doctor {

class Bus;
class Report;
struct Adapters;
struct Daemon;

/** Checks what the bus allows a program with its own bus name. */
namespace Name {

/** Tries to own the name and reports. If true, the name is owned now, and the caller has to call release().
 */
bool acquire(const Bus& bus, const QString& name, Report& report);
void release(const Bus& bus, const QString& name);

/**
 * Lets the daemon call this process, and reports whether the call arrived; false if it did not, or if the
 * daemon could not be asked.
 *
 * Only the daemon can try what the bus allows the daemon to do. So it is asked to register an application
 * without a service. It has to call this process before it can reject the application. Phones notice nothing.
 */
bool examineCalls(const Bus& bus, const Daemon& daemon, const Adapters& adapters, const QString& name,
                  Report& report);

} // namespace Name

} // namespace doctor
