#pragma once

#include "BleFinding.h"

class QObject;

/**
 * What the preflights of applications and advertisements share. Internal: not installed.
 *
 * They check the values of the objects. The stand-in daemon checks what arrives on the bus, by rules of its
 * own. Tests compare the results of both with those of the real daemon.
 */
namespace Preflight {

/** What the daemon makes of a UUID's text. */
class Uuid
{
public:
    /** Reads 4 or 8 hexadecimal digits, also with 0x before them, or the long form with dashes. */
    explicit Uuid(const QString& text);

    /** The bytes that it takes when broadcast: 2, 4 or 16; 0 where the text is not a valid UUID. */
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

/** Asks this program's connection to the system bus. */
ExportState exportState(const QObject* object, const QString& path);

/** What keeps an object from being reached at its path. */
BleFindings pathFindings(const QString& path, ExportState state);

/** What BlueZ cannot read as a UUID. */
BleFindings uuidFindings(const QString& location, const QString& uuid);

} // namespace Preflight
