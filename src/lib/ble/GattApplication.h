#pragma once

#include "BleDBusTypes.h"
#include "BleFinding.h"
#include "GattService.h"
#include "PlimBleExport.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <memory>

class OwnConnections;
struct GattSnapshot;

/**
 * The root of one GATT server tree, exported on the system bus with the object manager that BlueZ reads it
 * through.
 *
 * The caller owns it and builds downwards: createService(), GattService::createCharacteristic(),
 * GattCharacteristic::addDescriptor(). Build first, then hand it over once with BleManager::add(): each later
 * change of the tree makes the manager register the whole application again.
 *
 * Lives on one thread, the one that runs the caller's Qt event loop, like all objects of the library.
 */
class PLIM_BLE_EXPORT GattApplication : public QObject
{
    Q_OBJECT

public:
    /**
     * Exports the root and requests the bus name.
     *
     * @param parent       the Qt parent, which then owns the application, or null
     * @param dbusPath     the root's object path, for instance "/com/example/device"; not "/", below which no
     * service could have a path
     * @param serviceName  a well-known bus name to request; a failure to get it is ignored, since BlueZ calls
     * the connection's unique name
     *
     * A failed export (a path that is taken or is not a valid object path, no system bus) is logged at FATAL;
     * then no name is requested, and the tree stays usable locally.
     */
    GattApplication(QObject* parent, const QString& dbusPath, const QString& serviceName);

    /** The root's object path as given. */
    QString dbusPath() const;

    /** The services in ascending order of their UUID strings; of several with one UUID only the last. */
    QList<GattService*> services() const;

    /**
     * Adds a service, which the application owns.
     *
     * @param uuid     kept and compared exactly as given; a second service with the same UUID takes the first
     * one's place in the application while its own export fails
     * @param primary  true for a primary service, false for a secondary one
     * @return the service; null only if a slot of applicationChanged() deleted it at once
     */
    GattService* createService(const QString& uuid, bool primary);

    /**
     * Records a service that was made elsewhere, of a class of its own for instance. createService() does the
     * same with what it makes.
     *
     * @param service  a Qt child of this application; recorded once
     * @param key      its place among services(), which are in ascending order of the keys; createService()
     * takes the UUID. One that is taken already passes to this service.
     * @return the service; null if a slot of applicationChanged() deleted it at once
     */
    GattService* record(GattService* service, const QString& key);

    /**
     * What BlueZ would refuse of the tree, or a phone could not use, for a look before BleManager::add().
     * Nothing is sent, logged or changed.
     */
    BleFindings problems() const;

signals:
    /**
     * The tree below changed, so that what BlueZ knows of it is out of date.
     * Deleting any object of the tree, the application included, is safe in a slot.
     * @param app  this application
     */
    void applicationChanged(const GattApplication* app);

public slots:
    /** Every service, characteristic and descriptor by object path, with its interface and properties. */
    DBusManagedObjectList GetManagedObjects();

private slots:
    void on_handlesChanged();
    void on_serviceDeleted(QObject* obj);

private:
    /** What the preflight looks at. */
    GattSnapshot snapshot() const;

    const QString m_dbusPath;
    QMap<QString, GattService*> m_services;
    std::shared_ptr<OwnConnections> m_connections; ///< last, so that they end first
};
