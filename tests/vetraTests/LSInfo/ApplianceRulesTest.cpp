// The server models that are certified for the database.

#include <gtest/gtest.h>

#include <new>
#include <set>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "RuleTest.h"
#include "vetraTests/LSInfo/CertifiedModels.h"

namespace vetraTests {

namespace {

// One model in each pair of quotation marks.
constexpr std::string_view listOfModels = R"(
    "Express5800/A1080a [NE3100-xxxx]" "Express5800/A1040a [NE3100-xxxx]" "BladeSymphony E57A2"
    "7143" "7147" "7145" "7148" "7383" "7914" "7915" "5460" "3837" "ProLiant DL580 Gen8"
    "ProLiant DL580 Gen9" "PowerEdge R920" "PowerEdge R930" "ProLiant ML350p Gen8"
    "Compute Blade 2000 X57A2" "Compute Blade E57A2" "Lenovo WQ R680 G7" "PowerEdge R620"
    "PowerEdge T620" "PRIMERGY RX600 S5" "PRIMERGY RX900 S1" "738325Z]-" "PRIMERGY RX900 S2"
    "PRIMERGY RX600 S6" "PRIMERGY RX300 S6" "PRIMERGY RX350 S7" "PRIMERGY TX300 S6"
    "PRIMERGY TX300 S7" "ProLiant DL980 G7" "ProLiant DL580 G7" "ProLiant BL680c G7"
    "UCSC-BASE-M2-C460" "C260-BASE-2646" "B440-BASE-M2" "Compute Blade 520XB1" "R460-4640810"
    "CH242 V3 8HDD" "PowerEdge R910" "-[7145]-" "System x3850 X6" "System x3950 X6" "x3950 X6"
    "x3850 X6" "System x3690 X5" "System x3650 M4" "System x3550 M4" "IBM System x3550 M4"
    "System x3500 M4" "System x3850 X5" "System x3850 X5 / x3950 X5" "Tecal RH5885 V2"
    "Tecal RH5885 V3" "VMware Virtual Platform" "System x3950 X5" "PRIMEQUEST 2400S"
    "PRIMEQUEST 2400E" "PRIMEQUEST 2400L" "PRIMEQUEST 2800B" "PRIMEQUEST 2800E"
    "PRIMEQUEST 2800E2" "PRIMEQUEST 2800L" "bullion S" "Cisco C880 M4" "Compute Blade 520XB2"
    "Flex System x880 X6 Compute Node -[7903FT6]-" "NX7700x/A2010M-60 [NE3400-001Y]"
    "PRIMERGY RX4770 M1" "PRIMERGY RX4770 M2" "RH8100 V3" "Superdome2 16s" "Superdome2 16s x86"
    "System x3950 X6 -[3837AC4]-" "Tecal RH5885H V3" "RH5885H V3" "UCSB-EX-M4-1" "UCSC-C460-M4"
    "UV300" "3590R G3" "Compute Blade 520XB3" "UCSB-EX-M4-2" "UCSB-EX-M4-3" "9008" "9016"
    "x3950 X6 -[6241AC1]-" "x3850 X6 -[6241FT3]-" "ProLiant DL360 Gen9" "RH2288H V3"
    "PRIMEQUEST 2800B2" "PRIMERGY RX350 S8" "PRIMERGY TX300 S8" "RH2288H V2-8S" "CH242 V3 DDR4"
    "SR950" "UCSC-C480-IO" "PowerEdge R940" "PowerEdge R740xd" "UCSC-C480-M5" "PRIMEQUEST 3800B"
    "PowerEdge R630" "PowerEdge T630" "PowerEdge R730" "PowerEdge R730xd" "PRIMERGY RX2540 M2"
    "PRIMERGY RX2560 M2" "PRIMERGY TX2560 M2" "ProLiant DL560 Gen10" "NF8460M4" "NF8480M4"
    "TS860G3" "TS860" "Express5800/A2040b [NE3400-xxxx]" "NX7700x/A2010M-60 [NE3400-xxxx]"
    "Express5800/A2040c [NE3400-xxxx]" "NX7700x/3012M-4 [NE3400-xxxx]"
    "Express5800/A2040d [NE3400-xxxx]" "NX7700x/4012M-4 [NE3400-xxxx]")";

constexpr RulePointer applianceRule = &ValidateSystemInfo::validateApplianceSystemType;

constexpr const char* notCertified =
    " is not a certified ZIRN Server.\n Due to new validations, this information can be outdated. "
    "\n"
    " Please look into the KOR ZIRN PAM for more details";

std::vector<std::string> models()
{
    std::vector<std::string> names;
    for (std::size_t open = listOfModels.find('"'); open != std::string_view::npos;) {
        const std::size_t close = listOfModels.find('"', open + 1);
        names.emplace_back(listOfModels.substr(open + 1, close - open - 1));
        open = listOfModels.find('"', close + 1);
    }
    return names;
}

class ApplianceRule : public RuleTest {
protected:
    Judgement judgeModel(std::string_view name)
    {
        facts.productName = name;
        return judge(applianceRule);
    }

    void expectPassed(std::string_view name)
    {
        const Judgement judgement = judgeModel(name);
        EXPECT_EQ(judgement.block, passedBlock("validateApplianceSystemType"));
        EXPECT_EQ(judgement.record, "('appliancetype','" + plain(name) + "',0,'')");
        EXPECT_EQ(judgement.output, "");
    }

    void expectFailed(std::string_view name)
    {
        const std::string text = plain(name) + notCertified;
        const Judgement judgement = judgeModel(name);
        EXPECT_EQ(judgement.block, failedBlock("validateApplianceSystemType", text));
        EXPECT_EQ(judgement.record, "('appliancetype','" + plain(name) + "',4,'" + text + "')");
        EXPECT_EQ(judgement.output, "");
    }
};

// Rules whose memory fails once.
class ApplianceException : public RuleTest {
protected:
    std::size_t stepsOf(std::string_view name)
    {
        facts.productName = name;
        ValidateSystemInfo undisturbed(failing);
        undisturbed.validateApplianceSystemType(facts, x86);
        const std::size_t before = failing.allocations();
        undisturbed.validateApplianceSystemType(facts, x86);
        return failing.allocations() - before;
    }

    // True if the exception of that step was caught; false if it passed.
    bool isCaughtAt(std::size_t step)
    {
        ValidateSystemInfo fragile(failing);
        failing.throwAtAllocationOf(1, step, thrown.exception);
        try {
            expectCaught(fragile);
            return true;
        } catch (const Vetra::VetraException&) {
            return false;
        }
    }

    // The failure text is made before an outcome is recorded, so the first steps may let it pass;
    // the steps behind them may not.
    void expectCaughtWhileRecording(std::string_view name)
    {
        bool isRecording = false;
        const std::size_t steps = stepsOf(name);
        for (std::size_t step = 0; step < steps; ++step) {
            SCOPED_TRACE(step);
            const bool isCaught = isCaughtAt(step);
            EXPECT_TRUE(isCaught || !isRecording);
            isRecording = isCaught;
        }
        EXPECT_TRUE(isRecording);
    }

    void expectCaught(ValidateSystemInfo& fragile)
    {
        const std::string name = plain(facts.productName);
        const std::string failure = name + notCertified;
        const CapturedOutput output;
        const std::string block = plain(fragile.validateApplianceSystemType(facts, x86));

        EXPECT_FALSE(failing.isArmed());
        EXPECT_EQ(block, failedBlock("validateApplianceSystemType", failure));
        EXPECT_EQ(plain(fragile.getCheckAction()),
                  "('appliancetype','" + name + "',4,'" + failure + "')");
        EXPECT_EQ(output.text(), "It is not a certified ZIRN Server." + thrown.text + "\n");
    }

    string x86{"x86", domain.get()};
    ToolException thrown = toolException();
    FailingAllocator failing;
};

}  // namespace

TEST(CertifiedModels, StandInTheirOrderAndOnceEach)
{
    const std::vector<std::string> names = models();
    ASSERT_EQ(names.size(), 119U);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 119U);
    EXPECT_EQ(std::vector<std::string>(std::begin(certifiedModels), std::end(certifiedModels)),
              names);
}

TEST_F(ApplianceRule, PassesEachModel)
{
    for (const std::string& name : models()) {
        SCOPED_TRACE(name);
        expectPassed(name);
    }
}

TEST_F(ApplianceRule, FailsOnAModelWithABlankAround)
{
    for (const std::string& name : models()) {
        SCOPED_TRACE(name);
        expectFailed(name + " ");
        expectFailed(" " + name);
    }
}

TEST_F(ApplianceRule, HeedsTheCase)
{
    expectPassed("PowerEdge R920");
    expectFailed("poweredge r920");
    expectFailed("POWEREDGE R920");
    expectFailed("sr950");
}

TEST_F(ApplianceRule, TellsModelsWithEqualBeginningsApart)
{
    expectPassed("System x3850 X6");
    expectPassed("x3850 X6");
    expectPassed("x3850 X6 -[6241FT3]-");
    expectFailed("x3850 X6 -[6241FT4]-");
    expectFailed("System x3850");
    expectFailed("x3850 X6 -[");
    expectPassed("System x3850 X5 / x3950 X5");
    expectFailed("System x3850 X5 / x3950");
    expectPassed("TS860");
    expectFailed("TS860G");
}

TEST_F(ApplianceRule, TakesMachineTypesForWholeNames)
{
    for (const char* type :
         {"7143", "7147", "7145", "7148", "7383", "7914", "7915", "5460", "3837", "9008", "9016"}) {
        SCOPED_TRACE(type);
        expectPassed(type);
        expectFailed(plain(type) + "-AC1");
        expectFailed("System " + plain(type));
    }
    expectFailed("714");
    expectFailed("9017");
}

TEST_F(ApplianceRule, KnowsNoWildcards)
{
    expectPassed("NX7700x/3012M-4 [NE3400-xxxx]");
    expectFailed("NX7700x/3012M-4 [NE3400-0001]");
    expectPassed("NX7700x/A2010M-60 [NE3400-001Y]");
    expectFailed("NX7700x/A2010M-60 [NE3400-002Y]");
}

TEST_F(ApplianceRule, PassesAGuestByItsPlatform)
{
    becomeSupportedGuest();

    expectPassed("VMware Virtual Platform");
}

TEST_F(ApplianceRule, BeginsWithTheBlankForAnEmptyName)
{
    expectFailed("");

    EXPECT_EQ(judgeModel("").record,
              "('appliancetype','',4,' is not a certified ZIRN Server.\n"
              " Due to new validations, this information can be outdated. \n"
              " Please look into the KOR ZIRN PAM for more details')");
}

TEST_F(ApplianceRule, DoesNotLookAtTheArchitecture)
{
    facts.productName = "PowerEdge R920";

    EXPECT_EQ(judge(applianceRule, "not valid").record, "('appliancetype','PowerEdge R920',0,'')");
}

TEST_F(ApplianceException, IsReportedAsFailureEvenAfterAMatch)
{
    expectCaughtWhileRecording("PowerEdge R920");
}

TEST_F(ApplianceException, IsReportedAsFailureWithoutAMatch)
{
    expectCaughtWhileRecording("PowerEdge R921");
}

TEST_F(ApplianceException, OfAnotherTypePasses)
{
    const std::size_t steps = stepsOf("PowerEdge R920");
    ValidateSystemInfo fragile(failing);
    failing.throwAtAllocationOf(1, steps - 1, std::make_exception_ptr(std::bad_alloc()));
    const CapturedOutput output;

    EXPECT_THROW(fragile.validateApplianceSystemType(facts, x86), std::bad_alloc);

    EXPECT_EQ(output.text(), "");
}

}  // namespace vetraTests
