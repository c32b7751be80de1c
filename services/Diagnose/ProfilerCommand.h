#pragma once

#include <string>
#include <vector>

namespace Diagnose {

/// A command of the profiler as it was typed.
struct ProfilerCommand {
    enum class Verb { Clear, Start, Stop, Print };

    static constexpr unsigned defaultRate = 997;  // in step with nothing that happens regularly
    static constexpr unsigned mostRate = 10000;

    Verb verb = Verb::Clear;
    unsigned samplesPerSecond = defaultRate;
    std::string processorFile;
    std::string waitFile;
    std::string function;  ///< empty for all

    /// Throws a CommandException that names the word that is wrong and what was expected.
    static ProfilerCommand read(const std::vector<std::string>& words);
};

}  // namespace Diagnose
