#pragma once

#include "BleDBusTypes.h"
#include "GattDescriptor.h"
#include "PlimBleExport.h"

#include <QByteArray>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <memory>

class GattCharacteristic1Adaptor;
class GattService;
class OwnConnections;
class PropertiesAdaptor;
struct GattSnapshot;

/**
 * One characteristic of a service, exported on the system bus as org.bluez.GattCharacteristic1.
 *
 * Made by GattService::createCharacteristic() and owned by that service; deleting it alone is allowed and
 * makes the application register again. The caller pushes values with setValue() or supplies them on demand
 * with a read callback.
 *
 * **Long values.** A characteristic may be tied to a control characteristic whose value is a page number that
 * the peer writes as decimal text. While a page is selected, reads and writes address that 512-byte page of
 * the value, and values pushed by setValue() are held back; once the peer writes "0", the last of them is
 * applied and notified. A control that has been deleted counts as none.
 *
 * Lives on the thread of the application, the one that runs its Qt event loop.
 */
class PLIM_BLE_EXPORT GattCharacteristic : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QStringList Flags READ flags)
    Q_PROPERTY(bool Notifying READ notifying)
    Q_PROPERTY(QDBusObjectPath Service READ service)
    Q_PROPERTY(QString UUID READ uUID)
    Q_PROPERTY(QByteArray Value READ cachedValue)

public:
    /** What BlueZ lets a peer do; a set of bits, other bits than these are ignored. */
    enum Option : int
    {
        Read = 0x1,
        Write = 0x2,
        Notify = 0x4
    };
    /** The options of both. */
    friend constexpr Option operator|(Option a, Option b) { return Option(int(a) | int(b)); }

    /**
     * Exports the characteristic. After a failed export (a path that is taken or is not a valid object path),
     * which is logged at ERROR, the object stays usable locally, but neither notifies nor follows its
     * control. Call GattService::createCharacteristic() instead, which records it too.
     */
    GattCharacteristic(GattService* service, const QString& uuid, const QString& dbusPath, Option option,
                       GattCharacteristic* control);

    /** The whole value. */
    QByteArray value() const;

    /** What the last ReadValue answered; the D-Bus property Value shows this. Empty before the first read. */
    QByteArray cachedValue() const;

    /**
     * Sets the value and notifies it to a subscribed peer. Where a control characteristic exists, the value
     * is kept for a later release too; while a page is selected it is only kept, a later one replacing it.
     */
    void setValue(const QByteArray& value);

    /**
     * Sets what supplies the value whenever a read starts at offset 0 (with a page selected: of page 0, or of
     * a negative one); an empty function removes it. It runs on this object's thread inside BlueZ's call, so
     * its duration delays the answer, and may delete this object. What it throws is logged at ERROR, and the
     * value stays as it was. One that runs an event loop may be called again inside; beyond 32 calls inside
     * each other the value is answered as it is, with a line at ERROR.
     */
    void setReadCallback(const std::function<QByteArray()>& callback);

    /** BlueZ's words for the options, in this order: "read", "write", "notify". */
    QStringList flags() const;

    /** The UUID as it was given to GattService::createCharacteristic(). */
    QString uUID() const;

    /** The object path of the service. */
    QDBusObjectPath service() const;

    /** The object path: the service's path, "/", and the UUID with "_" for "-". */
    QString dbusPath() const;

    /** Whether BlueZ has asked for notifications; false at first. Follows the last StartNotify or StopNotify.
     */
    bool notifying() const;

    /** Emits PropertiesChanged with the whole value if notifying, and does nothing otherwise. */
    void notifyValueChanged();

    /** This object's entry in the application's GetManagedObjects. */
    DBusInterfaceList dbusInterfaceList() const;

    /** The descriptors in ascending order of their UUID strings; of several with one UUID only the last. */
    QList<GattDescriptor*> descriptors() const;

    /**
     * Adds a descriptor, which the characteristic owns. Its path ends in "/desc" and the number of
     * descriptors ever added before. Null only if a slot of handlesChanged() or applicationChanged() deleted
     * it at once.
     */
    GattDescriptor* addDescriptor(const QString& uuid, GattDescriptor::Option option);

    /**
     * Records a descriptor that was made elsewhere, of a class of its own for instance. addDescriptor() does
     * the same with what it makes.
     *
     * @param descriptor  a Qt child of this characteristic; recorded once
     * @param key         its place among descriptors(), which are in ascending order of the keys;
     * addDescriptor() takes the UUID. One that is taken already passes to this descriptor.
     * @return the descriptor; null if a slot of handlesChanged() or applicationChanged() deleted it at once
     */
    GattDescriptor* record(GattDescriptor* descriptor, const QString& key);

    // Deleting any object of the tree in a slot of one of these signals is safe.
signals:
    /** A peer wrote the value. */
    void valueChanged();
    /** A descriptor was added or deleted. */
    void handlesChanged();
    /** BlueZ called StartNotify or StopNotify, whether or not that changed anything. */
    void notifyStateChanged(bool notifying);
    /** A notification; goes out on the bus as the signal of org.freedesktop.DBus.Properties. */
    void PropertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                           const QStringList& invalidatedProperties);

public slots:
    /**
     * BlueZ's read from the "offset" in the options: the rest of the value, or of the selected 512-byte page.
     * A control text that is no number is logged at WARN and ignored; a negative page reads like none.
     */
    QByteArray ReadValue(const QVariantMap& options);
    /** BlueZ's request for notifications. */
    void StartNotify();
    /** BlueZ's end of notifications. */
    void StopNotify();
    /** BlueZ's confirmation of an indication; does nothing. */
    void Confirm();
    /**
     * BlueZ's write: cuts the value at the "offset" in the options, counted from the start of the selected
     * page, and appends; beyond the end it only appends. With a negative page selected the write is logged at
     * ERROR and dropped.
     */
    void WriteValue(const QByteArray& value, const QVariantMap& options);
    /** The named property for BlueZ's own interface name of a characteristic, an invalid variant for any
     * other. */
    QDBusVariant Get(const QString& interface, const QString& name);
    /** All properties for BlueZ's own interface name of a characteristic, an empty map for any other. */
    QVariantMap GetAll(const QString& interface);
    /** QObject::setProperty() for BlueZ's own interface name; no property that the class declares can be set.
     */
    void Set(const QString& interface, const QString& name, const QDBusVariant& value);

private slots:
    void on_control_valueChanged();
    void on_descriptorDeleted(QObject* obj);

private:
    friend class GattApplication;
    friend class GattService;

    /** The object path as D-Bus knows it; empty if dbusPath() is not a valid one. */
    QDBusObjectPath objectPath() const;
    /** What the preflight looks at. */
    GattSnapshot snapshot() const;

    const QPointer<GattService> m_service;
    const QString m_uuid;
    const Option m_option;
    const QPointer<GattCharacteristic> m_control;
    const QString m_dbusPath;
    int m_descriptorIndex = 0;
    GattCharacteristic1Adaptor* m_adaptor = nullptr;
    PropertiesAdaptor* m_propertiesAdaptor = nullptr;
    QMap<QString, GattDescriptor*> m_descriptors;
    QByteArray m_value;
    QByteArray m_cachedValue;
    QByteArray m_pendingValue;
    bool m_hasPendingValue = false;
    bool m_notifying = false;
    std::function<QByteArray()> m_readCallback;
    mutable QDBusObjectPath m_objectPath;
    mutable QDBusObjectPath m_servicePath;
    std::shared_ptr<OwnConnections> m_connections; ///< last, so that they end first
};
