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

} // namespace detail
} // namespace plim
