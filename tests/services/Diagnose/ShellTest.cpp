#include "Diagnose/Shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Diagnose/Statistics.h"

namespace {

using Diagnose::CommandException;
using Diagnose::registerCommandFamily;
using Diagnose::StatisticsRegistration;
using testing::HasSubstr;

using Words = std::vector<std::string>;

// The answer, or the reason of the refusal behind "refused: ".
std::string run(const char* command)
{
    std::ostringstream answer;
    try {
        dbgExecuteCommand(command, answer, true);
    } catch (const CommandException& refusal) {
        return answer.str() + "refused: " + refusal.what();
    }
    return answer.str();
}

// Answers with its words in brackets.
void echo(const Words& words, std::ostream& answer)
{
    for (const std::string& word : words)
        answer << '[' << word << ']';
}

TEST(Shell, HandsTheWordsBehindTheFamilyOver)
{
    registerCommandFamily("echo", &echo);

    EXPECT_EQ(run("echo one two -n three"), "[one][two][-n][three]");
    EXPECT_EQ(run("echo"), "");
}

TEST(Shell, SplitsWordsAtBlanksOfAnyNumber)
{
    registerCommandFamily("echo", &echo);

    EXPECT_EQ(run("  echo \t one   two\n"), "[one][two]");
    EXPECT_EQ(run("echo \"a b\""), "[\"a][b\"]");
}

TEST(Shell, AppendsToWhatTheStreamHolds)
{
    registerCommandFamily("echo", &echo);
    std::ostringstream answer;
    answer << "before ";

    dbgExecuteCommand("echo a", answer, true);

    EXPECT_EQ(answer.str(), "before [a]");
}

TEST(Shell, RefusesACommandWithoutWords)
{
    EXPECT_THAT(run(""), HasSubstr("the command is empty"));
    EXPECT_THAT(run(" \t"), HasSubstr("the command is empty"));
}

TEST(Shell, RefusesAFamilyThatItDoesNotKnow)
{
    EXPECT_THAT(run("nosuch reset"), HasSubstr("there is no command 'nosuch'"));
    EXPECT_THAT(run("STATREG list"), HasSubstr("there is no command 'STATREG'"));
}

TEST(Shell, TakesTheSecondRegistrationInPlaceOfTheFirst)
{
    registerCommandFamily("replaced", [](const Words&, std::ostream& answer) { answer << "old"; });
    registerCommandFamily("replaced", [](const Words&, std::ostream& answer) { answer << "new"; });

    EXPECT_EQ(run("replaced"), "new");
}

TEST(Shell, PassesARefusalOfAFamilyOnBehindItsAnswer)
{
    registerCommandFamily("choosy", [](const Words& words, std::ostream& answer) {
        answer << "half; ";
        Diagnose::refuseCommand("not '" + words.at(0) + "'");
    });

    EXPECT_THAT(run("choosy that"),
                testing::AllOf(testing::StartsWith("half; refused: "), HasSubstr("not 'that'")));
}

TEST(Shell, LetsACommandCarryOutAnotherOne)
{
    registerCommandFamily("echo", &echo);
    registerCommandFamily("twice", [](const Words&, std::ostream& answer) {
        registerCommandFamily("inner", &echo);
        dbgExecuteCommand("inner a", answer, true);
        dbgExecuteCommand("echo b", answer, true);
    });

    EXPECT_EQ(run("twice"), "[a][b]");
}

TEST(Shell, MayBeUsedByManyThreads)
{
    std::atomic<int> wrong{0};
    {
        std::vector<std::jthread> threads;
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back([&wrong, number] {
                const std::string name = "family" + std::to_string(number);
                for (int i = 0; i < 500; ++i) {
                    registerCommandFamily(name, &echo);
                    const std::string word = std::to_string(i);
                    wrong += run((name + " " + word).c_str()) == "[" + word + "]" ? 0 : 1;
                }
            });
        }
    }

    EXPECT_EQ(wrong, 0);
}

TEST(ShellDeathTest, CarriesCommandsOutAtOnceOnly)
{
    std::ostringstream answer;

    EXPECT_DEATH(dbgExecuteCommand("statreg list", answer, false), "carried out at once");
}

TEST(CommandException, CarriesTheErrorOfTheShellAndTheCallersPlace)
{
    int line = 0;
    try {
        line = __LINE__ + 1;
        Diagnose::refuseCommand("a reason");
    } catch (const CommandException& refusal) {
        EXPECT_EQ(refusal.record(), &Diagnose::commandFailed());
        EXPECT_EQ(refusal.line(), line);
        EXPECT_STREQ(refusal.file(), __FILE__);
        EXPECT_THAT(refusal.what(), HasSubstr("ERR_COMMAND_FAILED"));
        EXPECT_THAT(refusal.what(), HasSubstr("a reason"));
    }
    EXPECT_NE(line, 0);
}

TEST(CommandException, HasOneErrorRecord)
{
    run("");
    run("nosuch");

    EXPECT_EQ(&Diagnose::commandFailed(), &Diagnose::commandFailed());
    EXPECT_EQ(Basis::registrationsOf("ERR_COMMAND_FAILED"), 1U);
}

// The family "statreg" with two services under one name and one under another.
class StatregCommand : public testing::Test {
protected:
    Diagnose::StatisticsDomain domain(const char* name, int& count)
    {
        return {name, [&count] { count = 0; },
                [&count](std::ostream& stream) { stream << "count " << count << '\n'; }};
    }

    int first = 1;
    int second = 2;
    int other = 3;
    StatisticsRegistration registrations[3] = {StatisticsRegistration(domain("DOMAIN_B", first)),
                                               StatisticsRegistration(domain("DOMAIN_B", second)),
                                               StatisticsRegistration(domain("DOMAIN_A", other))};
};

TEST_F(StatregCommand, ListsTheNamesOfAllDomains)
{
    EXPECT_EQ(run("statreg list"), "DOMAIN_A\nDOMAIN_B\n");
}

TEST_F(StatregCommand, PrintsAllServicesOfTheDomain)
{
    EXPECT_EQ(run("statreg print -n DOMAIN_B"), "count 1\ncount 2\n");
    EXPECT_EQ(run("statreg print -h -n DOMAIN_A"), "count 3\n");
    EXPECT_EQ(run("statreg print -n DOMAIN_A -h"), "count 3\n");
}

TEST_F(StatregCommand, ResetsTheCountersOfTheDomainAlone)
{
    EXPECT_EQ(run("statreg reset -n DOMAIN_B"), "");

    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(other, 3);
}

TEST_F(StatregCommand, RefusesADomainThatNobodyRegistered)
{
    EXPECT_THAT(run("statreg reset -n DOMAIN"), HasSubstr("statreg knows no domain 'DOMAIN'"));
    EXPECT_THAT(run("statreg print -n domain_a"), HasSubstr("statreg knows no domain 'domain_a'"));
    EXPECT_THAT(run("statreg reset"), HasSubstr("statreg knows no domain ''"));
}

TEST_F(StatregCommand, RefusesWhatItDoesNotKnow)
{
    EXPECT_THAT(run("statreg"),
                HasSubstr("statreg has no command '', expected reset, print or list"));
    EXPECT_THAT(run("statreg clear -n DOMAIN_A"), HasSubstr("statreg has no command 'clear'"));
    EXPECT_THAT(run("statreg reset DOMAIN_A"), HasSubstr("statreg does not know 'DOMAIN_A'"));
    EXPECT_THAT(run("statreg reset -n"), HasSubstr("statreg does not know '-n'"));
    EXPECT_THAT(run("statreg reset -h -n DOMAIN_A"), HasSubstr("statreg does not know '-h'"));
    EXPECT_EQ(other, 3);
}

}  // namespace
