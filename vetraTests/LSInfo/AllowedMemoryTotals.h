#pragma once

#include <cstdint>
#include <iterator>

namespace vetraTests {

/// The sums of all module sizes, in megabytes, that are an allowed configuration.
inline constexpr std::int32_t allowedMemoryTotalsMb[] = {
    24576,   49152,   65536,   131072,  196608,  262144,  327680,  393216,   524288,
    1048576, 1572864, 2097152, 3145728, 4194304, 6291456, 9437184, 12582912,
};
static_assert(std::size(allowedMemoryTotalsMb) == 17);

/// The highest speed, in MHz, at which a memory module is too slow.
inline constexpr std::int32_t tooSlowMhz = 1065;

}  // namespace vetraTests
