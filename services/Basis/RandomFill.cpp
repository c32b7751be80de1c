#include "Basis/RandomFill.h"

#include <x86intrin.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace Basis {

namespace {

constexpr std::size_t stateSize = 624;
constexpr std::size_t ahead = 397;               // how far ahead the word lies that is mixed in
constexpr std::size_t seam = stateSize - ahead;  // from here on that word is one of the new ones

[[gnu::always_inline]] inline std::uint32_t twist(std::uint32_t upper, std::uint32_t lower)
{
    constexpr std::uint32_t matrix = 0x9908b0df;
    const std::uint32_t mixed = (upper & 0x80000000) | (lower & 0x7fffffff);
    return (mixed >> 1) ^ ((0U - (lower & 1U)) & matrix);
}

[[gnu::always_inline]] inline std::uint32_t temper(std::uint32_t word)
{
    word ^= word >> 11;
    word ^= (word << 7) & 0x9d2c5680;
    word ^= (word << 15) & 0xefc60000;
    return word ^ (word >> 18);
}

// At -O2 a loop becomes vector code only if its count is known to fill the registers: hence loops
// over whole groups of words, each followed by a short one for what is left.
constexpr std::size_t wholeGroups(std::size_t count)
{
    constexpr std::size_t group = 8;
    return count - count % group;
}

[[gnu::always_inline]] inline void renewState(std::uint32_t* state)
{
    constexpr std::size_t groupsToSeam = wholeGroups(seam);
    for (std::size_t i = 0; i < groupsToSeam; ++i)
        state[i] = state[i + ahead] ^ twist(state[i], state[i + 1]);
    for (std::size_t i = groupsToSeam; i < seam; ++i)
        state[i] = state[i + ahead] ^ twist(state[i], state[i + 1]);

    constexpr std::size_t last = stateSize - 1;
    constexpr std::size_t groupsToLast = seam + wholeGroups(last - seam);
    for (std::size_t i = seam; i < groupsToLast; ++i)
        state[i] = state[i - seam] ^ twist(state[i], state[i + 1]);
    for (std::size_t i = groupsToLast; i < last; ++i)
        state[i] = state[i - seam] ^ twist(state[i], state[i + 1]);
    state[last] = state[last - seam] ^ twist(state[last], state[0]);
}

[[gnu::always_inline]] inline void makeBlock(std::uint32_t* state, std::uint64_t* block)
{
    renewState(state);
    alignas(64) std::uint32_t outputs[stateSize];
    for (std::size_t i = 0; i < stateSize; ++i)
        outputs[i] = temper(state[i]);
    for (std::size_t i = 0; i < stateSize / 2; ++i) {
        std::uint64_t pair = 0;
        std::memcpy(&pair, &outputs[2 * i], sizeof pair);
        const std::uint64_t word = std::rotl(pair, 32);  // little endian had the first one low
        block[i] = word == std::numeric_limits<std::uint64_t>::max() ? 0 : word;
    }
}

void makeBlockAnywhere(std::uint32_t* state, std::uint64_t* block)
{
    makeBlock(state, block);
}

[[gnu::target("avx2")]] void makeBlockWithAvx2(std::uint32_t* state, std::uint64_t* block)
{
    makeBlock(state, block);
}

// A store through the caches would read the memory first and push out everything else.
void streamWords(std::byte* target, const std::uint64_t* words, std::size_t count)
{
    auto* const to = reinterpret_cast<__m128i*>(target);
    const auto* const from = reinterpret_cast<const __m128i*>(words);
    for (std::size_t i = 0; i < count / 2; ++i)
        _mm_stream_si128(to + i, _mm_load_si128(from + i));
}

bool canStream(const std::byte* target)
{
    return reinterpret_cast<std::uintptr_t>(target) % sizeof(__m128i) == 0;
}

}  // namespace

RandomFill::RandomFill(std::uint64_t seed, Registers registers)
    : makeNextBlock(registers == Registers::widest && __builtin_cpu_supports("avx2")
                        ? &makeBlockWithAvx2
                        : &makeBlockAnywhere)
{
    state[0] = static_cast<std::uint32_t>(seed);
    for (std::uint32_t i = 1; i < stateWords; ++i)
        state[i] = 1812433253U * (state[i - 1] ^ (state[i - 1] >> 30)) + i;
}

void RandomFill::fill(void* memory, std::size_t bytes)
{
    auto* target = static_cast<std::byte*>(memory);
    for (std::size_t left = bytes / sizeof(std::uint64_t); left > 0;) {
        if (used == blockWords) {
            makeNextBlock(state.data(), block.data());
            used = 0;
        }
        const std::size_t count = std::min(left, blockWords - used);
        if (count == blockWords && canStream(target))
            streamWords(target, block.data(), count);
        else
            std::memcpy(target, &block[used], count * sizeof(std::uint64_t));
        target += count * sizeof(std::uint64_t);
        used += count;
        left -= count;
    }
    _mm_sfence();  // streamed words reach other processors in order only behind a fence
}

}  // namespace Basis
