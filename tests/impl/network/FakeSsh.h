#pragma once

#include <string>
#include <vector>

#include "tests/services/support/Files.h"
#include "tests/services/support/Guards.h"

namespace netTests {

/// A command `ssh` that goes to no other host: it keeps what it was called with, and does what the
/// test says. The current directory is a fresh one meanwhile.
class FakeSsh {
public:
    FakeSsh();

    /// Shell commands that stand for the start of a server, and for netstat. Nothing at first.
    void whenStarting(const std::string& commands);
    void whenAskedForPorts(const std::string& commands);
    /// The same with texts that are printed as they are.
    void printsWhenStarting(const std::string& text);
    void printsWhenAskedForPorts(const std::string& text);

    /// The arguments of each call, with a blank between them.
    std::vector<std::string> calls() const { return unitTests::linesOf(path() + "/calls"); }

    const std::string& path() const { return directory.path(); }

private:
    unitTests::WorkingDirectory directory;
    unitTests::EnvironmentVariable searchPath;
    unitTests::EnvironmentVariable remoteBaseDirectory{"remote_base_dir", nullptr};
};

/// What the program's calls of sleep become: they are counted and take no time.
struct CountedSleeps {
    CountedSleeps();
    unsigned seconds() const;
};

/// While one lives, popen has no process to give.
struct RefusedCommands {
    RefusedCommands();
    ~RefusedCommands();
    RefusedCommands(const RefusedCommands&) = delete;
    RefusedCommands& operator=(const RefusedCommands&) = delete;
};

}  // namespace netTests
