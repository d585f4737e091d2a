#pragma once

#include "Protection.h"

#include <QByteArrayList>
#include <QDBusObjectPath>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

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
    bool reads = true;                           // what comes through sockets
    QMap<QString, QByteArrayList> notifications; // and indications, by the characteristic's path

    /** The path of the daemon's object for it. */
    QString device() const { return devicePath(adapter, address); }

    /** The properties of that object when the phone connects. */
    QVariantMap properties() const
    {
        return {{QStringLiteral("Adapter"), QVariant::fromValue(QDBusObjectPath(adapter))},
                {QStringLiteral("Address"), address},
                {QStringLiteral("AddressType"), QStringLiteral("public")},
                {QStringLiteral("Alias"), QString(address).replace(QLatin1Char(':'), QLatin1Char('-'))},
                {QStringLiteral("Blocked"), false},
                {QStringLiteral("Bonded"), isBonded},
                {QStringLiteral("Connected"), true},
                {QStringLiteral("LegacyPairing"), false},
                {QStringLiteral("Paired"), isBonded},
                {QStringLiteral("ServicesResolved"), false},
                {QStringLiteral("Trusted"), false},
                {QStringLiteral("UUIDs"), QStringList{}}};
    }
};

} // namespace simulator
