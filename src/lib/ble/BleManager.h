#pragma once

#include "BleRegistration.h"
#include "DBusTypes.h"
#include "PlimBleExport.h"

#include <QDBusObjectPath>
#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <memory>

class GapAdvertisement;
class GattApplication;
class OrgBluezGattManager1Interface;
class OrgBluezLEAdvertisingManager1Interface;
class OrgFreedesktopDBusObjectManagerInterface;
class QDBusPendingCallWatcher;

/**
 * Hands GATT applications and advertisements to BlueZ, for as long as they are held: whenever BlueZ's manager
 * for them appears, and whenever they change. They may be added before, while or after BlueZ starts.
 *
 * BlueZ is asked asynchronously, and its answers go to the log (logger "Ble"): DEBUG for a success, ERROR for
 * a failure, which changes nothing and is not retried. A program that has to know asks registrationState() or
 * sets an observer.
 *
 * All of it belongs to one thread, the one that makes the first call of instance() and runs its Qt event
 * loop; the objects handed over are expected to live there too. One that lives on another thread, and stays
 * there while it is held, is followed through the event loop: its changes are registered, and its end is
 * noticed, when this thread gets there. It has to be alive while add() and remove() run. Until its end is
 * noticed, another object at its address counts as the same one.
 */
class PLIM_BLE_EXPORT BleManager : public QObject
{
    Q_OBJECT

public:
    /**
     * The manager of this process, made on the first call and never deleted. That call blocks until BlueZ has
     * described its objects, 25 s (the time-out of a D-Bus call) at most; it returns at once where no BlueZ
     * runs.
     */
    static BleManager* instance();

    /** Looks for BlueZ's managers, blocking as instance() does. Call instance() instead. */
    explicit BleManager(QObject* parent);

    /** Says nothing to BlueZ: nothing is unregistered. */
    ~BleManager() override;

    /**
     * Holds and registers an application, which stays the caller's; one that is held already is left alone.
     * Deleting a held application is allowed. A null pointer is logged at ERROR and ignored.
     */
    void add(const GattApplication* app);
    /** Unregisters an application and holds it no longer; one that is not held is left alone. */
    void remove(const GattApplication* app);

    /** Holds and registers an advertisement; otherwise like add() for an application. */
    void add(const GapAdvertisement* adv);
    /** Unregisters an advertisement and holds it no longer; one that is not held is left alone. */
    void remove(const GapAdvertisement* adv);

    /**
     * Sets the observer, which is called with each step's result, each appearance and end of BlueZ's
     * managers, and each release. There is one observer at a time, and none at first; an empty function
     * removes it. Events that are queued already go to the new one.
     *
     * It is called on this object's thread from the event loop, never inside a call of this class; so it may
     * do anything: add, remove and delete objects, this manager too, replace or clear itself. Events come in
     * the order in which this manager learned of them; Qt can swap two answers of BlueZ that arrive close
     * together. By the time it is called the state may have moved on. What it throws is logged at ERROR.
     *
     * Objects are named by their paths, since they may have ended meanwhile. A manager that is there already
     * is not announced. For objects that are not held, only the results of the four steps are reported.
     */
    void setRegistrationObserver(const BleRegistrationObserver& observer);

    /**
     * How BlueZ stands to an application or advertisement now, by the answers that have arrived on this
     * object's thread. The pointer is only compared: a null one, or one of a deleted object, is not held.
     */
    BleRegistrationState registrationState(const GattApplication* app) const;
    /** The same of an advertisement. */
    BleRegistrationState registrationState(const GapAdvertisement* adv) const;

    /**
     * @name Single steps
     * Each sends one call if BlueZ's manager is present, and nothing otherwise. They neither look at nor
     * change what is held. A path that is not a valid object path cannot be sent: that is logged like a
     * failed call.
     * @{
     */
    /** Sends RegisterApplication. */
    void registerApp(const GattApplication* app);
    /** Sends UnregisterApplication. */
    void unregisterApp(const GattApplication* app);
    /** Sends RegisterAdvertisement. */
    void registerAdv(const GapAdvertisement* adv);
    /** Sends UnregisterAdvertisement. */
    void unregisterAdv(const GapAdvertisement* adv);
    /** @} */

private slots:
    void on_interfacesAdded(QDBusObjectPath path, DBusInterfaceList interfaces);
    void on_interfacesRemoved(QDBusObjectPath path, QStringList interfaces);
    void on_applicationDeleted(QObject* obj);
    void on_advertisementDeleted(QObject* obj);
    void on_advertisementChanged(const GapAdvertisement* adv);
    void on_applicationChanged(const GattApplication* app);
    void on_dbusWatcher_finished(QDBusPendingCallWatcher* watcher);

private:
    struct Q_DECL_HIDDEN Internals;

    void findManagers();
    void setGattManager(const QString& path);
    void setAdvManager(const QString& path);

    OrgFreedesktopDBusObjectManagerInterface* m_objectManager;
    QSharedPointer<OrgBluezGattManager1Interface> m_gattManager;
    QList<const GattApplication*> m_applications;
    QSharedPointer<OrgBluezLEAdvertisingManager1Interface> m_advManager;
    QList<const GapAdvertisement*> m_advertisements;
    const std::unique_ptr<Internals> m_internals; ///< last, so that its connections end first
};
