#include "AdvertisementProblems.h"

#include "Advertisement.h"
#include "AdvertisementProperty.h"
#include "Preflight.h"

#include <QSet>

#include <algorithm>

namespace Property = AdvertisementProperty;

namespace {

// Bytes of the AD structures that BlueZ composes. Each begins with its length and its type.
constexpr int header = 2;
constexpr int appearanceLength = header + 2;
constexpr int companyLength = 2;

/** One AD structure for all UUIDs of the same size. */
int uuidsLength(const QStringList& uuids)
{
    QSet<int> sizes;
    int length = 0;
    for (const QString& text : uuids) {
        const int size = Preflight::Uuid(text).size();
        if (size != 0) {
            sizes << size;
            length += size;
        }
    }
    return length + header * int(sizes.size());
}

} // namespace

plim::detail::AdvertisementProblems::AdvertisementProblems(const Advertisement& advertisement,
                                                           const QVariantMap& shown)
    : m_adv(advertisement), m_shown(shown)
{
}

BleFindings plim::detail::AdvertisementProblems::of(const Base& base, int advertisingLimit,
                                                    int scanResponseLimit)
{
    int scanResponse =
        uuidsLength(m_adv.scanResponseServiceUUIDs()) + uuidsLength(m_adv.scanResponseSolicitUUIDs());
    const DBusManufacturerData manufacturerData = m_adv.scanResponseManufacturerData();
    for (const QByteArray& bytes : manufacturerData) {
        scanResponse += header + companyLength + int(bytes.size());
    }
    const QVariantMap serviceData = m_adv.scanResponseServiceData();
    for (auto it = serviceData.cbegin(); it != serviceData.cend(); ++it) {
        scanResponse += header + Preflight::Uuid(it.key()).size() + int(it->toByteArray().size());
    }
    const bool includesAppearance = m_adv.includes().contains(QStringLiteral("appearance"));
    const int advertising = uuidsLength(m_adv.solicitUUIDs()) + (includesAppearance ? appearanceLength : 0);

    // The base class knows nothing of these fields: what is left for its own is what they do not take.
    m_findings =
        base(std::max(0, advertisingLimit - advertising), std::max(0, scanResponseLimit - scanResponse));
    checkSize(QStringLiteral("payload"), advertising, advertisingLimit);
    checkUuids(QStringLiteral("SolicitUUIDs"), m_adv.solicitUUIDs());
    checkScanResponse();
    checkSize(QStringLiteral("scan response"), scanResponse, scanResponseLimit);
    checkIncludes();
    checkDiscoverability();
    checkSecondaryChannel();
    return m_findings;
}

void plim::detail::AdvertisementProblems::checkSize(const QString& location, int size, int limit)
{
    if (size > limit) {
        add(BleFinding::Error, location,
            QStringLiteral("Its own fields take %1 bytes, of which the controller can do %2")
                .arg(size)
                .arg(limit),
            QStringLiteral("Shorten them"));
    }
}

void plim::detail::AdvertisementProblems::checkUuids(const QString& property, const QStringList& uuids)
{
    for (const QString& uuid : uuids) {
        m_findings += Preflight::uuidFindings(property, uuid);
    }
}

void plim::detail::AdvertisementProblems::checkScanResponse()
{
    const QString remedy = QStringLiteral("Give it at least one byte");
    checkUuids(QStringLiteral("ScanResponseServiceUUIDs"), m_adv.scanResponseServiceUUIDs());
    checkUuids(QStringLiteral("ScanResponseSolicitUUIDs"), m_adv.scanResponseSolicitUUIDs());
    const DBusManufacturerData manufacturerData = m_adv.scanResponseManufacturerData();
    for (const QByteArray& bytes : manufacturerData) {
        if (bytes.isEmpty()) {
            add(BleFinding::Error, QStringLiteral("ScanResponseManufacturerData"),
                QStringLiteral("The data of a company have no byte"), remedy);
        }
    }
    const QVariantMap serviceData = m_adv.scanResponseServiceData();
    checkUuids(QStringLiteral("ScanResponseServiceData"), serviceData.keys());
    for (const QVariant& data : serviceData) {
        if (data.userType() != QMetaType::QByteArray || data.toByteArray().isEmpty()) {
            add(BleFinding::Error, QStringLiteral("ScanResponseServiceData"),
                QStringLiteral("The data of a service are no byte array, or one without a byte"), remedy);
        }
    }
}

void plim::detail::AdvertisementProblems::checkIncludes()
{
    const QStringList includes = m_adv.includes();
    if (includes.contains(QStringLiteral("local-name")) && m_shown.contains(Property::LocalName)) {
        add(BleFinding::Error, Property::LocalName,
            QStringLiteral("BlueZ is to add the adapter's name, and refuses another one"),
            QStringLiteral("Call either setLocalName() or setSystemIncludes(LocalName)"));
    }
    if (includes.contains(QStringLiteral("appearance")) && m_shown.contains(Property::Appearance)) {
        add(BleFinding::Error, Property::Appearance,
            QStringLiteral("BlueZ is to add the adapter's appearance, and refuses another one"),
            QStringLiteral("Call either setAppearance() or setSystemIncludes(Appearance)"));
    }
}

void plim::detail::AdvertisementProblems::checkDiscoverability()
{
    const int timeout = m_adv.timeout();
    const int discoverable = m_adv.discoverableTimeout();
    if (m_adv.discoverable() && timeout != 0 && timeout < discoverable) {
        add(BleFinding::Error, QStringLiteral("DiscoverableTimeout"),
            QStringLiteral("%1 s are longer than the timeout of %2 s").arg(discoverable).arg(timeout),
            QStringLiteral("Choose a shorter time"));
    }
    if (discoverable != 0 && !m_adv.discoverable()) {
        add(BleFinding::Warning, QStringLiteral("DiscoverableTimeout"),
            QStringLiteral("The advertisement is not discoverable, so nothing ends"),
            QStringLiteral("Call setDiscoverable(true)"));
    }
}

void plim::detail::AdvertisementProblems::checkSecondaryChannel()
{
    if (!m_adv.secondaryChannel().isEmpty()) {
        add(BleFinding::Warning, Property::SecondaryChannel,
            QStringLiteral("Only controllers and scanners with extended advertising can use it"),
            QStringLiteral("Leave it out unless you know both"));
    }
}

void plim::detail::AdvertisementProblems::add(BleFinding::Severity severity, const QString& location,
                                              const QString& message, const QString& remedy)
{
    m_findings << BleFinding{severity, location, message, remedy};
}
