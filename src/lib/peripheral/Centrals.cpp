#include "Centrals.h"

#include "AdapterChoice.h"
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "LinkMtus.h"
#include "RequestWitness.h"
#include "UserCallback.h"
#include "plim.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QPointer>
#include <QTimer>

#include <tuple>

using plim::detail::BluezObjects;
using plim::detail::RequestWitness;

namespace {

const QString connectedName = QStringLiteral("Connected");
const QString lowEnergyBearer = QStringLiteral("org.bluez.Bearer.LE1");

plim::Centrals::Reason reasonFrom(const QString& text)
{
    static const QHash<QString, plim::Centrals::Reason> reasons{
        {QStringLiteral("org.bluez.Reason.Timeout"), plim::Centrals::Timeout},
        {QStringLiteral("org.bluez.Reason.Local"), plim::Centrals::Local},
        {QStringLiteral("org.bluez.Reason.Remote"), plim::Centrals::Remote},
        {QStringLiteral("org.bluez.Reason.Authentication"), plim::Centrals::Authentication},
        {QStringLiteral("org.bluez.Reason.Suspend"), plim::Centrals::Suspend}};
    return reasons.value(text, plim::Centrals::Unknown);
}

plim::Central::AddressType addressTypeFrom(const QString& text)
{
    if (text == QLatin1String("public")) {
        return plim::Central::AddressType::Public;
    }
    return text == QLatin1String("random") ? plim::Central::AddressType::Random
                                           : plim::Central::AddressType::Unknown;
}

} // namespace

plim::Centrals::Centrals(QObject* parent) : Centrals(QString(), parent) {}

plim::Centrals::Centrals(const QString& adapter, QObject* parent)
    : QObject(parent),
      m_adapter(adapter),
      m_bluez(BluezObjects::shared()),
      m_requests(RequestWitness::shared()),
      m_mtus(detail::LinkMtus::shared()) // before on_requested() is connected, so that it knows first
{
    qRegisterMetaType<Central>("plim::Central");
    qRegisterMetaType<Reason>("plim::Centrals::Reason");
    updateAll();
    plim::connect(m_bluez.get(), &BluezObjects::objectAdded, this, &Centrals::on_objectAdded);
    plim::connect(m_bluez.get(), &BluezObjects::objectRemoved, this, &Centrals::on_objectRemoved);
    plim::connect(m_bluez.get(), &BluezObjects::propertiesChanged, this, &Centrals::on_propertiesChanged);
    plim::connect(m_bluez.get(), &BluezObjects::linkEnded, this,
                  [this](const QString& path, const QString& reason) {
                      if (!find(Central(path)).isNull()) {
                          m_reasons.insert(path, reason);
                      }
                  });
    plim::connect(m_requests.get(), &RequestWitness::requested, this, &Centrals::on_requested);
}

plim::Centrals::~Centrals() = default;

plim::Central plim::Centrals::find(const Central& central) const
{
    return m_connected.value(m_connected.indexOf(central));
}

void plim::Centrals::disconnect(const Central& central, const Finished& finished)
{
    const Finished guarded = [finished, path = central.path()](const QDBusError& error) {
        if (finished) {
            UserCallback::call("Callback of the disconnection", path, [&] { finished(error); });
        }
    };
    if (find(central).isNull()) {
        const QDBusError error(QDBusMessage::createError(QStringLiteral("org.bluez.Error.NotConnected"),
                                                         QStringLiteral("Not Connected")));
        QTimer::singleShot(0, this, [guarded, error] { guarded(error); });
        return;
    }
    m_bluez->call(central.path(), BluezInterfaces::Device, QStringLiteral("Disconnect"), {}, this, guarded);
}

void plim::Centrals::on_objectAdded(const QString& path, const QString& interface)
{
    if (interface == BluezInterfaces::Adapter) {
        updateAll();
    } else {
        update(path);
    }
}

void plim::Centrals::on_propertiesChanged(const QString& path, const QString& interface,
                                          const QStringList& /*names*/)
{
    on_objectAdded(path, interface);
}

void plim::Centrals::on_objectRemoved(const QString& path, const QString& interface)
{
    on_objectAdded(path, interface);
}

void plim::Centrals::on_requested(const QString& caller, const QString& device, const QString& link,
                                  int /*mtu*/)
{
    if (!m_bluez->isBluez(caller) || !isConnected(device)) {
        return;
    }
    if (!link.isEmpty()) {
        m_links.insert(device, link);
    }
    update(device);
}

/** Whether BlueZ shows the device as connected, to an adapter that counts. */
bool plim::Centrals::isConnected(const QString& path) const
{
    const QVariantMap device = m_bluez->properties(path, BluezInterfaces::Device);
    const QString adapter = device.value(QStringLiteral("Adapter")).value<QDBusObjectPath>().path();
    const QString address =
        m_bluez->value(adapter, BluezInterfaces::Adapter, QStringLiteral("Address")).toString();
    return device.value(connectedName).toBool() && AdapterChoice::isChosen(m_adapter, adapter, address);
}

bool plim::Centrals::isOverLowEnergy(const QString& path) const
{
    const QVariant shown = m_bluez->value(path, lowEnergyBearer, connectedName);
    if (shown.isValid()) {
        return shown.toBool();
    }
    const QString told = m_links.value(path);
    if (!told.isEmpty()) {
        return told == QLatin1String("LE");
    }
    const QVariantMap device = m_bluez->properties(path, BluezInterfaces::Device);
    return device.value(QStringLiteral("AddressType")).toString() != QLatin1String("public") ||
           device.value(QStringLiteral("Class")).toUInt() == 0;
}

plim::Central plim::Centrals::described(const QString& path) const
{
    const QVariantMap device = m_bluez->properties(path, BluezInterfaces::Device);
    Central central(path);
    central.m_address = device.value(QStringLiteral("Address")).toString();
    central.m_addressType = addressTypeFrom(device.value(QStringLiteral("AddressType")).toString());
    central.m_name = device.value(QStringLiteral("Name")).toString();
    central.m_isPaired = device.value(QStringLiteral("Paired")).toBool();
    central.m_isBonded = device.value(QStringLiteral("Bonded")).toBool();
    central.m_isTrusted = device.value(QStringLiteral("Trusted")).toBool();
    central.m_mtu = m_mtus->toldMtu(path);
    return central;
}

/** Looks at all devices again, and at those that BlueZ shows no longer. */
void plim::Centrals::updateAll()
{
    const QPointer<Centrals> self = this;
    QStringList paths = m_bluez->paths(BluezInterfaces::Device);
    for (const Central& central : qAsConst(m_connected)) {
        paths << central.path();
    }
    paths.removeDuplicates();
    for (const QString& path : qAsConst(paths)) {
        update(path);
        if (!self) {
            return;
        }
    }
}

/** Compares what BlueZ shows of a device with what has been told; tells the difference last, since slots may
 * end this object. */
void plim::Centrals::update(const QString& path)
{
    const auto content = [](const Central& central) {
        return std::make_tuple(central.address(), central.addressType(), central.name(), central.isPaired(),
                               central.isBonded(), central.isTrusted(), central.mtu());
    };
    const bool isLinked = isConnected(path);
    if (!isLinked) {
        m_links.remove(path);
    }
    const int at = int(m_connected.indexOf(Central(path)));
    if (!isLinked || !isOverLowEnergy(path)) {
        if (at >= 0) {
            const Central last = m_connected.takeAt(at);
            emit centralDisconnected(last, reasonFrom(m_reasons.take(path)));
        }
        return;
    }
    const Central now = described(path);
    if (at < 0) {
        m_connected << now;
        emit centralConnected(now);
    } else if (content(now) != content(m_connected.at(at))) {
        m_connected[at] = now;
        emit centralChanged(now);
    }
}
