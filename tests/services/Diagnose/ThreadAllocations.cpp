#include "tests/services/Diagnose/ThreadAllocations.h"

#include <cstdlib>

namespace {

thread_local std::size_t allocations = 0;

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// Of the sanitizers' run time, whose header not every compiler brings along.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*mallocHook)(const volatile void*,
                                                                            std::size_t),
                                                         void (*freeHook)(const volatile void*));

namespace {

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { ++allocations; },
    [](const volatile void*) { ++allocations; });

}  // namespace

#else

extern "C" {

void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t number, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void __libc_free(void* block);

void* malloc(std::size_t bytes)
{
    ++allocations;
    return __libc_malloc(bytes);
}
void* calloc(std::size_t number, std::size_t bytes)
{
    ++allocations;
    return __libc_calloc(number, bytes);
}
void* realloc(void* block, std::size_t bytes)
{
    ++allocations;
    return __libc_realloc(block, bytes);
}
void free(void* block)
{
    ++allocations;
    __libc_free(block);
}
}

#endif

namespace profileTests {

std::size_t allocationsOfThisThread()
{
    return allocations;
}

}  // namespace profileTests
