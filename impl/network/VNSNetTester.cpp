#include "impl/network/VNSNetTester.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string_view>

#include "Configuration/Configuration.h"
#include "Diagnose/TraceTopic.h"
#include "JoltNet/Engine.h"
#include "JoltNet/Request.h"
#include "System/Environment.h"
#include "impl/network/NetworkFailure.h"
#include "impl/network/RemoteCommand.h"
#include "impl/network/SingleExchange.h"

namespace vetraTests {

namespace {

Diagnose::TraceTopic TRACE_VNS;

const struct TraceInitializer {
    TraceInitializer()
    {
        TRACE_VNS.init("VNS", "network test");
        TRACE_VNS.initStat();
    }
    ~TraceInitializer() { TRACE_VNS.destroy(); }
} TRACE_VNS_TraceInitializer;

constexpr unsigned short highestPort = 65535;
constexpr std::size_t pathSize = 4096;
constexpr const char* greeting = "accepting requests";

// The search for the best load. One below 16 GiB is the largest load of the doubling.
constexpr std::int64_t firstLoad = 1024;
constexpr std::int64_t firstStep = 32;
constexpr std::int64_t largestLoad = 17179869183;
constexpr int doublingMisses = 2;
constexpr int scanMisses = 4;

// Empty, after a line on standard error, if there is none that can stand in a command.
string remoteBaseDirectory(Basis::Allocator& allocator)
{
    char current[pathSize];
    if (!::getcwd(current, sizeof current))
        return string(&allocator);
    string directory(System::Environment::getenv("remote_base_dir", current), &allocator);
    if (isPlainDirectory(directory))
        return directory;
    std::cerr
        << "vetra: the base directory \"" << directory
        << "\" cannot stand in an ssh command: it must be absolute, without blanks, quotes and "
           "other characters of the shell"
        << std::endl;
    return string(&allocator);
}

string startCommand(const string& host, const string& base)
{
    string command("ssh ", base.get_allocator());
    command.append(host).append(" \"cd ").append(base).append(" && source ").append(base);
    command.append("/envprofile.sh && ").append(base).append("/lib/VNSNetServerBidi &\"");
    return command;
}

// The first line that is not empty decides, and any but a greeting counts as started.
bool isStarted(RemoteCommand& command, Basis::Allocator& allocator)
{
    string line(&allocator);
    while (command.nextLine(line)) {
        if (line.empty())
            continue;
        std::cout << line << std::endl;
        return !line.starts_with(greeting);
    }
    return false;
}

}  // namespace

VNSNetTester::VNSNetTester(Basis::Allocator& ownerAllocator)
    : measureName("MeasureVNS", &ownerAllocator),
      checkName("CheckVNS", &ownerAllocator),
      prologueName("PrologueVNS", &ownerAllocator),
      stopName("StopVNS", &ownerAllocator),
      dualName("DualVNS", &ownerAllocator),
      bidiName("BidiVNS", &ownerAllocator),
      allocator(ownerAllocator)
{
    VNSNetTester::initEnv();
}

VNSNetTester::~VNSNetTester()
{
    VNSNetTester::uninitEnv();
}

void VNSNetTester::initEnv()
{
    bool isReady = false;
    succeeds([&isReady] {
        const auto configuration = config::Configuration::getServiceConfig();
        Diagnose::TraceTopic::setGlobalTraceLevel(static_cast<Diagnose::TraceLevel>(7));
        Diagnose::TraceTopic::setGlobalTraceLevel(static_cast<Diagnose::TraceLevel>(3));
        isReady = JoltNet::Engine::initialize(configuration, highestPort, false);
        if (!isReady)
            std::cout << "initialization failed!" << std::endl;
    });
    if (isReady)
        initialized = true;
}

void VNSNetTester::uninitEnv()
{
    if (VNSNetTester::IsInitialized())
        succeeds([] { JoltNet::Engine::terminate(); });
}

bool VNSNetTester::IsInitialized()
{
    return initialized;
}

void VNSNetTester::setIterNo(int iterations)
{
    iterNo = iterations;
}

int VNSNetTester::getIterNo()
{
    return iterNo < 1 ? 10 : iterNo;
}

bool VNSNetTester::startServer(const string& host)
{
    if (!isPlainHostName(host)) {
        std::cerr << "vetra: \"" << host
                  << "\" is no host name: expected letters, digits, '.', '-' and '_', and no '-' "
                     "first"
                  << std::endl;
        return false;
    }
    const string base = remoteBaseDirectory(allocator);
    if (base.empty())
        return false;
    RemoteCommand command(startCommand(host, base));
    return isStarted(command, allocator);
}

bool VNSNetTester::exchangeNotice(const string& requestName, const string& host,
                                  unsigned short port)
{
    return succeeds([&] {
        const bool isSecure = JoltNet::Configuration::isSecure();
        JoltNet::Request request(requestName.c_str(), host.c_str(), port,
                                 static_cast<char>(isSecure));
        settleHeader(request);
        const string notice("0", &allocator);
        request.writer().transferString(notice);
        request.in();
    });
}

bool VNSNetTester::checkServer(const string& host, unsigned short port)
{
    return exchangeNotice(prologueName, host, port);
}

bool VNSNetTester::stopServer(const string& host, unsigned short port)
{
    return exchangeNotice(stopName, host, port);
}

long VNSNetTester::getThroughPut(unsigned long bytes, long microseconds)
{
    return static_cast<long>(bytes * 8) / microseconds;
}

long VNSNetTester::exchange(const string& payload, const string& host, unsigned short port,
                            bool bidi)
{
    return doSingleTestWithString<JoltNet::Request>(
        payload.size(), &payload, bidi ? bidiName : measureName, host, port, false, bidi, nullptr);
}

std::int32_t VNSNetTester::getAverageThroughPut(const string& host, unsigned short port,
                                                unsigned long size, bool bidi)
{
    const string payload(size, '0', &allocator);
    std::uint64_t total = 0;
    long best = 0;
    int iterations = getIterNo();
    for (int i = 0; i < iterations; iterations = getIterNo()) {
        const long duration = exchange(payload, host, port, bidi);
        if (duration == -1)
            return 0;
        total += static_cast<std::uint64_t>(duration);
        ++i;
        if (best == 0 || duration < best)
            best = duration;
    }
    if (best == 0)
        return 0;
    const auto average = static_cast<std::int32_t>(total / static_cast<std::uint64_t>(iterations));
    if (average == 0)
        return 0;
    // Bits per microsecond are Mbit/s; bytes in both directions count twice.
    const auto bits = static_cast<std::int64_t>(size << (bidi ? 4 : 3));
    return static_cast<std::int32_t>(bits / average);
}

// Doubles the load until three in a row bring no more; then the last load is the limit of the scan,
// and half of the best one its start.
bool VNSNetTester::doublingPhase(const string& host, unsigned short port, std::int64_t& limit,
                                 std::int64_t& start)
{
    std::int64_t load = firstLoad;
    std::int64_t half = firstLoad / 2;
    std::int64_t step = firstStep;
    std::int64_t bestHalf = 0;
    std::int32_t bestRate = 0;
    int misses = 0;
    do {
        const std::int32_t rate =
            getAverageThroughPut(host, port, static_cast<unsigned long>(load), false);
        if (rate > bestRate) {
            bestRate = rate;
            bestHalf = half;
            misses = 0;
        } else {
            ++misses;
        }
        load *= 2;
        half *= 2;
        step *= 2;
    } while (load <= largestLoad && misses <= doublingMisses);
    limit = load;
    start = std::min(bestHalf, step);
    return limit >= start;
}

std::int32_t VNSNetTester::getOptimalAverageThroughPut(const string& host, unsigned short port,
                                                       unsigned long* optimalSize)
{
    std::int64_t limit = 0;
    std::int64_t step = 0;
    if (!doublingPhase(host, port, limit, step))
        return 0;
    std::int64_t size = step;
    std::int32_t bestRate = 0;
    int misses = 0;
    do {
        const std::int32_t rate =
            getAverageThroughPut(host, port, static_cast<unsigned long>(size), false);
        if (rate > bestRate) {
            bestRate = rate;
            *optimalSize = static_cast<unsigned long>(size);
            misses = 0;
        } else {
            ++misses;
        }
        size += step;
    } while (size <= limit && misses <= scanMisses);
    return bestRate;
}

}  // namespace vetraTests
