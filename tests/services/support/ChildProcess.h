#pragma once

#include <functional>
#include <string>

namespace unitTests {

/// How a child process ended, and what it wrote.
struct ChildEnd {
    int exitStatus = -1;  ///< -1 if a signal ended it
    int signal = 0;       ///< 0 if it ended by itself
    std::string output;
    std::string errors;
};

/// Runs `work` in a child process and waits for its end, so that what it does to the process (its
/// limits, its time zone, its trace set-up) ends there. An expectation that fails inside does not
/// reach the parent: the work prints what it finds, and the test judges that.
///
/// The child ends with status 0 after the work, without running static clean-up.
ChildEnd inChild(const std::function<void()>& work);

}  // namespace unitTests
