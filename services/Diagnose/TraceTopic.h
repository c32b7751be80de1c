#pragma once

#include <atomic>
#include <string_view>

namespace Diagnose {

/// How much a topic says. A line is written if its level is at most the level in force.
enum class TraceLevel : int { Off = 0, Fatal = 1, Error = 2, Warning = 3, Info = 4, Debug = 5 };

/// A named subject of diagnosis. The texts given to init must be literals.
class DiagTopic {
public:
    void init(const char* topicName, const char* topicDescription);

    const char* name() const { return ownName; }
    const char* description() const { return ownDescription; }

private:
    const char* ownName = "";
    const char* ownDescription = "";
};

/// A topic that can write lines into the trace file.
///
/// Lifetime:   a static object between initStat and destroy; outside of that, trace writes nothing.
/// Threads:    trace may be called from any thread, initStat before and destroy after all others.
/// Errors:     tracing never fails visibly; see TraceConfiguration.
class TraceTopic : public DiagTopic {
public:
    /// Makes the topic known. It follows the global level.
    void initStat();
    /// Silences the topic and forgets it.
    void destroy();

    bool isActive(TraceLevel level) const;
    void trace(TraceLevel level, std::string_view text) const;

    /// The level of all topics; Error at the start.
    static void setGlobalTraceLevel(TraceLevel level);
    static TraceLevel globalTraceLevel();

    /// A topic by its name, null if no topic of that name is between initStat and destroy.
    static const TraceTopic* find(std::string_view name);

private:
    std::atomic<bool> known{false};
};

/// The topic of the diagnostics themselves.
const TraceTopic& diagnoseTopic();

}  // namespace Diagnose
