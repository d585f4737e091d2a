// The part of Characteristic that knows the subscribers.
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "Characteristic.h"
#include "GattApplication.h"
#include "LinkMtus.h"
#include "SocketTransport.h"
#include "plim.h"

#include <QPointer>
#include <QSignalBlocker>

#include <utility>

namespace {

/** More than any peripheral has. Without a limit, a caller could fill the memory. */
constexpr int maximumSubscribers = 256;

} // namespace

void plim::Characteristic::trackSubscribers()
{
    if (m_tracking) {
        return;
    }
    m_tracking = true;
    m_mtus = detail::LinkMtus::shared();
    showAcquiring();
    watchBluez();
    plim::connect(m_bluez.get(), &detail::BluezObjects::objectRemoved, this,
                  &Characteristic::on_objectRemoved);
    // Subscribers that BlueZ has not shown as objects end with it as well.
    plim::connect(m_bluez.get(), &detail::BluezObjects::ended, this, &Characteristic::endSubscriptions);
    if (const auto* application = qobject_cast<GattApplication*>(parent() ? parent()->parent() : nullptr)) {
        // It is registered again, which ends all subscriptions.
        m_treeChanges = plim::connect(application, &GattApplication::applicationChanged, this,
                                      &Characteristic::endSubscriptions);
    }
}

QList<plim::Central> plim::Characteristic::subscribers() const
{
    return m_subscribers;
}

void plim::Characteristic::addSubscriber(const Central& central)
{
    if (!central.isNull() && !m_subscribers.contains(central) && m_subscribers.size() < maximumSubscribers) {
        m_subscribers << central;
        emit subscribed(central);
    }
}

void plim::Characteristic::removeSubscriber(const Central& central)
{
    if (m_subscribers.removeOne(central)) {
        emit unsubscribed(central);
    }
}

/** BlueZ has forgotten all subscriptions. The event loop tells that: in the event loop of a slot new ones may
 * begin, and before, those of all characteristics have to end. */
void plim::Characteristic::endSubscriptions()
{
    ++m_endings;
    const QList<Central> ended = std::exchange(m_subscribers, {});
    const bool stops = m_sockets && notifying();
    if (m_sockets) {
        m_sockets->closeAll();
    }
    if (stops) {
        const QSignalBlocker quiet(this);
        GattCharacteristic::StopNotify();
    }
    const auto tell = [this, ended, stops] {
        const QPointer<Characteristic> self = this;
        if (stops && !notifying()) {
            emit notifyStateChanged(false);
        }
        if (self) {
            tellUnsubscribed(ended);
        }
    };
    QMetaObject::invokeMethod(this, tell, Qt::QueuedConnection);
}

void plim::Characteristic::on_objectRemoved(const QString& path, const QString& interface)
{
    // It may have come back in the event loop of another's slot.
    if (interface == BluezInterfaces::Device && !m_bluez->contains(path, interface)) {
        removeSubscriber(Central(path));
    }
}

/** Takes the centrals that have no socket off the list. */
QList<plim::Central> plim::Characteristic::takeSubscribersOfBus()
{
    QList<Central> taken;
    const QList<Central> all = std::exchange(m_subscribers, {});
    for (const Central& central : all) {
        (m_sockets && m_sockets->hasSocket(central) ? m_subscribers : taken) << central;
    }
    return taken;
}

/** Tells of centrals that were taken off the list, unless they have subscribed again in the event loop of a
 * slot. */
void plim::Characteristic::tellUnsubscribed(const QList<Central>& centrals)
{
    const QPointer<Characteristic> self = this;
    for (const Central& central : centrals) {
        if (self && !m_subscribers.contains(central)) {
            emit unsubscribed(central);
        }
    }
}
