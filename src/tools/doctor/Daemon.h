#pragma once

#include "DBusTypes.h"

#include <QString>

class Bus;
class QDBusMessage;
class Report;

/** The Bluetooth daemon as it is found on the bus. */
struct Daemon
{
    /** Looks for it, has the bus start it if it can, and reports; to be used only if it isUsable. */
    static Daemon find(const Bus& bus, Report& report);

    /** Reports that the bus denied a call to the daemon. */
    static void reportOutOfReach(const QDBusMessage& answer, Report& report);

    bool isUsable = false;
    QString user; // as whom it runs
    DBusManagedObjectList objects;
};
