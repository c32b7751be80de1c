#pragma once

namespace NetServer {

/// The whole program; returns its exit status. Without an output, which the caller may have closed,
/// nobody can read where the server listens, and none is started or joined.
int runServerProcess(int argc, const char* const* argv, bool hasOutput = true);

}  // namespace NetServer
