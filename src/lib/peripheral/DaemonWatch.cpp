#include "DaemonWatch.h"

#include "BluezInterfaces.h"
#include "DBusBluez.h"
#include "plim.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>

std::shared_ptr<plim::detail::DaemonWatch> plim::detail::DaemonWatch::shared()
{
    thread_local std::weak_ptr<DaemonWatch> current;
    std::shared_ptr<DaemonWatch> watch = current.lock();
    if (!watch) {
        watch.reset(new DaemonWatch);
        current = watch;
    }
    return watch;
}

plim::detail::DaemonWatch::DaemonWatch()
    : m_daemon(DBusBluezServiceName(), QDBusConnection::systemBus(),
               QDBusServiceWatcher::WatchForUnregistration)
{
    plim::connect(&m_daemon, &QDBusServiceWatcher::serviceUnregistered, this, &DaemonWatch::ended);
    QDBusConnection bus = QDBusConnection::systemBus();
    // Without a connection to the bus there is nothing to hear.
    bus.connect(DBusBluezServiceName(), QString(), QStringLiteral("org.freedesktop.DBus.Properties"),
                QStringLiteral("PropertiesChanged"), {BluezInterfaces::Device}, QString(), this,
                SLOT(on_propertiesChanged(QString, QVariantMap, QStringList, QDBusMessage)));
    bus.connect(DBusBluezServiceName(), DBusBluezObjectManagerPath(),
                QStringLiteral("org.freedesktop.DBus.ObjectManager"), QStringLiteral("InterfacesRemoved"),
                this, SLOT(on_interfacesRemoved(QDBusObjectPath, QStringList)));
}

void plim::detail::DaemonWatch::on_propertiesChanged(const QString& /*interface*/, const QVariantMap& changed,
                                                     const QStringList& /*invalidated*/,
                                                     const QDBusMessage& message)
{
    const QVariant connected = changed.value(QStringLiteral("Connected"));
    if (connected.isValid() && !connected.toBool()) {
        emit disconnected(message.path());
    }
}

void plim::detail::DaemonWatch::on_interfacesRemoved(const QDBusObjectPath& path,
                                                     const QStringList& interfaces)
{
    if (interfaces.contains(BluezInterfaces::Device)) {
        emit forgotten(path.path());
    }
}
