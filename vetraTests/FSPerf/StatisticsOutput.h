#pragma once

#include <memory>

#include "Basis/Containers.h"
#include "FileAccess/FileSystem.h"
#include "vetraTests/FSPerf/FSPerfCmdOpts.h"
#include "vetraTests/VetraTestDefines.h"

namespace vetraTests {

/// Turns the numbers of one run into its three texts: a JSON document, a report and a table row.
///
/// Units:   as in the records; the report cuts digits off, the table row rounds.
/// Errors:  infinities and what is no number print as 0 in the report, elsewhere as a stream prints
///          them. Texts go into the JSON as they are, without escapes.
/// Threads: any, as long as nobody changes the arguments.
class StatisticsOutput {
public:
    /// Keeps a reference to the handle, which must outlive the object.
    explicit StatisticsOutput(const std::shared_ptr<Basis::Allocator>& handle) : m_allocator(handle)
    {
    }
    explicit StatisticsOutput(std::shared_ptr<Basis::Allocator>&&) = delete;

    Basis::Allocator& getAllocator() const { return *m_allocator; }

    /// One member for each test that ran. Each line's comma stands where the block writes it;
    /// behind the last header line it stays even if no test follows.
    Basis::string outputJSONStatistics(const CCmdOptions& options,
                                       const _SFSStatistics& stats) const;
    Basis::string outputJSONStatisticsHeader(const CCmdOptions& options) const;
    Basis::string outputJSONStatisticsParameterList(const CCmdOptions& options) const;
    Basis::string outputJSONThroughputStatistics(const _SFSThroughputStatistics& stats) const;
    Basis::string outputJSONLatencyStatistics(const _SFSLatencyStatistics& stats) const;

    Basis::string outputHumanReadableStatistics(const CCmdOptions& options,
                                                const _SFSStatistics& stats) const;
    Basis::string outputHumanReadableThroughputStatistics(
        const _SFSThroughputStatistics& stats) const;
    Basis::string outputHumanReadableLatencyStatistics(const _SFSLatencyStatistics& stats) const;

    /// One row for the table of the I/O tests. A test without throughput has no column, the sum of
    /// the latencies always has one.
    Basis::string outputConsolidatedStatistics(const CCmdOptions& options,
                                               const _SFSStatistics& stats) const;

    /// An underlined heading; nothing for an empty text.
    Basis::string printTestResultHeader(const char* text, char fill) const;

private:
    const std::shared_ptr<Basis::Allocator>& m_allocator;
};

/// The lines of the JSON header that tell what the data file lies on.
Basis::string fileSystemJSON(const FileAccess::FileSystem& fileSystem, Basis::Allocator& allocator);

/// The figure that stands for a throughput test: MB/s.
double getoutputConsolidatedThroughputStatistics(const _SFSThroughputStatistics& stats);
/// The figure that stands for a latency test: microseconds.
double getoutputConsolidatedLatencyStatistics(const _SFSLatencyStatistics& stats);

}  // namespace vetraTests
