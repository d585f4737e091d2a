#pragma once

#include "PlimPeripheralExport.h"

#include "GattService.h"

#include <QDBusObjectPath>
#include <QList>
#include <QPointer>
#include <QString>

#include <optional>

class GattApplication;

namespace plim {

namespace detail {
class TreeProblems;
}

/**
 * A service with what the base class leaves out: handles that stay, included services, a path of its own.
 * Where none of these is asked for, it is the base class on the bus, too.
 *
 * Made by create() and owned by its application, which lists it with all others.
 */
class PLIM_PERIPHERAL_EXPORT Service : public GattService
{
    Q_OBJECT
    Q_PROPERTY(ushort Handle READ handle WRITE assignHandle)
    Q_PROPERTY(QList<QDBusObjectPath> Includes READ includes)

public:
    /**
     * Adds a service to an application, which owns it. See GattApplication::createService().
     *
     * @param application  not null
     * @param uuid         as GattApplication::createService() takes it
     * @param primary      true for a primary service, false for a secondary one, which others include
     * @param pathElement  what the object path ends in, of letters, digits and "_"; empty for the UUID with
     * "_" for "-". Two services with one UUID need different elements.
     * @return the service; null only if a slot of applicationChanged() deleted it at once
     */
    static Service* create(GattApplication* application, const QString& uuid, bool primary = true,
                           const QString& pathElement = QString());

    /**
     * Fixes the service's first handle, so that phones that remember handles still find it after the next
     * registration. Characteristics and descriptors follow it in the order of their paths. Without it, each
     * registration gives the service other handles.
     *
     * Call it before the application is handed over; afterwards it makes the application register anew.
     *
     * @param handle  the handle, which has to be free, as have all those that the service takes behind it; 0
     * to let BlueZ choose once: its choice comes with handleAssigned() and is kept for as long as this object
     * lives. To keep it longer, store it and give it here at the next start.
     */
    void setHandle(quint16 handle);

    /** The first handle, as it was fixed or chosen; 0 where neither has happened. */
    quint16 handle() const;

    /**
     * Includes another service of the same application: a reference to it that phones find in this one.
     *
     * BlueZ takes services in the order of their object paths, and the included one has to come first.
     * Otherwise BlueZ registers both services, but phones do not find the reference. Where the UUIDs do not
     * put the included one first, give both services path elements that do. problems() names those that are
     * out of order.
     *
     * Call it before the application is handed over; afterwards it makes the application register anew. A
     * service that is included already, or null, changes nothing; one that is deleted is included no longer.
     */
    void include(const GattService* service);

    /** The object paths of the included services, in the order in which they were included. */
    QList<QDBusObjectPath> includes() const;

    /** BlueZ's choice of a handle, after setHandle(0). Once there is a handle, others are ignored. */
    void assignHandle(quint16 handle);

signals:
    /** BlueZ has chosen the service's first handle. */
    void handleAssigned(quint16 handle);

private:
    friend class detail::TreeProblems;

    Service(GattApplication* application, const QString& uuid, bool primary, const QString& dbusPath);
    void showOptionalMembers();

    std::optional<quint16> m_handle; ///< nothing unless asked for
    QList<QPointer<const GattService>> m_includes;
};

} // namespace plim
