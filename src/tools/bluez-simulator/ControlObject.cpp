#include "ControlObject.h"

#include "AdvertisingManager.h"
#include "DBusValue.h"
#include "Daemon.h"
#include "Names.h"
#include "Phone.h"
#include "PhoneControl.h"
#include "Simulator.h"

#include <QCoreApplication>
#include <algorithm>
#include <iterator>

namespace simulator {

namespace {

constexpr uint longestPatienceMs = 3600000;

// An object path may not be empty on the bus, but a call with wrong arguments names none.
QDBusObjectPath pathOrRoot(const QString& path)
{
    return QDBusObjectPath(path.isEmpty() ? QStringLiteral("/") : path);
}

QList<ObjectReference> references(const QList<Registration>& registrations)
{
    QList<ObjectReference> found;
    for (const Registration& registration : registrations) {
        found += ObjectReference{registration.sender, QDBusObjectPath(registration.path)};
    }
    return found;
}

} // namespace

ControlObject::ControlObject(Simulator& simulator) : ControlBase(simulator)
{
    connect(&simulator, &Simulator::registered, this,
            [this](const QString& kind, const QString& path) { emit Registered(kind, pathOrRoot(path)); });
    connect(&simulator, &Simulator::refused, this,
            [this](const QString& kind, const QString& path, const QString& name, const QString& message) {
                emit Refused(kind, pathOrRoot(path), name, message);
            });
    connect(&simulator, &Simulator::unregistered, this,
            [this](const QString& kind, const QString& path) { emit Unregistered(kind, pathOrRoot(path)); });
    connect(&simulator, &Simulator::notified, this,
            [this](const QString& path, const QByteArray& value) { emit Notified(pathOrRoot(path), value); });
    connect(&simulator.state().calls, &CallLog::recorded, this,
            [this](const QString& member, const QString& path) { emit CallReceived(member, path); });
}

void ControlObject::Vanish()
{
    simulator().vanish(answerWhenDone());
}

void ControlObject::Appear()
{
    simulator().appear(answerWhenDone());
}

void ControlObject::Restart()
{
    const auto done = answerWhenDone();
    simulator().vanish([this, done](const QString&) { simulator().appear(done); });
}

void ControlObject::Quit()
{
    QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}

void ControlObject::AddAdapter(const QString& name)
{
    require(simulator().addAdapter(name));
}

void ControlObject::AddAdapterAt(const QString& name, const QString& address)
{
    require(simulator().addAdapter(name, address));
}

void ControlObject::RemoveAdapter(const QString& name)
{
    require(simulator().removeAdapter(name));
}

void ControlObject::Announce(const QDBusObjectPath& path, const QStringList& interfaces)
{
    if (Daemon* daemon = presentDaemon()) {
        daemon->announce(path.path(), interfaces);
    }
}

void ControlObject::Withdraw(const QDBusObjectPath& path, const QStringList& interfaces)
{
    if (Daemon* daemon = presentDaemon()) {
        daemon->withdraw(path.path(), interfaces);
    }
}

void ControlObject::SetProperty(const QDBusObjectPath& path, const QString& interface, const QString& name,
                                const QDBusVariant& value)
{
    Daemon* daemon = presentDaemon();
    if (daemon && !daemon->changeProperty(path.path(), interface, name, value.variant())) {
        sendErrorReply(Names::error("UnknownPath"),
                       QStringLiteral("There is no %1 at %2").arg(interface, path.path()));
    }
}

void ControlObject::SetAnswer(const QString& member, const QString& mode, const QString& errorName,
                              const QString& errorMessage, uint delayMs)
{
    require(simulator().state().faults.set(member, mode, errorName, errorMessage, delayMs));
}

void ControlObject::SetAcceptEverything(bool accept)
{
    simulator().state().acceptsEverything = accept;
}

void ControlObject::SetAgentPatience(uint milliseconds)
{
    simulator().state().agentPatienceMs = int(std::min(milliseconds, longestPatienceMs));
}

QList<QVariantMap> ControlObject::Calls()
{
    return simulator().state().calls.calls();
}

void ControlObject::ClearCalls()
{
    simulator().state().calls.clear();
}

QList<ObjectReference> ControlObject::Applications()
{
    return simulator().daemon() ? references(simulator().daemon()->applications()) : QList<ObjectReference>();
}

QList<ObjectReference> ControlObject::Advertisements()
{
    return simulator().daemon() ? references(simulator().daemon()->advertisements())
                                : QList<ObjectReference>();
}

QList<ObjectReference> ControlObject::OnAir()
{
    QList<Registration> broadcast;
    if (simulator().daemon()) {
        const QList<Registration> registered = simulator().daemon()->advertisements();
        std::copy_if(registered.begin(), registered.end(), std::back_inserter(broadcast),
                     [](const Registration& advertisement) { return advertisement.isOnAir; });
    }
    return references(broadcast);
}

DBusManagedObjectList ControlObject::Tree(const QDBusObjectPath& application)
{
    Daemon* daemon = presentDaemon();
    return daemon ? find(daemon->applications(), QStringLiteral("application"), application).objects
                  : DBusManagedObjectList();
}

QVariantMap ControlObject::Advertisement(const QDBusObjectPath& path)
{
    Daemon* daemon = presentDaemon();
    return daemon ? AdvertisingManager::properties(
                        find(daemon->advertisements(), QStringLiteral("advertisement"), path))
                  : QVariantMap();
}

StringMap ControlObject::AdvertisementSignatures(const QDBusObjectPath& path)
{
    StringMap signatures;
    const QVariantMap properties = Advertisement(path);
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        signatures[property.key()] = DBusValue::signature(property.value());
    }
    return signatures;
}

void ControlObject::ReleaseAdvertisement(const QDBusObjectPath& path)
{
    Daemon* daemon = presentDaemon();
    if (daemon && !daemon->releaseAdvertisement(path.path())) {
        sendErrorReply(Names::error("UnknownPath"),
                       QStringLiteral("No advertisement %1 is registered").arg(path.path()));
    }
}

QByteArray ControlObject::Read(const QDBusObjectPath& path, ushort offset)
{
    if (Phone* phone = presentPhone()) {
        phone->read(path.path(), offset, later());
    }
    return QByteArray();
}

QByteArray ControlObject::ReadLong(const QDBusObjectPath& path)
{
    if (Phone* phone = presentPhone()) {
        phone->readLong(path.path(), later());
    }
    return QByteArray();
}

QList<QByteArray> ControlObject::ReadPages(const QDBusObjectPath& data, const QDBusObjectPath& control)
{
    if (Phone* phone = presentPhone()) {
        phone->readPages(data.path(), control.path(), later());
    }
    return QByteArrayList();
}

void ControlObject::Write(const QDBusObjectPath& path, const QByteArray& value, ushort offset)
{
    if (Phone* phone = presentPhone()) {
        phone->write(path.path(), value, offset, later());
    }
}

void ControlObject::Subscribe(const QDBusObjectPath& path)
{
    if (Phone* phone = presentPhone()) {
        phone->subscribe(path.path(), later());
    }
}

void ControlObject::Unsubscribe(const QDBusObjectPath& path)
{
    if (Phone* phone = presentPhone()) {
        phone->unsubscribe(path.path(), later());
    }
}

QList<QByteArray> ControlObject::Notifications(const QDBusObjectPath& path)
{
    return simulator().state().notifications.value(path.path());
}

void ControlObject::ClearNotifications()
{
    simulator().state().notifications.clear();
}

QDBusObjectPath ControlObject::AddPhone(const QString& adapter, const QString& address)
{
    QString device;
    const QString error = simulator().addPhone(adapter, address, device);
    require(error);
    if (!error.isEmpty()) {
        return QDBusObjectPath();
    }
    const QString path = QString(device).replace(Names::BluezPath, Names::ControlPath);
    connection().registerObject(path, new PhoneControl(simulator(), device, this),
                                QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                                    QDBusConnection::ExportAllProperties);
    return QDBusObjectPath(path);
}

std::function<void(const QString&)> ControlObject::answerWhenDone()
{
    return [reply = later()](const QString& error) {
        if (error.isEmpty()) {
            reply->send({});
        } else {
            reply->fail(Names::error("Failed"), error);
        }
    };
}

Phone* ControlObject::presentPhone()
{
    Daemon* daemon = presentDaemon();
    return daemon ? &daemon->phone() : nullptr;
}

Registration ControlObject::find(const QList<Registration>& registrations, const QString& kind,
                                 const QDBusObjectPath& path)
{
    for (const Registration& registration : registrations) {
        if (registration.path == path.path()) {
            return registration;
        }
    }
    sendErrorReply(Names::error("UnknownPath"),
                   QStringLiteral("No %1 %2 is registered").arg(kind, path.path()));
    return Registration();
}

} // namespace simulator
