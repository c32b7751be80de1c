#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Diagnose {

/// Stacks of functions, as numbers into their names.
struct NamedStacks {
    struct Stack {
        std::vector<std::size_t> functions;  ///< outermost first, never empty
        std::uint64_t samples;
    };

    std::vector<std::string> names;
    std::vector<Stack> stacks;
};

/// Which functions samples were found in, and through which calls.
///
/// A sample counts once for a function and once for a call, however often the stack holds them, and
/// as own for its innermost function alone: the own samples of all nodes are all samples. Functions
/// with less than one sample of 200 are folded into one last node; what calls them and what they
/// call is then called by and calls that node, so the sums stay.
struct CallGraph {
    static constexpr std::uint64_t foldedBelowOneOf = 200;

    struct Node {
        std::string name;  ///< empty for the one of folded functions
        std::size_t foldedFunctions = 0;
        std::uint64_t self = 0;
        std::uint64_t total = 0;
        std::uint64_t outermost = 0;  ///< samples whose stack begins here
        bool isHot = false;           ///< on the hottest path
    };
    struct Edge {
        std::size_t caller;
        std::size_t callee;
        std::uint64_t samples;
        bool isHot = false;
    };

    /// The heaviest first; the folded functions last.
    std::vector<Node> nodes;
    std::vector<Edge> edges;
    std::uint64_t samples = 0;

    /// The hottest path begins with the outermost function that has most samples, and goes on with
    /// the heaviest call as long as there is one to a function that it has not met.
    static CallGraph of(const NamedStacks& input);
};

}  // namespace Diagnose
