#pragma once

#include "DBusTypes.h"

#include <QList>
#include <QMap>
#include <optional>

namespace simulator {

/** Where the services of an application stand in the daemon's attribute database. */
struct HandlePlacement
{
    struct Range
    {
        int first = 0;
        int last = 0;
    };

    QList<Range> services;
    QMap<QString, quint16> handles; // by the paths of services, characteristics and descriptors
};

/** The handles that an adapter's applications have. Handles that become free are not given out again. */
class HandleTable
{
public:
    /** Where the services would stand, at the Handle that they show, or else behind all others; nothing where
     * there is no room. */
    std::optional<HandlePlacement> place(const DBusManagedObjectList& objects) const;

    void take(const HandlePlacement& placement);
    void release(const HandlePlacement& placement);

private:
    QList<HandlePlacement::Range> m_taken;
    int m_next = 21; // the first ones are the daemon's own
};

} // namespace simulator
