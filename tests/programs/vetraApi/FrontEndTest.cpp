// The front end over facts that nobody has gathered: a host of which nothing is known gives the
// codes 0, 1, 3, 4 and 5 by itself, and a test adds single facts through the gatherer that it hands
// in.
#include "programs/vetraApi/FrontEnd.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Version/Version.h"
#include "tests/programs/CapturedStream.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using vetraTests::SystemInfo;

constexpr const char* hint = "Please check the usage of vetraApi using \"./vetraApi -h\"\n";

// Opens the reader of one fact.
class ClockSourceReader : public SystemInfo {
public:
    static constexpr auto read = &ClockSourceReader::readClockSource;
};

// Gathers a clock source of the given name and nothing else.
VetraApi::FactGatherer clockSource(const char* name)
{
    return [name](SystemInfo& facts) {
        std::istringstream file(name);
        (facts.*ClockSourceReader::read)(file);
    };
}

class VetraApiFrontEnd : public testing::Test {
protected:
    int run(std::initializer_list<const char*> words)
    {
        std::vector<const char*> argv{"vetraApi"};
        argv.insert(argv.end(), words);
        return VetraApi::runFrontEnd(static_cast<int>(argv.size()), argv.data(),
                                     [this](SystemInfo& facts) {
                                         ++gatherings;
                                         gather(facts);
                                     });
    }

    // What the rules themselves leave for a host without facts.
    std::string recordOf(const char* action)
    {
        const SystemInfo facts(*allocator);
        const vetraTests::ValidateSystemInfo rules(*allocator);
        const Basis::string name(action, allocator.get());
        return std::string(rules.checkActions(facts, facts.getArch(), name));
    }

    std::shared_ptr<Basis::Allocator> allocator =
        Basis::Allocator::createChild(Basis::Allocator::global(), "test", 0);
    VetraApi::FactGatherer gather = [](SystemInfo&) {};
    int gatherings = 0;
    CapturedStream out{std::cout};
    CapturedStream err{std::cerr};
};

// Takes nothing the first time, and all that comes later.
class FailsOnce : public std::stringbuf {
protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        return std::exchange(hasFailed, true) ? std::stringbuf::xsputn(text, size) : 0;
    }

private:
    bool hasFailed = false;
};

TEST_F(VetraApiFrontEnd, RemembersARecordThatCouldNotBeWritten)
{
    FailsOnce buffer;
    std::streambuf* const usual = std::cout.rdbuf(&buffer);
    const int status = run({"CHECK_THP", "CHECK_HYPERVISOR"});
    std::cout.rdbuf(usual);
    EXPECT_EQ(status, 74);
}

TEST_F(VetraApiFrontEnd, SaysThatHelpAndVersionCouldNotBeWritten)
{
    for (const char* flag : {"-h", "-v"}) {
        FailsOnce buffer;
        std::streambuf* const usual = std::cout.rdbuf(&buffer);
        const int status = run({flag});
        std::cout.rdbuf(usual);
        EXPECT_EQ(status, 74) << flag;
    }
}

TEST_F(VetraApiFrontEnd, PrintsOneRecordPerActionInTheOrderGiven)
{
    run({"CHECK_THP", "CHECK_HYPERVISOR", "CHECK_THP"});

    const std::string hugePages = recordOf("CHECK_THP") + "\n";
    EXPECT_EQ(out.text(), hugePages + recordOf("CHECK_HYPERVISOR") + "\n" + hugePages);
    EXPECT_EQ(err.text(), "");
}

TEST_F(VetraApiFrontEnd, AllPrintsTheElevenInTheOrderOfTheTable)
{
    run({"--all"});

    std::string expected;
    for (std::size_t i = 0; i < 11; ++i)
        expected += recordOf(vetraTests::ValidateSystemInfo::actionName(i)) + "\n";
    EXPECT_EQ(out.text(), expected);
}

TEST_F(VetraApiFrontEnd, FlushesAtEachLineEndOfItsOwn)
{
    run({"CHECK_THP", "CHECK_HYPERVISOR"});
    EXPECT_EQ(out.flushes(), 2);

    run({"--json", "CHECK_THP", "CHECK_HYPERVISOR"});
    EXPECT_EQ(out.flushes(), 6);
}

TEST_F(VetraApiFrontEnd, GathersFactsOnceForManyActions)
{
    run({"CHECK_THP", "CHECK_CPU", "CHECK_MEMORY"});
    EXPECT_EQ(gatherings, 1);

    run({"--json", "--all"});
    EXPECT_EQ(gatherings, 2);
}

TEST_F(VetraApiFrontEnd, JudgesTheFactsThatWereGathered)
{
    gather = clockSource("tsc");

    EXPECT_EQ(run({"CHECK_CLOCKSOURCE"}), 0);
    EXPECT_EQ(out.text(), "('clocksource','tsc',0,'')\n");
}

TEST_F(VetraApiFrontEnd, ARecordStandsAsTheRuleLeftItAndJsonTakesItApart)
{
    gather = clockSource("a','b',0,'\"c\"\xff");

    EXPECT_EQ(run({"CHECK_CLOCKSOURCE"}), 1);
    EXPECT_THAT(out.text(), StartsWith("('clocksource','a','b',0,'\"c\"\xff',1,'"));

    const CapturedStream json(std::cout);
    EXPECT_EQ(run({"--json", "CHECK_CLOCKSOURCE"}), 1);
    EXPECT_THAT(json.text(), HasSubstr(R"("item":"clocksource","value":"a','b',0,'\"c\")"
                                       "\uFFFD\",\"code\":1,\"message\":\""));
}

TEST_F(VetraApiFrontEnd, AnUnknownActionPrintsTheHintWithoutGathering)
{
    for (const char* action : {"", "CHECK_KERNEL", "check_thp", "--jsn", "-x"}) {
        const CapturedStream one(std::cout);
        EXPECT_EQ(run({action}), 64) << action;
        EXPECT_EQ(one.text(), hint) << action;
    }
    EXPECT_EQ(gatherings, 0);
    EXPECT_EQ(err.text(), "");
}

TEST_F(VetraApiFrontEnd, AnUnknownActionEndsTheProgramBehindTheRecordsBeforeIt)
{
    EXPECT_EQ(run({"CHECK_THP", "NONE", "CHECK_CPU"}), 64);

    EXPECT_EQ(out.text(), recordOf("CHECK_THP") + "\n" + hint);
    EXPECT_EQ(gatherings, 1);
}

TEST_F(VetraApiFrontEnd, AnUnknownActionLeavesNoHalfArray)
{
    EXPECT_EQ(run({"--json", "CHECK_THP", "NONE"}), 64);

    EXPECT_EQ(out.text(), hint);
    EXPECT_EQ(gatherings, 0);
}

TEST_F(VetraApiFrontEnd, JsonIsAnArrayWithOneObjectPerLine)
{
    EXPECT_EQ(run({"--json", "CHECK_HYPERVISOR", "CHECK_THP"}), 3);

    EXPECT_THAT(out.text(), StartsWith("[\n{\"action\":\"CHECK_HYPERVISOR\",\"item\":"));
    EXPECT_THAT(out.text(), HasSubstr("},\n{\"action\":\"CHECK_THP\",\"item\":\"ARCHITECTURE\","
                                      "\"value\":\"\",\"code\":5,\"message\":\""));
    EXPECT_TRUE(out.text().ends_with("}\n]\n"));
    EXPECT_EQ(out.lineEnds(), 4);
}

TEST_F(VetraApiFrontEnd, TheWorstRecordGivesTheStatusWhereverItStands)
{
    EXPECT_EQ(run({"CHECK_CPUGOVERNOR"}), 0);
    EXPECT_EQ(run({"CHECK_HYPERVISOR"}), 0);
    EXPECT_EQ(run({"CHECK_CLOCKSOURCE"}), 1);
    EXPECT_EQ(run({"CHECK_DISTRIBUTION"}), 2);
    EXPECT_EQ(run({"CHECK_THP"}), 3);
    EXPECT_EQ(run({"CHECK_DISTRIBUTION", "CHECK_HYPERVISOR"}), 2);
    EXPECT_EQ(run({"CHECK_HYPERVISOR", "CHECK_DISTRIBUTION", "CHECK_CLOCKSOURCE"}), 2);
    EXPECT_EQ(run({"--json", "CHECK_THP", "CHECK_CLOCKSOURCE"}), 3);
    EXPECT_EQ(run({"--all"}), 3);
}

TEST_F(VetraApiFrontEnd, WhatAGathererPrintsGoesToStandardError)
{
    gather = [](SystemInfo&) { std::cout << "noise" << std::endl; };
    run({"CHECK_THP"});

    EXPECT_EQ(out.text(), recordOf("CHECK_THP") + "\n");
    EXPECT_EQ(err.text(), "noise\n");
}

TEST_F(VetraApiFrontEnd, StandardOutputIsRestoredWhenAGathererThrows)
{
    gather = [](SystemInfo&) { throw std::runtime_error("broken"); };

    EXPECT_THROW(run({"CHECK_THP"}), std::runtime_error);
    EXPECT_TRUE(out.isAttached());
    EXPECT_EQ(out.text(), "");
    EXPECT_THROW(run({"--json", "CHECK_THP"}), std::runtime_error);
    EXPECT_TRUE(out.isAttached());
    EXPECT_EQ(out.text(), "");
}

TEST_F(VetraApiFrontEnd, AWrongUsePrintsTheUsageOnStandardError)
{
    EXPECT_EQ(run({}), 64);
    EXPECT_EQ(run({"--json"}), 64);
    EXPECT_EQ(run({"--all", "CHECK_THP"}), 64);

    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(err.text(), StartsWith("Usage: ./vetraApi "));
    EXPECT_EQ(gatherings, 0);
}

TEST_F(VetraApiFrontEnd, HelpPrintsTheUsageOnStandardOutput)
{
    EXPECT_EQ(run({"-h"}), 0);
    const std::string brief = out.text();
    EXPECT_EQ(run({"--help"}), 0);

    EXPECT_THAT(brief, StartsWith("Usage: ./vetraApi "));
    EXPECT_EQ(out.text(), brief + brief);
    EXPECT_EQ(out.flushes(), 2);
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(gatherings, 0);
}

TEST_F(VetraApiFrontEnd, VersionIsOneLineWithTheDateOfTheBuild)
{
    EXPECT_EQ(run({"-v"}), 0);
    EXPECT_EQ(run({"--version"}), 0);

    const std::string line =
        "vetraApi-" + std::string(zdbver_version()) + " (" + zdbver_compiledate() + ")\n";
    EXPECT_EQ(out.text(), line + line);
    EXPECT_EQ(err.text(), "");
}

}  // namespace
