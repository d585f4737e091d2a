#pragma once

#include <QString>
#include <QVersionNumber>

namespace plim {
namespace detail {

/**
 * BlueZ's version, which it tells in its default device identification: the version of a USB device of the
 * Linux Foundation's. Internal: not installed.
 * @param modalias  the property Modalias of org.bluez.Adapter1
 * @return the version; null if the administrator has configured another identification
 */
QVersionNumber daemonVersion(const QString& modalias);

/** The first version with a socket for each central; before, all centrals share one. Internal: not installed.
 */
inline const QVersionNumber firstWithSocketPerCentral(5, 69);

/** The first version that sends what it reads from a socket to the socket's central alone; before, it sends
 * it to all subscribers. Internal: not installed. */
inline const QVersionNumber firstWithSeparateSockets(5, 76);

} // namespace detail
} // namespace plim
