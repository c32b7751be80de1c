#pragma once

#include <cstdint>
#include <random>

namespace Basis {

/// Pseudo-random numbers from the Mersenne Twister MT19937 with 32-bit output. Not for secrets.
/// Threads: one thread per object.
class Random {
public:
    explicit Random(std::uint64_t seed) : generator(static_cast<std::uint32_t>(seed)) {}

    /// One 64-bit word from two outputs, the first in the high half. Never all ones: that word is
    /// 0.
    std::uint64_t getRandom8U();

    /// A number below `limit`, which must not be 0: the remainder of one output, or of a 64-bit
    /// word where the limit does not fit into 32 bits.
    std::uint64_t getRandom8(std::uint64_t limit);

private:
    std::mt19937 generator;
};

}  // namespace Basis
