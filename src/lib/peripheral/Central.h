#pragma once

#include "PlimPeripheralExport.h"

#include <QMetaType>
#include <QString>

namespace plim {

class Centrals;

/**
 * The other side of a link, a phone for instance, by the object path that BlueZ knows it by. A plain value:
 * it does not change when the central does, and stays valid when the central is gone.
 *
 * Only one that comes from Centrals knows more than its path. A request's central has the path alone;
 * Centrals::find() gives the rest.
 */
class PLIM_PERIPHERAL_EXPORT Central
{
public:
    /** The kind of an address. */
    enum class AddressType
    {
        Unknown,
        Public, ///< made for the device, or its identity once it is bonded
        Random  ///< phones change it every few minutes while they are not bonded
    };

    /** No central. */
    Central() = default;

    /** @param path  the path of BlueZ's object with the interface org.bluez.Device1 */
    explicit Central(const QString& path) : m_path(path) {}

    /** The path of BlueZ's object for it, for instance "/org/bluez/hci0/dev_00_AA_01_01_00_01". Empty if
     * BlueZ did not say which device it is. */
    QString path() const { return m_path; }

    /** Whether it is no central. */
    bool isNull() const { return m_path.isEmpty(); }

    /** The address, "AA:BB:CC:DD:EE:FF"; empty where it is not known. */
    QString address() const { return m_address; }
    /** The kind of its address. */
    AddressType addressType() const { return m_addressType; }
    /** What it calls itself; empty where BlueZ has not asked for that, or not yet. */
    QString name() const { return m_name; }
    /** Whether the link is encrypted with keys that came from a pairing. */
    bool isPaired() const { return m_isPaired; }
    /** Whether BlueZ keeps these keys. */
    bool isBonded() const { return m_isBonded; }
    /** Whether somebody on this machine has marked it as trusted. */
    bool isTrusted() const { return m_isTrusted; }
    /** The longest packet of the link in bytes. 0 until it has read or written one of this program's plim
     * attributes: BlueZ tells it with requests only. */
    int mtu() const { return m_mtu; }

    /** Whether both are the same central: the paths count, nothing else. */
    friend bool operator==(const Central& a, const Central& b) { return a.m_path == b.m_path; }
    /** Whether they differ. */
    friend bool operator!=(const Central& a, const Central& b) { return !(a == b); }
    /** For QSet and QHash. */
    friend auto qHash(const Central& central, decltype(::qHash(QString())) seed = 0)
    {
        return ::qHash(central.m_path, seed);
    }

private:
    friend class Centrals;

    QString m_path;
    QString m_address;
    QString m_name;
    AddressType m_addressType = AddressType::Unknown;
    bool m_isPaired = false;
    bool m_isBonded = false;
    bool m_isTrusted = false;
    int m_mtu = 0;
};

} // namespace plim

Q_DECLARE_METATYPE(plim::Central)
