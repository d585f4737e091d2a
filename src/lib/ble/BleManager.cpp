#include "BleManager.h"

#include "BleManagerInternals.h"
#include "BluezInterfaces.h"
#include "DBusBluez.h"
#include "DBusHelper.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "LogText.h"
#include "OrgBluezGattManager1Interface.h"
#include "OrgBluezLEAdvertisingManager1Interface.h"
#include "OrgFreedesktopDBusObjectManagerInterface.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

// So that the signals of objects on another thread can be queued.
Q_DECLARE_METATYPE(const GattApplication*)
Q_DECLARE_METATYPE(const GapAdvertisement*)

using Step = RegistrationTracker::Step;

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

/** Whether the pointer is null. If it is, the text is logged at ERROR. */
bool isNull(const QObject* object, const char* text, const char* signature)
{
    if (!object) {
        PLIM_LOG(logger, ERROR, signature, text);
    }
    return !object;
}

} // namespace

BleManager* BleManager::instance()
{
    static auto* manager = new BleManager(nullptr);
    return manager;
}

BleManager::BleManager(QObject* parent) : QObject(parent), m_internals(new Internals(this))
{
    registerDBusTypes();
    m_objectManager = new OrgFreedesktopDBusObjectManagerInterface(
        DBusBluezServiceName(), DBusBluezObjectManagerPath(), QDBusConnection::systemBus(), this);
    // Subscribe before asking, or a manager that appears in between is lost.
    m_internals->connections.add(plim::connect(m_objectManager,
                                               &OrgFreedesktopDBusObjectManagerInterface::InterfacesAdded,
                                               this, &BleManager::on_interfacesAdded));
    m_internals->connections.add(plim::connect(m_objectManager,
                                               &OrgFreedesktopDBusObjectManagerInterface::InterfacesRemoved,
                                               this, &BleManager::on_interfacesRemoved));
    findManagers();
}

BleManager::~BleManager() = default;

/** Asks BlueZ for its objects, and waits for the answer. */
void BleManager::findManagers()
{
    QDBusPendingReply<DBusManagedObjectList> reply = m_objectManager->GetManagedObjects();
    reply.waitForFinished();
    if (!reply.isValid()) {
        return;
    }
    const DBusManagedObjectList objects = reply.value();
    for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
        m_internals->adapters.added(object.key().path(), *object);
    }
    const QString gattPath = DBusHelper::findFirstObjectPath(objects, BluezInterfaces::GattManager);
    if (!gattPath.isEmpty()) {
        setGattManager(gattPath);
    }
    const QString advPath = DBusHelper::findFirstObjectPath(objects, BluezInterfaces::AdvertisingManager);
    if (!advPath.isEmpty()) {
        setAdvManager(advPath);
    }
}

void BleManager::setGattManager(const QString& path)
{
    m_internals->tracker.managerAppeared(BluezInterfaces::GattManager, path);
    m_gattManager.reset(
        new OrgBluezGattManager1Interface(DBusBluezServiceName(), path, QDBusConnection::systemBus(), this));
}

void BleManager::setAdvManager(const QString& path)
{
    m_internals->tracker.managerAppeared(BluezInterfaces::AdvertisingManager, path);
    m_advManager.reset(new OrgBluezLEAdvertisingManager1Interface(DBusBluezServiceName(), path,
                                                                  QDBusConnection::systemBus(), this));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): log lines name the slot with these parameters
void BleManager::on_interfacesAdded(QDBusObjectPath path, DBusInterfaceList interfaces)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "Interface added: " << path << ", interfaces: " << LogText::list(interfaces.keys()));
    const QStringList managers = m_internals->adapters.added(path.path(), interfaces);
    if (managers.contains(BluezInterfaces::GattManager)) {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Gatt Manager appears: " << path);
        useGattManager(path.path());
    }
    if (managers.contains(BluezInterfaces::AdvertisingManager)) {
        // The misspelling and the missing separator stay: users may search the log for this text.
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Le Avertisement Manager appears" << path);
        useAdvManager(path.path());
    }
}

/** Sets the manager, and registers what is held with it. */
void BleManager::useGattManager(const QString& path)
{
    setGattManager(path);
    const auto applications = m_applications;
    for (const GattApplication* app : applications) {
        registerApp(app);
    }
}

void BleManager::useAdvManager(const QString& path)
{
    setAdvManager(path);
    const auto advertisements = m_advertisements;
    for (const GapAdvertisement* adv : advertisements) {
        registerAdv(adv);
    }
}

void BleManager::dropGattManager()
{
    m_gattManager.reset();
    m_internals->tracker.managerGone(BluezInterfaces::GattManager);
}

void BleManager::dropAdvManager()
{
    m_advManager.reset();
    m_internals->tracker.managerGone(BluezInterfaces::AdvertisingManager);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): log lines name the slot with these parameters
void BleManager::on_interfacesRemoved(QDBusObjectPath path, QStringList interfaces)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "Interface removed: " << path << ", interfaces: " << LogText::list(interfaces));
    const bool isChosen = m_internals->adapters.isChosen(path.path());
    m_internals->adapters.removed(path.path(), interfaces);
    if (!isChosen) {
        return;
    }
    // The path is deliberately not compared with the manager's: it does not matter which object lost the
    // interface.
    if (interfaces.contains(BluezInterfaces::GattManager)) {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Gatt Manager was removed");
        dropGattManager();
    }
    if (interfaces.contains(BluezInterfaces::AdvertisingManager)) {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Le Avertisement Manager was removed");
        dropAdvManager();
    }
}

void BleManager::add(const GattApplication* app)
{
    if (isNull(app, "Cannot add a null application", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, app->dbusPath());
    if (m_applications.contains(app)) {
        return;
    }
    m_internals->otherThreads.add(app);
    PLIM_LOG(logger, INFO, Q_FUNC_INFO, "Add application: " << app->dbusPath());
    m_applications.append(app);
    m_internals->tracker.add(app);
    m_internals->connections.add(
        plim::connect(app, &GattApplication::applicationChanged, this, &BleManager::on_applicationChanged));
    m_internals->connections.add(
        plim::connect(app, &QObject::destroyed, this, &BleManager::on_applicationDeleted));
    registerApp(app);
}

void BleManager::add(const GapAdvertisement* adv)
{
    if (isNull(adv, "Cannot add a null advertisement", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, adv->dbusPath());
    if (m_advertisements.contains(adv)) {
        return;
    }
    m_internals->otherThreads.add(adv);
    PLIM_LOG(logger, INFO, Q_FUNC_INFO, "Add advertisement: " << adv->dbusPath());
    m_advertisements.append(adv);
    m_internals->tracker.add(adv);
    m_internals->connections.add(
        plim::connect(adv, &GapAdvertisement::dataChanged, this, &BleManager::on_advertisementChanged));
    m_internals->connections.add(
        plim::connect(adv, &QObject::destroyed, this, &BleManager::on_advertisementDeleted));
    registerAdv(adv);
}

void BleManager::remove(const GattApplication* app)
{
    if (isNull(app, "Cannot remove a null application", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, app->dbusPath());
    if (!m_applications.contains(app)) {
        return;
    }
    PLIM_LOG(logger, INFO, Q_FUNC_INFO, "Remove application: " << app->dbusPath());
    m_applications.removeOne(app);
    m_internals->tracker.remove(app);
    plim::disconnect(app, &GattApplication::applicationChanged, this, &BleManager::on_applicationChanged);
    plim::disconnect(app, &QObject::destroyed, this, &BleManager::on_applicationDeleted);
    m_internals->otherThreads.removeLater(app);
    unregisterApp(app);
}

void BleManager::remove(const GapAdvertisement* adv)
{
    if (isNull(adv, "Cannot remove a null advertisement", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, adv->dbusPath());
    if (!m_advertisements.contains(adv)) {
        return;
    }
    PLIM_LOG(logger, INFO, Q_FUNC_INFO, "Remove advertisement: " << adv->dbusPath());
    m_advertisements.removeOne(adv);
    m_internals->tracker.remove(adv);
    plim::disconnect(adv, &GapAdvertisement::dataChanged, this, &BleManager::on_advertisementChanged);
    plim::disconnect(adv, &QObject::destroyed, this, &BleManager::on_advertisementDeleted);
    m_internals->otherThreads.removeLater(adv);
    unregisterAdv(adv);
}

void BleManager::setAdapter(const QString& nameOrAddress)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, nameOrAddress);
    KnownAdapters& adapters = m_internals->adapters;
    adapters.choose(nameOrAddress);
    if (m_gattManager && !adapters.isChosen(m_gattManager->path())) {
        for (const GattApplication* app : qAsConst(m_applications)) {
            unregisterApp(app);
        }
        dropGattManager();
    }
    if (m_advManager && !adapters.isChosen(m_advManager->path())) {
        for (const GapAdvertisement* adv : qAsConst(m_advertisements)) {
            unregisterAdv(adv);
        }
        dropAdvManager();
    }
    const QString gattPath = adapters.findManager(BluezInterfaces::GattManager);
    if (!m_gattManager && !gattPath.isEmpty()) {
        useGattManager(gattPath);
    }
    const QString advPath = adapters.findManager(BluezInterfaces::AdvertisingManager);
    if (!m_advManager && !advPath.isEmpty()) {
        useAdvManager(advPath);
    }
}

void BleManager::setRegistrationObserver(const BleRegistrationObserver& observer)
{
    m_internals->tracker.setObserver(observer);
}

BleRegistrationState BleManager::registrationState(const GattApplication* app) const
{
    return m_internals->tracker.state(app);
}

BleRegistrationState BleManager::registrationState(const GapAdvertisement* adv) const
{
    return m_internals->tracker.state(adv);
}

void BleManager::registerApp(const GattApplication* app)
{
    if (isNull(app, "Cannot register or unregister a null application", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, m_internals->otherThreads.pathOf(app));
    if (!m_gattManager) {
        return;
    }
    const Step step("registerApp", "RegisterApplication", app, m_internals->otherThreads.pathOf(app),
                    *m_gattManager, BleRegistrationState::Pending);
    if (m_internals->canBeSent(step, Q_FUNC_INFO)) {
        m_internals->watch(m_gattManager->RegisterApplication(QDBusObjectPath(step.objectPath), {}), step);
    }
}

void BleManager::unregisterApp(const GattApplication* app)
{
    if (isNull(app, "Cannot register or unregister a null application", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, m_internals->otherThreads.pathOf(app));
    if (!m_gattManager) {
        return;
    }
    const Step step("unregisterApp", "UnregisterApplication", app, m_internals->otherThreads.pathOf(app),
                    *m_gattManager, BleRegistrationState::Dropped);
    if (m_internals->canBeSent(step, Q_FUNC_INFO)) {
        m_internals->watch(m_gattManager->UnregisterApplication(QDBusObjectPath(step.objectPath)), step);
    }
}

void BleManager::registerAdv(const GapAdvertisement* adv)
{
    if (isNull(adv, "Cannot register or unregister a null advertisement", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, m_internals->otherThreads.pathOf(adv));
    if (!m_advManager) {
        return;
    }
    const Step step("registerAdv", "RegisterAdvertisement", adv, m_internals->otherThreads.pathOf(adv),
                    *m_advManager, BleRegistrationState::Pending);
    if (m_internals->canBeSent(step, Q_FUNC_INFO)) {
        m_internals->watch(m_advManager->RegisterAdvertisement(QDBusObjectPath(step.objectPath), {}), step);
    }
}

void BleManager::unregisterAdv(const GapAdvertisement* adv)
{
    if (isNull(adv, "Cannot register or unregister a null advertisement", Q_FUNC_INFO)) {
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, m_internals->otherThreads.pathOf(adv));
    if (!m_advManager) {
        return;
    }
    const Step step("unregisterAdv", "UnregisterAdvertisement", adv, m_internals->otherThreads.pathOf(adv),
                    *m_advManager, BleRegistrationState::Dropped);
    if (m_internals->canBeSent(step, Q_FUNC_INFO)) {
        m_internals->watch(m_advManager->UnregisterAdvertisement(QDBusObjectPath(step.objectPath)), step);
    }
}

void BleManager::on_applicationChanged(const GattApplication* app)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, m_internals->otherThreads.pathOf(app));
    if (m_internals->otherThreads.isRemoved(app)) {
        return;
    }
    // Back to back: the bus keeps the order, so that BlueZ forgets the old state before it reads the new one.
    unregisterApp(app);
    registerApp(app);
}

void BleManager::on_advertisementChanged(const GapAdvertisement* adv)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, m_internals->otherThreads.pathOf(adv));
    if (m_internals->otherThreads.isRemoved(adv)) {
        return;
    }
    unregisterAdv(adv);
    registerAdv(adv);
}

void BleManager::on_applicationDeleted(QObject* obj)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, "");
    Internals::removeDeleted(m_applications, obj);
    m_internals->forget(obj);
}

void BleManager::on_advertisementDeleted(QObject* obj)
{
    PLIM_LOG_ENTER(logger, DEBUG, Q_FUNC_INFO, "");
    Internals::removeDeleted(m_advertisements, obj);
    m_internals->forget(obj);
}

void BleManager::on_dbusWatcher_finished(QDBusPendingCallWatcher* watcher)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    const QDBusPendingReply<> reply = *watcher;
    const QString step = watcher->property("function").toString();
    if (reply.isError()) {
        PLIM_LOG(logger, ERROR, Q_FUNC_INFO,
                 "D-Bus call from '" << step << "' failed: " << reply.error().message());
    } else {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "D-Bus call success: " << step);
    }
    watcher->deleteLater();
}
