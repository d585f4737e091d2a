#pragma once

#include <QString>

class Bus;
class Report;
struct Adapters;
struct Daemon;

/** What the bus lets a program do that asks for a bus name of its own. */
namespace Name {

/** Tries to own the name, and reports; true when it is owned now, and release() is due. */
bool acquire(const Bus& bus, const QString& name, Report& report);
void release(const Bus& bus, const QString& name);

/**
 * Has the daemon call this process, and reports whether it came through; false when it did not, or could not
 * be asked.
 *
 * Nobody but the daemon can tell what the bus lets the daemon do. So it is asked to register an application
 * without a service: to refuse it, it has to call us first, and phones notice nothing.
 */
bool examineCalls(const Bus& bus, const Daemon& daemon, const Adapters& adapters, const QString& name,
                  Report& report);

} // namespace Name
