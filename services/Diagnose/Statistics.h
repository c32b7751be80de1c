#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Diagnose {

/// A running value and its value at the last reset.
///
/// The owner publishes the running value; readers and resets see a value that was whole at some
/// moment. There is one reset domain, number 1.
class StatisticsSimpleCounter {
public:
    void publish(std::uint64_t runningValue) { value = runningValue; }
    std::uint64_t getValue() const { return value; }
    std::uint64_t getValueSinceReset(unsigned domain) const;
    void reset() { valueAtReset = value; }

private:
    std::uint64_t value = 0;
    std::uint64_t valueAtReset = 0;
};

/// What a service shows under the name of a reset domain.
struct StatisticsDomain {
    std::string name;                          ///< such as "M_VOLUME_IO_TOTAL_STATISTICS_RESET"
    std::function<void()> reset;               ///< the counters of the domain count anew
    std::function<void(std::ostream&)> print;  ///< readable text, each line ended
};

/// The named reset domains of a process, which the command family "statreg" serves.
/// Threads: any. Services of the same kind may register one name several times; a command reaches
///          all of them.
class StatisticsRegistry {
public:
    static StatisticsRegistry& instance();

    /// Adds a domain and returns a handle for remove, never 0.
    unsigned add(StatisticsDomain domain);
    /// Waits for a command that is under way, then forgets the domain.
    void remove(unsigned handle);

    /// False if no domain has that name.
    bool reset(std::string_view name);
    bool print(std::string_view name, std::ostream& stream);
    /// The distinct names, in byte order.
    std::vector<std::string> names();

private:
    struct Entry {
        unsigned handle;
        StatisticsDomain domain;
    };
    std::mutex mutex;
    std::vector<Entry> entries;
    unsigned lastHandle = 0;
};

/// Keeps a domain registered for its own lifetime.
class StatisticsRegistration {
public:
    explicit StatisticsRegistration(StatisticsDomain domain)
        : handle(StatisticsRegistry::instance().add(std::move(domain)))
    {
    }
    ~StatisticsRegistration()
    {
        if (handle != 0)
            StatisticsRegistry::instance().remove(handle);
    }
    StatisticsRegistration(StatisticsRegistration&& other) noexcept
        : handle(std::exchange(other.handle, 0))
    {
    }
    StatisticsRegistration& operator=(StatisticsRegistration&&) = delete;

private:
    unsigned handle;
};

}  // namespace Diagnose
