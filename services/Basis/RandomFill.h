#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Basis {

/// Fills memory with the words of Random::getRandom8U, many times faster than asking for each.
///
/// Every pass that writes fills a buffer as large as the data file first, and nobody wants to wait
/// longer for that than for the pass. The words are made a whole state of the Mersenne Twister at a
/// time, in the widest registers that the processor offers, and are the same on all processors.
/// They go past the caches, which such a buffer would only sweep. Threads: one thread per object.
class RandomFill {
public:
    /// Which code makes the words. The words are the same, so only a test asks for the narrow one.
    enum class Registers { widest, narrow };

    /// The sequence is that of a Random with the same seed.
    explicit RandomFill(std::uint64_t seed, Registers registers = Registers::widest);

    /// Writes the next words of the sequence into each whole 64-bit word of the memory, from its
    /// start. A tail of fewer than eight bytes keeps its contents and uses up no word. Memory that
    /// is not aligned to 16 bytes takes longer.
    void fill(void* memory, std::size_t bytes);

private:
    static constexpr std::size_t stateWords = 624;
    static constexpr std::size_t blockWords = stateWords / 2;

    // Aligned so that no register's load or store crosses a cache line.
    alignas(64) std::array<std::uint32_t, stateWords> state;
    alignas(64) std::array<std::uint64_t, blockWords> block;
    std::size_t used = blockWords;  // words of the block that have been given out
    void (*makeNextBlock)(std::uint32_t* state, std::uint64_t* block);
};

}  // namespace Basis
