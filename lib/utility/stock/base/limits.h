// Sizes that several rooms share.

#pragma once

#include <cstddef>

namespace stock {

// Bytes of every buffer that takes a path, the terminator included. A path of this length or
// more is refused, never cut into another path.
inline constexpr std::size_t kPathSize = 1024;

}  // namespace stock
