#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace profileTests {

/// A graph as its dot file has it, functions by their whole names.
struct ParsedDot {
    struct Node {
        std::uint64_t self = 0;
        std::uint64_t total = 0;
        bool isOutermost = false;
    };

    std::string title;
    std::map<std::string, Node> nodes;
    std::map<std::pair<std::string, std::string>, std::uint64_t> calls;

    std::uint64_t sumOfSelf() const;
    /// Samples in a function, 0 if the graph does not hold it.
    std::uint64_t totalOf(const std::string& function) const;
};

ParsedDot parseDot(const std::string& dot);

/// Expects the program dot to draw the text without a warning; skips the test where there is none.
void expectRenders(const std::string& dot);

}  // namespace profileTests
