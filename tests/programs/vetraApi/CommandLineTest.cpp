#include "programs/vetraApi/CommandLine.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using VetraApi::CommandLine;
using VetraApi::Request;

class VetraApiCommandLine : public testing::Test {
protected:
    CommandLine read(std::initializer_list<const char*> words)
    {
        std::vector<const char*> argv{"vetraApi"};
        argv.insert(argv.end(), words);
        return VetraApi::readCommandLine(static_cast<int>(argv.size()), argv.data(), *allocator);
    }

    std::shared_ptr<Basis::Allocator> allocator =
        Basis::Allocator::createChild(Basis::Allocator::global(), "test", 0);
};

TEST_F(VetraApiCommandLine, KeepsActionsInTheOrderGivenWithRepetitions)
{
    const CommandLine line = read({"CHECK_THP", "CHECK_CPU", "CHECK_THP"});

    EXPECT_EQ(line.request, Request::Records);
    EXPECT_FALSE(line.asJson);
    EXPECT_THAT(line.actions, ElementsAre("CHECK_THP", "CHECK_CPU", "CHECK_THP"));
}

TEST_F(VetraApiCommandLine, AllStandsForTheElevenInTheOrderOfTheTable)
{
    const CommandLine line = read({"--all"});

    EXPECT_EQ(line.request, Request::Records);
    EXPECT_FALSE(line.asJson);
    EXPECT_THAT(line.actions, ElementsAre("CHECK_APPLIANCETYPE", "CHECK_CLOCKSOURCE",
                                          "CHECK_COREMEMORYRATIO", "CHECK_CPU", "CHECK_CPUGOVERNOR",
                                          "CHECK_DISTRIBUTION", "CHECK_HTT", "CHECK_HYPERVISOR",
                                          "CHECK_MEMORY", "CHECK_MEMORYDISTRIBUTION", "CHECK_THP"));
}

TEST_F(VetraApiCommandLine, JsonGoesBeforeActionsAndBeforeAll)
{
    const CommandLine some = read({"--json", "CHECK_THP"});
    EXPECT_EQ(some.request, Request::Records);
    EXPECT_TRUE(some.asJson);
    EXPECT_THAT(some.actions, ElementsAre("CHECK_THP"));

    const CommandLine all = read({"--json", "--all"});
    EXPECT_EQ(all.request, Request::Records);
    EXPECT_TRUE(all.asJson);
    EXPECT_EQ(all.actions.size(), 11U);
}

TEST_F(VetraApiCommandLine, WithoutAnActionTheUsageIsAskedFor)
{
    EXPECT_EQ(read({}).request, Request::Usage);
    EXPECT_EQ(read({"--json"}).request, Request::Usage);
}

TEST_F(VetraApiCommandLine, EvenWithoutTheNameOfTheProgramTheUsageIsAskedFor)
{
    const char* const argv[] = {nullptr};
    EXPECT_EQ(VetraApi::readCommandLine(0, argv, *allocator).request, Request::Usage);
}

TEST_F(VetraApiCommandLine, HelpAndVersionHaveTwoFormsEach)
{
    EXPECT_EQ(read({"-h"}).request, Request::Help);
    EXPECT_EQ(read({"--help"}).request, Request::Help);
    EXPECT_EQ(read({"-v"}).request, Request::Version);
    EXPECT_EQ(read({"--version"}).request, Request::Version);
}

TEST_F(VetraApiCommandLine, AllBesideOtherActionsIsAWrongUse)
{
    EXPECT_EQ(read({"--all", "CHECK_THP"}).request, Request::Usage);
    EXPECT_EQ(read({"CHECK_THP", "--all"}).request, Request::Usage);
    EXPECT_EQ(read({"--json", "--all", "CHECK_THP"}).request, Request::Usage);
    EXPECT_EQ(read({"--all", "--all"}).request, Request::Usage);
}

TEST_F(VetraApiCommandLine, JsonBehindActionsIsAWrongUse)
{
    EXPECT_EQ(read({"CHECK_THP", "--json"}).request, Request::Usage);
    EXPECT_EQ(read({"--all", "--json"}).request, Request::Usage);
    EXPECT_EQ(read({"--json", "--json", "--all"}).request, Request::Usage);
}

TEST_F(VetraApiCommandLine, HelpAndVersionBesideAnythingAreAWrongUse)
{
    EXPECT_EQ(read({"-h", "CHECK_THP"}).request, Request::Usage);
    EXPECT_EQ(read({"CHECK_THP", "--help"}).request, Request::Usage);
    EXPECT_EQ(read({"--json", "-v"}).request, Request::Usage);
    EXPECT_EQ(read({"--version", "--version"}).request, Request::Usage);
}

TEST_F(VetraApiCommandLine, AnUnknownOptionIsKeptLikeAnUnknownAction)
{
    const CommandLine line = read({"CHECK_THP", "--jsn", "-x", ""});

    EXPECT_EQ(line.request, Request::Records);
    EXPECT_THAT(line.actions, ElementsAre("CHECK_THP", "--jsn", "-x", ""));
}

TEST_F(VetraApiCommandLine, KnowsActionsByTheirExactNamesOnly)
{
    EXPECT_TRUE(VetraApi::isKnownAction("CHECK_APPLIANCETYPE"));
    EXPECT_TRUE(VetraApi::isKnownAction("CHECK_THP"));
    for (const char* name : {"", "check_thp", "CHECK_THP ", "CHECK_TH", "CHECK_RUNTIME", "--all"})
        EXPECT_FALSE(VetraApi::isKnownAction(name)) << name;
}

TEST_F(VetraApiCommandLine, UsageNamesAllActionsCodesAndWhatHasNoAction)
{
    const Basis::string usage = VetraApi::usageText(*allocator);
    const std::string text(usage);

    for (const std::string_view action : read({"--all"}).actions)
        EXPECT_THAT(text, HasSubstr("    " + std::string(action) + "\n"));
    for (const char* line : {"There is no action for the kernel rule and for the runtime rule",
                             "    1  failed with severity MEDIUM\n", "    3  code 5\n",
                             "   64  an unknown action", "--json", "--all"})
        EXPECT_THAT(text, HasSubstr(line));
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(usage.get_allocator().resource(), allocator.get());
}

TEST_F(VetraApiCommandLine, UsageFitsATerminal)
{
    std::istringstream lines{std::string(VetraApi::usageText(*allocator))};
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 100U) << line;
}

}  // namespace
