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
 * The root of one GATT server tree. It is exported on the system bus with an object manager, through which
 * BlueZ reads the tree.
 *
 * The caller owns it. Build the tree from the root with createService(), GattService::createCharacteristic()
 * and GattCharacteristic::addDescriptor(). Then add it once with BleManager::add(): each later change of the
 * tree makes the manager register the whole application again.
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
     * @param dbusPath     the root's object path, for instance "/com/example/device"; not "/", since
     * the paths of its services would be invalid
     * @param serviceName  a well-known bus name to request. If the request fails, that is ignored: BlueZ
     * calls the unique name of the connection.
     *
     * A failed export (a path that is taken or is not a valid object path, no system bus) is logged at FATAL;
     * then no name is requested, and the program can still use the tree by itself.
     */
    GattApplication(QObject* parent, const QString& dbusPath, const QString& serviceName);

    /** The root's object path as given. */
    QString dbusPath() const;

    /** The services in ascending order of their UUID strings; of several with one UUID only the last. */
    QList<GattService*> services() const;

    /**
     * Adds a service, which the application owns.
     *
     * @param uuid     stored and compared exactly as given. A second service with the same UUID replaces the
     * first one in services(), but its export fails.
     * @param primary  true for a primary service, false for a secondary one
     * @return the service; null only if a slot of applicationChanged() deleted it at once
     */
    GattService* createService(const QString& uuid, bool primary);

    /**
     * Adds a service that the caller has created, for instance one of a derived class. createService() calls
     * this, too.
     *
     * @param service  a Qt child of this application that was not added before
     * @param key      services() is in ascending order of the keys; createService() uses the UUID. If another
     * service has this key, it is replaced in services().
     * @return the service; null if a slot of applicationChanged() deleted it at once
     */
    GattService* record(GattService* service, const QString& key);

    /**
     * Lists what BlueZ would reject, and what a phone could not use. Call it before BleManager::add().
     * Nothing is sent, logged or changed.
     */
    BleFindings problems() const;

signals:
    /**
     * The tree has changed, so what BlueZ knows of it is out of date. A slot may delete any object of the
     * tree, even the application.
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
    /** The values that problems() checks. */
    GattSnapshot snapshot() const;

    const QString m_dbusPath;
    QMap<QString, GattService*> m_services;
    std::shared_ptr<OwnConnections> m_connections; ///< last member, so that they end first
};
