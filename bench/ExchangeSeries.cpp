// A series of exchanges of the network engine with a running VNSNetServerBidi.
//
//     ExchangeSeries HOST PORT BYTES COUNT one|both
//
// Prints one line of JSON: the mean microseconds of an exchange, with all that the engine does for
// it, and Mbit/s, both directions counted. The first exchange connects and is not counted.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Basis/Allocator.h"
#include "Configuration/Configuration.h"
#include "JoltNet/Engine.h"
#include "JoltNet/Request.h"

namespace {

void exchange(const char* host, unsigned short port, const Basis::string& payload, bool isBoth)
{
    JoltNet::Request request(isBoth ? "BidiVNS" : "MeasureVNS", host, port, 0);
    request.writeHeader();
    request.writer().transferString(payload);
    JoltNet::Reader& reader = request.in();
    if (!isBoth)
        return;
    Basis::string reply(payload.get_allocator());
    reader.transferString(reply, payload.size());
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 6) {
        std::fputs("ExchangeSeries HOST PORT BYTES COUNT one|both\n", stderr);
        return 2;
    }
    const char* const host = argv[1];
    const auto port = static_cast<unsigned short>(std::atoi(argv[2]));
    const long count = std::atol(argv[4]);
    const bool isBoth = std::string_view(argv[5]) == "both";
    const Basis::string payload(std::strtoul(argv[3], nullptr, 10), '0',
                                Basis::Allocator::global().get());

    JoltNet::Engine::initialize(config::Configuration::getServiceConfig(), 65535, false);
    exchange(host, port, payload, isBoth);
    const auto begin = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i)
        exchange(host, port, payload, isBoth);
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - begin;
    JoltNet::Engine::terminate();

    const double mean = time.count() / static_cast<double>(count);
    const double bits = static_cast<double>(payload.size()) * (isBoth ? 16 : 8);
    std::printf("{\"mean_us\": %.3f, \"rate\": %.1f}\n", mean, bits / mean);
    return 0;
}
