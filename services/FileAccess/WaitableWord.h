#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>

namespace FileAccess {

/// A number that threads can wait on, and that costs its writers one load while nobody does.
///
/// Waiting sleeps in the kernel at once: on a busy machine a thread that first gives the processor
/// away a few times gets it back late. Threads: any.
class WaitableWord {
public:
    std::atomic<std::uint32_t> value{0};

    /// Returns when the value is another one.
    void waitWhile(std::uint32_t known)
    {
        sleepers.fetch_add(1, std::memory_order_seq_cst);
        while (value.load(std::memory_order_seq_cst) == known)
            ::syscall(SYS_futex, &value, FUTEX_WAIT_PRIVATE, known, nullptr, nullptr, 0);
        sleepers.fetch_sub(1, std::memory_order_seq_cst);
    }

    /// To be called after each change of the value that somebody may wait for; the change is
    /// sequentially consistent, so that either the sleeper is seen here or the change there.
    void wake()
    {
        if (sleepers.load(std::memory_order_seq_cst) != 0)
            ::syscall(SYS_futex, &value, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
    }

private:
    std::atomic<std::uint32_t> sleepers{0};
};
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));

}  // namespace FileAccess
