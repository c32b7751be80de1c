#include "Diagnose/DotWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/services/Diagnose/Dot.h"

namespace {

using Diagnose::CallGraph;
using Diagnose::escapedForDot;
using Diagnose::NamedStacks;
using Diagnose::toDot;
using testing::HasSubstr;

CallGraph graphOf(std::vector<std::string> names)
{
    NamedStacks input;
    input.names = std::move(names);
    for (std::size_t i = 0; i < input.names.size(); ++i)
        input.stacks.push_back({{0, i}, 100});
    return CallGraph::of(input);
}

TEST(DotWriter, EscapesWhatTheFormatUses)
{
    EXPECT_EQ(escapedForDot("a\"b\\c{d}"), "a\\\"b\\\\c\\{d\\}");
    EXPECT_EQ(escapedForDot("f(int&)"), "f(int&amp;)");
    EXPECT_EQ(escapedForDot("a\nb\tc\x7f\x01"), "a?b?c??");
    EXPECT_EQ(escapedForDot("<b>A<int></b>"), "<b>A<int></b>");
}

TEST(DotWriter, KeepsUtf8AndNothingElseThatIsNotAscii)
{
    EXPECT_EQ(escapedForDot("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"),
              "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
    EXPECT_EQ(escapedForDot("\xc3"), "?");
    EXPECT_EQ(escapedForDot("\xff\xc3.\x80"), "??.?");
    EXPECT_EQ(escapedForDot("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80"), "?????????");
}

TEST(DotWriter, ShowsSharesCountsAndTheHottestPath)
{
    const std::string dot = toDot(graphOf({"main", "work"}), {"the title"});

    EXPECT_THAT(dot, HasSubstr("label=\"the title\\l\";"));
    EXPECT_THAT(dot, HasSubstr("[label=\"main\\nself 50.0 % (100)\\ntotal 100.0 % (200)\""));
    EXPECT_THAT(dot, HasSubstr("[label=\"work\\nself 50.0 % (100)\\ntotal 50.0 % (100)\""));
    const auto graph = profileTests::parseDot(dot);
    EXPECT_TRUE(graph.nodes.at("main").isOutermost);
    EXPECT_FALSE(graph.nodes.at("work").isOutermost);
    EXPECT_EQ(graph.calls.at({"main", "work"}), 100U);
    EXPECT_THAT(dot, HasSubstr("n0 -> n1 [label=\"100\", penwidth=3.0, color=red"));
}

TEST(DotWriter, NamesTheFoldedFunctions)
{
    NamedStacks input;
    input.names = {"main", "a", "b"};
    input.stacks = {{{0}, 1000}, {{0, 1}, 1}, {{0, 2}, 1}};

    EXPECT_THAT(toDot(CallGraph::of(input), {}),
                HasSubstr("label=\"(2 functions under 0.5 %)\\nself 0.2 % (2)"));
    input.stacks.pop_back();
    EXPECT_THAT(toDot(CallGraph::of(input), {}), HasSubstr("label=\"(1 function under 0.5 %)\\n"));
}

TEST(DotWriter, PartsLongNamesAndKeepsThemWholeInTheTooltip)
{
    std::string name = "first::second(";
    for (int i = 0; i < 20; ++i)
        name += "std::vector<int>&, ";
    const std::string umlauts = [] {
        std::string text;
        for (int i = 0; i < 100; ++i)
            text += "\xc3\xa4";
        return text;
    }();

    const std::string dot = toDot(graphOf({name, umlauts, std::string(500, 'x')}), {});

    const auto graph = profileTests::parseDot(dot);
    EXPECT_EQ(graph.nodes.count(name), 1U);
    EXPECT_EQ(graph.nodes.count(umlauts), 1U);
    EXPECT_EQ(dot.find("?"), std::string::npos) << dot;
    profileTests::expectRenders(dot);
}

TEST(DotWriter, RendersAnyName)
{
    profileTests::expectRenders(
        toDot(graphOf({"\"];}\n{", "\\", "\\N\\G\\", "<b>&lt;", "a\xff\xfe", "{lambda()#1}", "|<p>",
                       "//", "/* ", "#", "%s", "n0 -> n1", std::string("zero\0byte", 9), " "}),
              {"\"\\{}&amp;\n\xff", ""}));
}

TEST(DotWriter, RendersAGraphWithoutSamples)
{
    const std::string dot = toDot(CallGraph::of({}), {"nothing"});

    EXPECT_THAT(dot, HasSubstr("nothing"));
    profileTests::expectRenders(dot);
}

}  // namespace
