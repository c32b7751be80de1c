#include "Diagnose/CallGraph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Diagnose::CallGraph;
using Diagnose::NamedStacks;
using testing::ElementsAre;

struct Line {
    const char* stack;  // names between blanks, outermost first
    std::uint64_t samples;
};

NamedStacks stacksOf(const std::vector<Line>& lines)
{
    NamedStacks input;
    for (const Line& line : lines) {
        NamedStacks::Stack stack{{}, line.samples};
        std::istringstream words(line.stack);
        for (std::string word; words >> word;) {
            const auto found = std::find(input.names.begin(), input.names.end(), word);
            stack.functions.push_back(static_cast<std::size_t>(found - input.names.begin()));
            if (found == input.names.end())
                input.names.push_back(word);
        }
        input.stacks.push_back(std::move(stack));
    }
    return input;
}

std::string nameOf(const CallGraph::Node& node)
{
    return node.foldedFunctions == 0 ? node.name : "(" + std::to_string(node.foldedFunctions) + ")";
}

// "name self/total", "*" in front for the hottest path, "^" for an outermost function.
std::vector<std::string> nodesOf(const CallGraph& graph)
{
    std::vector<std::string> texts;
    for (const CallGraph::Node& node : graph.nodes) {
        texts.push_back((node.isHot ? "*" : "") + std::string(node.outermost != 0 ? "^" : "") +
                        nameOf(node) + " " + std::to_string(node.self) + "/" +
                        std::to_string(node.total));
    }
    return texts;
}

std::vector<std::string> edgesOf(const CallGraph& graph)
{
    std::vector<std::string> texts;
    for (const CallGraph::Edge& edge : graph.edges) {
        texts.push_back((edge.isHot ? "*" : "") + nameOf(graph.nodes[edge.caller]) + ">" +
                        nameOf(graph.nodes[edge.callee]) + " " + std::to_string(edge.samples));
    }
    return texts;
}

std::uint64_t sumOfOwn(const CallGraph& graph)
{
    return std::accumulate(
        graph.nodes.begin(), graph.nodes.end(), std::uint64_t{0},
        [](std::uint64_t sum, const CallGraph::Node& node) { return sum + node.self; });
}

TEST(CallGraph, OfNothingIsEmpty)
{
    const CallGraph graph = CallGraph::of({});

    EXPECT_EQ(graph.samples, 0U);
    EXPECT_TRUE(graph.nodes.empty());
    EXPECT_TRUE(graph.edges.empty());
}

TEST(CallGraph, CountsOwnAndTotalSamplesAndCalls)
{
    const CallGraph graph =
        CallGraph::of(stacksOf({{"main a b", 50}, {"main a", 20}, {"main c b", 30}}));

    EXPECT_EQ(graph.samples, 100U);
    EXPECT_THAT(nodesOf(graph), ElementsAre("*^main 0/100", "*b 80/80", "*a 20/70", "c 0/30"));
    EXPECT_THAT(edgesOf(graph), ElementsAre("*main>a 70", "*a>b 50", "main>c 30", "c>b 30"));
}

TEST(CallGraph, CountsARecursiveFunctionOnceForASample)
{
    const CallGraph graph = CallGraph::of(stacksOf({{"main f g f g f", 10}, {"main f f", 5}}));

    EXPECT_THAT(nodesOf(graph), ElementsAre("*f 15/15", "*^main 0/15", "*g 0/10"));
    EXPECT_THAT(edgesOf(graph),
                testing::UnorderedElementsAre("*main>f 15", "*f>g 10", "g>f 10", "f>f 5"));
    EXPECT_EQ(sumOfOwn(graph), 15U);
}

TEST(CallGraph, KnowsTheOutermostFunctions)
{
    const CallGraph graph = CallGraph::of(stacksOf({{"main a", 10}, {"run a", 30}, {"a", 5}}));

    EXPECT_THAT(nodesOf(graph), ElementsAre("*^a 45/45", "*^run 0/30", "^main 0/10"));
    EXPECT_THAT(edgesOf(graph), ElementsAre("*run>a 30", "main>a 10"));
}

TEST(CallGraph, HottestPathFollowsTheHeaviestCall)
{
    const CallGraph graph = CallGraph::of(stacksOf(
        {{"main a x", 40}, {"main b y", 45}, {"main b z", 10}, {"main a", 20}, {"other z", 50}}));

    EXPECT_THAT(edgesOf(graph), testing::Contains("*main>a 60"));
    EXPECT_THAT(edgesOf(graph), testing::Contains("*a>x 40"));
    EXPECT_THAT(edgesOf(graph), testing::Contains("main>b 55"));
    EXPECT_THAT(edgesOf(graph), testing::Contains("other>z 50"));
}

TEST(CallGraph, KeepsOneSampleOf200AndFoldsLess)
{
    const CallGraph graph =
        CallGraph::of(stacksOf({{"main a", 1988}, {"main kept", 10}, {"main less", 2}}));

    EXPECT_THAT(nodesOf(graph),
                ElementsAre("*^main 0/2000", "*a 1988/1988", "kept 10/10", "(1) 2/2"));
    EXPECT_THAT(edgesOf(graph), ElementsAre("*main>a 1988", "main>kept 10", "main>(1) 2"));
}

TEST(CallGraph, SumsStayWhereFunctionsAreFolded)
{
    const CallGraph graph = CallGraph::of(stacksOf({{"main a", 900},
                                                    {"main p q a", 3},
                                                    {"main p", 1},
                                                    {"main r q", 1},
                                                    {"s a", 2},
                                                    {"main a t a", 1},
                                                    {"main b", 92}}));

    EXPECT_EQ(graph.samples, 1000U);
    EXPECT_THAT(nodesOf(graph), ElementsAre("*^main 0/998", "*a 906/906", "b 92/92", "^(5) 2/8"));
    EXPECT_EQ(sumOfOwn(graph), 1000U);
    EXPECT_THAT(edgesOf(graph), testing::UnorderedElementsAre("*main>a 901", "main>b 92",
                                                              "main>(5) 5", "(5)>a 6", "a>(5) 1"));
}

TEST(CallGraph, OfFoldedFunctionsAloneIsOneNode)
{
    NamedStacks input;
    for (std::size_t i = 0; i < 300; ++i) {
        input.names.push_back("f" + std::to_string(i));
        input.stacks.push_back({{i}, 1});
    }

    const CallGraph graph = CallGraph::of(input);

    EXPECT_THAT(nodesOf(graph), ElementsAre("^(300) 300/300"));
    EXPECT_TRUE(graph.edges.empty());
}

TEST(CallGraph, LeavesOutNamesThatNoStackHolds)
{
    NamedStacks input = stacksOf({{"main", 1}});
    input.names.emplace_back("unused");

    EXPECT_THAT(nodesOf(CallGraph::of(input)), ElementsAre("*^main 1/1"));
}

}  // namespace
