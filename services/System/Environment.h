#pragma once

namespace System {

/// The environment variables of the process.
class Environment {
public:
    /// The value of a variable, or `fallback`, which may be null, if it is unset.
    /// The text belongs to the environment; nobody in the process changes that after start.
    static const char* getenv(const char* name, const char* fallback);

    /// Takes out what would change what started commands do: LD_*, GREP_*, BASH_ENV, ENV and
    /// CDPATH. At the start of a program, before it has threads.
    static void dropWhatSteersCommands();
};

}  // namespace System
