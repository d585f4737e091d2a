#pragma once

#include <QVariant>

/** How much memory a value takes that came over the bus. Internal: not installed. */
namespace ValueSize {

/**
 * Whether a value takes no more than so many bytes. Strings count in UTF-8, all else as it is stored, and
 * each item of a container 4 bytes more. A file descriptor is too much inside a container that came over the
 * bus: it holds more than its bytes, and Qt loses one whenever it sends such a container on.
 */
bool isWithin(int bytes, const QVariant& value);

} // namespace ValueSize
