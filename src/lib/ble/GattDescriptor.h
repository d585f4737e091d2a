#pragma once

#include "BleDBusTypes.h"
#include "PlimBleExport.h"

#include <QByteArray>
#include <QDBusObjectPath>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

class GattCharacteristic;
class GattDescriptor1Adaptor;
struct GattSnapshot;

/**
 * One descriptor of a characteristic, exported on the system bus as org.bluez.GattDescriptor1.
 *
 * Created by GattCharacteristic::addDescriptor() and owned by that characteristic. It may be deleted alone;
 * then the application is registered again. Its value comes from a read callback, or from a peer that writes
 * it.
 *
 * Lives on the thread of the application, the one that runs its Qt event loop.
 */
class PLIM_BLE_EXPORT GattDescriptor : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QDBusObjectPath Characteristic READ characteristic)
    Q_PROPERTY(QStringList Flags READ flags)
    Q_PROPERTY(QString UUID READ uuid)
    Q_PROPERTY(QByteArray Value READ value)

public:
    /** What BlueZ lets a peer do: a set of bits. All other bits are ignored. */
    enum Option : int
    {
        Read = 0x1,
        Write = 0x2
    };
    /** All options of a and b. */
    friend constexpr Option operator|(Option a, Option b) { return Option(int(a) | int(b)); }

    /**
     * Exports the descriptor. A failed export (a path that is taken or is not a valid object path) is logged
     * at ERROR; the program can still use the object by itself. Call GattCharacteristic::addDescriptor()
     * instead, which also adds the descriptor to the characteristic.
     */
    GattDescriptor(GattCharacteristic* characteristic, const QString& uuid, const QString& dbusPath,
                   Option option);

    /**
     * Sets the function that supplies the value whenever a read starts at offset 0; an empty function removes
     * it. It runs on this object's thread inside BlueZ's call, so the answer waits for it. It may delete this
     * object. If it throws an exception, that is logged at ERROR, and the value stays as it was.
     */
    void setReadCallback(const std::function<QByteArray()>& callback);

    /** The object path: the characteristic's path, "/desc" and a number that is never used again. */
    QString dbusPath() const;

    /** This object's entry in the application's GetManagedObjects. */
    DBusInterfaceList dbusInterfaceList() const;

    /** The object path of the characteristic. */
    QDBusObjectPath characteristic() const;

    /** The UUID as it was given to GattCharacteristic::addDescriptor(). */
    QString uuid() const;

    /** The whole value, as last fetched by the callback or written by a peer. */
    QByteArray value() const;

    /** BlueZ's names of the options: "read", "write". */
    QStringList flags() const;

signals:
    /** A peer wrote the value. A slot may delete this object. */
    void valueChanged();

public slots:
    /**
     * BlueZ's read: the value from the "offset" in the options up to byte 512, or to the end for an offset
     * beyond 512. The callback is called only at offset 0.
     */
    QByteArray ReadValue(const QVariantMap& flags);

    /** BlueZ's write: cuts the value at the "offset" in the options and appends; beyond the end it only
     * appends. */
    void WriteValue(const QByteArray& value, const QVariantMap& flags);

private:
    friend class GattApplication;
    friend class GattCharacteristic;

    /** The object path as D-Bus knows it; empty if dbusPath() is not a valid one. */
    QDBusObjectPath objectPath() const;
    /** The values that problems() checks. */
    GattSnapshot snapshot() const;

    const QPointer<GattCharacteristic> m_characteristic;
    const QString m_uuid;
    const QString m_dbusPath;
    const Option m_option;
    GattDescriptor1Adaptor* m_adaptor = nullptr;
    QByteArray m_value;
    std::function<QByteArray()> m_readCallback;
    mutable QDBusObjectPath m_objectPath;
    mutable QDBusObjectPath m_characteristicPath;
};
