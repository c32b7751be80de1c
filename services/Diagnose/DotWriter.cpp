#include "Diagnose/DotWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace Diagnose {

namespace {

// The length of the UTF-8 character at the beginning of a text, 0 if there is none.
std::size_t characterLength(std::string_view text)
{
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byteAt(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xc0) != 0x80)
            return 0;
    }
    // Overlong forms, surrogates and what lies behind the last character.
    const unsigned second = byteAt(1);
    const bool isNone = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                        (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
    return isNone ? 0 : length;
}

constexpr std::size_t lineWidth = 72;

bool isGoodBreak(char letter)
{
    return letter == ',' || letter == ' ' || letter == '(' || letter == '<' || letter == ':';
}

// Long names in several lines, each shown at the left; parted behind a sign rather than in a word.
std::string inLines(std::string_view name)
{
    std::string lines;
    while (name.size() > lineWidth) {
        std::size_t length = lineWidth;
        while (length > lineWidth / 2 && !isGoodBreak(name[length - 1]))
            --length;
        if (!isGoodBreak(name[length - 1]))
            length = lineWidth;
        // Not within a character.
        while (length > 1 && (static_cast<unsigned char>(name[length]) & 0xc0) == 0x80)
            --length;
        lines.append(escapedForDot(name.substr(0, length))).append("\\n");
        name.remove_prefix(length);
    }
    return lines.append(escapedForDot(name));
}

double percent(std::uint64_t part, std::uint64_t whole)
{
    return whole == 0 ? 0.0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
}

std::string nodeName(const CallGraph::Node& node)
{
    if (node.foldedFunctions == 0)
        return node.name;
    return fmt::format("({} function{} under 0.5 %)", node.foldedFunctions,
                       node.foldedFunctions == 1 ? "" : "s");
}

// The more a node takes, the darker it is.
std::string colours(const CallGraph::Node& node, std::uint64_t samples)
{
    const double share = percent(node.total, samples) / 100;
    std::string text = fmt::format("fillcolor=\"0.09 {:.3f} 1.000\"", 0.45 * std::sqrt(share));
    if (node.isHot)
        text += ", color=red, penwidth=2.5";
    if (node.outermost != 0)
        text += ", peripheries=2";
    if (node.foldedFunctions != 0)
        text += ", style=\"filled,dashed\"";
    return text;
}

void writeNode(std::string& dot, std::size_t number, const CallGraph& graph)
{
    const CallGraph::Node& node = graph.nodes[number];
    const std::string name = nodeName(node);
    dot += fmt::format(
        "  n{} [label=\"{}\\nself {:.1f} % ({})\\ntotal {:.1f} % ({})\", tooltip=\"{}\", {}];\n",
        number, inLines(name), percent(node.self, graph.samples), node.self,
        percent(node.total, graph.samples), node.total, escapedForDot(name),
        colours(node, graph.samples));
}

void writeEdge(std::string& dot, const CallGraph::Edge& edge, const CallGraph& graph)
{
    const double width = 1 + 4 * percent(edge.samples, graph.samples) / 100;
    dot +=
        fmt::format("  n{} -> n{} [label=\"{}\", penwidth={:.1f}{}];\n", edge.caller, edge.callee,
                    edge.samples, width, edge.isHot ? ", color=red, fontcolor=red" : "");
}

}  // namespace

std::string escapedForDot(std::string_view text)
{
    std::string escaped;
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const auto first = static_cast<unsigned char>(text[0]);
        if (length == 0 || first < 0x20 || first == 0x7f)
            escaped += '?';
        else if (text[0] == '&')
            escaped += "&amp;";
        else if (std::string_view("\"\\{}").find(text[0]) != std::string_view::npos)
            escaped.append(1, '\\').append(1, text[0]);
        else
            escaped += text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return escaped;
}

std::string toDot(const CallGraph& graph, const std::vector<std::string>& title)
{
    std::string dot = "digraph profile {\n  label=\"";
    for (const std::string& line : title)
        dot.append(escapedForDot(line)).append("\\l");
    dot +=
        "\";\n  labelloc=t; labeljust=l; fontname=\"Helvetica\"; fontsize=14;\n"
        "  node [shape=box, style=filled, fillcolor=white, fontname=\"Helvetica\", fontsize=10];\n"
        "  edge [fontname=\"Helvetica\", fontsize=9];\n";
    for (std::size_t number = 0; number < graph.nodes.size(); ++number)
        writeNode(dot, number, graph);
    for (const CallGraph::Edge& edge : graph.edges)
        writeEdge(dot, edge, graph);
    return dot += "}\n";
}

}  // namespace Diagnose
