#include "AdvertisementJudge.h"

#include "AdvertisingLimits.h"
#include "BluetoothUuid.h"
#include "DBusValue.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QSet>
#include <algorithm>
#include <optional>

namespace simulator {

namespace {

using AdvertisingLimits::MaximumLength;

/** The bytes that a property takes in the payload; none when the daemon cannot read it. */
using Length = std::optional<int>;

constexpr int Header = 2; // length and type of an AD structure
constexpr int FlagsLength = Header + 1;
constexpr int TxPowerLength = Header + 1;
constexpr int AppearanceLength = Header + 2;
constexpr int CompanyIdLength = 2;

bool isArray(const QVariant& value)
{
    return DBusValue::signature(value).startsWith(QLatin1Char('a'));
}

// What the daemon composes itself, or leaves to the controller, may not be given raw.
bool isRawTypeAllowed(uint type)
{
    constexpr uint none[] = {0x00, 0x0b, 0x0c, 0x13, 0x24, 0x25, 0x26};
    return (type >= 0x2c && type != 0x3d && type != 0xff) ||
           std::find(std::begin(none), std::end(none), type) != std::end(none);
}

Length uuidsLength(const QVariant& value)
{
    if (!value.isValid()) {
        return 0;
    }
    if (!isArray(value)) {
        return std::nullopt;
    }
    QSet<int> sizes;
    int length = 0;
    const QStringList texts =
        value.userType() == QMetaType::QStringList ? value.toStringList() : QStringList();
    for (const QString& text : texts) {
        const BluetoothUuid uuid(text);
        if (!uuid.isValid()) {
            return std::nullopt;
        }
        sizes += uuid.size();
        length += uuid.size();
    }
    return length + Header * int(sizes.size());
}

/** Sums up a dictionary of byte arrays in variants; prefixLength says what its keys take, none refuses a key.
 */
template <typename Key, typename PrefixLength>
Length dictionaryLength(const QVariant& value, const QString& signature, PrefixLength prefixLength)
{
    if (!value.isValid()) {
        return 0;
    }
    if (DBusValue::signature(value) != signature) {
        return std::nullopt;
    }
    const QMap<Key, QDBusVariant> entries = qdbus_cast<QMap<Key, QDBusVariant>>(value);
    int length = 0;
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        const QVariant data = entry.value().variant();
        const Length prefix = prefixLength(entry.key());
        // An array without a single byte is refused, too: the daemon looks at the type of its first element.
        if (!prefix || data.userType() != QMetaType::QByteArray || data.toByteArray().isEmpty()) {
            return std::nullopt;
        }
        const int size = Header + *prefix + int(data.toByteArray().size());
        if (size > MaximumLength) {
            return std::nullopt;
        }
        length += size;
    }
    return length;
}

Length manufacturerDataLength(const QVariant& value)
{
    return dictionaryLength<ushort>(value, QStringLiteral("a{qv}"),
                                    [](ushort) { return Length(CompanyIdLength); });
}

Length serviceDataLength(const QVariant& value)
{
    return dictionaryLength<QString>(value, QStringLiteral("a{sv}"), [](const QString& text) {
        const BluetoothUuid uuid(text);
        return uuid.isValid() ? Length(uuid.size()) : std::nullopt;
    });
}

Length rawDataLength(const QVariant& value)
{
    return dictionaryLength<uchar>(value, QStringLiteral("a{yv}"), [](uchar type) {
        return isRawTypeAllowed(type) ? Length(0) : std::nullopt;
    });
}

} // namespace

AdvertisementJudge::AdvertisementJudge(BluezVersion version, const QVariantMap& properties)
    : m_properties(properties), m_version(version)
{
}

Refusal AdvertisementJudge::judge() const
{
    if (!isParsable()) {
        return Refusal::failed(QStringLiteral("Failed to parse advertisement."));
    }
    if (!fitsPayload()) {
        return Refusal::failed(QStringLiteral("Failed to register advertisement"));
    }
    return Refusal();
}

bool AdvertisementJudge::isParsable() const
{
    const bool readsScanResponse = m_version == BluezVersion::Bluez582;
    return hasParsableScalars() && uuidsLength(m_properties.value(QStringLiteral("ServiceUUIDs"))) &&
           uuidsLength(m_properties.value(QStringLiteral("SolicitUUIDs"))) &&
           manufacturerDataLength(m_properties.value(QStringLiteral("ManufacturerData"))) &&
           serviceDataLength(m_properties.value(QStringLiteral("ServiceData"))) &&
           rawDataLength(m_properties.value(QStringLiteral("Data"))) &&
           (!readsScanResponse || rawDataLength(m_properties.value(QStringLiteral("ScanResponseData")))) &&
           hasParsableInclusions() && hasParsableDiscoverability() && hasParsableRadioSettings();
}

bool AdvertisementJudge::hasParsableScalars() const
{
    const QVariant type = m_properties.value(QStringLiteral("Type"), QStringLiteral("broadcast"));
    return type.userType() == QMetaType::QString && (isPeripheral() || type == QLatin1String("broadcast")) &&
           isScalar(QStringLiteral("LocalName"), QStringLiteral("s")) &&
           isScalar(QStringLiteral("Appearance"), QStringLiteral("q")) &&
           isScalar(QStringLiteral("Duration"), QStringLiteral("q")) &&
           isScalar(QStringLiteral("Timeout"), QStringLiteral("q"));
}

bool AdvertisementJudge::hasParsableInclusions() const
{
    const QVariant value = m_properties.value(QStringLiteral("Includes"));
    if (value.isValid() && !isArray(value)) {
        return false;
    }
    const QStringList includes = value.toStringList();
    return !(includes.contains(QStringLiteral("local-name")) &&
             m_properties.contains(QStringLiteral("LocalName"))) &&
           !(includes.contains(QStringLiteral("appearance")) &&
             m_properties.contains(QStringLiteral("Appearance")));
}

bool AdvertisementJudge::hasParsableDiscoverability() const
{
    if (!isScalar(QStringLiteral("Discoverable"), QStringLiteral("b")) ||
        !isScalar(QStringLiteral("DiscoverableTimeout"), QStringLiteral("q"))) {
        return false;
    }
    const uint timeout = m_properties.value(QStringLiteral("Timeout")).toUInt();
    const uint discoverableTimeout = m_properties.value(QStringLiteral("DiscoverableTimeout")).toUInt();
    return !isDiscoverable() || (isPeripheral() && !(timeout != 0 && timeout < discoverableTimeout));
}

bool AdvertisementJudge::hasParsableRadioSettings() const
{
    const QVariant channel = m_properties.value(QStringLiteral("SecondaryChannel"));
    if (channel.isValid() && !(channel.userType() == QMetaType::QString &&
                               AdvertisingLimits::secondaryChannels().contains(channel.toString()))) {
        return false;
    }
    if (m_version == BluezVersion::Bluez566) {
        return true; // reads the rest only where experimental interfaces are switched on
    }
    const auto isInterval = [this](const QString& name) {
        const uint milliseconds = m_properties.value(name).toUInt();
        return !m_properties.contains(name) ||
               (isScalar(name, QStringLiteral("u")) && milliseconds >= AdvertisingLimits::MinimumIntervalMs &&
                milliseconds <= AdvertisingLimits::MaximumIntervalMs);
    };
    const QString minimum = QStringLiteral("MinInterval");
    const QString maximum = QStringLiteral("MaxInterval");
    const int txPower = m_properties.value(QStringLiteral("TxPower")).toInt();
    return isInterval(minimum) && isInterval(maximum) &&
           m_properties.value(minimum).toUInt() <= m_properties.value(maximum).toUInt() &&
           isScalar(QStringLiteral("TxPower"), QStringLiteral("n")) &&
           txPower >= AdvertisingLimits::MinimumTxPower && txPower <= AdvertisingLimits::MaximumTxPower;
}

bool AdvertisementJudge::fitsPayload() const
{
    const auto lengthOf = [](const Length& length) { return length.value_or(0); };
    const QStringList includes = m_properties.value(QStringLiteral("Includes")).toStringList();
    int length = lengthOf(uuidsLength(m_properties.value(QStringLiteral("ServiceUUIDs")))) +
                 lengthOf(uuidsLength(m_properties.value(QStringLiteral("SolicitUUIDs")))) +
                 lengthOf(manufacturerDataLength(m_properties.value(QStringLiteral("ManufacturerData")))) +
                 lengthOf(serviceDataLength(m_properties.value(QStringLiteral("ServiceData")))) +
                 lengthOf(rawDataLength(m_properties.value(QStringLiteral("Data"))));
    if (isDiscoverable() || (isPeripheral() && m_properties.contains(QStringLiteral("Discoverable")))) {
        length += FlagsLength;
    }
    if (m_properties.contains(QStringLiteral("Appearance")) ||
        includes.contains(QStringLiteral("appearance"))) {
        length += AppearanceLength;
    }
    if (includes.contains(QStringLiteral("tx-power"))) {
        length += TxPowerLength;
    }
    // Names never matter here: the daemon shortens them to what is left.
    const int scanResponse =
        m_version == BluezVersion::Bluez582
            ? lengthOf(rawDataLength(m_properties.value(QStringLiteral("ScanResponseData"))))
            : 0;
    return length <= MaximumLength && scanResponse <= MaximumLength;
}

bool AdvertisementJudge::isScalar(const QString& name, const QString& signature) const
{
    const QVariant value = m_properties.value(name);
    return !value.isValid() || DBusValue::signature(value) == signature;
}

bool AdvertisementJudge::isDiscoverable() const
{
    return m_properties.value(QStringLiteral("Discoverable")).toBool();
}

bool AdvertisementJudge::isPeripheral() const
{
    return m_properties.value(QStringLiteral("Type")) == QLatin1String("peripheral");
}

} // namespace simulator
