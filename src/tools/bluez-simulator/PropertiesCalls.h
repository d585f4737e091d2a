#pragma once

class QDBusMessage;

namespace simulator {

class Daemon;

/** Answers the calls of org.freedesktop.DBus.Properties for the daemon's own objects; false if the call is
 * none of them. */
bool handlePropertiesCall(Daemon& daemon, const QDBusMessage& call);

} // namespace simulator
