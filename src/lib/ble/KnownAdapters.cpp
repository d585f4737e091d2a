#include "KnownAdapters.h"

#include "AdapterChoice.h"
#include "BluezInterfaces.h"

bool KnownAdapters::isChosen(const QString& path) const
{
    return AdapterChoice::isChosen(m_choice, path, m_adapters.value(path).address);
}

QStringList KnownAdapters::added(const QString& path, const DBusInterfaceList& interfaces)
{
    const bool wasChosen = isChosen(path);
    QSet<QString> managers;
    for (const QString& interface : {BluezInterfaces::GattManager, BluezInterfaces::AdvertisingManager}) {
        if (interfaces.contains(interface)) {
            managers.insert(interface);
        }
    }
    if (interfaces.contains(BluezInterfaces::Adapter)) {
        m_adapters[path].address =
            interfaces.value(BluezInterfaces::Adapter).value(QStringLiteral("Address")).toString();
    }
    if (!managers.isEmpty()) {
        m_adapters[path].managers += managers;
    }
    if (!isChosen(path)) {
        return {};
    }
    return (wasChosen ? managers : m_adapters.value(path).managers).values();
}

void KnownAdapters::removed(const QString& path, const QStringList& interfaces)
{
    const auto adapter = m_adapters.find(path);
    if (adapter == m_adapters.end()) {
        return;
    }
    for (const QString& interface : interfaces) {
        adapter->managers.remove(interface);
    }
    if (interfaces.contains(BluezInterfaces::Adapter)) {
        adapter->address.clear();
    }
    if (adapter->managers.isEmpty() && adapter->address.isEmpty()) {
        m_adapters.erase(adapter);
    }
}

QString KnownAdapters::findManager(const QString& interface) const
{
    for (auto adapter = m_adapters.cbegin(); adapter != m_adapters.cend(); ++adapter) {
        if (adapter->managers.contains(interface) && isChosen(adapter.key())) {
            return adapter.key();
        }
    }
    return {};
}
