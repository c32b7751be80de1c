#pragma once

#include <cstddef>
#include <exception>
#include <memory_resource>
#include <string>
#include <utility>

#include "Basis/Allocator.h"
#include "vetraDefines.h"

namespace vetraTests {

/// A domain that throws once, at the allocation that it was armed for. It is how a test reaches
/// what the code does about exceptions from the layers below.
class FailingAllocator : public Basis::Allocator {
public:
    FailingAllocator() : Basis::Allocator(nullptr, "FAILING") {}

    /// The next allocation of at least `size` bytes throws, after `skipped` others of that size.
    void throwAtAllocationOf(std::size_t size, std::size_t skipped, std::exception_ptr exception)
    {
        leastSize = size;
        remaining = skipped;
        armed = std::move(exception);
    }

    /// True if the exception still waits to be thrown.
    bool isArmed() const { return armed != nullptr; }
    void disarm() { armed = nullptr; }

    /// All allocations so far.
    std::size_t allocations() const { return counted; }

private:
    void* do_allocate(std::size_t size, std::size_t alignment) override
    {
        if (armed && size >= leastSize && remaining-- == 0)
            std::rethrow_exception(std::exchange(armed, nullptr));
        ++counted;
        return std::pmr::new_delete_resource()->allocate(size, alignment);
    }

    void do_deallocate(void* block, std::size_t size, std::size_t alignment) override
    {
        std::pmr::new_delete_resource()->deallocate(block, size, alignment);
    }

    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override
    {
        return this == &other;
    }

    std::size_t counted = 0;
    std::size_t leastSize = 0;
    std::size_t remaining = 0;
    std::exception_ptr armed;
};

/// An exception of the tool, and the text that it prints.
struct ToolException {
    std::exception_ptr exception;
    std::string text;
};

inline ToolException toolException()
{
    try {
        Vetra::raise(Vetra__ERR_GENERIC(), {"raised by a test"});
    } catch (const Vetra::VetraException& exception) {
        return {std::current_exception(), exception.what()};
    }
}

}  // namespace vetraTests
