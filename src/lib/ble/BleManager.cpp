#include "BleManager.h"

#include "DBusBluez.h"
#include "DBusHelper.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "LogText.h"
#include "OrgBluezGattManager1Interface.h"
#include "OrgBluezLEAdvertisingManager1Interface.h"
#include "OrgFreedesktopDBusObjectManagerInterface.h"
#include "OwnConnections.h"
#include "Registrations.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QThread>

#include <algorithm>

// So that the signals of objects on another thread can be queued.
Q_DECLARE_METATYPE(const GattApplication*)
Q_DECLARE_METATYPE(const GapAdvertisement*)

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

const char gattManagerName[] = "org.bluez.GattManager1";
const char advManagerName[] = "org.bluez.LEAdvertisingManager1";

} // namespace

struct BleManager::Step
{
    const char* tag;
    const char* method;
    BleRegistrationState::Phase until; ///< how the object stands until the answer
};

template <>
const BleManager::Kind<GattApplication> BleManager::kind<GattApplication> = {
    "application",
    "const GattApplication*",
    &BleManager::m_applications,
    &GattApplication::applicationChanged,
    &BleManager::on_applicationChanged,
    &BleManager::on_applicationDeleted,
    &BleManager::registerApp,
    &BleManager::unregisterApp,
};

template <>
const BleManager::Kind<GapAdvertisement> BleManager::kind<GapAdvertisement> = {
    "advertisement",
    "const GapAdvertisement*",
    &BleManager::m_advertisements,
    &GapAdvertisement::dataChanged,
    &BleManager::on_advertisementChanged,
    &BleManager::on_advertisementDeleted,
    &BleManager::registerAdv,
    &BleManager::unregisterAdv,
};

BleManager* BleManager::instance()
{
    static auto* manager = new BleManager(nullptr);
    return manager;
}

BleManager::BleManager(QObject* parent) : QObject(parent), m_registrations(new Registrations)
{
    registerDBusTypes();
    m_objectManager = new OrgFreedesktopDBusObjectManagerInterface(
        DBusBluezServiceName(), DBusBluezObjectManagerPath(), QDBusConnection::systemBus(), this);
    // Subscribe before asking, or a manager that appears in between is lost.
    OwnConnections::add(m_connections,
                        plim::connect(m_objectManager,
                                      &OrgFreedesktopDBusObjectManagerInterface::InterfacesAdded, this,
                                      &BleManager::on_interfacesAdded));
    OwnConnections::add(m_connections,
                        plim::connect(m_objectManager,
                                      &OrgFreedesktopDBusObjectManagerInterface::InterfacesRemoved, this,
                                      &BleManager::on_interfacesRemoved));
    QDBusPendingReply<DBusManagedObjectList> reply = m_objectManager->GetManagedObjects();
    reply.waitForFinished();
    if (!reply.isValid()) {
        return;
    }
    const DBusManagedObjectList objects = reply.value();
    m_gattManager = managerAt<OrgBluezGattManager1Interface>(
        DBusHelper::findFirstObjectPath(objects, QLatin1String(gattManagerName)));
    m_advManager = managerAt<OrgBluezLEAdvertisingManager1Interface>(
        DBusHelper::findFirstObjectPath(objects, QLatin1String(advManagerName)));
}

BleManager::~BleManager() = default;

/** A proxy for BlueZ's manager at the path, or null where there is no path. */
template <typename Manager>
QSharedPointer<Manager> BleManager::managerAt(const QString& path)
{
    if (path.isEmpty()) {
        return {};
    }
    m_registrations->managerAppeared(Manager::staticInterfaceName(), path);
    return QSharedPointer<Manager>(
        new Manager(DBusBluezServiceName(), path, QDBusConnection::systemBus(), this));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): log lines name the slot with these parameters
void BleManager::on_interfacesAdded(QDBusObjectPath path, DBusInterfaceList interfaces)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "Interface added: " << path << ", interfaces: " << LogText::list(interfaces.keys()));
    if (interfaces.contains(QLatin1String(gattManagerName))) {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Gatt Manager appears: " << path);
        m_gattManager = managerAt<OrgBluezGattManager1Interface>(path.path());
        const auto applications = m_applications;
        for (const GattApplication* app : applications) {
            registerApp(app);
        }
    }
    if (interfaces.contains(QLatin1String(advManagerName))) {
        // The spelling, and the missing separator, are what log readers know.
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Le Avertisement Manager appears" << path);
        m_advManager = managerAt<OrgBluezLEAdvertisingManager1Interface>(path.path());
        const auto advertisements = m_advertisements;
        for (const GapAdvertisement* adv : advertisements) {
            registerAdv(adv);
        }
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): log lines name the slot with these parameters
void BleManager::on_interfacesRemoved(QDBusObjectPath path, QStringList interfaces)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO,
                   "Interface removed: " << path << ", interfaces: " << LogText::list(interfaces));
    // Whatever object lost the interface: the path is deliberately not compared with the manager's.
    if (interfaces.contains(QLatin1String(gattManagerName))) {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Gatt Manager was removed");
        m_gattManager.reset();
        m_registrations->managerGone(gattManagerName);
    }
    if (interfaces.contains(QLatin1String(advManagerName))) {
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Le Avertisement Manager was removed");
        m_advManager.reset();
        m_registrations->managerGone(advManagerName);
    }
}

void BleManager::add(const GattApplication* app)
{
    hold(app, Q_FUNC_INFO);
}

void BleManager::add(const GapAdvertisement* adv)
{
    hold(adv, Q_FUNC_INFO);
}

template <typename Object>
void BleManager::hold(const Object* object, const char* signature)
{
    if (!object) {
        PLIM_LOG(logger, ERROR, signature, "Cannot add a null " << kind<Object>.name);
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, signature, object->dbusPath());
    auto& held = this->*kind<Object>.held;
    if (held.contains(object)) {
        return;
    }
    if (object->thread() != thread()) {
        qRegisterMetaType<const Object*>(kind<Object>.pointerName);
        m_pathsElsewhere.insert(object, object->dbusPath());
    }
    PLIM_LOG(logger, INFO, signature, "Add " << kind<Object>.name << ": " << object->dbusPath());
    held.append(object);
    m_registrations->hold(object);
    OwnConnections::add(m_connections,
                        plim::connect(object, kind<Object>.changed, this, kind<Object>.on_changed));
    OwnConnections::add(m_connections,
                        plim::connect(object, &QObject::destroyed, this, kind<Object>.on_deleted));
    (this->*kind<Object>.registerStep)(object);
}

void BleManager::remove(const GattApplication* app)
{
    release(app, Q_FUNC_INFO);
}

void BleManager::remove(const GapAdvertisement* adv)
{
    release(adv, Q_FUNC_INFO);
}

template <typename Object>
void BleManager::release(const Object* object, const char* signature)
{
    if (!object) {
        PLIM_LOG(logger, ERROR, signature, "Cannot remove a null " << kind<Object>.name);
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, signature, object->dbusPath());
    auto& held = this->*kind<Object>.held;
    if (!held.contains(object)) {
        return;
    }
    PLIM_LOG(logger, INFO, signature, "Remove " << kind<Object>.name << ": " << object->dbusPath());
    held.removeOne(object);
    m_registrations->forget(object);
    plim::disconnect(object, kind<Object>.changed, this, kind<Object>.on_changed);
    plim::disconnect(object, &QObject::destroyed, this, kind<Object>.on_deleted);
    if (m_pathsElsewhere.contains(object)) {
        // Changes of it that are on their way arrive before this, when it may have ended.
        QMetaObject::invokeMethod(
            this,
            [this, object] {
                if (!(this->*kind<Object>.held).contains(object)) {
                    m_pathsElsewhere.remove(object);
                }
            },
            Qt::QueuedConnection);
    }
    (this->*kind<Object>.unregisterStep)(object);
}

void BleManager::setRegistrationObserver(const BleRegistrationObserver& observer)
{
    m_registrations->setObserver(observer);
}

BleRegistrationState BleManager::registrationState(const GattApplication* app) const
{
    return m_registrations->state(app);
}

BleRegistrationState BleManager::registrationState(const GapAdvertisement* adv) const
{
    return m_registrations->state(adv);
}

void BleManager::registerApp(const GattApplication* app)
{
    send(
        m_gattManager, app,
        [](auto& manager, const QDBusObjectPath& path) { return manager.RegisterApplication(path, {}); },
        {"registerApp", "RegisterApplication", BleRegistrationState::Pending}, Q_FUNC_INFO);
}

void BleManager::unregisterApp(const GattApplication* app)
{
    send(
        m_gattManager, app,
        [](auto& manager, const QDBusObjectPath& path) { return manager.UnregisterApplication(path); },
        {"unregisterApp", "UnregisterApplication", BleRegistrationState::Dropped}, Q_FUNC_INFO);
}

void BleManager::registerAdv(const GapAdvertisement* adv)
{
    send(
        m_advManager, adv,
        [](auto& manager, const QDBusObjectPath& path) { return manager.RegisterAdvertisement(path, {}); },
        {"registerAdv", "RegisterAdvertisement", BleRegistrationState::Pending}, Q_FUNC_INFO);
}

void BleManager::unregisterAdv(const GapAdvertisement* adv)
{
    send(
        m_advManager, adv,
        [](auto& manager, const QDBusObjectPath& path) { return manager.UnregisterAdvertisement(path); },
        {"unregisterAdv", "UnregisterAdvertisement", BleRegistrationState::Dropped}, Q_FUNC_INFO);
}

/** The object's path; one of another thread may be gone already, of which this one has not heard yet. */
template <typename Object>
QString BleManager::pathOf(const Object* object) const
{
    const auto it = m_pathsElsewhere.constFind(object);
    return it == m_pathsElsewhere.constEnd() ? object->dbusPath() : *it;
}

/** One of the four steps: an asynchronous call about the object, if the manager for it is present. */
template <typename Manager, typename Object, typename Call>
void BleManager::send(const QSharedPointer<Manager>& manager, const Object* object, Call call,
                      const Step& step, const char* signature)
{
    if (!object) {
        PLIM_LOG(logger, ERROR, signature, "Cannot register or unregister a null " << kind<Object>.name);
        return;
    }
    PLIM_LOG_ENTER(logger, DEBUG, signature, pathOf(object));
    if (!manager) {
        return;
    }
    const Registrations::Step told{object,
                                   step.until,
                                   QLatin1String(step.method),
                                   pathOf(object),
                                   QLatin1String(Manager::staticInterfaceName()),
                                   manager->path()};
    const QDBusObjectPath path(told.objectPath);
    if (path.path().isEmpty()) {
        // libdbus aborts a process that tries to send this.
        const QDBusError error(QDBusError::InvalidObjectPath,
                               QLatin1String("Invalid object path: ") + told.objectPath);
        PLIM_LOG(logger, ERROR, signature,
                 "D-Bus call from '" << step.tag << "' failed: " << error.message());
        m_registrations->notSent(told, error);
        return;
    }
    m_registrations->sent(told, watch(call(*manager, path), step.tag));
}

QDBusPendingCallWatcher* BleManager::watch(const QDBusPendingCall& call, const char* step)
{
    auto* watcher = new QDBusPendingCallWatcher(call);
    watcher->setProperty("function", QString::fromLatin1(step));
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, this, &BleManager::on_dbusWatcher_finished);
    // Only a manager made without instance() can end before its calls do.
    plim::connect(this, &QObject::destroyed, watcher, &QObject::deleteLater);
    return watcher;
}

void BleManager::on_applicationChanged(const GattApplication* app)
{
    onChanged(app, Q_FUNC_INFO);
}

void BleManager::on_advertisementChanged(const GapAdvertisement* adv)
{
    onChanged(adv, Q_FUNC_INFO);
}

/** Back to back: the one bus connection keeps the order, so BlueZ forgets the old state before it reads the
 * new. */
template <typename Object>
void BleManager::onChanged(const Object* object, const char* signature)
{
    PLIM_LOG_ENTER(logger, DEBUG, signature, pathOf(object));
    if (m_pathsElsewhere.contains(object) && !(this->*kind<Object>.held).contains(object)) {
        return; // removed while the change was on its way from its thread
    }
    (this->*kind<Object>.unregisterStep)(object);
    (this->*kind<Object>.registerStep)(object);
}

void BleManager::on_applicationDeleted(QObject* obj)
{
    onDeleted<GattApplication>(obj, Q_FUNC_INFO);
}

void BleManager::on_advertisementDeleted(QObject* obj)
{
    onDeleted<GapAdvertisement>(obj, Q_FUNC_INFO);
}

/** Only the QObject is left of the dying object: held pointers are compared upwards, and nothing is followed.
 */
template <typename Object>
void BleManager::onDeleted(const QObject* dying, const char* signature)
{
    PLIM_LOG_ENTER(logger, DEBUG, signature, "");
    auto& held = this->*kind<Object>.held;
    const auto isDying = [dying](const QObject* object) { return object == dying; };
    const auto it = std::find_if(held.begin(), held.end(), isDying);
    if (it != held.end()) {
        held.erase(it);
    }
    m_pathsElsewhere.remove(dying);
    m_registrations->forget(dying);
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
