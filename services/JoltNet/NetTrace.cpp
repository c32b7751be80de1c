#include "JoltNet/NetTrace.h"

#include <string>

namespace JoltNet {

namespace {

// Known from the first line on, for as long as the process lives.
const Diagnose::TraceTopic& topic()
{
    static Diagnose::TraceTopic* const instance = [] {
        static Diagnose::TraceTopic made;
        made.init("JoltNet", "network engine");
        made.initStat();
        return &made;
    }();
    return *instance;
}

}  // namespace

void trace(Diagnose::TraceLevel level, std::string_view what, std::string_view detail)
{
    if (topic().isActive(level))
        topic().trace(level, std::string(what).append(detail));
}

}  // namespace JoltNet
