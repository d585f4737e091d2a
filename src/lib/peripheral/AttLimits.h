#pragma once

namespace plim {
namespace detail {

/** Bytes in the longest attribute value that ATT knows. Internal: not installed. */
constexpr int maximumAttributeSize = 512;

/** The bytes of a packet that every link carries. Internal: not installed. */
constexpr int smallestMtu = 23;

} // namespace detail
} // namespace plim
