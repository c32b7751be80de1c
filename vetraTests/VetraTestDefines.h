#pragma once

namespace vetraTests {

/// What one throughput pass over the data file showed. Times are seconds, rates MB/s; a pass that
/// did not run leaves zeros.
struct _SFSThroughputStatistics {
    double numOperations = 0;
    double ioTime = 0;
    double ratioTriggerToIO = 0;  ///< triggerTime divided by ioTime
    double asyncSubmitTime = 0;
    double syncSubmitTime = 0;
    double ioThroughput = 0;
    double asyncSubmitThroughput = 0;  ///< 0 if nothing was submitted that way
    double syncSubmitThroughput = 0;   ///< 0 if nothing was submitted that way
    double triggerThroughput = 0;
    double triggerTime = 0;
};

/// What one latency pass over the data file showed.
struct _SFSLatencyStatistics {
    double numOperations = 0;
    double ioTime = 0;        ///< seconds
    double latency = 0;       ///< microseconds that one request took, on average
    double ioThroughput = 0;  ///< MB/s
};

/// All passes of one run of the engine.
struct _SFSStatistics {
    _SFSThroughputStatistics initialWriteThroughput;
    _SFSThroughputStatistics overwriteThroughput;
    _SFSThroughputStatistics readThroughput;
    _SFSLatencyStatistics initialWriteLatency;
    _SFSLatencyStatistics overwriteLatency;
    _SFSLatencyStatistics readLatency;
};

}  // namespace vetraTests
