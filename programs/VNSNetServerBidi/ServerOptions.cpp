#include "programs/VNSNetServerBidi/ServerOptions.h"

#include <arpa/inet.h>

#include <charconv>
#include <string_view>

namespace NetServer {

namespace {

constexpr long maxIdleSeconds = 7L * 24 * 60 * 60;

std::optional<long> numberBetween(std::string_view text, long least, long most)
{
    long number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number < least || number > most)
        return std::nullopt;
    return number;
}

bool isAddress(const std::string& text)
{
    in_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// False if the value is none that the option takes.
bool setOption(ServerOptions& options, std::string_view name, std::string_view value)
{
    if (name == "--bind") {
        options.isPlaceGiven = options.isAddressGiven = true;
        options.bindAddress = value;
        return isAddress(options.bindAddress);
    }
    const bool isPort = name == "--port";
    const std::optional<long> number =
        isPort ? numberBetween(value, 0, 65535) : numberBetween(value, 1, maxIdleSeconds);
    if (!number)
        return false;
    if (!isPort) {
        options.idleTimeout = std::chrono::seconds(*number);
        return true;
    }
    options.port = static_cast<unsigned short>(*number);
    options.isPlaceGiven = true;
    return true;
}

std::string_view expectedValue(std::string_view name)
{
    if (name == "--bind")
        return "an IPv4 address";
    if (name == "--port")
        return "a number from 0 to 65535";
    return "seconds from 1 to 604800";
}

}  // namespace

const char* const helpText =
    "VNSNetServerBidi [OPTION]... answers the network test of vetra on this host.\n"
    "\n"
    "  --foreground            stay in the foreground, and say on standard error which peers are\n"
    "                          dropped and why\n"
    "  --port PORT             listen on this port, or fail; 0 lets the system choose\n"
    "                          (default 4464 if that is free, else one of the system)\n"
    "  --bind ADDRESS          listen on this IPv4 address (default 0.0.0.0)\n"
    "  --idle-timeout SECONDS  end after so long without a request (default 900)\n"
    "  -h, --help; -v, --version\n"
    "\n"
    "The server reports its port in one line and goes to the background. It ends when the test "
    "stops\n"
    "it, on SIGTERM, and when nothing was asked for its idle time. A second start beside a "
    "running\n"
    "server of the same user registers one more user with it; each stop takes one away, and the "
    "last\n"
    "one ends the server. Exit status: 0, or 1 if it cannot listen, or 64 for other arguments.\n";

std::optional<ServerOptions> readOptions(int argc, const char* const* argv, std::string& complaint)
{
    ServerOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "-h" || word == "--help") {
            options.action = ServerOptions::Action::help;
            return options;
        }
        if (word == "-v" || word == "--version") {
            options.action = ServerOptions::Action::version;
            return options;
        }
        if (word == "--foreground") {
            options.isForeground = true;
            continue;
        }
        if (word != "--port" && word != "--bind" && word != "--idle-timeout") {
            complaint = std::string("unknown argument '").append(word).append("', see --help");
            return std::nullopt;
        }
        const std::string_view value = i + 1 < argc ? argv[++i] : "";
        if (!setOption(options, word, value)) {
            complaint = std::string(word).append(" takes ").append(expectedValue(word));
            complaint.append(", not '").append(value).append("'");
            return std::nullopt;
        }
    }
    return options;
}

}  // namespace NetServer
