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
 * Created by GattService::createCharacteristic() and owned by that service. It may be deleted alone; then the
 * application is registered again. The caller pushes values with setValue() or supplies them on demand with a
 * read callback.
 *
 * **Long values.** A characteristic may have a control characteristic, whose value is a page number that the
 * peer writes as decimal text. While a page is selected, reads and writes address that 512-byte page of the
 * value, and values that setValue() pushes are held back. When the peer writes "0", the last of them is
 * applied and notified. If the control is deleted, the characteristic has none.
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
    /** What BlueZ lets a peer do: a set of bits. All other bits are ignored. */
    enum Option : int
    {
        Read = 0x1,
        Write = 0x2,
        Notify = 0x4
    };
    /** All options of a and b. */
    friend constexpr Option operator|(Option a, Option b) { return Option(int(a) | int(b)); }

    /**
     * Exports the characteristic. A failed export (a path that is taken or is not a valid object path) is
     * logged at ERROR. The program can then still use the object by itself, but the object neither notifies
     * nor follows its control. Call GattService::createCharacteristic() instead, which also adds the
     * characteristic to the service.
     */
    GattCharacteristic(GattService* service, const QString& uuid, const QString& dbusPath, Option option,
                       GattCharacteristic* control);

    /** The whole value. */
    QByteArray value() const;

    /** The result of the last ReadValue, which is also the D-Bus property Value. Empty before the first read.
     */
    QByteArray cachedValue() const;

    /**
     * Sets the value and notifies a subscribed peer of it. While a page is selected, the value is only
     * stored, in place of one that was stored before. With a control characteristic, the value is applied and
     * notified (again) when the peer writes "0" to the control next.
     */
    void setValue(const QByteArray& value);

    /**
     * Sets the function that supplies the value whenever a read starts at offset 0; an empty function removes
     * it. With a page selected, it is called only for page 0 or a negative page.
     *
     * It runs on this object's thread inside BlueZ's call, so the answer waits for it. It may delete this
     * object. If it throws an exception, that is logged at ERROR, and the value stays as it was. If it runs
     * an event loop, it may be called again meanwhile. If 32 calls are nested already, it is not called: the
     * read gets the stored value, and a line is logged at ERROR.
     */
    void setReadCallback(const std::function<QByteArray()>& callback);

    /** BlueZ's names of the options, in this order: "read", "write", "notify". */
    QStringList flags() const;

    /** The UUID as it was given to GattService::createCharacteristic(). */
    QString uUID() const;

    /** The object path of the service. */
    QDBusObjectPath service() const;

    /** The object path: the service's path, "/", and the UUID with "_" for "-". */
    QString dbusPath() const;

    /** Whether BlueZ wants notifications: true after StartNotify, false at first and after StopNotify. */
    bool notifying() const;

    /** Emits PropertiesChanged with the whole value if notifying(); otherwise does nothing. */
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
     * Adds a descriptor that the caller has created, for instance one of a derived class. addDescriptor()
     * calls this, too.
     *
     * @param descriptor  a Qt child of this characteristic that was not added before
     * @param key         descriptors() is in ascending order of the keys; addDescriptor() uses the UUID. If
     * another descriptor has this key, it is replaced in descriptors().
     * @return the descriptor; null if a slot of handlesChanged() or applicationChanged() deleted it at once
     */
    GattDescriptor* record(GattDescriptor* descriptor, const QString& key);

    // A slot of these signals may delete any object of the tree.
signals:
    /** A peer wrote the value. */
    void valueChanged();
    /** A descriptor was added or deleted. */
    void handlesChanged();
    /** BlueZ called StartNotify or StopNotify, whether or not that changed anything. */
    void notifyStateChanged(bool notifying);
    /** A notification. It is sent on the bus as the signal of org.freedesktop.DBus.Properties. */
    void PropertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                           const QStringList& invalidatedProperties);

public slots:
    /**
     * BlueZ's read from the "offset" in the options: the rest of the value, or of the selected 512-byte page.
     * A control text that is not a number is logged at WARN and ignored. A negative page is ignored, too.
     */
    QByteArray ReadValue(const QVariantMap& options);
    /** BlueZ's request for notifications. */
    void StartNotify();
    /** BlueZ's request to end the notifications. */
    void StopNotify();
    /** BlueZ's confirmation of an indication; does nothing. */
    void Confirm();
    /**
     * BlueZ's write: cuts the value at the "offset" in the options, counted from the start of the selected
     * page, and appends; beyond the end it only appends. With a negative page selected the write is logged at
     * ERROR and dropped.
     */
    void WriteValue(const QByteArray& value, const QVariantMap& options);
    /** The named property if the interface is org.bluez.GattCharacteristic1, otherwise an invalid variant. */
    QDBusVariant Get(const QString& interface, const QString& name);
    /** All properties if the interface is org.bluez.GattCharacteristic1, otherwise an empty map. */
    QVariantMap GetAll(const QString& interface);
    /** Calls QObject::setProperty() if the interface is org.bluez.GattCharacteristic1. Properties that the
     * class declares cannot be set. */
    void Set(const QString& interface, const QString& name, const QDBusVariant& value);

private slots:
    void on_control_valueChanged();
    void on_descriptorDeleted(QObject* obj);

private:
    friend class GattApplication;
    friend class GattService;

    /** The object path as D-Bus knows it; empty if dbusPath() is not a valid one. */
    QDBusObjectPath objectPath() const;
    /** The values that problems() checks. */
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
    std::shared_ptr<OwnConnections> m_connections; ///< last member, so that they end first
};
