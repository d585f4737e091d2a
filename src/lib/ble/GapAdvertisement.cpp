#include "GapAdvertisement.h"

#include "AdvertisementPreflight.h"
#include "AdvertisementProperty.h"
#include "GapAdvertisementInternals.h"
#include "LEAdvertisement1Adaptor.h"
#include "LogText.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QDBusMetaType>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

} // namespace

GapAdvertisement::GapAdvertisement(QObject* parent, const QString& dbusPath, PropertyExport propertyExport)
    : QObject(parent), m_dbusPath(dbusPath), m_internals(new Internals)
{
    PLIM_LOG_ENTER(logger, TRACE, "GapAdvertisement::GapAdvertisement(QObject*, const QString&)",
                   "dbusPath: " << dbusPath);
    registerDBusTypes();
    qRegisterMetaType<DBusAdvData>("DBusAdvData");
    qDBusRegisterMetaType<DBusAdvData>();
    qRegisterMetaType<DBusManufacturerData>("DBusManufacturerData");
    qDBusRegisterMetaType<DBusManufacturerData>();
    m_adaptor = new LEAdvertisement1Adaptor(this);
    auto* properties = new ReadOnlyPropertiesAdaptor(this, m_adaptor);
    m_internals->properties = properties;
    if (propertyExport == AllProperties) {
        properties->showAll();
    } else {
        properties->show(AdvertisementProperty::Type);
        properties->alias(AdvertisementProperty::ScanResponseData, AdvertisementProperty::ScanData);
    }
    if (!QDBusConnection::systemBus().registerObject(dbusPath, this, QDBusConnection::ExportAdaptors)) {
        PLIM_LOG(logger, ERROR, "GapAdvertisement::GapAdvertisement(QObject*, const QString&)",
                 "Failed to register LEAdvertisement1 adaptor at " << dbusPath);
    }
}

BleFindings GapAdvertisement::problems(int advertisingLimit, int scanResponseLimit) const
{
    AdvertisementSnapshot snapshot;
    snapshot.path = m_dbusPath;
    snapshot.exportState = Preflight::exportState(this, m_dbusPath);
    snapshot.shownProperties = m_internals->properties->shown();
    snapshot.type = m_type;
    snapshot.discoverable = m_discoverable;
    snapshot.includeTxPower = m_includeTxPower;
    snapshot.txPower = m_txPower;
    snapshot.minInterval = m_minInterval;
    snapshot.maxInterval = m_maxInterval;
    snapshot.localName = m_localName;
    snapshot.serviceUUIDs = m_serviceUUIDs;
    snapshot.serviceData = m_serviceData;
    snapshot.manufacturerData = m_manufacturerData;
    snapshot.advData = m_advData;
    snapshot.scanRspData = m_scanRspData;
    return AdvertisementPreflight::findings(snapshot, advertisingLimit, scanResponseLimit);
}

template <typename Member, typename Value>
void GapAdvertisement::change(const QString& property, Member& member, const Value& value)
{
    member = value;
    m_internals->properties->show(property);
    emit dataChanged(this);
}

void GapAdvertisement::setAppearance(unsigned short appearance)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "appearance: " << appearance);
    change(AdvertisementProperty::Appearance, m_appearance, appearance);
}

void GapAdvertisement::setDiscoverable(bool discoverable)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "discoverable: " << discoverable);
    change(AdvertisementProperty::Discoverable, m_discoverable, discoverable);
}

void GapAdvertisement::setIncludeTxPower(bool include)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "include: " << include);
    change(AdvertisementProperty::Includes, m_includeTxPower, include);
}

void GapAdvertisement::setTxPower(short power)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, power);
    change(AdvertisementProperty::TxPower, m_txPower, power);
}

void GapAdvertisement::setTimeout(unsigned short seconds)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, seconds);
    change(AdvertisementProperty::Timeout, m_timeout, seconds);
}

void GapAdvertisement::setMinInterval(unsigned int milliseconds)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, milliseconds);
    change(AdvertisementProperty::MinInterval, m_minInterval, milliseconds);
}

void GapAdvertisement::setMaxInterval(unsigned int milliseconds)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, milliseconds);
    change(AdvertisementProperty::MaxInterval, m_maxInterval, milliseconds);
}

void GapAdvertisement::setLocalName(const QString& name)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "name: " << name);
    change(AdvertisementProperty::LocalName, m_localName, name);
}

void GapAdvertisement::setType(const GapAdvertisement::GapDeviceType& type)
{
    PLIM_LOG_ENTER(logger, TRACE, "void GapAdvertisement::setType(const GapAdvertisement::GapDeviceType&)",
                   "type: " << int(type));
    change(AdvertisementProperty::Type, m_type, type);
}

void GapAdvertisement::setServiceUUIDs(const QStringList& uuids)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::ServiceUUIDs, m_serviceUUIDs, uuids);
}

void GapAdvertisement::setSolicitUUIDs(const QStringList& uuids)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::ServiceUUIDs, m_serviceUUIDs, uuids);
}

void GapAdvertisement::setServiceData(const QVariantMap& data)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::ServiceData, m_serviceData, data);
}

void GapAdvertisement::setManufacturerData(const GapManufacturerData& data)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::ManufacturerData, m_manufacturerData, data);
}

void GapAdvertisement::setAdvData(const QByteArray& data)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::Data, m_advData, parseAdvertisementData(data));
}

void GapAdvertisement::setScanRspData(const QByteArray& data)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::ScanData, m_scanRspData, parseAdvertisementData(data));
}

void GapAdvertisement::setAdvData(uint8_t type, const QByteArray& data)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::Data, m_advData[type], data);
}

void GapAdvertisement::setScanRspData(uint8_t type, const QByteArray& data)
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    change(AdvertisementProperty::ScanData, m_scanRspData[type], data);
}

DBusAdvData GapAdvertisement::parseAdvertisementData(const QByteArray& data) const
{
    DBusAdvData blocks;
    int i = 0;
    while (i + 1 < data.size()) {
        const auto length = static_cast<unsigned char>(data.at(i));
        const auto type = static_cast<unsigned char>(data.at(i + 1));
        PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "chunk type: " << int(type) << " length: " << int(length));
        // With a length of 0, mid() gets a count of -1 and returns the rest, and the loop goes on with the
        // next byte. Users may rely on it.
        blocks[type] = data.mid(i + 2, length - 1);
        i += length + 1;
    }
    return blocks;
}

unsigned short GapAdvertisement::appearance() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_appearance);
    return m_appearance;
}

bool GapAdvertisement::discoverable() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_discoverable);
    return m_discoverable;
}

unsigned short GapAdvertisement::discoverableTimeout() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_discoverableTimeout);
    return m_discoverableTimeout;
}

unsigned short GapAdvertisement::duration() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_duration);
    return m_duration;
}

QString GapAdvertisement::localName() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_localName);
    return m_localName;
}

unsigned int GapAdvertisement::maxInterval() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_maxInterval);
    return m_maxInterval;
}

unsigned int GapAdvertisement::minInterval() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_minInterval);
    return m_minInterval;
}

unsigned short GapAdvertisement::timeout() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_timeout);
    return m_timeout;
}

short GapAdvertisement::txPower() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_txPower);
    return m_txPower;
}

DBusAdvData GapAdvertisement::data() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_advData.size());
    return m_advData;
}

DBusAdvData GapAdvertisement::scanData() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, m_scanRspData.size());
    return m_scanRspData;
}

DBusManufacturerData GapAdvertisement::manufacturerData() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "size=" << m_manufacturerData.size());
    return m_manufacturerData;
}

QStringList GapAdvertisement::serviceUUIDs() const
{
    return m_serviceUUIDs;
}

QStringList GapAdvertisement::solicitUUIDs() const
{
    return m_solicitUUIDs;
}

QVariantMap GapAdvertisement::serviceData() const
{
    return m_serviceData;
}

QString GapAdvertisement::secondaryChannel() const
{
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, "");
    return {};
}

QString GapAdvertisement::type() const
{
    switch (m_type) {
    case Peripheral:
        return QStringLiteral("peripheral");
    case Broadcast:
        return QStringLiteral("broadcast");
    }
    return {};
}

QStringList GapAdvertisement::includes() const
{
    QStringList includes;
    if (m_includeTxPower) {
        includes << QStringLiteral("tx-power");
    }
    PLIM_LOG_ENTER(logger, TRACE, Q_FUNC_INFO, LogText::list(includes));
    return includes;
}

void GapAdvertisement::Release()
{
    PLIM_LOG(logger, DEBUG, Q_FUNC_INFO, "Gap advertisement release: " << m_dbusPath);
    emit m_internals->releaseNotice.released();
}
