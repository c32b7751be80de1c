#include "System/Environment.h"

#include <cstdlib>

namespace System {

const char* Environment::getenv(const char* name, const char* fallback)
{
    const char* value = std::getenv(name);
    return value ? value : fallback;
}

}  // namespace System
