#pragma once

#include <cstdint>

#include "Basis/Containers.h"

namespace vetraTests {

/// The sum of sizes or speeds in 32 bits, as the rules define it: it wraps.
inline std::int32_t wrappingSum(const Basis::vector<std::int32_t>& numbers)
{
    std::uint32_t total = 0;
    for (const std::int32_t number : numbers)
        total += static_cast<std::uint32_t>(number);
    return static_cast<std::int32_t>(total);
}

}  // namespace vetraTests
