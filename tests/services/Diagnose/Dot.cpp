#include "tests/services/Diagnose/Dot.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace profileTests {

namespace {

std::string unescaped(const std::string& text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 5, "&amp;") == 0) {
            plain += '&';
            i += 4;
        } else {
            if (text[i] == '\\' && i + 1 < text.size())
                ++i;
            plain += text[i];
        }
    }
    return plain;
}

// What stands between two pieces of a text, of which the first comes behind a third one.
std::string between(const std::string& text, const std::string& begin, const std::string& end,
                    const std::string& behind = "")
{
    const std::size_t from = text.find(begin, text.find(behind));
    const std::size_t to = text.find(end, from + begin.size());
    EXPECT_NE(to, std::string::npos) << text;
    return text.substr(from + begin.size(), to - from - begin.size());
}

}  // namespace

std::uint64_t ParsedDot::sumOfSelf() const
{
    std::uint64_t sum = 0;
    for (const auto& [name, node] : nodes)
        sum += node.self;
    return sum;
}

std::uint64_t ParsedDot::totalOf(const std::string& function) const
{
    const auto found = nodes.find(function);
    return found == nodes.end() ? 0 : found->second.total;
}

ParsedDot parseDot(const std::string& dot)
{
    ParsedDot graph;
    std::map<std::string, std::string> names;
    std::istringstream lines(dot);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string first;
        std::string second;
        std::string third;
        words >> first >> second >> third;
        if (first.starts_with("label=")) {
            graph.title = between(line, "label=\"", "\";");
        } else if (second == "->") {
            graph.calls[{names.at(first), names.at(third)}] =
                std::stoull(between(line, "[label=\"", "\""));
        } else if (second.starts_with("[label=") && first.starts_with('n')) {
            names[first] = unescaped(between(line, "\", tooltip=\"", "\", fillcolor="));
            graph.nodes[names[first]] = {std::stoull(between(line, "% (", ")", "\\nself ")),
                                         std::stoull(between(line, "% (", ")", "\\ntotal ")),
                                         line.find("peripheries=2") != std::string::npos};
        }
    }
    return graph;
}

void expectRenders(const std::string& dot)
{
    if (std::system("command -v dot >/dev/null") != 0)
        GTEST_SKIP() << "there is no program dot";
    const unitTests::WorkingDirectory directory;
    unitTests::writeFile("graph.dot", dot);
    EXPECT_EQ(std::system("dot -Tsvg -o graph.svg graph.dot 2>errors"), 0);
    EXPECT_EQ(unitTests::contentOf("errors"), "") << dot;
    EXPECT_NE(unitTests::contentOf("graph.svg").find("</svg>"), std::string::npos);
}

}  // namespace profileTests
