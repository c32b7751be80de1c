#pragma once

#include <cstdint>
#include <iterator>
#include <string_view>

#include "vetraTests/LSInfo/AllowedDistributions.h"

namespace vetraTests {

/// The least kernel level of a distribution. Each of the three numbers is compared by itself.
struct KernelThreshold {
    std::string_view distribution;    ///< a part of the distribution line; empty fits any
    std::string_view patchLevels[2];  ///< parts of the patch level, one of which must be there
    std::int32_t kernel;
    std::int32_t major;
    std::int32_t minor;
    std::string_view message;
};
inline constexpr KernelThreshold kernelThresholds[] = {
    {suse12,
     {"1", "2"},
     3,
     12,
     74,
     "Kernelversion is too low and might have bugs related to XFS. \n"
     "For more details review KOR Note: 2205917"},
    {redHat73,
     {"", ""},
     3,
     10,
     0,
     "Kernelversion is too low and might have bugs related to XFS. \n"
     "For more details review KOR Note: 2292690"},
    // Red Hat 7.2 falls here as well: an allowed distribution without an accepted kernel.
    {"", {"", ""}, 9999, 9999, 9999, "Not a valid distribution."},
};
static_assert(std::size(kernelThresholds) == 3);

}  // namespace vetraTests
