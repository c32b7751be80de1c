// How fast a buffer is filled with random data, beside the same sequence from the standard library.
//
//     RandomFillLoop MIBIBYTES
//
// Prints one line of JSON: bytes per second of both, and whether all words were the same. Buffers
// are touched before, so that no page is counted.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "Basis/RandomFill.h"

namespace {

constexpr std::uint32_t seed = 5489;

std::uint64_t nextWord(std::mt19937& generator)
{
    const std::uint64_t upper = generator();
    const std::uint64_t word = (upper << 32) | generator();
    return word == std::numeric_limits<std::uint64_t>::max() ? 0 : word;
}

template <class Work>
double secondsOf(Work work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

int main(int argc, char** argv)
{
    const std::size_t mebibytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    if (mebibytes == 0) {
        std::fputs("RandomFillLoop MIBIBYTES\n", stderr);
        return 2;
    }
    std::vector<std::uint64_t> ours((mebibytes << 20) / sizeof(std::uint64_t), 1);
    std::vector<std::uint64_t> plain(ours.size(), 2);
    const double bytes = static_cast<double>(mebibytes << 20);

    const double ownSeconds = secondsOf(
        [&] { Basis::RandomFill(seed).fill(ours.data(), ours.size() * sizeof(ours[0])); });
    const double plainSeconds = secondsOf([&] {
        std::mt19937 generator(seed);
        for (std::uint64_t& word : plain)
            word = nextWord(generator);
    });
    std::printf("{\"own\": %.0f, \"plain\": %.0f, \"same\": %s}\n", bytes / ownSeconds,
                bytes / plainSeconds, ours == plain ? "true" : "false");
    return 0;
}
