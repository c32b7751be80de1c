#pragma once

#include <cstddef>

namespace profileTests {

/// How often the calling thread has called malloc or one of its relatives, operator new included.
/// Works under the sanitizers as well, which have an allocator of their own.
std::size_t allocationsOfThisThread();

}  // namespace profileTests
