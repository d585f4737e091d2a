#include "AdvertisementPreflight.h"

#include "AdvertisementProperty.h"

#include <QSet>
#include <QStringList>

#include <algorithm>

namespace Property = AdvertisementProperty;

namespace {

// Every controller can broadcast this many bytes. BlueZ 5.66 accepts no more, even with extended advertising.
constexpr int legacyLimit = 31;

// BlueZ's limits, which its error messages do not mention.
constexpr unsigned int shortestInterval = 20;
constexpr unsigned int longestInterval = 10485759; // 0xFFFFFF units of 0.625 ms
constexpr int lowestTxPower = -127;
constexpr int highestTxPower = 20;

// Bytes of the AD structures that BlueZ composes. Each begins with its length and its type.
constexpr int header = 2;
constexpr int flagsLength = header + 1;
constexpr int appearanceLength = header + 2;
constexpr int txPowerLength = header + 1;
constexpr int companyLength = 2;

/** Whether BlueZ accepts raw blocks of this type: not if BlueZ or the controller makes such blocks. */
bool isRawTypeAccepted(unsigned char type)
{
    static const QSet<unsigned char> acceptedBelow2c{0x00, 0x0b, 0x0c, 0x13, 0x24, 0x25, 0x26};
    return type < 0x2c ? acceptedBelow2c.contains(type) : type != 0x3d && type != 0xff;
}

template <typename Map>
int blocksLength(const Map& blocks, int prefix)
{
    int length = 0;
    for (const QByteArray& bytes : blocks) {
        length += header + prefix + int(bytes.size());
    }
    return length;
}

QString hex(uint number, int digits)
{
    return QStringLiteral("0x%1").arg(number, digits, 16, QLatin1Char('0'));
}

QString bytes(int count)
{
    return QStringLiteral("%1 bytes").arg(count);
}

} // namespace

BleFindings AdvertisementPreflight::findings(const AdvertisementSnapshot& adv, int advertisingLimit,
                                             int scanResponseLimit)
{
    AdvertisementPreflight preflight(adv);
    preflight.m_findings = Preflight::pathFindings(adv.path, adv.exportState);
    preflight.checkType();
    preflight.checkRadioSettings();
    preflight.checkUuids();
    preflight.checkBlocks();
    preflight.checkPayload(advertisingLimit);
    preflight.checkScanResponse(scanResponseLimit);
    return preflight.m_findings;
}

void AdvertisementPreflight::checkType()
{
    const bool isPeripheral = m_adv.type == GapAdvertisement::Peripheral;
    if (!isPeripheral && m_adv.type != GapAdvertisement::Broadcast) {
        add(BleFinding::Error, Property::Type,
            QStringLiteral("There is no type %1, and BlueZ sees an empty text").arg(int(m_adv.type)),
            QStringLiteral("Set GapAdvertisement::Peripheral or GapAdvertisement::Broadcast"));
    } else if (m_adv.discoverable && !isPeripheral) {
        add(BleFinding::Error, Property::Discoverable,
            QStringLiteral("A broadcast cannot be discoverable, since nobody can connect to it"),
            QStringLiteral("Set the type GapAdvertisement::Peripheral, or do not call setDiscoverable()"));
    }
}

void AdvertisementPreflight::checkRadioSettings()
{
    if (shows(Property::SecondaryChannel)) {
        add(BleFinding::Error, Property::SecondaryChannel,
            QStringLiteral("It is shown empty, which every stock BlueZ refuses"),
            QStringLiteral("Construct the advertisement with GapAdvertisement::SetProperties"));
    }
    if (shows(Property::MinInterval)) {
        checkInterval(Property::MinInterval, m_adv.minInterval);
    }
    if (shows(Property::MaxInterval)) {
        checkInterval(Property::MaxInterval, m_adv.maxInterval);
    }
    if (m_adv.minInterval > m_adv.maxInterval) {
        add(BleFinding::Error, Property::MinInterval,
            QStringLiteral("The shortest interval, %1 ms, is longer than the longest, %2 ms")
                .arg(m_adv.minInterval)
                .arg(m_adv.maxInterval),
            QStringLiteral("Set both intervals"));
    }
    const int txPower = m_adv.txPower;
    if (shows(Property::TxPower) && (txPower < lowestTxPower || txPower > highestTxPower)) {
        add(BleFinding::Error, Property::TxPower,
            QStringLiteral("Newer BlueZ daemons refuse %1 dBm").arg(txPower),
            QStringLiteral("Set %1 to %2 dBm, or leave it unset in the mode GapAdvertisement::SetProperties")
                .arg(lowestTxPower)
                .arg(highestTxPower));
    }
}

void AdvertisementPreflight::checkInterval(const QString& property, unsigned int milliseconds)
{
    if (milliseconds < shortestInterval || milliseconds > longestInterval) {
        add(BleFinding::Error, property, QStringLiteral("Newer BlueZ daemons refuse %1 ms").arg(milliseconds),
            QStringLiteral("Set %1 to %2 ms, or leave it unset in the mode GapAdvertisement::SetProperties")
                .arg(shortestInterval)
                .arg(longestInterval));
    }
}

void AdvertisementPreflight::checkUuids()
{
    for (const QString& uuid : m_adv.serviceUUIDs) {
        m_findings += Preflight::uuidFindings(Property::ServiceUUIDs, uuid);
    }
    for (const QString& uuid : m_adv.serviceData.keys()) {
        m_findings += Preflight::uuidFindings(Property::ServiceData, uuid);
    }
}

void AdvertisementPreflight::checkBlocks()
{
    const QString remedy = QStringLiteral("Give it at least one byte");
    for (auto it = m_adv.manufacturerData.begin(); it != m_adv.manufacturerData.end(); ++it) {
        if (it->isEmpty()) {
            add(BleFinding::Error, Property::ManufacturerData,
                QStringLiteral("The data of company %1 have no byte").arg(hex(it.key(), 4)), remedy);
        }
    }
    for (auto it = m_adv.serviceData.begin(); it != m_adv.serviceData.end(); ++it) {
        if (it->userType() != QMetaType::QByteArray || it->toByteArray().isEmpty()) {
            add(BleFinding::Error, Property::ServiceData,
                QStringLiteral("What belongs to \"%1\" is no byte array, or one without a byte")
                    .arg(it.key()),
                QStringLiteral("Give it a QByteArray of at least one byte"));
        }
    }
    checkRaw(Property::Data, m_adv.advData);
    if (shows(Property::ScanResponseData)) {
        checkRaw(Property::ScanData, m_adv.scanRspData);
    } else if (!m_adv.scanRspData.isEmpty()) {
        add(BleFinding::Warning, Property::ScanData,
            QStringLiteral("Stock BlueZ daemons read the scan response by another name"),
            QStringLiteral("Construct the advertisement with GapAdvertisement::SetProperties"));
    }
}

void AdvertisementPreflight::checkRaw(const QString& property, const DBusAdvData& blocks)
{
    for (auto it = blocks.begin(); it != blocks.end(); ++it) {
        const QString type = hex(it.key(), 2);
        if (!isRawTypeAccepted(it.key())) {
            add(BleFinding::Error, property,
                QStringLiteral("BlueZ refuses raw blocks of type %1, which are its own to make").arg(type),
                QStringLiteral("Use the property that stands for it, such as setLocalName()"));
        } else if (it->isEmpty()) {
            add(BleFinding::Error, property, QStringLiteral("The block of type %1 has no byte").arg(type),
                QStringLiteral("Give it at least one byte"));
        }
    }
}

void AdvertisementPreflight::checkPayload(int limit)
{
    const bool isPeripheral = m_adv.type == GapAdvertisement::Peripheral;
    const bool hasFlags = isPeripheral && shows(Property::Discoverable);
    const QVector<QPair<QString, int>> parts{
        {QStringLiteral("flags"), hasFlags ? flagsLength : 0},
        {Property::ServiceUUIDs, uuidsLength()},
        {Property::ManufacturerData, blocksLength(m_adv.manufacturerData, companyLength)},
        {Property::ServiceData, serviceDataLength()},
        {Property::Data, blocksLength(m_adv.advData, 0)},
        {Property::Appearance, shows(Property::Appearance) ? appearanceLength : 0},
        {QStringLiteral("tx-power"), m_adv.includeTxPower ? txPowerLength : 0},
    };
    QStringList summary;
    int length = 0;
    for (const auto& [name, share] : parts) {
        length += share;
        if (share != 0) {
            summary << name + QLatin1Char(' ') + QString::number(share);
        }
    }
    const QString what =
        QStringLiteral("%1 are to be broadcast (%2)").arg(bytes(length), summary.join(QLatin1String(", ")));
    if (length > limit) {
        add(BleFinding::Error, QStringLiteral("payload"),
            what + QStringLiteral(", of which the controller can do %1").arg(limit),
            QStringLiteral("Shorten it, for instance by shorter UUIDs, or move a part to the scan response"));
    } else if (length > legacyLimit) {
        add(BleFinding::Warning, QStringLiteral("payload"),
            what + QStringLiteral(", but BlueZ 5.66 and many controllers and phones can do only %1")
                       .arg(legacyLimit),
            QStringLiteral("Keep to %1 unless you know daemon, controller and phones").arg(legacyLimit));
    }
}

void AdvertisementPreflight::checkScanResponse(int limit)
{
    const int raw = shows(Property::ScanResponseData) ? blocksLength(m_adv.scanRspData, 0) : 0;
    const int name = int(m_adv.localName.toUtf8().size());
    if (raw > limit) {
        add(BleFinding::Error, Property::ScanData,
            QStringLiteral("The scan response takes %1, of which the controller can do %2")
                .arg(bytes(raw))
                .arg(limit),
            QStringLiteral("Shorten it"));
    } else if (name > 0 && raw + header + name > limit) {
        add(BleFinding::Warning, Property::LocalName,
            QStringLiteral("BlueZ cuts the name of %1 to the %2 that are left in the scan response")
                .arg(bytes(name))
                .arg(std::max(0, limit - raw - header)),
            QStringLiteral("Choose a shorter name"));
    }
}

/** The bytes of the UUIDs: BlueZ makes one AD structure for all UUIDs of the same size. */
int AdvertisementPreflight::uuidsLength() const
{
    QSet<int> sizes;
    int length = 0;
    for (const QString& text : m_adv.serviceUUIDs) {
        const int size = Preflight::Uuid(text).size();
        if (size != 0) {
            sizes << size;
            length += size;
        }
    }
    return length + header * int(sizes.size());
}

int AdvertisementPreflight::serviceDataLength() const
{
    int length = 0;
    for (auto it = m_adv.serviceData.begin(); it != m_adv.serviceData.end(); ++it) {
        length += header + Preflight::Uuid(it.key()).size() + int(it->toByteArray().size());
    }
    return length;
}

bool AdvertisementPreflight::shows(const QString& property) const
{
    return m_adv.shownProperties.contains(property);
}

void AdvertisementPreflight::add(BleFinding::Severity severity, const QString& location,
                                 const QString& message, const QString& remedy)
{
    m_findings << BleFinding{severity, location, message, remedy};
}
