#pragma once

class QDBusMessage;

namespace simulator {

class Daemon;

/** Answers what programs ask of the further phones: Device1.Disconnect, and Adapter1.RemoveDevice; false
 * where the call is neither. */
bool handleDeviceCall(Daemon& daemon, const QDBusMessage& call);

} // namespace simulator
