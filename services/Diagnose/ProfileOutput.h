#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "Diagnose/CallGraph.h"
#include "Diagnose/Samples.h"

namespace Diagnose {

/// How samples came about, for the title of their graphs.
struct ProfileCircumstances {
    std::chrono::nanoseconds duration{0};
    unsigned samplesPerSecond = 0;  ///< 0 if there were several rates
    Samples::Summary summary;
};

/// One of the two graphs as text.
struct ProfileGraph {
    std::string dot;
    std::uint64_t samples = 0;  ///< in the graph
    std::uint64_t allSamples = 0;
    std::size_t functions = 0;
};

struct ProfileOutput {
    ProfileGraph processor;
    ProfileGraph wait;
};

/// Leaves out of a stack, outermost function first, what stands outside of main or of a thread's
/// entry function. One name at least is left.
void cutStartUp(std::vector<std::string>& stack);

/// Leaves what the outermost call of a function, given by its full name, did. False if the stack
/// does not hold it.
bool cutToFunction(std::vector<std::string>& stack, const std::string& function);

/// Names the functions of all stacks and draws both graphs, of the stacks that hold the given
/// function or, if it is empty, of all.
ProfileOutput drawProfile(const std::vector<StackTable::Stack>& stacks,
                          const ProfileCircumstances& circumstances, const std::string& function);

}  // namespace Diagnose
