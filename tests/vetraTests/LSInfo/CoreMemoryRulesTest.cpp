// The ratio between cores and memory.

#include <gtest/gtest.h>

#include <vector>

#include "RuleTest.h"

namespace vetraTests {

namespace {

constexpr const char* firstGeneration = "Intel(R) Xeon(R) CPU E7- 8870";
constexpr const char* secondGeneration = "Intel(R) Xeon(R) CPU E7-8880 v2";
constexpr const char* thirdGeneration = "Intel(R) Xeon(R) CPU E7-8890 v3";
constexpr const char* fourthGeneration = "Intel(R) Xeon(R) CPU E7-8890 v4";

constexpr const char* notInAGuest =
    "The core to memory ratio for analytics does not \napply for Virtual environments";
constexpr const char* notForProduction =
    "This configuration can be run only for \nnon-production systems. \n"
    "This is not supported on production system.";
constexpr const char* notForProductionInTheRecord =
    "This configuration can be run only for \nnon-production systems.\n"
    "This is not supported on production system.";
constexpr const char* notForSmallProcessors =
    "The core to memory ratio for analytics does not apply for \n"
    "E5 processors. Please check Note for correct configuration";
constexpr const char* notValidRatio =
    "The system has a non valid \ncore-memory ratio for analytics";

class CoreMemoryRule : public RuleTest {
protected:
    CoreMemoryRule() { becomeBareMetal(); }

    Judgement judgeRatio(std::string_view model, std::string_view ratio,
                         std::string_view arch = "x86")
    {
        facts.modelName = model;
        facts.coreMemoryRatio = ratio;
        return judge(&ValidateSystemInfo::validateCoreMemoryRatio, arch);
    }

    // Of the ratios 6 to 12, those that pass.
    std::vector<int> passingRatios(std::string_view model)
    {
        std::vector<int> passing;
        for (int ratio = 6; ratio <= 12; ++ratio) {
            const Judgement judgement = judgeRatio(model, std::to_string(ratio));
            if (judgement.block == passedBlock("validateCoreMemoryRatio"))
                passing.push_back(ratio);
            else
                expectNotValid(judgement, std::to_string(ratio));
        }
        return passing;
    }

    void expectNotValid(const Judgement& judgement, std::string_view value)
    {
        EXPECT_EQ(judgement.block, failedBlock("validateCoreMemoryRatio", notValidRatio));
        EXPECT_EQ(judgement.record,
                  "('corememoryratio','" + plain(value) + "',4,'" + notValidRatio + "')");
    }

    void expectNotForProduction(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block, skippedBlock("validateCoreMemoryRatio", notForProduction));
        EXPECT_EQ(judgement.record,
                  "('corememoryratio','',3,'" + plain(notForProductionInTheRecord) + "')");
    }

    void becomeAcceptedFamily()
    {
        facts.vendorId = "GenuineIntel";
        facts.cpuFamily = "6";
        facts.model = "79";
    }
};

}  // namespace

TEST_F(CoreMemoryRule, PassesWithTheRatioAsValue)
{
    const Judgement judgement = judgeRatio(firstGeneration, "6");

    EXPECT_EQ(judgement.block, passedBlock("validateCoreMemoryRatio"));
    EXPECT_EQ(judgement.record, "('corememoryratio','6',0,'')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(CoreMemoryRule, AllowsSixForTheFirstGeneration)
{
    EXPECT_EQ(passingRatios(firstGeneration), (std::vector<int>{6}));
}

TEST_F(CoreMemoryRule, AllowsEightForTheSecondGeneration)
{
    EXPECT_EQ(passingRatios(secondGeneration), (std::vector<int>{6, 7, 8}));
}

TEST_F(CoreMemoryRule, AllowsTenForTheThirdGeneration)
{
    EXPECT_EQ(passingRatios(thirdGeneration), (std::vector<int>{6, 7, 8, 9, 10}));
}

TEST_F(CoreMemoryRule, AllowsElevenForTheFourthGeneration)
{
    EXPECT_EQ(passingRatios(fourthGeneration), (std::vector<int>{6, 7, 8, 9, 10, 11}));
}

TEST_F(CoreMemoryRule, AllowsTheMostOfSeveralGenerationsInOneName)
{
    becomeAcceptedFamily();

    EXPECT_EQ(passingRatios("E7 v2 v4"), (std::vector<int>{6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(passingRatios("v3 and E7"), (std::vector<int>{6, 7, 8, 9, 10}));
    EXPECT_EQ(passingRatios("E7 v5"), (std::vector<int>{6}));
}

TEST_F(CoreMemoryRule, ReadsTheRatioAsAThirtyTwoBitNumber)
{
    EXPECT_EQ(judgeRatio(firstGeneration, "").record, "('corememoryratio','0',0,'')");
    EXPECT_EQ(judgeRatio(firstGeneration, "007").block,
              failedBlock("validateCoreMemoryRatio", notValidRatio));
    EXPECT_EQ(judgeRatio(firstGeneration, "6.9 GiB").record, "('corememoryratio','6',0,'')");
    EXPECT_EQ(judgeRatio(firstGeneration, "-2048").record, "('corememoryratio','-2048',0,'')");
    EXPECT_EQ(judgeRatio(firstGeneration, "-2147483648").record,
              "('corememoryratio','-2147483648',0,'')");
    EXPECT_EQ(judgeRatio(firstGeneration, "4294967303").record,
              "('corememoryratio','7',4,'" + plain(notValidRatio) + "')");
}

TEST_F(CoreMemoryRule, IsSkippedInASupportedGuest)
{
    becomeSupportedGuest();
    const Judgement judgement = judgeRatio(fourthGeneration, "6");

    EXPECT_EQ(judgement.block, skippedBlock("validateCoreMemoryRatio", notInAGuest));
    EXPECT_EQ(judgement.record, "('corememoryratio','',3,'" + plain(notInAGuest) + "')");
}

TEST_F(CoreMemoryRule, PutsTheGuestBeforeTheProcessor)
{
    becomeSupportedGuest();

    EXPECT_EQ(judgeRatio("An unlisted name", "6").block,
              skippedBlock("validateCoreMemoryRatio", notInAGuest));
}

TEST_F(CoreMemoryRule, JudgesAnUnsupportedGuestLikeAnyHost)
{
    becomeUnsupportedGuest();

    EXPECT_EQ(judgeRatio(firstGeneration, "6").record, "('corememoryratio','6',0,'')");
}

TEST_F(CoreMemoryRule, IsSkippedForAProcessorThatFailed)
{
    expectNotForProduction(judgeRatio("Intel(R) Xeon(R) CPU E7-8867 v3", "6"));
    expectNotForProduction(judgeRatio("Intel(R) Xeon(R) CPU E5-2640 v3", "6"));
    expectNotForProduction(judgeRatio("", ""));
}

TEST_F(CoreMemoryRule, AsksTheProcessorBeforeTheArchitecture)
{
    expectNotForProduction(judgeRatio(firstGeneration, "6", "not valid"));
    becomeSupportedGuest();
    expectNotForProduction(judgeRatio(firstGeneration, "6", "not valid"));
}

TEST_F(CoreMemoryRule, IsSkippedForTheSmallerProcessors)
{
    const Judgement judgement = judgeRatio("Intel(R) Xeon(R) CPU E5-2670 v3", "99");

    EXPECT_EQ(judgement.block, skippedBlock("validateCoreMemoryRatio", notForSmallProcessors));
    EXPECT_EQ(judgement.record, "('corememoryratio','',3,'" + plain(notForSmallProcessors) + "')");
}

TEST_F(CoreMemoryRule, FailsOnAcceptedProcessorsThatAreNeither)
{
    for (const char* model : {"Intel(R) Xeon(R) Platinum 8180 CPU", "Intel(R) Xeon(R) X7560"})
        expectNotValid(judgeRatio(model, "1"), model);
}

TEST_F(CoreMemoryRule, LetsTheNameOfAnAcceptedFamilyDecide)
{
    becomeAcceptedFamily();

    EXPECT_EQ(judgeRatio("Intel(R) Xeon(R) CPU E7-8867 v4", "11").record,
              "('corememoryratio','11',0,'')");
    EXPECT_EQ(judgeRatio("Intel(R) Xeon(R) CPU E5-2699 v4", "11").block,
              skippedBlock("validateCoreMemoryRatio", notForSmallProcessors));
    expectNotValid(judgeRatio("Genuine processor", "1"), "Genuine processor");
    EXPECT_EQ(judgeRatio("E5 and E7", "6").record, "('corememoryratio','6',0,'')");
}

}  // namespace vetraTests
