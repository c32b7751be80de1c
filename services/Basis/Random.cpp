#include "Basis/Random.h"

#include <limits>

#include "Basis/Crash.h"

namespace Basis {

std::uint64_t Random::getRandom8U()
{
    const std::uint64_t high = generator();
    const std::uint64_t word = (high << 32) | generator();
    return word == std::numeric_limits<std::uint64_t>::max() ? 0 : word;
}

std::uint64_t Random::getRandom8(std::uint64_t limit)
{
    assertThat(limit != 0, "limit != 0");
    if (limit > std::numeric_limits<std::uint32_t>::max())
        return getRandom8U() % limit;
    return generator() % limit;
}

}  // namespace Basis
