#pragma once

#include <libaio.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace fileLayerTests {

/// One submission, as the kernel saw it.
struct Submission {
    std::thread::id thread;
    std::string threadName;
    io_context_t context;
    std::uint64_t inFlightBefore;  ///< requests of this context that had not been reaped
    std::uint64_t offered;
    std::uint64_t taken;
};

/// Stands between the layer and the kernel in the programs that link it: it does what a kernel may
/// do but seldom does, holds calls up, and keeps a record of them. All of it is off at first, and
/// again after reset. Pauses of the layer are counted and last no time.
///
/// Functions are to be set while nothing is in flight.
class KernelStandIn {
public:
    static constexpr int forEver = std::numeric_limits<int>::max();

    static KernelStandIn& instance();
    /// Switches everything off and forgets the record. Not while requests are in flight.
    void reset();

    /// The most requests that one submission takes, and the most events that one reap gives.
    std::atomic<long> mostPerSubmission{forEver};
    std::atomic<long> mostPerReap{forEver};
    /// So many submissions are interrupted, or told to come again, before one is served.
    std::atomic<int> interruptedSubmissions{0};
    std::atomic<int> busySubmissions{0};
    /// So many reaps are interrupted, or give nothing, before one is served.
    std::atomic<int> interruptedReaps{0};
    std::atomic<int> emptyReaps{0};
    /// The errno with which contexts are refused, or 0, and how many are not before.
    std::atomic<int> setupRefusal{0};
    std::atomic<int> setupsBeforeRefusal{0};
    /// The errno with which a request is refused, or 0.
    std::function<int(const iocb&)> refusal;
    /// How many bytes of a request are to be transferred at once.
    std::function<std::uint64_t(const iocb&)> transferred;
    /// The errno with which a request is to end, or 0. What a failed read would have brought is
    /// overwritten.
    std::function<int(const iocb&)> failure;

    /// So many blocking transfers are interrupted before one is served.
    std::atomic<int> interruptedTransfers{0};
    /// The most bytes that one blocking transfer moves.
    std::atomic<std::uint64_t> mostPerTransfer{std::numeric_limits<std::uint64_t>::max()};
    /// The errno of blocking reads and writes, or 0.
    std::atomic<int> readFailure{0};
    std::atomic<int> writeFailure{0};

    /// Lets the next submissions or reaps wait until they are released.
    void holdSubmissions();
    void releaseSubmissions();
    void holdReaps();
    void releaseReaps();
    /// Returns when a submission is being held up.
    void waitForHeldSubmission() const;
    /// Returns when so many requests, or more, are in flight in all contexts together. Only while
    /// reaps are held up.
    void waitForInFlight(std::uint64_t count) const;

    /// The record since the last reset, submissions in their order.
    std::vector<Submission> submissions() const;
    std::uint64_t requestsTaken() const;
    std::uint64_t mostInFlightOfOneContext() const;
    std::vector<int> contextSizes() const;
    /// The threads that reaped, by context.
    std::map<io_context_t, std::set<std::string>> reapers() const;
    std::atomic<std::uint64_t> reaps{0};
    std::atomic<std::uint64_t> transfers{0};
    std::atomic<std::uint64_t> pauses{0};

    // What the calls of the library become.
    int setUp(int depth, io_context_t* context);
    int submit(io_context_t context, long count, iocb** requests);
    int reap(io_context_t context, long least, long most, io_event* events, timespec* patience);
    /// The bytes that a blocking transfer may move, or a negated errno.
    std::int64_t transfer(std::size_t size, const std::atomic<int>& failureOfDirection);

private:
    long countTaken(iocb** requests, long count, int& refused) const;
    void shorten(iocb& request);
    void makeWhole(iocb& request);
    void endEvent(io_event& event);
    void begin(Submission submission);
    void correct(std::size_t number, std::uint64_t taken);

    mutable std::mutex mutex;
    std::atomic<bool> submissionsHeld{false};
    std::atomic<bool> reapsHeld{false};
    std::atomic<bool> isHoldingOne{false};
    std::atomic<std::uint64_t> inFlightOfAll{0};
    // Requests that are under way with fewer bytes than were asked for.
    std::map<const iocb*, unsigned long> wholeSizes;
    std::map<io_context_t, std::uint64_t> inFlight;
    std::uint64_t mostInFlight = 0;
    std::vector<Submission> record;
    std::vector<int> sizes;
    std::map<io_context_t, std::set<std::string>> reapingThreads;
};

}  // namespace fileLayerTests
