#pragma once

#include "BleFinding.h"
#include "PlimBleExport.h"

class QObject;

/**
 * Functions that GattPreflight and AdvertisementPreflight share. A preflight finds the problems of an object
 * before it is registered. Internal: not installed.
 *
 * The preflights check the values of the objects. The stand-in daemon checks what arrives on the bus, by
 * rules of its own. Tests compare the results of both with those of the real daemon.
 */
namespace Preflight {

/** A UUID as the daemon reads it from a text. */
class PLIM_BLE_EXPORT Uuid
{
public:
    /** Reads 4 or 8 hexadecimal digits, also with 0x before them, or the long form with dashes. */
    explicit Uuid(const QString& text);

    /** The bytes that it takes in an advertisement: 2, 4 or 16; 0 if the text is not a valid UUID. */
    int size() const { return m_size; }

    /** Whether it is this 16-bit UUID, in whatever form it was written. */
    bool is(uint number) const { return m_size != 0 && m_size != 16 && m_number == number; }

private:
    int m_size = 0;
    uint m_number = 0;
};

/** Whether an object can be reached at its path. */
enum ExportState
{
    Exported,
    InvalidPath,
    NoBus,
    PathTaken ///< by another object
};

/** Whether the object is exported at the path, on this program's connection to the system bus. */
ExportState exportState(const QObject* object, const QString& path);

/** The finding if an object cannot be reached at its path; otherwise empty. */
BleFindings pathFindings(const QString& path, ExportState state);

/** The finding if BlueZ cannot read the text as a UUID; otherwise empty. */
PLIM_BLE_EXPORT BleFindings uuidFindings(const QString& location, const QString& uuid);

} // namespace Preflight
