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
 * Created by GattApplication::createService() and owned by that application. It may be deleted alone; then
 * the application is registered again.
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
     * ERROR; the program can still use the object by itself. Call GattApplication::createService() instead,
     * which also adds the service to the application.
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
     * @param uuid     stored and compared exactly as given. A second characteristic with the same UUID
     * replaces the first one in characteristics(), but its export fails.
     * @param option   what BlueZ lets a peer do
     * @param control  the characteristic whose value selects the page of this one's, or null; not owned
     * @return the characteristic; null only if a slot of handlesChanged() or applicationChanged() deleted it
     * at once
     */
    GattCharacteristic* createCharacteristic(const QString& uuid, GattCharacteristic::Option option,
                                             GattCharacteristic* control = nullptr);

    /**
     * Adds a characteristic that the caller has created, for instance one of a derived class.
     * createCharacteristic() calls this, too.
     *
     * @param characteristic  a Qt child of this service that was not added before
     * @param key             characteristics() is in ascending order of the keys; createCharacteristic() uses
     * the UUID. If another characteristic has this key, it is replaced in characteristics().
     * @return the characteristic; null if a slot of handlesChanged() or applicationChanged() deleted it at
     * once
     */
    GattCharacteristic* record(GattCharacteristic* characteristic, const QString& key);

signals:
    /** A characteristic or descriptor of this service was added or deleted. A slot may delete any object of
     * the tree. */
    void handlesChanged();

private slots:
    void on_characteristicDeleted(QObject* obj);

private:
    friend class GattApplication;

    /** The object path as D-Bus knows it; empty if dbusPath() is not a valid one. */
    QDBusObjectPath objectPath() const;
    /** The values that problems() checks. */
    GattSnapshot snapshot() const;

    const QString m_uuid;
    const bool m_primary;
    const QString m_dbusPath;
    GattService1Adaptor* m_adaptor = nullptr;
    QMap<QString, GattCharacteristic*> m_characteristics;
    mutable QDBusObjectPath m_objectPath;
    std::shared_ptr<OwnConnections> m_connections; ///< last member, so that they end first
};
