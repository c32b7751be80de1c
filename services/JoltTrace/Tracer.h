#pragma once

#include <string_view>

#include "Diagnose/TraceTopic.h"

namespace JoltTrace {

/// Writes the trace lines of one object on a topic, which outlives it.
class Tracer {
public:
    explicit Tracer(const Diagnose::TraceTopic& traceTopic) : topic(traceTopic) {}

    bool isActive(Diagnose::TraceLevel level) const { return topic.isActive(level); }
    void trace(Diagnose::TraceLevel level, std::string_view text) const
    {
        topic.trace(level, text);
    }

private:
    const Diagnose::TraceTopic& topic;
};

}  // namespace JoltTrace
