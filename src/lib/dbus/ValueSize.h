#pragma once

#include <QVariant>

/** How much memory a value from the bus takes. Internal: not installed. */
namespace ValueSize {

/**
 * Whether a value takes at most this many bytes. Strings count in UTF-8, everything else as it is stored, and
 * each item of a container 4 bytes more. A file descriptor inside a container that came over the bus is
 * always too much: it holds more than memory, and Qt loses it whenever it forwards such a container.
 */
bool isWithin(int bytes, const QVariant& value);

} // namespace ValueSize
