#include <iostream>
#include <limits>

#include "Basis/Crash.h"
#include "Diagnose/Shell.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/FileAccessReqHdlr.h"

namespace vetraTests {

namespace {

constexpr unsigned resetDomain = 1;
constexpr double microsecondsPerSecond = 1000000;

constexpr const char* resetCommands[] = {
    "statreg reset -n M_VOLUME_IO_TOTAL_STATISTICS_RESET",
    "statreg reset -n M_DEV_VOLUME_IO_DETAILED_STATISTICS_RESET",
    "statreg reset -n M_DEV_VOLUME_IO_QUEUE_STATISTICS_RESET",
    "statreg reset -n M_DEV_VOLUME_IO_COMPLETION_STATISTICS_RESET",
};

constexpr const char* printCommands[] = {
    "statreg print -h -n M_VOLUME_IO_TOTAL_STATISTICS_RESET",
    "statreg print -h -n M_DEV_VOLUME_IO_DETAILED_STATISTICS_RESET",
    "statreg print -h -n M_DEV_VOLUME_IO_QUEUE_STATISTICS_RESET",
    "statreg print -h -n M_DEV_VOLUME_IO_COMPLETION_STATISTICS_RESET",
};

double megabytesOf(const CCmdOptions& options)
{
    return static_cast<double>(options.m_file_size) * 0x1p-20;
}

// The figure has always been one of single precision, and those who compare old results with new
// ones rely on it.
double operationsOf(const CCmdOptions& options)
{
    const std::uint64_t requests = options.m_file_size / options.m_block_size;
    return static_cast<float>(requests);
}

double secondsOf(std::uint64_t ticks)
{
    return static_cast<double>(Basis::Timer::s_fHiPerfTimerConvert(ticks)) / microsecondsPerSecond;
}

double secondsOf(const Diagnose::StatisticsSimpleCounter& ticks)
{
    return secondsOf(ticks.getValueSinceReset(resetDomain));
}

// A pass too short for the clock: infinite, or no number at all if there was nothing either.
double quotient(double dividend, double divisor)
{
    if (divisor != 0)
        return dividend / divisor;
    return dividend == 0 ? std::numeric_limits<double>::quiet_NaN()
                         : std::numeric_limits<double>::infinity();
}

// A way of submitting that was not used has no throughput.
double throughputOrNone(double megabytes, double seconds)
{
    return seconds == 0 ? 0 : megabytes / seconds;
}

double meanMicroseconds(const FileAccess::DirectionCounters& counters)
{
    const std::uint64_t requests = counters.requests.getValueSinceReset(resetDomain);
    const std::uint64_t ticks = counters.requestTicks.getValueSinceReset(resetDomain);
    const std::uint64_t meanTicks = requests == 0 ? 0 : ticks / requests;
    return static_cast<double>(Basis::Timer::s_fHiPerfTimerConvert(meanTicks));
}

void fillLatency(const CCmdOptions& options, std::uint64_t totalTicks,
                 const FileAccess::DirectionCounters& counters, _SFSLatencyStatistics& stats)
{
    stats.numOperations = operationsOf(options);
    stats.ioTime = secondsOf(totalTicks);
    stats.latency = meanMicroseconds(counters);
    stats.ioThroughput = quotient(megabytesOf(options), stats.ioTime);
}

}  // namespace

FileAccess::FileStatistics& CFileAccessRequestHandler::statistics() const
{
    FileAccess::FileStatistics* const all = m_file_factory->getStatistics();
    Basis::assertThat(all != nullptr, "the file factory keeps statistics");
    return *all;
}

void CFileAccessRequestHandler::resetStatistics()
{
    Basis::ostringstream answer = Basis::outputStream(fsperfAllocator());
    for (const char* command : resetCommands)
        dbgExecuteCommand(command, answer, true);
}

void CFileAccessRequestHandler::printStatistics() const
{
    std::cout << "Full statistics:" << std::endl;
    for (const char* command : printCommands)
        dbgExecuteCommand(command, std::cout, true);
    std::cout << std::endl;
}

bool CFileAccessRequestHandler::collectThroughputStatistics(const CCmdOptions& options, bool write,
                                                            _SFSThroughputStatistics& stats)
{
    const double megabytes = megabytesOf(options);
    const FileAccess::DetailedStatistics& detailed =
        m_file_factory->getDetailedStatistics(options.m_block_size);
    const FileAccess::FileStatistics& total = statistics();
    const FileAccess::DirectionCounters& counters = write ? detailed.write : detailed.read;

    stats.numOperations = operationsOf(options);
    stats.ioTime = secondsOf(write ? total.getTotalWriteTicks(resetDomain)
                                   : total.getTotalReadTicks(resetDomain));
    stats.asyncSubmitTime = secondsOf(counters.asyncSubmitTicks);
    stats.syncSubmitTime = secondsOf(counters.syncSubmitTicks);
    stats.triggerTime = secondsOf(counters.triggerTicks);

    stats.ioThroughput = quotient(megabytes, stats.ioTime);
    stats.ratioTriggerToIO = quotient(stats.triggerTime, stats.ioTime);
    stats.triggerThroughput = quotient(megabytes, stats.triggerTime);
    stats.asyncSubmitThroughput = throughputOrNone(megabytes, stats.asyncSubmitTime);
    stats.syncSubmitThroughput = throughputOrNone(megabytes, stats.syncSubmitTime);
    return true;
}

bool CFileAccessRequestHandler::collectReadLatencyStatistics(const CCmdOptions& options,
                                                             _SFSLatencyStatistics& stats)
{
    const FileAccess::DetailedStatistics& detailed =
        m_file_factory->getDetailedStatistics(options.m_block_size);
    fillLatency(options, statistics().getTotalReadTicks(resetDomain), detailed.read, stats);
    return true;
}

bool CFileAccessRequestHandler::collectWriteLatencyStatistics(const CCmdOptions& options,
                                                              _SFSLatencyStatistics& stats)
{
    const FileAccess::DetailedStatistics& detailed =
        m_file_factory->getDetailedStatistics(options.m_block_size);
    fillLatency(options, statistics().getTotalWriteTicks(resetDomain), detailed.write, stats);
    return true;
}

}  // namespace vetraTests
