#include "Diagnose/ProfileOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Diagnose/SymbolTable.h"
#include "tests/services/Diagnose/Dot.h"

namespace {

using Diagnose::cutStartUp;
using Diagnose::cutToFunction;
using Diagnose::drawProfile;
using Diagnose::ProfileCircumstances;
using Diagnose::StackTable;
using testing::HasSubstr;
using Names = std::vector<std::string>;

Names withoutStartUp(Names stack)
{
    cutStartUp(stack);
    return stack;
}

// The stack from the function on; empty if it is not there.
Names cutTo(const std::string& function, Names stack)
{
    return cutToFunction(stack, function) ? stack : Names();
}

TEST(CutStartUp, LeavesMainAndWhatItCalls)
{
    EXPECT_EQ(
        withoutStartUp({"_start", "__libc_start_main", "__libc_start_call_main", "main", "f"}),
        (Names{"main", "f"}));
    EXPECT_EQ(withoutStartUp({"_start", "__libc_start_main", "[libc.so.6+0x2724a]", "main"}),
              (Names{"main"}));
}

TEST(CutStartUp, LeavesTheEntryFunctionOfAThread)
{
    EXPECT_EQ(
        withoutStartUp({"clone3", "start_thread", "execute_native_thread_routine",
                        "std::thread::_State_impl<std::thread::_Invoker<std::tuple<A>>>::_M_"
                        "run()",
                        "void std::__invoke_impl<void, A>(std::__invoke_other, A&&)",
                        "std::__invoke_result<A>::type std::__invoke<A>(A&&)", "A::run()", "f()"}),
        (Names{"A::run()", "f()"}));
    EXPECT_EQ(withoutStartUp({"[libc.so.6+0x1]", "[libstdc++.so.6+0x2]", "run()", "f()"}),
              (Names{"run()", "f()"}));
    EXPECT_EQ(withoutStartUp({"start_thread", "body(void*)"}), (Names{"body(void*)"}));
}

TEST(CutStartUp, LeavesWhatComesLaterAndAtLeastOneName)
{
    EXPECT_EQ(withoutStartUp({"main", "std::__invoke<A>(A&&)", "[libc.so.6+0x1]"}),
              (Names{"main", "std::__invoke<A>(A&&)", "[libc.so.6+0x1]"}));
    EXPECT_EQ(withoutStartUp({"clone3", "start_thread"}), (Names{"start_thread"}));
    EXPECT_EQ(withoutStartUp({"[program+0x1]", "f"}), (Names{"[program+0x1]", "f"}));
}

TEST(CutToFunction, RootsTheStackAtItsOutermostCall)
{
    EXPECT_EQ(cutTo("f", {"main", "f(int)", "g()", "f(int)", "h()"}),
              (Names{"f(int)", "g()", "f(int)", "h()"}));
    EXPECT_EQ(cutTo("main", {"main", "f(int)"}), (Names{"main", "f(int)"}));
    EXPECT_EQ(cutTo("h", {"main", "f(int)"}), Names());
}

TEST(CutToFunction, ComparesWholeNames)
{
    const Names stack = {"Vetra::VetraHelper::runTests(Vetra::UserConfig&)", "runTests(A&, B&)"};

    EXPECT_EQ(cutTo("runTests", stack), (Names{"runTests(A&, B&)"}));
    EXPECT_EQ(cutTo("VetraHelper::runTests", stack), Names());
    EXPECT_EQ(cutTo("runTest", stack), Names());
    EXPECT_EQ(cutTo("Vetra::VetraHelper::runTests", stack), stack);
}

TEST(CutToFunction, LooksForNeitherReturnTypesNorArgumentsOfTemplates)
{
    EXPECT_EQ(cutTo("A::push", {"void A<int>::push<long>(long)"}),
              (Names{"void A<int>::push<long>(long)"}));
}

// Addresses of functions that every C library has.
std::uint64_t addressOf(int (*function)())
{
    return reinterpret_cast<std::uint64_t>(function);
}

[[gnu::noinline]] int outerOfTest()
{
    return ::getpid();
}
[[gnu::noinline]] int innerOfTest()
{
    return ::getppid();
}

StackTable::Stack stackOfTest(Diagnose::SampleCounts counts, const std::string& channel = "")
{
    // A caller's address is the one behind its call.
    return {{addressOf(&outerOfTest) + 1, addressOf(&innerOfTest)}, channel, counts};
}

std::string nameOfInner()
{
    return Diagnose::SymbolTable().nameOf(addressOf(&innerOfTest));
}

TEST(DrawProfile, SplitsProcessorTimeAndWaitTime)
{
    ProfileCircumstances circumstances;
    circumstances.duration = std::chrono::milliseconds(1500);
    circumstances.samplesPerSecond = 997;
    circumstances.summary = {{5, 7}, 3, 2};

    const auto output =
        drawProfile({stackOfTest({5, 0}), stackOfTest({0, 7}, "pipe_read")}, circumstances, "");

    const auto processor = profileTests::parseDot(output.processor.dot);
    EXPECT_THAT(processor.title, HasSubstr("Processor time"));
    EXPECT_THAT(processor.title, HasSubstr("5 samples in 1.50 s at 997 a second; in all 5 of "
                                           "processor time, 7 of wait time"));
    EXPECT_THAT(processor.title, HasSubstr("2 threads, 3 samples dropped"));
    EXPECT_EQ(processor.nodes.size(), 2U);
    EXPECT_EQ(processor.nodes.at(nameOfInner()).self, 5U);
    const auto wait = profileTests::parseDot(output.wait.dot);
    EXPECT_THAT(wait.title, HasSubstr("Wait time"));
    EXPECT_EQ(wait.nodes.size(), 3U);
    EXPECT_EQ(wait.nodes.at("[kernel pipe_read]").self, 7U);
    EXPECT_EQ(wait.nodes.at(nameOfInner()).total, 7U);
    EXPECT_EQ((wait.calls.at({nameOfInner(), "[kernel pipe_read]"})), 7U);
}

TEST(DrawProfile, SaysHowManySamplesAFilterKept)
{
    const auto output = drawProfile({stackOfTest({5, 0}), {{addressOf(&outerOfTest)}, "", {3, 0}}},
                                    {}, "(anonymous namespace)::innerOfTest");

    const auto graph = profileTests::parseDot(output.processor.dot);
    EXPECT_EQ(graph.nodes.size(), 1U);
    EXPECT_EQ(graph.totalOf(nameOfInner()), 5U);
    EXPECT_THAT(graph.title,
                HasSubstr("(anonymous namespace)::innerOfTest and below: 5 of 8 samples kept"));
    EXPECT_EQ(output.processor.samples, 5U);
    EXPECT_EQ(output.processor.allSamples, 8U);
    EXPECT_EQ(output.wait.samples, 0U);
}

TEST(DrawProfile, OfNothingSaysSo)
{
    const auto output = drawProfile({}, {}, "");

    EXPECT_THAT(output.processor.dot, HasSubstr("0 samples in 0.00 s; in all"));
    profileTests::expectRenders(output.processor.dot);
    profileTests::expectRenders(output.wait.dot);
}

TEST(SymbolTable, NamesFunctionsOfTheProgramAndOfLibraries)
{
    Diagnose::SymbolTable symbols;

    EXPECT_EQ(symbols.nameOf(addressOf(&innerOfTest)), "(anonymous namespace)::innerOfTest()");
    EXPECT_EQ(symbols.nameOf(reinterpret_cast<std::uint64_t>(&::getppid)), "getppid");
}

TEST(SymbolTable, GivesThePlaceOfWhatHasNoName)
{
    Diagnose::SymbolTable symbols;
    static const int data = 1;

    EXPECT_THAT(symbols.nameOf(reinterpret_cast<std::uint64_t>(&data)),
                testing::MatchesRegex("\\[DiagnoseTest\\+0x[0-9a-f]+\\]"));
    EXPECT_EQ(symbols.nameOf(0x10), "[0x10]");
}

}  // namespace
