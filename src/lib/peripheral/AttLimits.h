#pragma once

namespace plim {
namespace detail {

/** Bytes in the longest attribute value that ATT knows. Internal: not installed. */
constexpr int maximumAttributeSize = 512;

} // namespace detail
} // namespace plim
