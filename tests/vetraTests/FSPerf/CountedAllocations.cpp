#include "tests/vetraTests/FSPerf/CountedAllocations.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> isCounting{false};
std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> refusedFrom{SIZE_MAX};

void count()
{
    if (isCounting)
        ++allocations;
}

void* allocate(std::size_t bytes, std::size_t alignment)
{
    if (bytes >= refusedFrom)
        throw std::bad_alloc();
    // Not all sanitizers tell their hooks of aligned memory, so only who needs it gets it.
    void* block = nullptr;
    if (alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__)
        block = std::malloc(bytes);
    else if (::posix_memalign(&block, alignment, bytes) != 0)
        block = nullptr;
    if (!block)
        throw std::bad_alloc();
    return block;
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// Of the sanitizers' run time, whose header not every compiler brings along.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*mallocHook)(const volatile void*,
                                                                            std::size_t),
                                                         void (*freeHook)(const volatile void*));

namespace {

void hookOfMalloc(const volatile void*, std::size_t)
{
    count();
}
void hookOfFree(const volatile void*) {}

[[maybe_unused]] const int installed =
    __sanitizer_install_malloc_and_free_hooks(&hookOfMalloc, &hookOfFree);

}  // namespace

#else

extern "C" {

void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t number, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);

void* malloc(std::size_t bytes)
{
    count();
    return __libc_malloc(bytes);
}
void* calloc(std::size_t number, std::size_t bytes)
{
    count();
    return __libc_calloc(number, bytes);
}
void* realloc(void* block, std::size_t bytes)
{
    count();
    return __libc_realloc(block, bytes);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes)
{
    count();
    *block = __libc_memalign(alignment, bytes);
    return *block ? 0 : 12;
}
}

#endif

void* operator new(std::size_t bytes)
{
    return allocate(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return allocate(bytes, static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    std::free(block);
}

namespace vetraTests {

void CountedAllocations::begin()
{
    allocations = 0;
    isCounting = true;
}

std::size_t CountedAllocations::end()
{
    isCounting = false;
    return allocations;
}

RefusedAllocations::RefusedAllocations(std::size_t bytes)
{
    refusedFrom = bytes;
}

RefusedAllocations::~RefusedAllocations()
{
    refusedFrom = SIZE_MAX;
}

}  // namespace vetraTests
