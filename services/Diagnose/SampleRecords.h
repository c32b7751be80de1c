#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace Diagnose {

/// What a thread left of itself at one moment: its registers and the upper part of its stack.
struct StackCopy {
    static constexpr std::size_t registerCount = 17;
    static constexpr std::size_t mostWords = 8192;

    std::uint64_t registers[registerCount];  ///< in the order of the DWARF numbers
    std::uint64_t stackAddress;              ///< where the first word lay
    std::size_t wordCount;
    std::uint64_t words[mostWords];
};

/// The records into which threads copy their own stacks when they are asked to.
///
/// A thread is asked by the sampling signal, whose ticket names a record. Its handler does nothing
/// but copy: no lock, no allocation and no code of others, so it may interrupt malloc, the loader,
/// the unwinding of an exception, another handler or anything else. The stack is walked later, on
/// the thread of the one who asked, from the copy. A walk in the handler would have to read the
/// loader's lists, whose lock learns its owner a moment after it was taken: a thread interrupted in
/// that moment would wait for itself. The library that walks has locks and memory of its own too.
///
/// Ownership:  a record is the asker's, then the handler's from the moment it arrives there, and
///             the asker's again once it is filled. A request that was withdrawn before a handler
///             took it is not taken any more, however late its signal comes.
/// Threads:    all calls from one thread at a time.
/// Lifetime:   the memory stays until the end of the process, as a handler may.
class SampleRecords {
public:
    static constexpr unsigned count = 256;

    enum class Answer { Asked, NoRecord, ThreadGone, Refused };

    /// Sets the handler of the sampling signal. Returns an errno, 0 for success; EBUSY if the
    /// signal has a handler already, ENOTSUP on a machine whose registers are not known.
    static int open();
    /// Signals that are still under way are discarded, then the signal is as before.
    static void close();

    /// Asks a thread of this process for its stack; `record` is the one that will be filled.
    static Answer ask(pid_t thread, unsigned& record);

    /// The copy, once it is there; null before.
    static const StackCopy* filled(unsigned record);
    /// Gives a filled record back.
    static void release(unsigned record);
    /// Takes a request back. If a handler has begun with it, the record is free when that is done.
    static void withdraw(unsigned record);
    /// Takes all requests back, in a child that was forked: no handler is at work there.
    static void takeBackAll();
};

}  // namespace Diagnose
