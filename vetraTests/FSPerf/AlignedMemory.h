#pragma once

#include <cstddef>
#include <utility>

namespace vetraTests {

/// Memory for requests: whole pages of its own, straight from the kernel.
///
/// A run holds as much of it as its data file is large. It comes untouched, so that filling it is
/// the first and only pass over it, and it goes back as one piece.
///
/// Alignment: that of a page, which is enough for direct I/O and for control blocks.
/// Errors:    std::bad_alloc if the memory cannot be had. No domain counts it.
class AlignedMemory {
public:
    /// No memory; data() is null.
    AlignedMemory() = default;
    /// Zero bytes are no memory.
    explicit AlignedMemory(std::size_t bytes);
    ~AlignedMemory();

    AlignedMemory(AlignedMemory&& other) noexcept
        : start(std::exchange(other.start, nullptr)), length(std::exchange(other.length, 0))
    {
    }
    AlignedMemory& operator=(AlignedMemory&& other) noexcept
    {
        std::swap(start, other.start);
        std::swap(length, other.length);
        return *this;
    }

    std::byte* data() const { return start; }
    std::size_t size() const { return length; }

private:
    std::byte* start = nullptr;
    std::size_t length = 0;
};

}  // namespace vetraTests
