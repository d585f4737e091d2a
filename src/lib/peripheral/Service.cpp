#include "Service.h"

#include "GattApplication.h"
#include "HandleIncludesServiceAdaptor.h"
#include "HandleServiceAdaptor.h"
#include "IncludesServiceAdaptor.h"
#include "TreePath.h"

plim::Service* plim::Service::create(GattApplication* application, const QString& uuid, bool primary,
                                     const QString& pathElement)
{
    const detail::TreePath place(application->dbusPath(), uuid, pathElement);
    return static_cast<Service*>(
        application->record(new Service(application, uuid, primary, place.path()), place.key()));
}

plim::Service::Service(GattApplication* application, const QString& uuid, bool primary,
                       const QString& dbusPath)
    : GattService(application, uuid, primary, dbusPath)
{
}

void plim::Service::setHandle(quint16 handle)
{
    if (m_handle == handle) {
        return;
    }
    const bool isNew = !m_handle;
    m_handle = handle;
    if (isNew) {
        showOptionalMembers();
    }
    emit handlesChanged();
}

quint16 plim::Service::handle() const
{
    return m_handle.value_or(0);
}

void plim::Service::assignHandle(quint16 handle)
{
    if (m_handle == quint16(0) && handle != 0) {
        m_handle = handle;
        emit handleAssigned(handle);
    }
}

void plim::Service::include(const GattService* service)
{
    if (!service || m_includes.contains(service)) {
        return;
    }
    const bool isFirst = m_includes.isEmpty();
    m_includes << service;
    if (isFirst) {
        showOptionalMembers();
    }
    emit handlesChanged();
}

QList<QDBusObjectPath> plim::Service::includes() const
{
    QList<QDBusObjectPath> paths;
    for (const GattService* service : m_includes) {
        const QDBusObjectPath path(service ? service->dbusPath() : QString());
        // What is not a valid object path cannot be sent.
        if (!path.path().isEmpty()) {
            paths << path;
        }
    }
    return paths;
}

/** Adds an adaptor with the wanted properties. Qt calls the one that was created last for an interface. */
void plim::Service::showOptionalMembers()
{
    if (m_handle && !m_includes.isEmpty()) {
        new HandleIncludesServiceAdaptor(this);
    } else if (m_handle) {
        new HandleServiceAdaptor(this);
    } else {
        new IncludesServiceAdaptor(this);
    }
}
