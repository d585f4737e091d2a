#include "Advertisement.h"

#include "AdvertisementProblems.h"
#include "AdvertisementProperties.h"
#include "AdvertisementProperty.h"
#include "BleManager.h"
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "DaemonVersion.h"
#include "RegistrationNews.h"
#include "plim.h"

#include <QSignalBlocker>
#include <QThread>
#include <QVersionNumber>

#include <algorithm>
#include <utility>

namespace Property = AdvertisementProperty;

namespace {

// Properties that the base class shows in no mode but AllProperties, or does not have.
const QString Duration = QStringLiteral("Duration");
const QString DiscoverableTimeout = QStringLiteral("DiscoverableTimeout");
const QString SolicitUUIDs = QStringLiteral("SolicitUUIDs");

/** Older daemons abort if a change in place fails inside the kernel. */
const QVersionNumber firstSafeInPlace(5, 74);

bool hasError(const BleFindings& findings)
{
    return std::any_of(findings.cbegin(), findings.cend(),
                       [](const BleFinding& finding) { return finding.severity == BleFinding::Error; });
}

} // namespace

plim::Advertisement::Advertisement(QObject* parent, const QString& dbusPath)
    : GapAdvertisement(parent, dbusPath, SetProperties),
      m_properties(new detail::AdvertisementProperties(this))
{
    plim::connect(RegistrationNews::instance(), &RegistrationNews::happened, this,
                  &Advertisement::on_registrationEvent);
}

plim::Advertisement::~Advertisement() = default;

void plim::Advertisement::setUpdateMode(UpdateMode mode)
{
    m_updateMode = mode;
    if (mode == InPlace && !m_bluez) {
        m_bluez = detail::BluezObjects::shared();
    }
}

BleFindings plim::Advertisement::problems(int advertisingLimit, int scanResponseLimit) const
{
    const auto withLimits = [this](int advertising, int scanResponse) {
        return GapAdvertisement::problems(advertising, scanResponse);
    };
    return detail::AdvertisementProblems(*this, m_properties->all())
        .of(withLimits, advertisingLimit, scanResponseLimit);
}

void plim::Advertisement::setSecondaryChannel(Channel channel)
{
    m_channel = channel;
    // Shown empty, it is refused.
    changeShown(Property::SecondaryChannel, !secondaryChannel().isEmpty());
}

void plim::Advertisement::setDuration(unsigned short seconds)
{
    m_duration = seconds;
    changeShown(Duration, seconds != 0);
}

void plim::Advertisement::setDiscoverableTimeout(unsigned short seconds)
{
    m_discoverableTimeout = seconds;
    // BlueZ 5.66 takes a shown 0 for "at once".
    changeShown(DiscoverableTimeout, seconds != 0);
}

void plim::Advertisement::setSolicitedServices(const QStringList& uuids)
{
    m_solicitedServices = uuids;
    m_properties->setShown(SolicitUUIDs, true);
    publish({SolicitUUIDs});
}

void plim::Advertisement::setSystemIncludes(SystemIncludes includes)
{
    m_includes = includes;
    GapAdvertisement::setIncludeTxPower(includes.testFlag(TxPower));
}

void plim::Advertisement::setScanResponseServiceUUIDs(const QStringList& uuids)
{
    m_scanResponseServiceUUIDs = uuids;
    changeShown(QStringLiteral("ScanResponseServiceUUIDs"), !uuids.isEmpty());
}

void plim::Advertisement::setScanResponseSolicitedServices(const QStringList& uuids)
{
    m_scanResponseSolicitedServices = uuids;
    changeShown(QStringLiteral("ScanResponseSolicitUUIDs"), !uuids.isEmpty());
}

void plim::Advertisement::setScanResponseManufacturerData(const GapManufacturerData& data)
{
    m_scanResponseManufacturerData = data;
    changeShown(QStringLiteral("ScanResponseManufacturerData"), !data.isEmpty());
}

void plim::Advertisement::setScanResponseServiceData(const QVariantMap& data)
{
    m_scanResponseServiceData = data;
    changeShown(QStringLiteral("ScanResponseServiceData"), !data.isEmpty());
}

void plim::Advertisement::setLocalName(const QString& name)
{
    if (name.isEmpty()) {
        // In place, BlueZ would keep the former name or send zeros.
        GapAdvertisement::setLocalName(name);
        return;
    }
    changeInPlace(Property::LocalName, [&] { GapAdvertisement::setLocalName(name); });
}

void plim::Advertisement::setServiceUUIDs(const QStringList& uuids)
{
    changeInPlace(Property::ServiceUUIDs, [&] { GapAdvertisement::setServiceUUIDs(uuids); });
}

void plim::Advertisement::setServiceData(const QVariantMap& data)
{
    changeInPlace(Property::ServiceData, [&] { GapAdvertisement::setServiceData(data); });
}

void plim::Advertisement::setManufacturerData(const GapManufacturerData& data)
{
    changeInPlace(Property::ManufacturerData, [&] { GapAdvertisement::setManufacturerData(data); });
}

QString plim::Advertisement::secondaryChannel() const
{
    switch (m_channel) {
    case NoChannel:
        return {};
    case LE1M:
        return QStringLiteral("1M");
    case LE2M:
        return QStringLiteral("2M");
    case LECoded:
        return QStringLiteral("Coded");
    }
    return {};
}

QStringList plim::Advertisement::includes() const
{
    QStringList includes = GapAdvertisement::includes();
    if (m_includes.testFlag(Appearance)) {
        includes << QStringLiteral("appearance");
    }
    if (m_includes.testFlag(LocalName)) {
        includes << QStringLiteral("local-name");
    }
    return includes;
}

template <typename Setter>
void plim::Advertisement::changeInPlace(const QString& property, const Setter& set)
{
    {
        // The manager would register again.
        const QSignalBlocker quiet(this);
        set();
    }
    publish({property});
}

void plim::Advertisement::changeShown(const QString& property, bool shown)
{
    m_properties->setShown(property, shown);
    emit dataChanged(this);
}

/** Tells BlueZ of new values of these properties, in one way or the other. */
void plim::Advertisement::publish(const QStringList& properties)
{
    // Before the manager has told of this advertisement, there is nothing that could be changed in place; and
    // asking for the manager would make one.
    const bool mayAsk = m_updateMode == InPlace && m_isKnownToManager &&
                        QThread::currentThread() == BleManager::instance()->thread();
    const BleRegistrationState state =
        mayAsk ? BleManager::instance()->registrationState(this) : BleRegistrationState();
    if (state.phase == BleRegistrationState::Pending) {
        // BlueZ may have read it already. More registrations now would only delay each other.
        m_unpublished << properties;
        m_unpublished.removeDuplicates();
    } else if (state.phase == BleRegistrationState::Registered && isSafeInPlace(state.managerPath) &&
               !hasError(problems())) {
        m_properties->announce(properties);
    } else {
        emit dataChanged(this);
    }
}

bool plim::Advertisement::isSafeInPlace(const QString& adapter) const
{
    if (adapter.isEmpty() || !m_bluez) {
        return false;
    }
    const QString modalias =
        m_bluez->value(adapter, BluezInterfaces::Adapter, QStringLiteral("Modalias")).toString();
    return detail::daemonVersion(modalias) >= firstSafeInPlace;
}

void plim::Advertisement::on_registrationEvent(const BleRegistrationEvent& event)
{
    if (event.objectPath != dbusPath()) {
        return;
    }
    m_isKnownToManager = true;
    const bool isAnswer =
        event.step == QLatin1String("RegisterAdvertisement") && !event.superseded &&
        BleManager::instance()->registrationState(this).phase != BleRegistrationState::Pending;
    if (isAnswer && !m_unpublished.isEmpty()) {
        publish(std::exchange(m_unpublished, {}));
    }
}
