#pragma once

#include <functional>

#include "vetraTests/LSInfo/SystemInfo.h"

namespace VetraApi {

/// Fills the fact store. Called once at most, and only if a known action asks for facts.
using FactGatherer = std::function<void(vetraTests::SystemInfo& facts)>;

/// What `main` does: reads the command line and carries it out. Returns the exit status.
///
/// Standard output carries records alone: while facts are gathered and judged, std::cout leads to
/// the buffer of std::cerr.
/// Threads: one at a time, as std::cout belongs to the process.
/// Errors:  exceptions of gatherers and rules pass through, with std::cout as it was.
int runFrontEnd(int argc, const char* const* argv, const FactGatherer& gather);

}  // namespace VetraApi
