#pragma once

#include "PlimPeripheralExport.h"

#include "BleFinding.h"

#include <QVersionNumber>

class GattApplication;

namespace plim {

/**
 * Lists what BlueZ would reject of a tree, and what a phone could not use. These are the findings of
 * GattApplication::problems(), and in addition:
 * - a write handler together with writes without a response: no central learns that a write was rejected;
 * - protected attributes without a PairingAgent in this program, which answers a central that wants to pair;
 * - included services that come after the service that includes them, or belong to another application;
 * - a characteristic that tracks its subscribers, but that nobody can subscribe to;
 * - features that this version of the daemon does not have.
 *
 * Nothing is sent, logged or changed.
 *
 * @param application  the tree, before it is added to the manager
 * @param daemon       the version of the daemon that it is meant for, as bluetoothd --version prints it; null
 * if it is not known
 */
PLIM_PERIPHERAL_EXPORT BleFindings problems(const GattApplication& application,
                                            const QVersionNumber& daemon = QVersionNumber());

} // namespace plim
