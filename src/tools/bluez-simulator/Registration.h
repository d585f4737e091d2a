#pragma once

#include "DBusTypes.h"
#include "HandleTable.h"

#include <QDBusMessage>

namespace simulator {

/** An application or an advertisement that a client has handed to a manager. */
struct Registration
{
    quint64 id = 0;
    QString manager; // the adapter's path
    QString sender;
    QString path;
    QDBusMessage call;             // waits for its answer until the registration is decided
    bool isRegistered = false;     // false while the client's objects are being read
    bool isOnAir = false;          // of an advertisement: whether it is broadcast
    DBusManagedObjectList objects; // as read from the client
    HandlePlacement placement;     // of an application
};

} // namespace simulator
