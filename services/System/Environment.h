#pragma once

namespace System {

/// The environment variables of the process.
class Environment {
public:
    /// The value of a variable, or `fallback`, which may be null, if it is unset.
    /// The text belongs to the environment; nobody in the process changes that after start.
    static const char* getenv(const char* name, const char* fallback);
};

}  // namespace System
