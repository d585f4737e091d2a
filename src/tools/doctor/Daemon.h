#pragma once

#include "DBusTypes.h"

#include <QString>

class QDBusMessage;

namespace doctor {

class Bus;
class Report;

/** The Bluetooth daemon on the bus. */
struct Daemon
{
    /** Finds it, lets the bus start it if possible, and reports. Use the result only if it isUsable. */
    static Daemon find(const Bus& bus, Report& report);

    /** Reports that the bus blocked a call to the daemon. */
    static void reportOutOfReach(const QDBusMessage& answer, Report& report);

    bool isUsable = false;
    bool isBluetoothd = false; // by the name of its program
    QString user;              // the user that it runs as
    DBusManagedObjectList objects;
};

} // namespace doctor
