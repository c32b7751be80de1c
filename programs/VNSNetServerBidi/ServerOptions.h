#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace NetServer {

/// What the command line asks for.
struct ServerOptions {
    enum class Action { serve, help, version };

    Action action = Action::serve;
    bool isForeground = false;
    /// Nothing: the tool's own port if it is free, else one of the system. 0: one of the system.
    std::optional<unsigned short> port;
    std::string bindAddress = "0.0.0.0";
    /// A place was asked for: a server that others have set up does not stand in for it.
    bool isPlaceGiven = false;
    /// The address was: this server does not stand in for others either.
    bool isAddressGiven = false;
    std::chrono::seconds idleTimeout{15 * 60};
};

/// Reads the command line. Nothing, and one line in `complaint`, for one that is refused.
std::optional<ServerOptions> readOptions(int argc, const char* const* argv, std::string& complaint);

/// The text for --help.
extern const char* const helpText;

}  // namespace NetServer
