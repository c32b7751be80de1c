#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "Diagnose/TraceTopic.h"
#include "Version/Version.h"
#include "impl/vetra.h"
#include "tests/impl/DriverTest.h"

namespace {

using testing::IsEmpty;
using unitTests::namesIn;

constexpr const char* usage =
    "Usage: ./vetra -f testconfig.json for hardware validation test\n"
    "       or ./vetra -h or --help for usage info\n"
    "       or ./vetra -v or --version for version\n";

class CommandLineTest : public unitTests::DriverTest {
protected:
    int vetra(std::initializer_list<const char*> arguments)
    {
        std::vector<std::string> texts{"./vetra"};
        texts.insert(texts.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (std::string& argument : texts)
            pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        return Vetra::runVetra(static_cast<int>(texts.size()), pointers.data());
    }
    void expectUsageError(std::initializer_list<const char*> arguments)
    {
        const auto before = output.text().size();
        EXPECT_EQ(vetra(arguments), -1);
        EXPECT_EQ(output.text().substr(before), std::string(usage) + "\n");
        EXPECT_THAT(namesIn("."), IsEmpty());
    }
};

TEST_F(CommandLineTest, UsageIsThreeLines)
{
    EXPECT_EQ(Vetra::vetraUsage(), usage);
}

TEST_F(CommandLineTest, VersionLineHoldsVersionAndBuildDate)
{
    Vetra::vetraVersion();

    EXPECT_EQ(output.text(),
              std::string("vetra-") + zdbver_version() + " (" + zdbver_compiledate() + ")\n");
}

TEST_F(CommandLineTest, HelpPrintsUsageAndABlankLine)
{
    EXPECT_EQ(vetra({"-h"}), 0);
    EXPECT_EQ(vetra({"--help"}), 0);

    EXPECT_EQ(output.text(), std::string(usage) + "\n" + usage + "\n");
}

TEST_F(CommandLineTest, VersionPrintsTheVersionLine)
{
    EXPECT_EQ(vetra({"-v"}), 0);
    EXPECT_EQ(vetra({"--version"}), 0);

    const std::string line =
        std::string("vetra-") + zdbver_version() + " (" + zdbver_compiledate() + ")\n";
    EXPECT_EQ(output.text(), line + line);
}

TEST_F(CommandLineTest, NoArgumentsAreAUsageError)
{
    expectUsageError({});
}

TEST_F(CommandLineTest, NotEvenAProgramNameIsAUsageError)
{
    char* none[] = {nullptr};

    EXPECT_EQ(Vetra::runVetra(0, none), -1);

    EXPECT_EQ(output.text(), std::string(usage) + "\n");
}

TEST_F(CommandLineTest, FileFlagWithoutItsFileIsAUsageError)
{
    expectUsageError({"-f"});
}

TEST_F(CommandLineTest, FileFlagWithTwoFilesIsAUsageError)
{
    expectUsageError({"-f", "a.json", "b.json"});
}

TEST_F(CommandLineTest, HelpWithAFurtherArgumentIsAUsageError)
{
    expectUsageError({"-h", "x"});
    expectUsageError({"--help", "-f"});
}

TEST_F(CommandLineTest, VersionWithAFurtherArgumentIsAUsageError)
{
    expectUsageError({"-v", "x"});
    expectUsageError({"--version", ""});
}

TEST_F(CommandLineTest, FlagThatMerelyBeginsWithOneIsAUsageError)
{
    expectUsageError({"-fx", "a.json"});
    expectUsageError({"-f=a.json"});
    expectUsageError({"-f ", "a.json"});
    expectUsageError({"-hh"});
    expectUsageError({"--versions"});
}

TEST_F(CommandLineTest, FlagOfOtherCaseIsAUsageError)
{
    expectUsageError({"-F", "a.json"});
    expectUsageError({"-H"});
    expectUsageError({"--Help"});
    expectUsageError({"-V"});
}

TEST_F(CommandLineTest, UnknownAndEmptyArgumentsAreUsageErrors)
{
    expectUsageError({"a.json"});
    expectUsageError({""});
    expectUsageError({"", "a.json"});
    expectUsageError({"--", "a.json"});
    expectUsageError({"a.json", "-f"});
    expectUsageError({"--file", "a.json"});
}

TEST_F(CommandLineTest, TopicOfTheToolIsKnownBeforeAnyRun)
{
    Vetra::vetraUsage();

    const Diagnose::TraceTopic* topic = Diagnose::TraceTopic::find("vetraSuite");

    ASSERT_NE(topic, nullptr);
    EXPECT_STREQ(topic->description(), "vetraSuite");
}

TEST_F(CommandLineTest, TextsStandInTheDomainOfTheTool)
{
    const auto usageText = Vetra::vetraUsage();
    const auto* domainOfTool =
        dynamic_cast<Basis::Allocator*>(usageText.get_allocator().resource());

    ASSERT_NE(domainOfTool, nullptr);
    EXPECT_EQ(domainOfTool->name(), "VETRA");
}

}  // namespace
