#include "Diagnose/Statistics.h"

#include <algorithm>
#include <utility>

#include "Basis/Crash.h"

namespace Diagnose {

std::uint64_t StatisticsSimpleCounter::getValueSinceReset(unsigned domain) const
{
    Basis::assertThat(domain == 1, "counters have one reset domain");
    return value - valueAtReset;
}

StatisticsRegistry& StatisticsRegistry::instance()
{
    // Never destroyed: services may go at any moment of the process's end.
    static StatisticsRegistry* const registry = new StatisticsRegistry;
    return *registry;
}

unsigned StatisticsRegistry::add(StatisticsDomain domain)
{
    const std::scoped_lock lock(mutex);
    entries.push_back({++lastHandle, std::move(domain)});
    return lastHandle;
}

void StatisticsRegistry::remove(unsigned handle)
{
    const std::scoped_lock lock(mutex);
    std::erase_if(entries, [&](const Entry& entry) { return entry.handle == handle; });
}

bool StatisticsRegistry::reset(std::string_view name)
{
    const std::scoped_lock lock(mutex);
    bool found = false;
    for (const Entry& entry : entries) {
        if (entry.domain.name != name)
            continue;
        entry.domain.reset();
        found = true;
    }
    return found;
}

bool StatisticsRegistry::print(std::string_view name, std::ostream& stream)
{
    const std::scoped_lock lock(mutex);
    bool found = false;
    for (const Entry& entry : entries) {
        if (entry.domain.name != name)
            continue;
        entry.domain.print(stream);
        found = true;
    }
    return found;
}

std::vector<std::string> StatisticsRegistry::names()
{
    const std::scoped_lock lock(mutex);
    std::vector<std::string> all;
    for (const Entry& entry : entries)
        all.push_back(entry.domain.name);
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

}  // namespace Diagnose
