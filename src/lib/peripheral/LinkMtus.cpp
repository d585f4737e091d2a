#include "LinkMtus.h"

#include "AttLimits.h"
#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "RequestWitness.h"
#include "plim.h"

namespace {

thread_local std::weak_ptr<plim::detail::LinkMtus> current;

} // namespace

std::shared_ptr<plim::detail::LinkMtus> plim::detail::LinkMtus::shared()
{
    std::shared_ptr<LinkMtus> mtus = current.lock();
    if (!mtus) {
        mtus.reset(new LinkMtus);
        current = mtus;
    }
    return mtus;
}

plim::detail::LinkMtus::LinkMtus() : m_bluez(BluezObjects::shared()), m_requests(RequestWitness::shared())
{
    plim::connect(m_requests.get(), &RequestWitness::requested, this, &LinkMtus::on_requested);
    // The next link of a central may have shorter packets.
    plim::connect(m_bluez.get(), &BluezObjects::deviceDisconnected, this, &LinkMtus::forget);
    plim::connect(m_bluez.get(), &BluezObjects::objectRemoved, this,
                  [this](const QString& path, const QString& interface) {
                      if (interface == BluezInterfaces::Device) {
                          forget(path);
                      }
                  });
}

int plim::detail::LinkMtus::mtu(const QString& device) const
{
    return m_mtus.value(device, smallestMtu);
}

int plim::detail::LinkMtus::toldMtu(const QString& device) const
{
    return m_mtus.value(device, 0);
}

void plim::detail::LinkMtus::on_requested(const QString& caller, const QString& device,
                                          const QString& /*link*/, int mtu)
{
    if (mtu >= smallestMtu && m_bluez->isBluez(caller) &&
        m_bluez->contains(device, BluezInterfaces::Device)) {
        m_mtus.insert(device, mtu);
    }
}

void plim::detail::LinkMtus::forget(const QString& device)
{
    m_mtus.remove(device);
}
