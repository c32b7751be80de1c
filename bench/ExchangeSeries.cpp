// A series of exchanges of the network engine with a running VNSNetServerBidi.
//
//     ExchangeSeries HOST PORT BYTES COUNT one|both
//
// Prints one line of JSON: the mean microseconds of an exchange, with all that the engine does for
// it, and Mbit/s, both directions counted; and when each hundredth of the series began and ended,
// in seconds of the monotonic clock. The first exchange connects and is not counted. Ends with 1
// if an exchange fails.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Basis/Allocator.h"
#include "Configuration/Configuration.h"
#include "JoltNet/Engine.h"
#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr long parts = 100;

void exchange(const char* host, unsigned short port, const Basis::string& payload,
              Basis::string& reply, bool isBoth)
{
    JoltNet::Request request(isBoth ? "BidiVNS" : "MeasureVNS", host, port, 0);
    request.writeHeader();
    request.writer().transferString(payload);
    JoltNet::Reader& reader = request.in();
    if (isBoth)
        reader.transferString(reply, payload.size());
}

double secondsOf(Clock::time_point moment)
{
    return std::chrono::duration<double>(moment.time_since_epoch()).count();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 6 || std::atol(argv[4]) < parts) {
        std::fputs("ExchangeSeries HOST PORT BYTES COUNT one|both, COUNT 100 or more\n", stderr);
        return 2;
    }
    const char* const host = argv[1];
    const auto port = static_cast<unsigned short>(std::atoi(argv[2]));
    const long count = std::atol(argv[4]);
    const bool isBoth = std::string_view(argv[5]) == "both";
    const Basis::string payload(std::strtoul(argv[3], nullptr, 10), '0',
                                Basis::Allocator::global().get());

    // What came back is written over by what comes back next, as in a test.
    Basis::string reply(payload);

    JoltNet::Engine::initialize(config::Configuration::getServiceConfig(), 65535, false);
    std::array<Clock::time_point, parts + 1> moments;
    try {
        exchange(host, port, payload, reply, isBoth);
        moments[0] = Clock::now();
        for (long i = 0; i < count; ++i) {
            exchange(host, port, payload, reply, isBoth);
            if ((i + 1) * parts / count != i * parts / count)
                moments[static_cast<std::size_t>((i + 1) * parts / count)] = Clock::now();
        }
    } catch (const JoltNet::NetException& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        return 1;
    }
    JoltNet::Engine::terminate();

    const std::chrono::duration<double, std::micro> time = moments[parts] - moments[0];
    const double mean = time.count() / static_cast<double>(count);
    const double bits = static_cast<double>(payload.size()) * (isBoth ? 16 : 8);
    std::printf("{\"mean_us\": %.3f, \"rate\": %.1f, \"moments\": [", mean, bits / mean);
    for (std::size_t i = 0; i <= parts; ++i)
        std::printf("%s%.6f", i == 0 ? "" : ", ", secondsOf(moments[i]));
    std::printf("]}\n");
    return 0;
}
