#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "Diagnose/SampleRecords.h"

namespace Diagnose {

/// Walks stacks of this process that were copied some time ago.
/// Threads: one at a time. While a stack is walked no library is unloaded, since the loader's list
///          of libraries is held; threads that load one wait for the few microseconds.
class StackWalker {
public:
    static constexpr std::size_t mostFrames = 256;

    /// Throws std::bad_alloc alone.
    StackWalker();
    ~StackWalker();
    StackWalker(const StackWalker&) = delete;
    StackWalker& operator=(const StackWalker&) = delete;

    /// The code addresses of the frames, the innermost first. It is exact; the others point behind
    /// the call, so that what they call from is the address before. Valid until the next walk.
    std::span<const std::uint64_t> walk(const StackCopy& copy);

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace Diagnose
