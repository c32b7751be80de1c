#pragma once

#include <string>

namespace FileAccess {

/// Files that must not outlive the process. While any user lives, SIGHUP, SIGINT, SIGQUIT, SIGTERM,
/// SIGPIPE and SIGXFSZ delete them and then take the effect that they had before, and so does the
/// way of a crash. A signal that is ignored, or that somebody else handles, stays theirs.
/// Threads: any.
class ProcessEnd {
public:
    /// Begins and ends the guarding; they nest.
    static void enter();
    static void leave();

    /// Marks a file, by its absolute path, or takes the mark away. A path that is too long to be
    /// kept is said on standard error and not guarded.
    static void guard(const std::string& path, bool remove);
};

}  // namespace FileAccess
