#include "LostSubscriptions.h"

#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "plim.h"

#include <QPointer>

#include <algorithm>
#include <iterator>

namespace {

/** A disconnection and the sockets that BlueZ closes because of it arrive by different ways. */
constexpr int togetherMs = 1000;

bool isRecent(const QElapsedTimer& timer)
{
    return !timer.hasExpired(togetherMs);
}

QString adapterOf(const plim::Central& central)
{
    return central.path().section(QLatin1Char('/'), 0, -2);
}

} // namespace

plim::detail::LostSubscriptions::LostSubscriptions(const std::shared_ptr<BluezObjects>& bluez,
                                                   QObject* parent)
    : QObject(parent), m_bluez(bluez)
{
    plim::connect(m_bluez.get(), &BluezObjects::deviceDisconnected, this,
                  &LostSubscriptions::on_deviceDisconnected);
    plim::connect(m_bluez.get(), &BluezObjects::propertiesChanged, this,
                  &LostSubscriptions::on_propertiesChanged);
    plim::connect(m_bluez.get(), &BluezObjects::objectRemoved, this, &LostSubscriptions::on_objectRemoved);
}

void plim::detail::LostSubscriptions::noteClosed(const Central& central)
{
    Closed closed{central, {}, false, false};
    closed.since.start();
    m_closed << closed;
    update();
}

void plim::detail::LostSubscriptions::forget(const Central& central)
{
    m_closed.erase(std::remove_if(m_closed.begin(), m_closed.end(),
                                  [&](const Closed& closed) { return closed.central == central; }),
                   m_closed.end());
    update();
}

void plim::detail::LostSubscriptions::clear()
{
    m_closed.clear();
    m_isAnyConnected = false;
}

bool plim::detail::LostSubscriptions::is(const Central& central, const char* property) const
{
    return m_bluez->value(central.path(), BluezInterfaces::Device, QString::fromLatin1(property)).toBool();
}

/** Whether a central that has no socket any more may be subscribed, now or when it is back. */
bool plim::detail::LostSubscriptions::mayBeSubscribed(const Closed& closed) const
{
    const bool isBonded = is(closed.central, "Bonded");
    if (closed.isLost || !isRecent(closed.since)) {
        return closed.isLost && (isBonded || is(closed.central, "Connected"));
    }
    const auto own = m_disconnections.find(closed.central);
    if (own != m_disconnections.end() && isRecent(*own)) {
        return isBonded;
    }
    const QString adapter = adapterOf(closed.central);
    for (auto other = m_disconnections.begin(); other != m_disconnections.end(); ++other) {
        if (isRecent(*other) && adapterOf(other.key()) == adapter) {
            return is(closed.central, "Connected");
        }
    }
    return false;
}

/** What follows from it is found out in on_propertiesChanged(). */
void plim::detail::LostSubscriptions::on_deviceDisconnected(const QString& path)
{
    for (auto since = m_disconnections.begin(); since != m_disconnections.end();) {
        since = isRecent(*since) ? std::next(since) : m_disconnections.erase(since);
    }
    m_disconnections[Central(path)].start();
}

void plim::detail::LostSubscriptions::on_propertiesChanged(const QString& /*path*/, const QString& interface,
                                                           const QStringList& names)
{
    if (interface == BluezInterfaces::Device && names.contains(QStringLiteral("Connected"))) {
        update();
    }
}

void plim::detail::LostSubscriptions::on_objectRemoved(const QString& path, const QString& interface)
{
    if (interface == BluezInterfaces::Device) {
        m_disconnections.remove(Central(path));
        update();
    }
}

void plim::detail::LostSubscriptions::update()
{
    QList<Central> found;
    QList<Central> gone;
    m_isAnyConnected = false;
    for (auto closed = m_closed.begin(); closed != m_closed.end();) {
        closed->isLost = mayBeSubscribed(*closed);
        const bool isConnected = closed->isLost && is(closed->central, "Connected");
        if (isConnected != closed->isFound) {
            (isConnected ? found : gone) << closed->central;
            closed->isFound = isConnected;
        }
        m_isAnyConnected = m_isAnyConnected || isConnected;
        closed = closed->isLost || isRecent(closed->since) ? std::next(closed) : m_closed.erase(closed);
    }
    const QPointer<LostSubscriptions> self = this;
    for (const Central& central : gone) {
        emit this->gone(central);
        if (!self) {
            return;
        }
    }
    for (const Central& central : found) {
        emit this->found(central);
        if (!self) {
            return;
        }
    }
}
