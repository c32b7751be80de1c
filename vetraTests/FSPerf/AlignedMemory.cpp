#include "vetraTests/FSPerf/AlignedMemory.h"

#include <sys/mman.h>

#include <new>

namespace vetraTests {

namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;

}  // namespace

AlignedMemory::AlignedMemory(std::size_t bytes)
{
    if (bytes == 0)
        return;
    void* const pages =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        throw std::bad_alloc();
    // Only advice: a kernel without huge pages serves small ones, and the first touch takes longer.
    if (bytes >= hugePage)
        static_cast<void>(::madvise(pages, bytes, MADV_HUGEPAGE));
    start = static_cast<std::byte*>(pages);
    length = bytes;
}

AlignedMemory::~AlignedMemory()
{
    if (start)
        ::munmap(start, length);
}

}  // namespace vetraTests
