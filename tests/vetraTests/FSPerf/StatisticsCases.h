#pragma once

#include <gtest/gtest.h>

#include "vetraTests/FSPerf/FSPerfCmdOpts.h"
#include "vetraTests/FSPerf/StatisticsOutput.h"

namespace vetraTests {

/// Figures that tell by their hundreds or tens whose they are, and by their units which.
inline _SFSStatistics someStatistics()
{
    const auto throughput = [](double base) {
        return _SFSThroughputStatistics{base + 1,   base + 2, base + 3, base + 4, base + 5,
                                        base + 6.5, base + 7, base + 8, base + 9, base + 10};
    };
    const auto latency = [](double base) {
        return _SFSLatencyStatistics{base + 1, base + 2, base + 3.25, base + 4};
    };
    return {throughput(100), throughput(200), throughput(300),
            latency(10),     latency(20),     latency(30)};
}

/// A run of all tests in a directory that does not exist.
inline void newOptions(CCmdOptions& options)
{
    options.m_block_size = 16384;
    options.m_block_size_text = "16K";
    options.m_file_size = 1UL << 30;
    options.m_file_size_text = "1G";
    options.m_directory_path = "/no/such/directory";
}

/// Calls `check` for each choice of at least one test, with each measurement.
template <class Check>
void forAllFlagsAndMasks(Check check)
{
    for (unsigned flags = 1; flags < 8; ++flags) {
        for (std::uint8_t mask = 1; mask < 4; ++mask) {
            CCmdOptions options;
            newOptions(options);
            options.m_test_initial_write = (flags & 4) != 0;
            options.m_test_overwrite = (flags & 2) != 0;
            options.m_test_read = (flags & 1) != 0;
            options.m_measurements = mask;
            SCOPED_TRACE(testing::Message() << "tests " << flags << ", mask " << int{mask});
            check(options);
        }
    }
}

}  // namespace vetraTests
