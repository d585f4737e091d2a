#include "Phone.h"

#include "DBusBluez.h"
#include "Expect.h"
#include "Remote.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QElapsedTimer>

#include <fcntl.h>
#include <unistd.h>

using Remote::characteristicInterface;
using Remote::descriptorInterface;
using Remote::deviceInterface;
using Remote::serviceInterface;

Phone::Phone(const QString& adapter, const QString& peripheral) : m_adapter(adapter), m_peripheral(peripheral)
{
    registerDBusTypes();
    QDBusConnection::systemBus().connect(
        DBusBluezServiceName(), QString(), "org.freedesktop.DBus.Properties", "PropertiesChanged", this,
        SLOT(on_propertiesChanged(QString, QVariantMap, QStringList, QDBusMessage)));
}

bool Phone::discover(const std::function<bool(const QVariantMap&)>& condition, int seconds)
{
    // While the daemon starts up it may still refuse.
    Expect::require(
        [this] {
            return Remote::errorOf(Remote::tryCall(m_adapter, Remote::adapterInterface, "SetDiscoveryFilter",
                                                   {QVariantMap{{"Transport", "le"}}}))
                       .isEmpty() &&
                   Remote::errorOf(Remote::tryCall(m_adapter, Remote::adapterInterface, "StartDiscovery"))
                       .isEmpty();
        },
        "the phone's controller to scan");
    const bool seen = Expect::waitFor(
        [&] {
            const QVariantMap found = device();
            return !found.isEmpty() && found.contains("RSSI") && (!condition || condition(found));
        },
        seconds);
    Remote::call(m_adapter, Remote::adapterInterface, "StopDiscovery");
    return seen;
}

bool Phone::look(int milliseconds)
{
    Remote::tryCall(m_adapter, Remote::adapterInterface, "SetDiscoveryFilter",
                    {QVariantMap{{"Transport", "le"}}});
    Remote::tryCall(m_adapter, Remote::adapterInterface, "StartDiscovery");
    QElapsedTimer timer;
    timer.start();
    bool seen = false;
    Expect::waitFor(
        [&] {
            seen = device().contains("RSSI");
            return seen || timer.elapsed() > milliseconds;
        },
        5);
    Remote::tryCall(m_adapter, Remote::adapterInterface, "StopDiscovery");
    return seen;
}

void Phone::forget()
{
    Remote::tryCall(m_adapter, Remote::adapterInterface, "RemoveDevice",
                    {QVariant::fromValue(QDBusObjectPath(devicePath()))});
}

QVariantMap Phone::device() const
{
    return Remote::properties(devicePath(), deviceInterface);
}

QString Phone::devicePath() const
{
    return m_adapter + "/dev_" + QString(m_peripheral).replace(':', '_');
}

void Phone::connectDevice()
{
    QString error;
    Expect::require(
        [&] {
            error = Remote::errorOf(Remote::tryCall(devicePath(), deviceInterface, "Connect"));
            if (!error.isEmpty()) {
                Expect::note("connecting is tried again after " + error);
            }
            return error.isEmpty();
        },
        "a connection", 60);
    Expect::require([this] { return device().value("ServicesResolved").toBool(); }, "the services");
}

void Phone::disconnectDevice()
{
    Remote::call(devicePath(), deviceInterface, "Disconnect");
    Expect::require([this] { return !connected(); }, "the connection to end");
}

bool Phone::connected() const
{
    return device().value("Connected").toBool();
}

void Phone::meet()
{
    if (!discover()) {
        throw Expect::Impossible{"the phone does not see the peripheral"};
    }
    connectDevice();
}

QString Phone::describe(const DBusManagedObjectList& objects, const DBusInterfaceList& object)
{
    const auto ownerUuid = [&](const QVariantMap& properties, const char* owner, const QString& interface) {
        return objects.value(properties.value(owner).value<QDBusObjectPath>()).value(interface).value("UUID");
    };
    const QVariantMap service = object.value(serviceInterface);
    const QVariantMap characteristic = object.value(characteristicInterface);
    const QVariantMap descriptor = object.value(descriptorInterface);
    QStringList words;
    if (!service.isEmpty()) {
        words << "service" << service.value("UUID").toString()
              << (service.value("Primary").toBool() ? "primary" : "secondary");
    } else if (!characteristic.isEmpty()) {
        words << "characteristic" << characteristic.value("UUID").toString()
              << characteristic.value("Flags").toStringList().join(',')
              << ownerUuid(characteristic, "Service", serviceInterface).toString();
    } else if (!descriptor.isEmpty()) {
        words << "descriptor" << descriptor.value("UUID").toString()
              << ownerUuid(descriptor, "Characteristic", characteristicInterface).toString();
    }
    return words.join(' ');
}

QStringList Phone::tree() const
{
    // Generic Access, Generic Attribute, the daemon's own Device Information; Client Characteristic
    // Configuration.
    static const QStringList daemonsOwn{"00001800-", "00001801-", "0000180a-", "00002902-"};
    const DBusManagedObjectList objects = Remote::objects();
    QStringList lines;
    QString skipped = "none";
    for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
        const QString path = object.key().path();
        const QString line = describe(objects, *object);
        if (!path.startsWith(devicePath() + '/') || line.isEmpty() || path.startsWith(skipped)) {
            continue;
        }
        if (daemonsOwn.contains(line.section(' ', 1, 1).left(9))) {
            skipped = path + '/'; // and what is in it, which follows
        } else {
            lines << line;
        }
    }
    return lines;
}

QMap<QString, QString> Phone::paths() const
{
    QMap<QString, QString> paths;
    const DBusManagedObjectList objects = Remote::objects();
    for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
        const QString path = object.key().path();
        for (const QVariantMap& properties : *object) {
            const QString uuid = properties.value("UUID").toString();
            if (path.startsWith(devicePath() + '/') && !paths.contains(uuid)) {
                paths[uuid] = path;
            }
        }
    }
    return paths;
}

QString Phone::find(const QString& uuid) const
{
    return paths().value(uuid);
}

QString Phone::pathOf(const QString& uuid) const
{
    QString path = find(uuid);
    if (path.isEmpty()) {
        throw Expect::Impossible{"the phone does not see " + uuid};
    }
    return path;
}

QString Phone::interfaceOf(const QString& path) const
{
    return path.section('/', -1).startsWith("desc") ? descriptorInterface : characteristicInterface;
}

QByteArray Phone::read(const QString& uuid, const QVariantMap& options)
{
    const QString path = pathOf(uuid);
    return Remote::call(path, interfaceOf(path), "ReadValue", {options}).arguments().value(0).toByteArray();
}

QList<QDBusPendingCall> Phone::beginReads(const QStringList& uuids)
{
    const QMap<QString, QString> known = paths();
    QList<QDBusPendingCall> calls;
    for (const QString& uuid : uuids) {
        const QString path = known.value(uuid);
        QDBusMessage call =
            QDBusMessage::createMethodCall(DBusBluezServiceName(), path, interfaceOf(path), "ReadValue");
        call << QVariantMap();
        calls << QDBusConnection::systemBus().asyncCall(call, 180000);
    }
    return calls;
}

void Phone::write(const QString& uuid, const QByteArray& value, const QVariantMap& options)
{
    const QString path = pathOf(uuid);
    Remote::call(path, interfaceOf(path), "WriteValue", {value, options});
}

QString Phone::tryWrite(const QString& uuid, const QByteArray& value)
{
    const QString path = pathOf(uuid);
    return Remote::errorOf(Remote::tryCall(path, interfaceOf(path), "WriteValue", {value, QVariantMap()}));
}

QByteArray Phone::readPages(const QString& data, const QString& control)
{
    const QString dataPath = pathOf(data);
    const QString controlPath = pathOf(control);
    const QVariantMap none;
    QByteArray whole;
    QByteArray page;
    int number = 0;
    do {
        Remote::call(controlPath, characteristicInterface, "WriteValue",
                     {QByteArray::number(number++), none});
        page = Remote::call(dataPath, characteristicInterface, "ReadValue", {none})
                   .arguments()
                   .value(0)
                   .toByteArray();
        whole += page;
    } while (page.size() == 512);
    Remote::call(controlPath, characteristicInterface, "WriteValue", {QByteArray("0"), none});
    return whole;
}

void Phone::subscribe(const QString& uuid)
{
    const QString path = pathOf(uuid);
    Remote::call(path, characteristicInterface, "StartNotify");
    m_notified[path].clear();
}

void Phone::unsubscribe(const QString& uuid)
{
    Remote::call(pathOf(uuid), characteristicInterface, "StopNotify");
}

QList<QByteArray> Phone::notified(const QString& uuid) const
{
    return m_notified.value(find(uuid));
}

int Phone::openNotifications(const QString& uuid)
{
    const QDBusMessage answer =
        Remote::call(pathOf(uuid), characteristicInterface, "AcquireNotify", {QVariantMap()});
    const int pipe = ::dup(answer.arguments().value(0).value<QDBusUnixFileDescriptor>().fileDescriptor());
    ::fcntl(pipe, F_SETFL, ::fcntl(pipe, F_GETFL) & ~O_NONBLOCK);
    return pipe;
}

void Phone::on_propertiesChanged(const QString& interface, const QVariantMap& changed, const QStringList&,
                                 const QDBusMessage& message)
{
    if (interface == characteristicInterface && changed.contains("Value")) {
        m_notified[message.path()] << changed.value("Value").toByteArray();
    }
}

QStringList dataTexts(const QVariant& map)
{
    QStringList texts;
    const auto argument = map.value<QDBusArgument>();
    if (argument.currentType() != QDBusArgument::MapType) {
        return texts;
    }
    argument.beginMap();
    while (!argument.atEnd()) {
        QVariant key;
        QDBusVariant value;
        argument.beginMapEntry();
        key = argument.asVariant();
        argument >> value;
        argument.endMapEntry();
        const QString name =
            key.userType() == QMetaType::QString ? key.toString() : QString::number(key.toUInt(), 16);
        texts << name + '=' + QString::fromLatin1(value.variant().toByteArray().toHex());
    }
    argument.endMap();
    return texts;
}
