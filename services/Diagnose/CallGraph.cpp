#include "Diagnose/CallGraph.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <tuple>
#include <utility>

namespace Diagnose {

namespace {

using Numbers = std::vector<std::size_t>;

Numbers distinct(Numbers numbers)
{
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

std::vector<std::uint64_t> totalsOf(const NamedStacks& input)
{
    std::vector<std::uint64_t> totals(input.names.size());
    for (const NamedStacks::Stack& stack : input.stacks) {
        for (const std::size_t function : distinct(stack.functions))
            totals[function] += stack.samples;
    }
    return totals;
}

class GraphBuilder {
public:
    explicit GraphBuilder(const NamedStacks& namedStacks) : input(namedStacks) {}

    CallGraph build()
    {
        for (const NamedStacks::Stack& stack : input.stacks)
            graph.samples += stack.samples;
        makeNodes();
        for (const NamedStacks::Stack& stack : input.stacks)
            count(stack);
        for (const auto& [call, samples] : calls)
            graph.edges.push_back({call.first, call.second, samples});
        std::stable_sort(graph.edges.begin(), graph.edges.end(),
                         [](const auto& a, const auto& b) { return a.samples > b.samples; });
        markHottestPath();
        return std::move(graph);
    }

private:
    void makeNodes()
    {
        const std::vector<std::uint64_t> totals = totalsOf(input);
        Numbers order(input.names.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
            return std::tuple(totals[b], input.names[a]) < std::tuple(totals[a], input.names[b]);
        });
        nodeOf.resize(order.size());
        CallGraph::Node folded;
        for (const std::size_t function : order) {
            nodeOf[function] = graph.nodes.size();
            if (totals[function] * CallGraph::foldedBelowOneOf >= graph.samples &&
                totals[function] != 0)
                graph.nodes.push_back({input.names[function], 0, 0, 0, 0, false});
            else if (totals[function] != 0)
                ++folded.foldedFunctions;
        }
        // All of them come behind the last one that is kept.
        if (folded.foldedFunctions != 0)
            graph.nodes.push_back(folded);
    }

    void count(const NamedStacks::Stack& stack)
    {
        Numbers path;
        for (const std::size_t function : stack.functions) {
            const std::size_t node = nodeOf[function];
            const bool isWithinFolded =
                !path.empty() && path.back() == node && graph.nodes[node].foldedFunctions != 0;
            if (!isWithinFolded)
                path.push_back(node);
        }
        graph.nodes[path.front()].outermost += stack.samples;
        graph.nodes[path.back()].self += stack.samples;
        for (const std::size_t node : distinct(path))
            graph.nodes[node].total += stack.samples;
        std::vector<std::pair<std::size_t, std::size_t>> made;
        for (std::size_t i = 1; i < path.size(); ++i)
            made.emplace_back(path[i - 1], path[i]);
        std::sort(made.begin(), made.end());
        made.erase(std::unique(made.begin(), made.end()), made.end());
        for (const auto& call : made)
            calls[call] += stack.samples;
    }

    // The edges are sorted by weight.
    CallGraph::Edge* heaviestEdgeFrom(std::size_t caller)
    {
        const auto found =
            std::find_if(graph.edges.begin(), graph.edges.end(), [&](const CallGraph::Edge& edge) {
                const CallGraph::Node& callee = graph.nodes[edge.callee];
                return edge.caller == caller && !callee.isHot && callee.foldedFunctions == 0;
            });
        return found == graph.edges.end() ? nullptr : &*found;
    }

    void markHottestPath()
    {
        const auto begin = std::max_element(
            graph.nodes.begin(), graph.nodes.end(), [](const auto& a, const auto& b) {
                return std::pair(a.foldedFunctions == 0, a.outermost) <
                       std::pair(b.foldedFunctions == 0, b.outermost);
            });
        if (begin == graph.nodes.end() || begin->outermost == 0 || begin->foldedFunctions != 0)
            return;
        begin->isHot = true;
        auto node = static_cast<std::size_t>(begin - graph.nodes.begin());
        while (CallGraph::Edge* const edge = heaviestEdgeFrom(node)) {
            edge->isHot = true;
            node = edge->callee;
            graph.nodes[node].isHot = true;
        }
    }

    const NamedStacks& input;
    CallGraph graph;
    Numbers nodeOf;
    std::map<std::pair<std::size_t, std::size_t>, std::uint64_t> calls;
};

}  // namespace

CallGraph CallGraph::of(const NamedStacks& input)
{
    return GraphBuilder(input).build();
}

}  // namespace Diagnose
