#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "Diagnose/StackTable.h"

namespace Diagnose {

/// All samples since the last clear, of as many periods of sampling as there were.
/// Threads: any.
class Samples {
public:
    /// What there is in all.
    struct Summary {
        SampleCounts counted;
        std::uint64_t dropped = 0;  ///< samples whose stack never came, or found no place
        std::size_t threads = 0;
        std::uint64_t missed = 0;  ///< turns that the sampler came too late for
    };

    void add(std::span<const std::uint64_t> innermostFirst, SampleCounts counts,
             std::string_view waitChannel);
    void drop(std::uint64_t samples);
    void miss(std::uint64_t turns);
    /// Notes a thread that takes its turns, by its number and its time of start.
    void noteThread(pid_t thread, std::uint64_t startTime);
    void clear();

    /// How often clear was called: what a sampler asked for before is to be forgotten.
    unsigned clears() const;
    Summary summary() const;
    std::vector<StackTable::Stack> stacks() const;

private:
    mutable std::mutex mutex;
    StackTable table;
    std::uint64_t dropped = 0;
    std::uint64_t missed = 0;
    std::set<std::pair<pid_t, std::uint64_t>> threads;
    unsigned clearCount = 0;
};

}  // namespace Diagnose
