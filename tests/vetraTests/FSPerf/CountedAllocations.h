#pragma once

#include <cstddef>

namespace vetraTests {

/// Counts the calls of malloc and its relatives from all threads while `isCounting`. Works under
/// the sanitizers as well, which have an allocator of their own.
class CountedAllocations {
public:
    static void begin();
    /// How many there were since begin.
    static std::size_t end();
};

/// While an object lives, operator new refuses requests of `bytes` and more.
class RefusedAllocations {
public:
    explicit RefusedAllocations(std::size_t bytes);
    ~RefusedAllocations();
    RefusedAllocations(const RefusedAllocations&) = delete;
    RefusedAllocations& operator=(const RefusedAllocations&) = delete;
};

}  // namespace vetraTests
