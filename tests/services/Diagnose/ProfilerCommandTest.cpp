#include "Diagnose/ProfilerCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Diagnose/Shell.h"

namespace {

using Diagnose::ProfilerCommand;
using Verb = ProfilerCommand::Verb;
using Words = std::vector<std::string>;

TEST(ProfilerCommand, ReadsTheVerbs)
{
    EXPECT_EQ(ProfilerCommand::read({"clear"}).verb, Verb::Clear);
    EXPECT_EQ(ProfilerCommand::read({"start"}).verb, Verb::Start);
    EXPECT_EQ(ProfilerCommand::read({"stop"}).verb, Verb::Stop);
    EXPECT_EQ(ProfilerCommand::read({"print", "-o", "a,b"}).verb, Verb::Print);
}

TEST(ProfilerCommand, SamplesAtARateThatIsInStepWithNothingUnlessToldOtherwise)
{
    EXPECT_EQ(ProfilerCommand::read({"start"}).samplesPerSecond, 997U);
    EXPECT_EQ(ProfilerCommand::read({"start", "-r", "1"}).samplesPerSecond, 1U);
    EXPECT_EQ(ProfilerCommand::read({"start", "-r", "10000"}).samplesPerSecond, 10000U);
}

TEST(ProfilerCommand, ReadsTheFilesAndTheFunctionInAnyOrder)
{
    for (const Words& words : {Words{"print", "-o", "/x/a-cpu.dot,b:-\"wait.dot", "-f", "A::b"},
                               Words{"print", "-f", "A::b", "-o", "/x/a-cpu.dot,b:-\"wait.dot"}}) {
        const ProfilerCommand command = ProfilerCommand::read(words);
        EXPECT_EQ(command.processorFile, "/x/a-cpu.dot");
        EXPECT_EQ(command.waitFile, "b:-\"wait.dot");
        EXPECT_EQ(command.function, "A::b");
    }
    EXPECT_EQ(ProfilerCommand::read({"print", "-o", "a,b"}).function, "");
}

struct Refused {
    Words words;
    const char* reason;
};

class RefusedCommand : public testing::TestWithParam<Refused> {};

TEST_P(RefusedCommand, NamesTheWordAndWhatWasExpected)
{
    try {
        ProfilerCommand::read(GetParam().words);
        ADD_FAILURE() << "was accepted";
    } catch (const Diagnose::CommandException& refusal) {
        EXPECT_THAT(refusal.what(), testing::HasSubstr(GetParam().reason));
    }
}

constexpr const char* verbs = "', expected clear, start, stop or print";
constexpr const char* printing = "expected -o CPU,WAIT and perhaps -f FUNCTION";

INSTANTIATE_TEST_SUITE_P(Verbs, RefusedCommand,
                         testing::Values(Refused{{}, "profiler has no command ''"},
                                         Refused{{"begin"}, "'begin"}, Refused{{"begin"}, verbs},
                                         Refused{{"Start"}, verbs}, Refused{{"-r"}, verbs}));
INSTANTIATE_TEST_SUITE_P(
    Options, RefusedCommand,
    testing::Values(Refused{{"clear", "all"}, "profiler clear does not know 'all'"},
                    Refused{{"clear", "-r", "5"}, "'-r', expected nothing"},
                    Refused{{"stop", "-f", "x"}, "profiler stop does not know '-f'"},
                    Refused{{"start", "-o", "a,b"}, "'-o', expected -r HZ or nothing"},
                    Refused{{"start", "-r"}, "'-r' without a value, expected -r HZ"},
                    Refused{{"start", "997"}, "does not know '997'"},
                    Refused{{"print"}, "misses '-o'"}, Refused{{"print"}, printing},
                    Refused{{"print", "-f", "x"}, "misses '-o'"},
                    Refused{{"print", "-x", "a,b"}, "profiler print does not know '-x'"},
                    Refused{{"print", "-o", "a,b", "-f"}, "'-f' without a value"},
                    Refused{{"print", "-o", "a,b", "c"}, printing}));
INSTANTIATE_TEST_SUITE_P(Rates, RefusedCommand,
                         testing::Values(Refused{{"start", "-r", "0"},
                                                 "cannot sample '0' times a second"},
                                         Refused{{"start", "-r", "10001"}, "expected 1 to 10000"},
                                         Refused{{"start", "-r", "-5"}, "'-5'"},
                                         Refused{{"start", "-r", "9.5"}, "'9.5'"},
                                         Refused{{"start", "-r", "99999999999"}, "'99999999999'"},
                                         Refused{{"start", "-r", "1k"}, "'1k'"}));
INSTANTIATE_TEST_SUITE_P(
    Files, RefusedCommand,
    testing::Values(Refused{{"print", "-o", "a"}, "cannot write to 'a', expected two files"},
                    Refused{{"print", "-o", ",b"}, "',b'"}, Refused{{"print", "-o", "a,"}, "'a,'"},
                    Refused{{"print", "-o", "a,b,c"}, "'a,b,c'"},
                    Refused{{"print", "-o", "same,same"}, "'same,same'"}));

}  // namespace
