#include "Diagnose/SampleRecords.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "Diagnose/SamplingSignal.h"

namespace Diagnose {

namespace {

// The lowest bits of a record's state; the others count its requests, so that a signal that comes
// late does not match.
enum Phase : std::uint64_t { Free = 0, Asked = 1, Filling = 2, Filled = 3 };
constexpr std::uint64_t phaseMask = 3;
constexpr std::uint64_t oneRequest = 4;

struct Record {
    std::atomic<std::uint64_t> state;
    StackCopy copy;
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// The ticket that the signal carries: the number of the record below that of the request.
constexpr std::uint64_t ticketShift = 8;
static_assert(SampleRecords::count <= 1U << ticketShift);

std::atomic<Record*> records{nullptr};
std::atomic<pid_t> owner{0};

// Of the one who asks.
unsigned nextRecord = 0;
bool isAbandoned[SampleRecords::count];

constexpr std::uint64_t pageSize = 4096;

// The kernel reads the set before it looks at what is to be done with it, which is nothing.
bool isReadable(std::uint64_t address)
{
    constexpr int nothing = -1;
    const long result = ::syscall(SYS_rt_sigprocmask, nothing, address, nullptr, 8);
    return !(result == -1 && errno == EFAULT);
}

// Word by word: a sanitizer would find fault with memcpy over the gaps between variables.
__attribute__((noinline, no_sanitize("address"), no_sanitize("thread"))) void copyWords(
    std::uint64_t* target, std::uint64_t address, std::uint64_t end)
{
    const auto* source = reinterpret_cast<const volatile std::uint64_t*>(address);
    const auto* const last = reinterpret_cast<const volatile std::uint64_t*>(end);
    while (source != last)
        *target++ = *source++;
}

// In one call, which finds by itself where memory ends: between a look and a copy somebody might
// take away what lies above the stack. False where the kernel refuses it.
bool copyAtOnce(StackCopy& copy)
{
    const iovec place{copy.words, sizeof copy.words};
    const iovec source{reinterpret_cast<void*>(copy.stackAddress), sizeof copy.words};
    const long count =
        ::syscall(SYS_process_vm_readv, owner.load(), &place, 1UL, &source, 1UL, 0UL);
    if (count <= 0)
        return false;
    copy.wordCount = static_cast<std::size_t>(count) / sizeof(std::uint64_t);
    return true;
}

// Up to where the stack's memory ends, or to the size of a record.
void copyStack(StackCopy& copy, std::uint64_t stackPointer)
{
    copy.stackAddress = stackPointer & ~std::uint64_t{7};
    copy.wordCount = 0;
    if (copyAtOnce(copy))
        return;
    std::uint64_t address = copy.stackAddress;
    const std::uint64_t most = address + sizeof copy.words;
    while (address < most && isReadable(address)) {
        std::uint64_t end = (address | (pageSize - 1)) + 1;
        if (end > most)
            end = most;
        copyWords(copy.words + copy.wordCount, address, end);
        copy.wordCount += (end - address) / sizeof(std::uint64_t);
        address = end;
    }
}

#if defined(__x86_64__)
constexpr bool knowsMachine = true;

// Returns the stack pointer.
std::uint64_t copyRegisters(StackCopy& copy, const ucontext_t& context)
{
    constexpr int order[StackCopy::registerCount] = {
        REG_RAX, REG_RDX, REG_RCX, REG_RBX, REG_RSI, REG_RDI, REG_RBP, REG_RSP, REG_R8,
        REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15, REG_RIP};
    const greg_t* const values = context.uc_mcontext.gregs;
    for (std::size_t i = 0; i < StackCopy::registerCount; ++i)
        copy.registers[i] = static_cast<std::uint64_t>(values[order[i]]);
    return static_cast<std::uint64_t>(values[REG_RSP]);
}
#else
constexpr bool knowsMachine = false;

std::uint64_t copyRegisters(StackCopy&, const ucontext_t&)
{
    return 0;
}
#endif

void handleSamplingSignal(int, siginfo_t* info, void* context)
{
    Record* const all = records.load(std::memory_order_acquire);
    if (!all || info->si_code != SI_QUEUE || info->si_pid != owner)
        return;
    const auto ticket = reinterpret_cast<std::uint64_t>(info->si_value.sival_ptr);
    const std::uint64_t number = ticket & ((1U << ticketShift) - 1);
    if (number >= SampleRecords::count)
        return;
    Record& record = all[number];
    const std::uint64_t request = (ticket >> ticketShift) * oneRequest;
    std::uint64_t expected = request | Asked;
    if (!record.state.compare_exchange_strong(expected, request | Filling))
        return;
    const int lastError = errno;
    copyStack(record.copy, copyRegisters(record.copy, *static_cast<const ucontext_t*>(context)));
    errno = lastError;
    record.state.store(request | Filled, std::memory_order_release);
}

int makeRecords()
{
    if (records)
        return 0;
    // Pages that no sample has touched yet cost nothing.
    void* const memory = ::mmap(nullptr, SampleRecords::count * sizeof(Record),
                                PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return errno;
    records = static_cast<Record*>(memory);
    return 0;
}

// The record given back last is the first to be taken: its memory is still in the caches.
Record* takeFree(unsigned& number)
{
    Record* const all = records;
    for (unsigned i = 0; i < SampleRecords::count; ++i) {
        number = (nextRecord + i) % SampleRecords::count;
        if (isAbandoned[number] && SampleRecords::filled(number))
            SampleRecords::release(number);
        if ((all[number].state.load(std::memory_order_relaxed) & phaseMask) == Free)
            return &all[number];
    }
    return nullptr;
}

}  // namespace

int SampleRecords::open()
{
    if (!knowsMachine)
        return ENOTSUP;
    if (const int error = makeRecords(); error != 0)
        return error;
    struct sigaction before {};
    ::sigaction(samplingSignal(), nullptr, &before);
    if (before.sa_handler != SIG_DFL)
        return EBUSY;
    owner = ::getpid();
    struct sigaction action {};
    action.sa_sigaction = &handleSamplingSignal;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    ::sigfillset(&action.sa_mask);
    return ::sigaction(samplingSignal(), &action, nullptr) == 0 ? 0 : errno;
}

// A thread may sleep for long where no signal reaches it. Ignoring a signal discards those that are
// under way, which would end the process if they arrived later.
void SampleRecords::close()
{
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    ::sigaction(samplingSignal(), &action, nullptr);
    action.sa_handler = SIG_DFL;
    ::sigaction(samplingSignal(), &action, nullptr);
}

SampleRecords::Answer SampleRecords::ask(pid_t thread, unsigned& number)
{
    Record* const record = takeFree(number);
    if (!record)
        return Answer::NoRecord;
    const std::uint64_t state = record->state.load(std::memory_order_relaxed) + oneRequest;
    record->state.store(state | Asked, std::memory_order_release);

    siginfo_t info;
    std::memset(&info, 0, sizeof info);
    info.si_code = SI_QUEUE;
    info.si_pid = owner;
    info.si_uid = ::getuid();
    const std::uint64_t ticket = (state / oneRequest) << ticketShift | number;
    info.si_value.sival_ptr = reinterpret_cast<void*>(ticket);
    if (::syscall(SYS_rt_tgsigqueueinfo, info.si_pid, thread, samplingSignal(), &info) == 0)
        return Answer::Asked;
    const int error = errno;
    withdraw(number);
    return error == ESRCH ? Answer::ThreadGone : Answer::Refused;
}

const StackCopy* SampleRecords::filled(unsigned number)
{
    Record& record = records.load()[number];
    const std::uint64_t state = record.state.load(std::memory_order_acquire);
    return (state & phaseMask) == Filled ? &record.copy : nullptr;
}

void SampleRecords::release(unsigned number)
{
    std::atomic<std::uint64_t>& state = records.load()[number].state;
    state.store(state.load(std::memory_order_relaxed) & ~phaseMask, std::memory_order_release);
    isAbandoned[number] = false;
    nextRecord = number;
}

void SampleRecords::withdraw(unsigned number)
{
    std::atomic<std::uint64_t>& state = records.load()[number].state;
    std::uint64_t asked = (state.load(std::memory_order_relaxed) & ~phaseMask) | Asked;
    if (!state.compare_exchange_strong(asked, asked & ~phaseMask))
        isAbandoned[number] = true;
}

void SampleRecords::takeBackAll()
{
    Record* const all = records;
    for (unsigned number = 0; all && number < count; ++number) {
        if ((all[number].state.load(std::memory_order_relaxed) & phaseMask) != Free)
            release(number);
    }
}

}  // namespace Diagnose
