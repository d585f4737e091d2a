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
 * A service with features that the base class does not have: fixed handles, included services, a path of its
 * own. If none of them is used, it looks like the base class on the bus.
 *
 * Created by create() and owned by its application.
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
     * Call it before the application is added; later, it makes the application register again.
     *
     * @param handle  the first handle; it has to be free, and so have the following ones that the service
     * needs. 0 lets BlueZ choose once: handleAssigned() tells its choice, which is kept as long as this
     * object exists. To keep it longer, store it and pass it here at the next start.
     */
    void setHandle(quint16 handle);

    /** The first handle, as the program or BlueZ chose it; 0 if neither has. */
    quint16 handle() const;

    /**
     * Includes another service of the same application: phones find a reference to it in this service.
     *
     * BlueZ adds services in the order of their object paths, and the included service has to come first.
     * Otherwise BlueZ registers both services, but phones do not find the reference. If the order of the
     * UUIDs is the wrong one, give both services path elements in the right order. plim::problems() lists
     * included services that come too late.
     *
     * Call it before the application is added; later, it makes the application register again. A service that
     * is included already, or null, changes nothing. A service that is deleted is no longer included.
     */
    void include(const GattService* service);

    /** The object paths of the included services, in the order in which they were included. */
    QList<QDBusObjectPath> includes() const;

    /** BlueZ calls this with the handle that it chose after setHandle(0). Ignored if there is a handle
     * already.
     */
    void assignHandle(quint16 handle);

signals:
    /** BlueZ has chosen the service's first handle. */
    void handleAssigned(quint16 handle);

private:
    friend class detail::TreeProblems;

    Service(GattApplication* application, const QString& uuid, bool primary, const QString& dbusPath);
    void showOptionalMembers();

    std::optional<quint16> m_handle; ///< empty until setHandle() is called
    QList<QPointer<const GattService>> m_includes;
};

} // namespace plim
