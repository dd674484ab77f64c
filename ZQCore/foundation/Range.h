#pragma once

#include <cstdint>

namespace zq {

/// A byte range of a file: 32-bit location and length, as device file sizes are 32-bit.
struct Range {
    std::uint32_t location = 0;
    std::uint32_t length = 0;
};

} // namespace zq
