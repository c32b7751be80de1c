// The layout of the blocks, and what a rule finds in the block of another one.

#include <gtest/gtest.h>

#include "RuleTest.h"

namespace vetraTests {

namespace {

class ConsolidateReport : public RuleTest {
protected:
    void add(std::string_view rule, std::string_view status, std::string_view reason)
    {
        report.emplace(rule, CheckOutcomes(domain.get()))->second.emplace(status, reason);
    }

    std::string block(std::string_view severity)
    {
        return plain(rules.consolidateReport(report, severity));
    }

    std::string verdict(std::string_view text)
    {
        return plain(rules.verdictOf(string(text, domain.get())));
    }

    CheckReport report{domain.get()};
};

}  // namespace

TEST_F(ConsolidateReport, WritesSuccessGreenWithItsReasonBehindATab)
{
    add("validateTHP", "SUCESS", "");
    EXPECT_EQ(block(""),
              "validateTHP                   :"
              "                                         "
              "\033[1;32mSUCESS\033[0m\t\n");

    report.clear();
    add("validateTHP", "SUCESS", "all is well");
    EXPECT_EQ(block("HIGH"),
              "validateTHP                   :"
              "                                         "
              "\033[1;32mSUCESS\033[0m\tall is well\n");
}

TEST_F(ConsolidateReport, WritesAFailureOfHighSeverityRed)
{
    add("validateTHP", "FAILED", "a reason\nof two lines");

    EXPECT_EQ(block("HIGH"),
              "validateTHP                   :"
              "                                         "
              "\033[1;31mFAILED\033[0m\n"
              "         Severity:  HIGH\n"
              "           Reason:  a reason\nof two lines\n");
}

TEST_F(ConsolidateReport, WritesAFailureOfMediumSeverityAsYellowWarning)
{
    add("validateClocksource", "FAILED", "a reason");

    EXPECT_EQ(block("MEDIUM"),
              "validateClocksource           :"
              "                                         "
              "\033[1;33mWARNING\033[0m\n"
              "         Severity:  MEDIUM\n"
              "           Reason:  a reason\n");
}

TEST_F(ConsolidateReport, WritesAFailureOfAnyOtherSeverityAsWarning)
{
    add("validateTHP", "FAILED", "a reason");

    for (const char* severity : {"", "LOW", "high", "HIGHER", "HIGH ", "HIG"}) {
        EXPECT_EQ(block(severity),
                  "validateTHP                   :"
                  "                                         "
                  "\033[1;33mWARNING\033[0m\n"
                  "         Severity:  " +
                      plain(severity) +
                      "\n"
                      "           Reason:  a reason\n")
            << severity;
    }
}

TEST_F(ConsolidateReport, WritesWhatDoesNotApplyAsBlueSkipped)
{
    add("validateMemoryDistribution", "NOTAPPLICABLE", "a reason");

    EXPECT_EQ(block("HIGH"),
              "validateMemoryDistribution    :"
              "                                         "
              "\033[1;34mSKIPPED\033[0m\n"
              "           Reason:  a reason\n");
}

TEST_F(ConsolidateReport, WritesAnyOtherStatusPlain)
{
    for (const char* status : {"", "SUCCESS", "SUCES", "SUCESS ", "sucess", "FAILED!", "failed",
                               "SKIPPED", "WARNING", "NOTAPPLICABLES"}) {
        report.clear();
        add("validateTHP", status, "a reason");
        EXPECT_EQ(block("HIGH"), "validateTHP\t" + plain(status) + "\ta reason\n") << status;
    }
}

TEST_F(ConsolidateReport, WritesALongRuleNameWhole)
{
    add("aRuleWhoseNameIsLongerThanThirtyColumns", "NOTAPPLICABLE", "a reason");

    EXPECT_EQ(block(""),
              "aRuleWhoseNameIsLongerThanThirtyColumns:"
              "                                         "
              "\033[1;34mSKIPPED\033[0m\n"
              "           Reason:  a reason\n");
}

TEST_F(ConsolidateReport, WritesEntriesInTheOrderOfTheirKeys)
{
    add("b", "SUCESS", "4");
    add("a", "Z", "3");
    add("a", "Y", "0");
    report.lower_bound("a")->second.emplace("Zz", "2");
    report.lower_bound("a")->second.emplace("Z", "1 after its twin");

    // Equal keys keep the order in which they came.
    EXPECT_EQ(block(""),
              "a\tZ\t3\n"
              "a\tZ\t1 after its twin\n"
              "a\tZz\t2\n"
              "a\tY\t0\n"
              "b                             :"
              "                                         "
              "\033[1;32mSUCESS\033[0m\t4\n");
}

TEST_F(ConsolidateReport, JustifiesEachEntryAnew)
{
    add("a", "FAILED", "first");
    add("b", "odd", "second");
    add("c", "FAILED", "third");

    EXPECT_EQ(block("HIGH"),
              failedBlock("a", "first") + "b\todd\tsecond\n" + failedBlock("c", "third"));
}

TEST_F(ConsolidateReport, WritesNothingForAnEmptyReport)
{
    EXPECT_EQ(block("HIGH"), "");
}

TEST_F(ConsolidateReport, LeavesReportAndRecordAsTheyAre)
{
    facts.clockInfo = "tsc";
    judge(&ValidateSystemInfo::validateClocksource);
    add("validateTHP", "FAILED", "a reason");

    block("MEDIUM");

    EXPECT_EQ(plain(rules.getCheckAction()), "('clocksource','tsc',0,'')");
    EXPECT_EQ(plain(rules.getHumanReadableReport()), "");
    EXPECT_EQ(report.find("validateTHP")->second.count("FAILED"), 1U);
}

TEST_F(ConsolidateReport, ReturnsItsTextInTheDomainOfTheRules)
{
    add("validateTHP", "SUCESS", "");

    EXPECT_EQ(rules.consolidateReport(report, "").get_allocator().resource(), domain.get());
}

TEST_F(ConsolidateReport, NestedSearchCoversTheReason)
{
    add("validateHypervisor", "NOTAPPLICABLE", "there is no SUCESS in it: none");

    EXPECT_EQ(verdict(block("")),
              "\033[1;34mSKIPPED\033[0m\n           Reason:  there is no SUCESS in it: none");
}

TEST_F(ConsolidateReport, NestedSearchMeetsTheWarningThatIsShown)
{
    add("validateClocksource", "FAILED", "a reason");

    EXPECT_EQ(verdict(block("MEDIUM")),
              "\033[1;33mWARNING\033[0m\n         Severity:  MEDIUM\n           Reason:  a reason");
}

TEST_F(ConsolidateReport, NestedSearchTakesATextWithoutColonWhole)
{
    EXPECT_EQ(verdict(" SUCESS \t"), "SUCESS");
    EXPECT_EQ(verdict(""), "");
}

}  // namespace vetraTests
