#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <memory>

namespace plim {
namespace detail {

class BluezObjects;
class RequestWitness;

/** The longest packets of the links, which BlueZ says with its requests. Internal: not installed. */
class LinkMtus : public QObject
{
    Q_OBJECT

public:
    /** The one of this thread. It lives as long as somebody holds it, and knows what was requested meanwhile.
     */
    static std::shared_ptr<LinkMtus> shared();

    /** @return in bytes; 23, the least there is, where BlueZ has not said */
    int mtu(const QString& device) const;
    /** The same; 0 where BlueZ has not said. */
    int toldMtu(const QString& device) const;

private:
    LinkMtus();
    void on_requested(const QString& caller, const QString& device, const QString& link, int mtu);
    void forget(const QString& device);

    const std::shared_ptr<BluezObjects> m_bluez;
    const std::shared_ptr<RequestWitness> m_requests;
    QHash<QString, int> m_mtus; ///< by the paths of devices that BlueZ shows
};

} // namespace detail
} // namespace plim
