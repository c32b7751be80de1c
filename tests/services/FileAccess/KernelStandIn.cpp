#include "tests/services/FileAccess/KernelStandIn.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace fileLayerTests {

namespace {

bool takeOne(std::atomic<int>& count)
{
    int known = count;
    while (known > 0 && !count.compare_exchange_weak(known, known - 1))
        continue;
    return known > 0;
}

std::string nameOfThread()
{
    char name[16] = {};
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    return name;
}

// The library gives errors as negated numbers, the system call in errno.
int result(long value)
{
    return static_cast<int>(value < 0 ? -errno : value);
}

void hold(std::atomic<bool>& gate)
{
    gate = true;
}

void release(std::atomic<bool>& gate)
{
    gate = false;
    gate.notify_all();
}

}  // namespace

KernelStandIn& KernelStandIn::instance()
{
    static KernelStandIn* const standIn = new KernelStandIn;
    return *standIn;
}

void KernelStandIn::reset()
{
    for (std::atomic<long>* most : {&mostPerSubmission, &mostPerReap})
        *most = forEver;
    mostPerTransfer = std::numeric_limits<std::uint64_t>::max();
    for (std::atomic<int>* number :
         {&interruptedSubmissions, &busySubmissions, &interruptedReaps, &emptyReaps, &setupRefusal,
          &setupsBeforeRefusal, &interruptedTransfers, &readFailure, &writeFailure})
        *number = 0;
    refusal = nullptr;
    transferred = nullptr;
    failure = nullptr;
    for (std::atomic<std::uint64_t>* number : {&reaps, &transfers, &pauses})
        *number = 0;
    releaseSubmissions();
    releaseReaps();
    const std::scoped_lock lock(mutex);
    mostInFlight = 0;
    record.clear();
    sizes.clear();
    reapingThreads.clear();
}

void KernelStandIn::holdSubmissions()
{
    hold(submissionsHeld);
}

void KernelStandIn::releaseSubmissions()
{
    release(submissionsHeld);
}

void KernelStandIn::holdReaps()
{
    hold(reapsHeld);
}

void KernelStandIn::releaseReaps()
{
    release(reapsHeld);
}

void KernelStandIn::waitForHeldSubmission() const
{
    isHoldingOne.wait(false);
}

void KernelStandIn::waitForInFlight(std::uint64_t count) const
{
    for (std::uint64_t known = inFlightOfAll; known < count; known = inFlightOfAll)
        inFlightOfAll.wait(known);
}

std::vector<Submission> KernelStandIn::submissions() const
{
    const std::scoped_lock lock(mutex);
    return record;
}

std::uint64_t KernelStandIn::requestsTaken() const
{
    std::uint64_t taken = 0;
    for (const Submission& submission : submissions())
        taken += submission.taken;
    return taken;
}

std::uint64_t KernelStandIn::mostInFlightOfOneContext() const
{
    const std::scoped_lock lock(mutex);
    return mostInFlight;
}

std::vector<int> KernelStandIn::contextSizes() const
{
    const std::scoped_lock lock(mutex);
    return sizes;
}

std::map<io_context_t, std::set<std::string>> KernelStandIn::reapers() const
{
    const std::scoped_lock lock(mutex);
    return reapingThreads;
}

int KernelStandIn::setUp(int depth, io_context_t* context)
{
    {
        const std::scoped_lock lock(mutex);
        sizes.push_back(depth);
    }
    if (setupRefusal != 0 && !takeOne(setupsBeforeRefusal))
        return -setupRefusal;
    return result(::syscall(SYS_io_setup, depth, context));
}

// How many of the requests are taken before the first one that is refused.
long KernelStandIn::countTaken(iocb** requests, long count, int& refused) const
{
    const long most = std::min<long>(count, mostPerSubmission);
    for (long taken = 0; taken < most; ++taken) {
        refused = refusal ? refusal(*requests[taken]) : 0;
        if (refused != 0)
            return taken;
    }
    return most;
}

void KernelStandIn::shorten(iocb& request)
{
    if (!transferred)
        return;
    const std::uint64_t part = std::min<std::uint64_t>(request.u.c.nbytes, transferred(request));
    const std::scoped_lock lock(mutex);
    wholeSizes[&request] = request.u.c.nbytes;
    request.u.c.nbytes = part;
}

void KernelStandIn::makeWhole(iocb& request)
{
    const std::scoped_lock lock(mutex);
    const auto found = wholeSizes.find(&request);
    if (found == wholeSizes.end())
        return;
    request.u.c.nbytes = found->second;
    wholeSizes.erase(found);
}

// Before the kernel has them: the layer must have held their number down already.
void KernelStandIn::begin(Submission submission)
{
    std::uint64_t& ofContext = inFlight[submission.context];
    submission.inFlightBefore = ofContext;
    ofContext += submission.taken;
    mostInFlight = std::max(mostInFlight, ofContext);
    record.push_back(std::move(submission));
}

void KernelStandIn::correct(std::size_t number, std::uint64_t taken)
{
    const std::scoped_lock lock(mutex);
    inFlight[record[number].context] -= record[number].taken - taken;
    record[number].taken = taken;
}

int KernelStandIn::submit(io_context_t context, long count, iocb** requests)
{
    while (submissionsHeld) {
        isHoldingOne = true;
        isHoldingOne.notify_all();
        submissionsHeld.wait(true);
    }
    isHoldingOne = false;
    int refused = 0;
    long wanted = 0;
    if (takeOne(interruptedSubmissions))
        refused = EINTR;
    else if (takeOne(busySubmissions))
        refused = EAGAIN;
    else
        wanted = countTaken(requests, count, refused);

    std::size_t number = 0;
    {
        const std::scoped_lock lock(mutex);
        number = record.size();
        begin({.thread = std::this_thread::get_id(),
               .threadName = nameOfThread(),
               .context = context,
               .inFlightBefore = 0,
               .offered = static_cast<std::uint64_t>(count),
               .taken = static_cast<std::uint64_t>(wanted)});
    }
    if (wanted == 0)
        return -refused;
    for (long i = 0; i < wanted; ++i)
        shorten(*requests[i]);
    const int taken = result(::syscall(SYS_io_submit, context, wanted, requests));
    for (long i = std::max(taken, 0); i < wanted; ++i)
        makeWhole(*requests[i]);
    if (taken != wanted)
        correct(number, static_cast<std::uint64_t>(std::max(taken, 0)));
    inFlightOfAll += static_cast<std::uint64_t>(std::max(taken, 0));
    inFlightOfAll.notify_all();
    return taken;
}

void KernelStandIn::endEvent(io_event& event)
{
    iocb& request = *event.obj;
    const int ending = failure ? failure(request) : 0;
    if (ending != 0) {
        if (request.aio_lio_opcode == IO_CMD_PREAD)
            std::memset(request.u.c.buf, 0xee, request.u.c.nbytes);
        event.res = static_cast<unsigned long>(-static_cast<long>(ending));
    }
    makeWhole(request);
}

int KernelStandIn::reap(io_context_t context, long least, long most, io_event* events,
                        timespec* patience)
{
    ++reaps;
    reapsHeld.wait(true);
    if (takeOne(interruptedReaps))
        return -EINTR;
    if (takeOne(emptyReaps))
        return 0;
    const long limit = std::min<long>(most, mostPerReap);
    const int count = result(
        ::syscall(SYS_io_getevents, context, std::min(least, limit), limit, events, patience));
    if (count <= 0)
        return count;
    {
        // Also lets this thread see what the submitting one wrote into the requests.
        const std::scoped_lock lock(mutex);
        inFlight[context] -= static_cast<std::uint64_t>(count);
        reapingThreads[context].insert(nameOfThread());
    }
    for (int i = 0; i < count; ++i)
        endEvent(events[i]);
    inFlightOfAll -= static_cast<std::uint64_t>(count);
    inFlightOfAll.notify_all();
    return count;
}

std::int64_t KernelStandIn::transfer(std::size_t size, const std::atomic<int>& failureOfDirection)
{
    ++transfers;
    if (takeOne(interruptedTransfers))
        return -EINTR;
    if (failureOfDirection != 0)
        return -failureOfDirection;
    return static_cast<std::int64_t>(std::min<std::uint64_t>(size, mostPerTransfer));
}

}  // namespace fileLayerTests

// These come before those of the libraries, since the linker meets them first.

using fileLayerTests::KernelStandIn;

extern "C" int io_setup(int depth, io_context_t* context)
{
    return KernelStandIn::instance().setUp(depth, context);
}

extern "C" int io_submit(io_context_t context, long count, iocb** requests)
{
    return KernelStandIn::instance().submit(context, count, requests);
}

extern "C" int io_getevents(io_context_t context, long least, long most, io_event* events,
                            timespec* patience)
{
    return KernelStandIn::instance().reap(context, least, most, events, patience);
}

extern "C" ssize_t pread(int descriptor, void* memory, size_t size, off_t offset)
{
    KernelStandIn& standIn = KernelStandIn::instance();
    const std::int64_t most = standIn.transfer(size, standIn.readFailure);
    if (most >= 0)
        return ::syscall(SYS_pread64, descriptor, memory, most, offset);
    errno = static_cast<int>(-most);
    return -1;
}

extern "C" ssize_t pwrite(int descriptor, const void* memory, size_t size, off_t offset)
{
    KernelStandIn& standIn = KernelStandIn::instance();
    const std::int64_t most = standIn.transfer(size, standIn.writeFailure);
    if (most >= 0)
        return ::syscall(SYS_pwrite64, descriptor, memory, most, offset);
    errno = static_cast<int>(-most);
    return -1;
}

extern "C" int nanosleep(const timespec*, timespec*)
{
    ++KernelStandIn::instance().pauses;
    std::this_thread::yield();
    return 0;
}
