#include "Simulator.h"

#include "AttPhone.h"
#include "Daemon.h"
#include "Names.h"
#include "Phone.h"

#include <QRegularExpression>

namespace simulator {

namespace {

bool isAddress(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral("^([0-9A-F]{2}:){5}[0-9A-F]{2}$"));
    return pattern.match(text).hasMatch();
}

QString noAddress(const QString& text)
{
    return QStringLiteral("\"%1\" is no address such as 00:AA:01:01:00:02").arg(text);
}

} // namespace

Simulator::Simulator(const QDBusConnection& control, const QString& address)
    : m_address(address),
      m_nameWatcher(Names::BluezService, control, QDBusServiceWatcher::WatchForUnregistration)
{
    connect(&m_nameWatcher, &QDBusServiceWatcher::serviceUnregistered, this, &Simulator::onNameReleased);
}

Simulator::~Simulator()
{
    disconnectDaemon();
}

QDBusConnection Simulator::openBus(const QString& address, const QString& name)
{
    if (address == QLatin1String("system")) {
        return QDBusConnection::connectToBus(QDBusConnection::SystemBus, name);
    }
    if (address == QLatin1String("session")) {
        return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    }
    return QDBusConnection::connectToBus(address, name);
}

void Simulator::appear(const Done& done)
{
    if (m_isLeaving) {
        m_afterLeaving += [this, done](const QString&) { appear(done); };
        return;
    }
    if (m_daemon) {
        done(QString());
        return;
    }
    m_connectionName = QStringLiteral("bluez-%1").arg(++m_appearances);
    const QDBusConnection connection = openBus(m_address, m_connectionName);
    if (!connection.isConnected()) {
        QDBusConnection::disconnectFromBus(m_connectionName);
        done(QStringLiteral("cannot connect to the bus: %1").arg(connection.lastError().message()));
        return;
    }
    m_daemon = new Daemon(connection, m_state, this);
    connect(m_daemon, &Daemon::registered, this, &Simulator::registered);
    connect(m_daemon, &Daemon::refused, this, &Simulator::refused);
    connect(m_daemon, &Daemon::unregistered, this, &Simulator::unregistered);
    connect(&m_daemon->phone(), &Phone::notified, this, &Simulator::notified);
    connect(m_daemon, &Daemon::phoneNotified, this, &Simulator::phoneNotified);
    if (!m_daemon->takeName()) {
        disconnectDaemon();
        done(QStringLiteral("the name %1 is already taken on this bus").arg(Names::BluezService));
        return;
    }
    for (const QString& adapter : qAsConst(m_adapters)) {
        m_daemon->addAdapter(adapter, m_addresses.value(adapter));
    }
    done(QString());
}

void Simulator::vanish(const Done& done)
{
    if (!m_daemon && !m_isLeaving) {
        done(QString());
        return;
    }
    m_afterLeaving += done;
    if (m_daemon) {
        m_isLeaving = true;
        disconnectDaemon();
    }
}

QString Simulator::addAdapter(const QString& name, const QString& address)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z0-9_]+$"));
    if (!pattern.match(name).hasMatch()) {
        return QStringLiteral("\"%1\" cannot be an adapter's name: letters, digits and _ only").arg(name);
    }
    if (m_adapters.contains(name)) {
        return QStringLiteral("There is an adapter %1 already").arg(name);
    }
    if (!address.isEmpty() && !isAddress(address)) {
        return noAddress(address);
    }
    m_adapters += name;
    m_addresses.insert(name, address);
    if (m_daemon) {
        m_daemon->addAdapter(name, address);
    }
    return QString();
}

QString Simulator::removeAdapter(const QString& name)
{
    if (m_adapters.removeAll(name) == 0) {
        return QStringLiteral("There is no adapter %1").arg(name);
    }
    if (m_daemon) {
        m_daemon->removeAdapter(name);
    }
    return QString();
}

QString Simulator::addPhone(const QString& adapter, const QString& address, QString& device)
{
    if (!isAddress(address)) {
        return noAddress(address);
    }
    if (!m_adapters.contains(adapter)) {
        return QStringLiteral("There is no adapter %1").arg(adapter);
    }
    PhoneState state;
    state.adapter = adapterPath(adapter);
    state.address = address;
    device = state.device();
    if (address == Phone::address() || m_state.phones.count(device) != 0) {
        return QStringLiteral("There is a phone %1 already").arg(address);
    }
    PhoneState& kept = m_state.phones[device] = state;
    if (m_daemon) {
        m_daemon->addPhone(kept);
        m_daemon->attPhone(device).connectLink();
    }
    return QString();
}

void Simulator::onNameReleased()
{
    m_isLeaving = false;
    const QList<Done> waiting = std::exchange(m_afterLeaving, {});
    for (const Done& done : waiting) {
        done(QString());
    }
}

void Simulator::disconnectDaemon()
{
    if (m_daemon) {
        delete std::exchange(m_daemon, nullptr);
        QDBusConnection::disconnectFromBus(m_connectionName);
    }
}

} // namespace simulator
