#pragma once

#include <string_view>

#include "Basis/Containers.h"

namespace VetraApi {

enum class Request {
    Usage,  ///< the command line has none of the useful forms
    Help,
    Version,
    Records,
};

/// What the arguments ask for.
struct CommandLine {
    Request request;
    bool asJson = false;
    /// In the order given, repeated ones and unknown ones included; with --all, those of the table.
    Basis::vector<std::string_view> actions;
};

/// Reads the arguments of `main`; the actions view them.
///
/// -h, -v and --all stand alone, --json comes first, --all may follow it. An option of ours in any
/// other place gives Request::Usage. An option that is not ours is kept as an unknown action.
CommandLine readCommandLine(int argc, const char* const* argv, Basis::Allocator& allocator);

/// True for the actions of the table.
bool isKnownAction(std::string_view action);

/// The text behind -h, ended by a line feed.
Basis::string usageText(Basis::Allocator& allocator);

}  // namespace VetraApi
