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
 * Registers GATT applications and advertisements with BlueZ. An object that was added is held until it is
 * removed or deleted. A held object is registered whenever BlueZ's manager for its kind appears, and again
 * whenever it changes. Objects may be added before, while or after BlueZ starts.
 *
 * BlueZ is called asynchronously, and its answers go to the log (logger "Ble"): DEBUG for a success, ERROR
 * for a failure. After a failure the object stays held, and the call is not repeated. A program that has to
 * know the result calls registrationState() or sets an observer.
 *
 * The manager belongs to one thread: the one that calls instance() first and runs its Qt event loop. Held
 * objects should live on that thread, too. An object may live on another thread if it stays there while it is
 * held. Its signals then arrive through the event loop, so the manager registers its changes, and notices its
 * deletion, only then. It must not be deleted while add() or remove() runs. Until its deletion is noticed,
 * another object at its address counts as the same one.
 */
class PLIM_BLE_EXPORT BleManager : public QObject
{
    Q_OBJECT

public:
    /**
     * The manager of this process, created by the first call and never deleted. That call blocks until BlueZ
     * has listed its objects, for 25 s (the time-out of a D-Bus call) at most. It returns at once if BlueZ
     * does not run.
     */
    static BleManager* instance();

    /** Looks for BlueZ's managers, blocking as instance() does. Call instance() instead. */
    explicit BleManager(QObject* parent);

    /** Does not call BlueZ: nothing is unregistered. */
    ~BleManager() override;

    /**
     * Holds and registers an application; the caller keeps ownership. If it is held already, nothing
     * happens. A held application may be deleted. A null pointer is logged at ERROR and ignored.
     */
    void add(const GattApplication* app);
    /** Unregisters an application, which is then no longer held. If it is not held, nothing happens. */
    void remove(const GattApplication* app);

    /** Holds and registers an advertisement, in the same way as an application. */
    void add(const GapAdvertisement* adv);
    /** Unregisters an advertisement, which is then no longer held. If it is not held, nothing happens. */
    void remove(const GapAdvertisement* adv);

    /**
     * Chooses an adapter: only its managers count from now on, also after restarts of BlueZ, and when it is
     * unplugged and comes back. Nothing is registered while it is not there. Without this call, and after one
     * with an empty text, all adapters count, and the manager that was announced last is used.
     *
     * To be called before the first add(). Later, what is held is unregistered from a manager that does not
     * count any more and registered with the chosen adapter's.
     *
     * @param nameOrAddress  "hci1" or, better, "AA:BB:CC:DD:EE:FF" in upper or lower case: unlike the name,
     * the address stays with the adapter
     */
    void setAdapter(const QString& nameOrAddress);

    /**
     * Sets the observer. It is called with the result of each step, when one of BlueZ's managers appears or
     * disappears, and when BlueZ releases an advertisement. There is one observer at a time, and none at
     * first; an empty function removes it. Events that are queued already go to the new observer.
     *
     * It is called on this object's thread from the event loop, never inside a call of this class. So it may
     * do anything: add, remove and delete objects, even this manager, replace or remove itself. Events come
     * in the order in which this manager learned of them; Qt can swap two answers of BlueZ that arrive close
     * together. When it is called, the state may have changed again. Exceptions that it throws are logged at
     * ERROR.
     *
     * Events name objects by their paths, since the objects may have been deleted meanwhile. A manager that
     * is there already is not announced. For objects that are not held, only the results of the four steps
     * are reported.
     */
    void setRegistrationObserver(const BleRegistrationObserver& observer);

    /**
     * The registration state of an application, by the answers that have arrived on this object's thread so
     * far. The pointer is only compared, so it may be null or belong to a deleted object: such an object is
     * not held.
     */
    BleRegistrationState registrationState(const GattApplication* app) const;
    /** The registration state of an advertisement. */
    BleRegistrationState registrationState(const GapAdvertisement* adv) const;

    /**
     * @name Single steps
     * Each sends one call to BlueZ's manager, or nothing if the manager has not appeared yet or was removed.
     * A BlueZ that was killed has not announced the removal, so calls are still sent. It does not matter
     * whether the object is held, and that does not change. A path that is not a valid object path cannot be
     * sent: that is logged like a failed call.
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
    void useGattManager(const QString& path);
    void useAdvManager(const QString& path);
    void dropGattManager();
    void dropAdvManager();

    OrgFreedesktopDBusObjectManagerInterface* m_objectManager;
    QSharedPointer<OrgBluezGattManager1Interface> m_gattManager;
    QList<const GattApplication*> m_applications;
    QSharedPointer<OrgBluezLEAdvertisingManager1Interface> m_advManager;
    QList<const GapAdvertisement*> m_advertisements;
    const std::unique_ptr<Internals> m_internals; ///< last member, so that its connections end first
};
