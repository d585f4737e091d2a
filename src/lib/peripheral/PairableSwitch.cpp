#include "PairableSwitch.h"

#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "plim.h"
#include "plimlog.h"

plim::detail::PairableSwitch::PairableSwitch() : m_bluez(BluezObjects::shared())
{
    plim::connect(m_bluez.get(), &BluezObjects::objectAdded, this,
                  [this](const QString& path, const QString& interface) {
                      if (m_isActive && interface == BluezInterfaces::Adapter) {
                          apply(path);
                      }
                  });
}

void plim::detail::PairableSwitch::set(bool isPairable)
{
    m_isActive = true;
    m_isPairable = isPairable;
    for (const QString& adapter : m_bluez->paths(BluezInterfaces::Adapter)) {
        apply(adapter);
    }
}

void plim::detail::PairableSwitch::apply(const QString& adapter)
{
    m_bluez->set(adapter, BluezInterfaces::Adapter, QStringLiteral("Pairable"), m_isPairable, this,
                 [adapter](const QDBusError& error) {
                     if (error.isValid()) {
                         PLIM_LOG(bleLogger(), WARN, Q_FUNC_INFO,
                                  "Pairable of " << adapter << " not set: " << error.message());
                     }
                 });
}
