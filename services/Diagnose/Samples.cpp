#include "Diagnose/Samples.h"

namespace Diagnose {

void Samples::add(std::span<const std::uint64_t> innermostFirst, SampleCounts counts,
                  std::string_view waitChannel)
{
    const std::scoped_lock lock(mutex);
    if (innermostFirst.empty() || !table.add(innermostFirst, counts, waitChannel))
        dropped += counts.sum();
}

void Samples::drop(std::uint64_t samples)
{
    const std::scoped_lock lock(mutex);
    dropped += samples;
}

void Samples::miss(std::uint64_t turns)
{
    const std::scoped_lock lock(mutex);
    missed += turns;
}

void Samples::noteThread(pid_t thread, std::uint64_t startTime)
{
    const std::scoped_lock lock(mutex);
    threads.emplace(thread, startTime);
}

void Samples::clear()
{
    const std::scoped_lock lock(mutex);
    table.clear();
    dropped = 0;
    missed = 0;
    threads.clear();
    ++clearCount;
}

unsigned Samples::clears() const
{
    const std::scoped_lock lock(mutex);
    return clearCount;
}

Samples::Summary Samples::summary() const
{
    const std::scoped_lock lock(mutex);
    return {table.total(), dropped, threads.size(), missed};
}

std::vector<StackTable::Stack> Samples::stacks() const
{
    const std::scoped_lock lock(mutex);
    return table.stacks();
}

}  // namespace Diagnose
