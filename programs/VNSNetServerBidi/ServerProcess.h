#pragma once

namespace NetServer {

/// The whole program; returns its exit status.
int runServerProcess(int argc, const char* const* argv);

}  // namespace NetServer
