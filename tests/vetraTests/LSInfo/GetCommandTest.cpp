// The command runner, the trimming rule and the name of the dump file.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "FakeHost.h"
#include "HostFacts.h"

namespace vetraTests {

namespace {

class GetCommandTest : public testing::Test {
protected:
    std::string outputOf(std::string_view text)
    {
        command = text;
        return plain(facts.getCommand(command));
    }

    std::string trimmed(std::string_view text)
    {
        string copy(text, domain.get());
        facts.trim(copy);
        return plain(copy);
    }

    std::string dumpFile()
    {
        facts.KORSysFileName();
        return plain(facts.getBiosFileName());
    }

    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
    string command{domain.get()};
};

class TrimTest : public GetCommandTest {};

class DumpFileNameTest : public GetCommandTest {
protected:
    FakeHost host;  // puts back the environment
};

// No descriptor is left for a pipe while it lives.
class NoMoreDescriptors {
public:
    NoMoreDescriptors()
    {
        ::getrlimit(RLIMIT_NOFILE, &former);
        rlimit none = former;
        none.rlim_cur = 0;
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreDescriptors() { ::setrlimit(RLIMIT_NOFILE, &former); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit former{};
};

}  // namespace

TEST_F(GetCommandTest, ReturnsTheOutputWithItsLineEnds)
{
    EXPECT_EQ(outputOf("printf 'one\\n\\ntwo\\n'"), "one\n\ntwo\n");
}

TEST_F(GetCommandTest, ReturnsAnOutputWithoutFinalLineEndAsItIs)
{
    EXPECT_EQ(outputOf("printf 'one\\ntwo'"), "one\ntwo");
}

TEST_F(GetCommandTest, ReturnsNothingForACommandThatPrintsNothing)
{
    EXPECT_EQ(outputOf("true"), "");
}

TEST_F(GetCommandTest, LeavesTheRedirectionInTheCallersText)
{
    outputOf("echo a");

    EXPECT_EQ(plain(command), "echo a 2>&1");
}

TEST_F(GetCommandTest, AddsTheRedirectionAgainAtTheSecondCall)
{
    outputOf("echo a");

    EXPECT_EQ(plain(facts.getCommand(command)), "a\n");
    EXPECT_EQ(plain(command), "echo a 2>&1 2>&1");
}

TEST_F(GetCommandTest, CollectsLinesThatAreLongerThanItsBuffer)
{
    for (const std::size_t length : {254U, 255U, 256U, 509U, 510U, 511U, 5000U}) {
        const std::string line(length, 'x');
        EXPECT_EQ(outputOf("echo " + line + "; echo end"), line + "\nend\n") << length;
    }
}

TEST_F(GetCommandTest, IgnoresTheExitStatus)
{
    EXPECT_EQ(outputOf("sh -c 'echo text; exit 7'"), "text\n");
}

TEST_F(GetCommandTest, CollectsTheDiagnosticsOfTheLastStageOnly)
{
    testing::internal::CaptureStderr();
    const std::string output = outputOf("sh -c 'echo early >&2' | sh -c 'echo late >&2'");
    const std::string diagnostics = testing::internal::GetCapturedStderr();

    EXPECT_EQ(output, "late\n");
    EXPECT_EQ(diagnostics, "early\n");
}

TEST_F(GetCommandTest, ReturnsTheShellsMessageForAMissingCommand)
{
    const std::string output = outputOf("no-such-command-anywhere");

    EXPECT_NE(output.find("no-such-command-anywhere"), std::string::npos) << output;
    EXPECT_EQ(output.back(), '\n');
}

TEST_F(GetCommandTest, ReturnsNothingIfTheCommandCannotBeStarted)
{
    std::string output = "not run";
    {
        const NoMoreDescriptors none;
        output = outputOf("echo a");
    }

    EXPECT_EQ(output, "");
    EXPECT_EQ(plain(command), "echo a 2>&1");
}

TEST_F(GetCommandTest, ReturnsItsTextInTheDomainOfTheStore)
{
    command = "echo a";

    EXPECT_EQ(facts.getCommand(command).get_allocator().resource(), domain.get());
}

TEST_F(TrimTest, StripsBlanksAndLineEndsAndTabsFromBothEnds)
{
    EXPECT_EQ(trimmed(" \r\n\tvalue\t\n\r "), "value");
}

TEST_F(TrimTest, KeepsWhatStandsInside)
{
    EXPECT_EQ(trimmed("\ta \r\n\tb "), "a \r\n\tb");
}

TEST_F(TrimTest, LeavesNothingOfATextOfBlanks)
{
    EXPECT_EQ(trimmed(" \t\r\n "), "");
    EXPECT_EQ(trimmed(" "), "");
}

TEST_F(TrimTest, LeavesAnEmptyTextAsItIs)
{
    EXPECT_EQ(trimmed(""), "");
}

TEST_F(TrimTest, KeepsVerticalTabsAndFormFeeds)
{
    EXPECT_EQ(trimmed("\vvalue\f"), "\vvalue\f");
    EXPECT_EQ(trimmed(" \v "), "\v");
    EXPECT_EQ(trimmed("\t\f\n"), "\f");
}

TEST_F(DumpFileNameTest, HoldsTheSystemAndTheHost)
{
    setEnvironment("KORSYSTEMNAME", "K01");
    setEnvironment("HOST", "zirn01");

    EXPECT_EQ(dumpFile(), "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_zirn01.txt");
}

TEST_F(DumpFileNameTest, HasNothingInPlaceOfAnUnsetHost)
{
    setEnvironment("KORSYSTEMNAME", "K01");

    EXPECT_EQ(dumpFile(), "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_.txt");
}

TEST_F(DumpFileNameTest, HasADoubledSlashInPlaceOfAnUnsetSystem)
{
    setEnvironment("HOST", "zirn01");

    EXPECT_EQ(dumpFile(), "/usr/kor//SYS/global/zdb/install/hwinfo/bios_zirn01.txt");
}

TEST_F(DumpFileNameTest, TakesEmptyVariablesForUnsetOnes)
{
    setEnvironment("KORSYSTEMNAME", "");
    setEnvironment("HOST", "");

    EXPECT_EQ(dumpFile(), "/usr/kor//SYS/global/zdb/install/hwinfo/bios_.txt");
}

TEST_F(DumpFileNameTest, FollowsTheEnvironmentAtEachCall)
{
    setEnvironment("KORSYSTEMNAME", "K01");
    setEnvironment("HOST", "first");
    dumpFile();
    setEnvironment("HOST", "second");

    EXPECT_EQ(dumpFile(), "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_second.txt");
}

}  // namespace vetraTests
