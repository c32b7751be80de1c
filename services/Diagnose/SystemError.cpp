#include "Diagnose/SystemError.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "Diagnose/TraceTopic.h"

namespace Diagnose {

std::ostream& operator<<(std::ostream& stream, SystemError error)
{
    const char* name = ::strerrorname_np(error.number);
    return stream << std::strerror(error.number) << " (" << error.number << ", "
                  << (name ? name : "unknown") << ')';
}

SystemError getSystemError()
{
    return {errno};
}

LastSystemErrorCache::LastSystemErrorCache() : saved(errno) {}

void LastSystemErrorCache::restore(char const* tag) const
{
    const int disturbed = errno;
    if (disturbed != saved && diagnoseTopic().isActive(TraceLevel::Debug)) {
        diagnoseTopic().trace(TraceLevel::Debug,
                              std::string(tag) + " changed the last system error from " +
                                  std::to_string(saved) + " to " + std::to_string(disturbed));
    }
    errno = saved;
}

}  // namespace Diagnose
