#pragma once

#include "BleDBusTypes.h"
#include "GattCharacteristic.h"
#include "PlimBleExport.h"

#include <QDBusObjectPath>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <memory>

class GattService1Adaptor;
struct GattSnapshot;
class OwnConnections;

/**
 * One service of an application, exported on the system bus as org.bluez.GattService1.
 *
 * Made by GattApplication::createService() and owned by that application; deleting it alone is allowed and
 * makes the application register again.
 *
 * Lives on the thread of the application, the one that runs its Qt event loop.
 */
class PLIM_BLE_EXPORT GattService : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool Primary READ primary)
    Q_PROPERTY(QString UUID READ uUID)

public:
    /**
     * Exports the service. A failed export (a path that is taken or is not a valid object path) is logged at
     * ERROR; the object stays usable locally. Call GattApplication::createService() instead, which records it
     * too.
     */
    GattService(QObject* parent, const QString& uuid, bool primary, const QString& dbusPath);

    /** The UUID as it was given to GattApplication::createService(). */
    QString uUID() const;

    /** True for a primary service, false for a secondary one. */
    bool primary() const;

    /** The object path: the application's path, "/", and the UUID with "_" for "-". */
    QString dbusPath() const;

    /** This object's entry in the application's GetManagedObjects. */
    DBusInterfaceList dbusInterfaceList() const;

    /** The characteristics in ascending order of their UUID strings; of several with one UUID only the last.
     */
    QList<GattCharacteristic*> characteristics() const;

    /**
     * Adds a characteristic, which the service owns.
     *
     * @param uuid     kept and compared exactly as given; a second characteristic with the same UUID takes
     * the first one's place in the service while its own export fails
     * @param option   what BlueZ lets a peer do
     * @param control  the characteristic whose value selects the page of this one's, or null; not owned
     * @return the characteristic; null only if a slot of handlesChanged() or applicationChanged() deleted it
     * at once
     */
    GattCharacteristic* createCharacteristic(const QString& uuid, GattCharacteristic::Option option,
                                             GattCharacteristic* control = nullptr);

    /**
     * Records a characteristic that was made elsewhere, of a class of its own for instance.
     * createCharacteristic() does the same with what it makes.
     *
     * @param characteristic  a Qt child of this service; recorded once
     * @param key             its place among characteristics(), which are in ascending order of the keys;
     * createCharacteristic() takes the UUID. One that is taken already passes to this characteristic.
     * @return the characteristic; null if a slot of handlesChanged() or applicationChanged() deleted it at
     * once
     */
    GattCharacteristic* record(GattCharacteristic* characteristic, const QString& key);

signals:
    /** A characteristic or descriptor below was added or deleted. Deleting any object of the tree is safe
     * here. */
    void handlesChanged();

private slots:
    void on_characteristicDeleted(QObject* obj);

private:
    friend class GattApplication;

    /** The object path as D-Bus knows it; empty if dbusPath() is not a valid one. */
    QDBusObjectPath objectPath() const;
    /** What the preflight looks at. */
    GattSnapshot snapshot() const;

    const QString m_uuid;
    const bool m_primary;
    const QString m_dbusPath;
    GattService1Adaptor* m_adaptor = nullptr;
    QMap<QString, GattCharacteristic*> m_characteristics;
    mutable QDBusObjectPath m_objectPath;
    std::shared_ptr<OwnConnections> m_connections; ///< last, so that they end first
};
