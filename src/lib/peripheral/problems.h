#pragma once

#include "PlimPeripheralExport.h"

#include "BleFinding.h"

#include <QVersionNumber>

class GattApplication;

namespace plim {

/**
 * What BlueZ would refuse of a tree, or a phone could not use: GattApplication::problems(), and what this
 * layer adds to that:
 * - a write handler beside writes without an answer, whose refusals BlueZ tells nobody;
 * - protected attributes, for which no agent of this program answers when a central wants to pair;
 * - included services that come after the one that includes them, or belong to another application;
 * - subscribers to be tracked of a characteristic that nobody can subscribe to;
 * - what the daemon's version cannot do.
 *
 * Nothing is sent, logged or changed.
 *
 * @param application  the tree, before it is handed over
 * @param daemon       the version of the daemon that it is meant for, as bluetoothd --version prints it; null
 * where it is not known
 */
PLIM_PERIPHERAL_EXPORT BleFindings problems(const GattApplication& application,
                                            const QVersionNumber& daemon = QVersionNumber());

} // namespace plim
