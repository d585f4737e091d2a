#pragma once

#include "BleDBusTypes.h"
#include "DBusDetail.h"
#include "plim.h"

#include <QDBusVariant>

#include <sstream>

using DBusPropertyMap = QMap<QDBusObjectPath, QVariantMap>;
Q_DECLARE_METATYPE(DBusPropertyMap)

/** Takes each container type as an argument and gives it back as it was read. */
class Echo : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.example.Echo")

public slots:
    DBusAdvData AdvertisingData(const DBusAdvData& data) { return data; }
    DBusManufacturerData ManufacturerData(const DBusManufacturerData& data) { return data; }
    DBusPropertyMap Properties(const DBusPropertyMap& objects)
    {
        for (const QVariantMap& properties : objects) {
            print(properties);
        }
        return objects;
    }
    DBusInterfaceList Interfaces(const DBusInterfaceList& interfaces)
    {
        for (const QVariantMap& properties : interfaces) {
            print(properties);
        }
        return interfaces;
    }
    DBusManagedObjectList Objects(const DBusManagedObjectList& objects) { return objects; }

    /** Gives back what is left of a value that may be unfit to be sent. */
    QDBusVariant Anything(const QDBusVariant& value)
    {
        print({{QString(), value.variant()}});
        const QVariant carried = DBusDetail::marshallable(value.variant());
        return QDBusVariant(carried.isValid() ? carried : QVariant(QString()));
    }

    void Ping() {}

private:
    /** Values of any type reach the log, too. */
    static void print(const QVariantMap& properties)
    {
        std::ostringstream text;
        for (const QVariant& value : properties) {
            text << value;
        }
    }
};
