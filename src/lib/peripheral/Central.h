#pragma once

#include "PlimPeripheralExport.h"

#include <QMetaType>
#include <QString>

namespace plim {

/**
 * The device on the other side of a link, for instance a phone. A plain value: the object path that BlueZ
 * uses for the device. It may be kept after BlueZ has forgotten the device.
 */
class PLIM_PERIPHERAL_EXPORT Central
{
public:
    /** No central. */
    Central() = default;

    /** @param path  the path of BlueZ's object with the interface org.bluez.Device1 */
    explicit Central(const QString& path) : m_path(path) {}

    /** The path of BlueZ's object for it, for instance "/org/bluez/hci0/dev_00_AA_01_01_00_01". Empty if
     * BlueZ did not say which device it is. */
    QString path() const { return m_path; }

    /** Whether it is no central. */
    bool isNull() const { return m_path.isEmpty(); }

    /** Whether both are the same central. */
    friend bool operator==(const Central& a, const Central& b) { return a.m_path == b.m_path; }
    /** Whether they differ. */
    friend bool operator!=(const Central& a, const Central& b) { return !(a == b); }
    /** For QSet and QHash. */
    friend uint qHash(const Central& central, uint seed = 0) { return ::qHash(central.m_path, seed); }

private:
    QString m_path;
};

} // namespace plim

Q_DECLARE_METATYPE(plim::Central)
