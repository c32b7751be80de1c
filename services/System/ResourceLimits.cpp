#include "System/ResourceLimits.h"

#include <sys/resource.h>

#include <algorithm>
#include <fstream>

namespace System {

namespace {

// Commands inherit the limit, and old ones close every number up to it.
constexpr rlim_t sensibleMaximum = 1048576;

// The kernel refuses a hard limit above its own maximum, also to root.
rlim_t kernelMaximum()
{
    std::ifstream file("/proc/sys/fs/nr_open");
    rlim_t maximum = 0;
    file >> maximum;
    return std::min(maximum, sensibleMaximum);
}

}  // namespace

unsigned long raiseOpenFileLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    const rlim_t maximum = kernelMaximum();
    if (maximum > limit.rlim_max) {
        const rlimit highest{maximum, maximum};
        if (::setrlimit(RLIMIT_NOFILE, &highest) == 0)
            return maximum;
    }
    const rlimit raised{std::max(limit.rlim_cur, std::min(limit.rlim_max, sensibleMaximum)),
                        limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0)
        return raised.rlim_cur;
    return limit.rlim_cur;
}

}  // namespace System
