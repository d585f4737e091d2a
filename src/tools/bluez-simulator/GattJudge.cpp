#include "GattJudge.h"

#include "BluetoothUuid.h"
#include "DBusValue.h"
#include "Names.h"

#include <QSet>
#include <algorithm>

namespace simulator {

namespace {

constexpr quint16 GenericAccess = 0x1800;
constexpr quint16 GenericAttribute = 0x1801;

// The daemon keeps these two for itself, and looks for them at services, characteristics and descriptors
// alike.
bool hasUsableUuid(const QVariantMap& properties)
{
    const QVariant value = properties.value(QStringLiteral("UUID"));
    const BluetoothUuid uuid(value.userType() == QMetaType::QString ? value.toString() : QString());
    return uuid.isValid() && !uuid.is(GenericAccess) && !uuid.is(GenericAttribute);
}

bool hasSignature(const QVariantMap& properties, const QString& name, const QString& signature, bool optional)
{
    const QVariant value = properties.value(name);
    return value.isValid() ? DBusValue::signature(value) == signature : optional;
}

bool fitsAttribute(const QVariantMap& properties)
{
    return hasUsableUuid(properties) &&
           hasSignature(properties, QStringLiteral("Handle"), QStringLiteral("q"), true);
}

bool fitsService(const QVariantMap& properties)
{
    return fitsAttribute(properties) &&
           hasSignature(properties, QStringLiteral("Primary"), QStringLiteral("b"), false) &&
           hasSignature(properties, QStringLiteral("Includes"), QStringLiteral("ao"), true);
}

const QSet<QString>& accessFlags()
{
    static const QSet<QString> flags{QStringLiteral("read"),
                                     QStringLiteral("write"),
                                     QStringLiteral("encrypt-read"),
                                     QStringLiteral("encrypt-write"),
                                     QStringLiteral("encrypt-authenticated-read"),
                                     QStringLiteral("encrypt-authenticated-write"),
                                     QStringLiteral("secure-read"),
                                     QStringLiteral("secure-write"),
                                     QStringLiteral("authorize")};
    return flags;
}

const QSet<QString>& characteristicFlags()
{
    static const QSet<QString> flags = QSet<QString>{QStringLiteral("broadcast"),
                                                     QStringLiteral("write-without-response"),
                                                     QStringLiteral("notify"),
                                                     QStringLiteral("encrypt-notify"),
                                                     QStringLiteral("encrypt-authenticated-notify"),
                                                     QStringLiteral("secure-notify"),
                                                     QStringLiteral("indicate"),
                                                     QStringLiteral("encrypt-indicate"),
                                                     QStringLiteral("encrypt-authenticated-indicate"),
                                                     QStringLiteral("secure-indicate"),
                                                     QStringLiteral("authenticated-signed-writes"),
                                                     QStringLiteral("extended-properties"),
                                                     QStringLiteral("reliable-write"),
                                                     QStringLiteral("writable-auxiliaries")}
                                           .unite(accessFlags());
    return flags;
}

// An empty list of flags is refused like an unknown one.
bool hasKnownFlags(const QVariantMap& properties, const QSet<QString>& known)
{
    const QVariant value = properties.value(QStringLiteral("Flags"));
    const QStringList flags =
        value.userType() == QMetaType::QStringList ? value.toStringList() : QStringList();
    return !flags.isEmpty() && std::all_of(flags.begin(), flags.end(),
                                           [&known](const QString& flag) { return known.contains(flag); });
}

} // namespace

GattJudge::GattJudge(const DBusManagedObjectList& objects) : m_objects(objects) {}

Refusal GattJudge::judge() const
{
    if (!hasObjects()) {
        return Refusal::failed(QStringLiteral("No object received"));
    }
    if (!isWellFormed()) {
        return Refusal::failed(QStringLiteral("No valid service object found"));
    }
    if (!fitsDatabase()) {
        return Refusal::failed(QStringLiteral("Failed to create entry in database"));
    }
    return Refusal();
}

bool GattJudge::hasObjects() const
{
    return std::any_of(m_objects.begin(), m_objects.end(), [](const DBusInterfaceList& interfaces) {
        const QStringList names = interfaces.keys();
        return std::any_of(names.begin(), names.end(), [](const QString& name) {
            return name != Names::Introspectable && name != Names::Properties;
        });
    });
}

bool GattJudge::isWellFormed() const
{
    const QList<QVariantMap> profiles = objectsWith(Names::GattProfile);
    const QList<QVariantMap> characteristics = objectsWith(Names::GattCharacteristic);
    const QList<QVariantMap> descriptors = objectsWith(Names::GattDescriptor);
    return !(objectsWith(Names::GattService).isEmpty() && profiles.isEmpty()) &&
           std::all_of(profiles.begin(), profiles.end(), [this](const auto& p) { return isProfile(p); }) &&
           std::all_of(characteristics.begin(), characteristics.end(),
                       [this](const auto& p) { return isCharacteristic(p); }) &&
           std::all_of(descriptors.begin(), descriptors.end(),
                       [this](const auto& p) { return isDescriptor(p); });
}

bool GattJudge::fitsDatabase() const
{
    const QList<QVariantMap> services = objectsWith(Names::GattService);
    const QList<QVariantMap> attributes =
        objectsWith(Names::GattCharacteristic) + objectsWith(Names::GattDescriptor);
    return std::all_of(services.begin(), services.end(), fitsService) &&
           std::all_of(attributes.begin(), attributes.end(), fitsAttribute);
}

bool GattJudge::isProfile(const QVariantMap& properties) const
{
    return !properties.value(QStringLiteral("UUIDs")).toStringList().isEmpty();
}

bool GattJudge::isCharacteristic(const QVariantMap& properties) const
{
    return exists(properties.value(QStringLiteral("Service")), Names::GattService) &&
           hasKnownFlags(properties, characteristicFlags());
}

bool GattJudge::isDescriptor(const QVariantMap& properties) const
{
    return exists(properties.value(QStringLiteral("Characteristic")), Names::GattCharacteristic) &&
           hasKnownFlags(properties, accessFlags());
}

QList<QVariantMap> GattJudge::objectsWith(const QString& interface) const
{
    QList<QVariantMap> found;
    for (const DBusInterfaceList& interfaces : m_objects) {
        const auto properties = interfaces.constFind(interface);
        if (properties != interfaces.constEnd()) {
            found += *properties;
        }
    }
    return found;
}

bool GattJudge::exists(const QVariant& path, const QString& interface) const
{
    return path.userType() == qMetaTypeId<QDBusObjectPath>() &&
           m_objects.value(path.value<QDBusObjectPath>()).contains(interface);
}

} // namespace simulator
