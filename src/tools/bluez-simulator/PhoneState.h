#pragma once

#include "Protection.h"

#include <QByteArrayList>
#include <QMap>
#include <QString>

namespace simulator {

/** The path of the daemon's object for an adapter. */
inline QString adapterPath(const QString& name)
{
    return QStringLiteral("/org/bluez/") + name;
}

/** The path of the daemon's object for a phone. @param adapter  the path of the one that it connects to */
inline QString devicePath(const QString& adapter, const QString& address)
{
    return adapter + QStringLiteral("/dev_") + QString(address).replace(QLatin1Char(':'), QLatin1Char('_'));
}

/** What of a phone outlives the daemon's disappearance from the bus. */
struct PhoneState
{
    QString adapter; // its path
    QString address;
    Protection protection = Protection::Open;
    bool isBonded = false;
    bool confirms = true;                        // indications, as they arrive
    QMap<QString, QByteArrayList> notifications; // and indications, by the characteristic's path

    /** The path of the daemon's object for it. */
    QString device() const { return devicePath(adapter, address); }
};

} // namespace simulator
