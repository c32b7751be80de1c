#pragma once

#include <cstdint>
#include <ostream>

#include "Diagnose/Statistics.h"

namespace FileAccess {

/// The counters of one direction for requests of one size. All ticks are those of Basis::Timer.
struct DirectionCounters {
    Diagnose::StatisticsSimpleCounter triggerTicks;  ///< callers inside the accepting calls
    Diagnose::StatisticsSimpleCounter
        asyncSubmitTicks;  ///< handing over to the kernel on our threads
    Diagnose::StatisticsSimpleCounter syncSubmitTicks;  ///< the same on the calling thread
    Diagnose::StatisticsSimpleCounter requests;         ///< that have ended
    Diagnose::StatisticsSimpleCounter requestTicks;  ///< from acceptance to completion, summed up
};

/// The detailed record of requests of one size.
struct DetailedStatistics {
    std::uint64_t blockSize;
    DirectionCounters read;
    DirectionCounters write;
};

/// The counters of a factory.
class FileStatistics {
public:
    virtual ~FileStatistics() = default;

    /// The time since the last reset during which at least one request of the direction was
    /// accepted and not yet completed. `domain` is 1.
    virtual std::uint64_t getTotalReadTicks(unsigned domain) const = 0;
    virtual std::uint64_t getTotalWriteTicks(unsigned domain) const = 0;

    /// Writes the parameters in force as `key=value` pairs between commas; never more than 1023
    /// characters. `all` is true.
    virtual void getConfigStatisticsString(std::ostream& stream, bool all) const = 0;
};

}  // namespace FileAccess
