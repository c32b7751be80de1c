// Processor, hypervisor, threading, clock and huge pages.

#include <gtest/gtest.h>

#include <vector>

#include "RuleTest.h"

namespace vetraTests {

namespace {

// One name in each pair of quotation marks, as an operator would read them in a list.
constexpr std::string_view listOfProcessors =
    R"("Intel(R) Xeon(R) CPU E7- 8870" "Intel(R) Xeon(R) CPU E7- 4870"
       "Intel(R) Xeon(R) CPU E7- 2870" "Intel(R) Xeon(R) CPU E7-8880 v2"
       "Intel(R) Xeon(R) CPU E7-4880 v2" "Intel(R) Xeon(R) CPU E7-2880 v2"
       "Intel(R) Xeon(R) CPU E7-8890 v2" "Intel(R) Xeon(R) CPU E7-4890 v2"
       "Intel(R) Xeon(R) CPU E7-2890 v2" "Intel(R) Xeon(R) CPU E7-8890 v3"
       "Intel(R) Xeon(R) CPU E7-8880 v3" "Intel(R) Xeon(R) CPU E7-4890 v3"
       "Intel(R) Xeon(R) CPU E7-2890 v3" "Intel(R) Xeon(R) CPU E7-4880 v3"
       "Intel(R) Xeon(R) CPU E7-2880 v3" "Intel(R) Xeon(R) CPU E5-2670 v3"
       "Intel(R) Xeon(R) CPU E5-2680 v3" "Intel(R) Xeon(R) CPU E5-2687 v3"
       "Intel(R) Xeon(R) CPU E5-2690 v3" "Intel(R) Xeon(R) CPU E5-2699 v3"
       "Intel(R) Xeon(R) CPU E5-2670 v2" "Intel(R) Xeon(R) CPU E5-2680 v2"
       "Intel(R) Xeon(R) CPU E5-2687 v2" "Intel(R) Xeon(R) CPU E5-2690 v2"
       "Intel(R) Xeon(R) CPU E7-8880 v4" "Intel(R) Xeon(R) CPU E7-8890 v4"
       "Intel(R) Xeon(R) CPU E5-2665 v2" "Intel(R) Xeon(R) CPU E5-2665 v3"
       "Intel(R) Xeon(R) CPU E5-2665 v4" "Intel(R) Xeon(R) CPU E5-2687W v3"
       "Intel(R) Xeon(R) CPU E5-2697 v3" "Intel(R) Xeon(R) X7560"
       "Intel(R) Xeon(R) CPU E7-8880L v3" "Intel(R) Xeon(R) CPU E7-8894 v4"
       "Intel(R) Xeon(R) Platinum 8176 CPU" "Intel(R) Xeon(R) Platinum 8176M CPU"
       "Intel(R) Xeon(R) Platinum 8180 CPU" "Intel(R) Xeon(R) Platinum 8180M CPU")";

constexpr const char* notSupportedProcessor = "CPU Model is not supported for productive usage";
constexpr const char* notValid = "Variable ARCHITECTURE not valid.";
constexpr const char* notValidRecord = "('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')";
constexpr const char* slowClock = "The clocksource can have a significant performance impact.";
constexpr const char* notInAGuest =
    "Check is not applicable when running in a VM. Please see KOR Note 1788665 and the IAAS "
    "section of the ZIRN Hardware Directory for details.";

std::vector<std::string> quotedNames(std::string_view text)
{
    std::vector<std::string> names;
    for (std::size_t open = text.find('"'); open != std::string_view::npos;) {
        const std::size_t close = text.find('"', open + 1);
        names.emplace_back(text.substr(open + 1, close - open - 1));
        open = text.find('"', close + 1);
    }
    return names;
}

class ClocksourceRule : public RuleTest {
protected:
    Judgement judgeClock(std::string_view clock, std::string_view arch = "x86")
    {
        facts.clockInfo = clock;
        return judge(&ValidateSystemInfo::validateClocksource, arch);
    }
};

class CpuRule : public RuleTest {
protected:
    Judgement judgeModel(std::string_view name)
    {
        facts.modelName = name;
        return judge(&ValidateSystemInfo::validateCPU);
    }

    Judgement judgeFamily(std::string_view vendor, std::string_view family, std::string_view model)
    {
        facts.vendorId = vendor;
        facts.cpuFamily = family;
        facts.model = model;
        return judgeModel("An unlisted name");
    }
};

class HypervisorRule : public RuleTest {
protected:
    Judgement judgeGuest(std::string_view flags, std::string_view name, std::string_view vendor)
    {
        facts.cpuFlags = flags;
        facts.hypervisor = name;
        facts.hyVendorId = vendor;
        return judge(&ValidateSystemInfo::validateHypervisor);
    }
};

class ThreadingRule : public RuleTest {
protected:
    Judgement judgeThreads(std::string_view logical, std::string_view expected,
                           std::string_view flags)
    {
        facts.lpCount = logical;
        facts.ppCount = expected;
        facts.cpuFlags = flags;
        return judge(&ValidateSystemInfo::validateHTT);
    }

    void expectPassed(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block, passedBlock("validateHTT"));
        EXPECT_EQ(judgement.record, "('Hyperthreading','',0,'')");
    }

    void expectFailed(const Judgement& judgement)
    {
        EXPECT_EQ(judgement.block, failedBlock("validateHTT", "Hyperthreading is not enabled"));
        EXPECT_EQ(judgement.record, "('Hyperthreading','',4,'Hyperthreading is not enabled')");
    }
};

}  // namespace

TEST_F(ClocksourceRule, PassesAClockThatHoldsTheExpectedWord)
{
    for (const char* clock : {"tsc", "tsc-early", "a tsc b"}) {
        const Judgement judgement = judgeClock(clock);
        EXPECT_EQ(judgement.block, passedBlock("validateClocksource"));
        EXPECT_EQ(judgement.record, "('clocksource','" + plain(clock) + "',0,'')");
        EXPECT_EQ(judgement.output, "");
    }
}

TEST_F(ClocksourceRule, WarnsAboutAnyOther)
{
    for (const char* clock : {"hpet", "TSC", "ts c", "kvm-clock", ""}) {
        const Judgement judgement = judgeClock(clock);
        EXPECT_EQ(judgement.block, warningBlock("validateClocksource", slowClock)) << clock;
        EXPECT_EQ(judgement.record, "('clocksource','" + plain(clock) + "',1,'" + slowClock + "')");
    }
}

TEST_F(ClocksourceRule, ExpectsNothingOnAnotherArchitecture)
{
    for (const char* clock : {"hpet", ""}) {
        const Judgement judgement = judgeClock(clock, "not valid");
        EXPECT_EQ(judgement.block, passedBlock("validateClocksource"));
        EXPECT_EQ(judgement.record, "('clocksource','" + plain(clock) + "',0,'')");
    }
}

TEST_F(CpuRule, PassesEachListedProcessor)
{
    const std::vector<std::string> names = quotedNames(listOfProcessors);
    ASSERT_EQ(names.size(), 38U);
    for (const std::string& name : names) {
        const Judgement judgement = judgeModel(name);
        EXPECT_EQ(judgement.block, passedBlock("validateCPU")) << name;
        EXPECT_EQ(judgement.record, "('cpu_name','" + name + "',0,'')");
        EXPECT_EQ(judgement.output, "");
    }
}

TEST_F(CpuRule, FailsOnAListedNameWithOneByteMoreOrLess)
{
    for (const std::string& name : quotedNames(listOfProcessors)) {
        for (const std::string& changed : {name + " ", " " + name, name.substr(1), name + "x"}) {
            const Judgement judgement = judgeModel(changed);
            EXPECT_EQ(judgement.block, failedBlock("validateCPU", notSupportedProcessor))
                << changed;
            EXPECT_EQ(judgement.record,
                      "('cpu_name','" + changed + "',4,'" + notSupportedProcessor + "')");
        }
    }
}

TEST_F(CpuRule, FailsOnNamesNextToTheListedOnes)
{
    for (const char* name :
         {"Intel(R) Xeon(R) CPU E7-8870", "Intel(R) Xeon(R) CPU E7- 8880 v2",
          "intel(r) xeon(r) cpu e7-8890 v3", "Intel(R) Xeon(R) CPU E7-8890 v1",
          "Intel(R) Xeon(R) CPU E7-8890", "Intel(R) Xeon(R) CPU E5-2680 v4",
          "Intel(R) Xeon(R) CPU E5-2690 v4", "Intel(R) Xeon(R) CPU E7-4880 v4",
          "Intel(R) Xeon(R) CPU X7560", "Intel(R) Xeon(R) Platinum 8180 CPU @ 2.50GHz",
          "Intel(R) Xeon(R) Platinum 8160 CPU", ""})
        EXPECT_EQ(judgeModel(name).block, failedBlock("validateCPU", notSupportedProcessor))
            << name;
}

TEST_F(CpuRule, PassesAnUnlistedNameOfTheAcceptedFamily)
{
    const Judgement judgement = judgeFamily("GenuineIntel", "6", "79");

    EXPECT_EQ(judgement.block, passedBlock("validateCPU"));
    EXPECT_EQ(judgement.record, "('cpu_name','An unlisted name',0,'')");
    EXPECT_EQ(judgement.output, "");
}

TEST_F(CpuRule, FailsNextToTheAcceptedFamily)
{
    for (const auto& [vendor, family, model] : Triples{{"AuthenticAMD", "6", "79"},
                                                       {"genuineintel", "6", "79"},
                                                       {"GenuineIntel ", "6", "79"},
                                                       {"GenuineIntel", "06", "79"},
                                                       {"GenuineIntel", "15", "79"},
                                                       {"GenuineIntel", "6", "7"},
                                                       {"GenuineIntel", "6", "790"},
                                                       {"GenuineIntel", "6", "85"},
                                                       {"GenuineIntel", "79", "6"},
                                                       {"GenuineIntel", "6", ""},
                                                       {"", "", ""}}) {
        const Judgement judgement = judgeFamily(vendor, family, model);
        EXPECT_EQ(judgement.block, failedBlock("validateCPU", notSupportedProcessor))
            << vendor << '|' << family << '|' << model;
        EXPECT_EQ(judgement.output, "");
    }
}

TEST_F(CpuRule, CannotRunOnAnotherArchitecture)
{
    facts.modelName = "Intel(R) Xeon(R) CPU E7-8890 v3";
    const Judgement judgement = judge(&ValidateSystemInfo::validateCPU, "not valid");

    EXPECT_EQ(judgement.block, failedBlock("validateCPU", notValid));
    EXPECT_EQ(judgement.record, notValidRecord);
}

TEST_F(HypervisorRule, PassesTheFourAcceptedVendors)
{
    for (const char* vendor : {"XEN", "VMwareVMware", "VmwareVmware", "Microsoft Hv"}) {
        const Judgement judgement = judgeGuest("fpu hypervisor", "name", vendor);
        EXPECT_EQ(judgement.block, passedBlock("validateHypervisor")) << vendor;
        EXPECT_EQ(judgement.record, "('hypervisor','" + plain(vendor) + "',0,'')");
    }
}

TEST_F(HypervisorRule, FailsOnAnyOtherVendor)
{
    for (const char* vendor : {"KVMKVMKVM", "Xen", "xen", "XEN ", "XENXEN", "vmwarevmware",
                               "VMware", "VMwareVmware", "Microsoft Hv ", "Microsoft", ""}) {
        const Judgement judgement = judgeGuest("fpu hypervisor", "name", vendor);
        EXPECT_EQ(judgement.block, failedBlock("validateHypervisor", "Hypervisor is not supported"))
            << vendor;
        EXPECT_EQ(judgement.record,
                  "('hypervisor','" + plain(vendor) + "',4,'Hypervisor is not supported')");
    }
}

TEST_F(HypervisorRule, IsSkippedOnBareMetalWhateverTheVendor)
{
    for (const char* vendor : {"", "XEN", "KVMKVMKVM"}) {
        const Judgement judgement = judgeGuest("fpu vme", "", vendor);
        EXPECT_EQ(judgement.block,
                  skippedBlock("validateHypervisor", "This is not a virtual machine"));
        EXPECT_EQ(judgement.record, "('hypervisor','',3,'This is not a virtual machine')");
    }
}

TEST_F(HypervisorRule, TakesEitherSignOfAGuest)
{
    EXPECT_EQ(judgeGuest("fpu hypervisor", "", "XEN").record, "('hypervisor','XEN',0,'')");
    EXPECT_EQ(judgeGuest("nohypervisors", "", "XEN").record, "('hypervisor','XEN',0,'')");
    EXPECT_EQ(judgeGuest("fpu", "Xen", "XEN").record, "('hypervisor','XEN',0,'')");
    EXPECT_EQ(judgeGuest("", "?", "").record, "('hypervisor','',4,'Hypervisor is not supported')");
}

TEST_F(HypervisorRule, CannotRunOnAnotherArchitecture)
{
    becomeSupportedGuest();
    const Judgement judgement = judge(&ValidateSystemInfo::validateHypervisor, "not valid");

    EXPECT_EQ(judgement.block, failedBlock("validateHypervisor", notValid));
    EXPECT_EQ(judgement.record, notValidRecord);
}

TEST_F(ThreadingRule, PassesEqualCountsWithTheFlag)
{
    expectPassed(judgeThreads("72", "72", "fpu ht tm"));
}

TEST_F(ThreadingRule, FailsOnDifferentCounts)
{
    expectFailed(judgeThreads("36", "72", "fpu ht tm"));
    expectFailed(judgeThreads("72", "36", "fpu ht tm"));
    expectFailed(judgeThreads("72", "", "fpu ht tm"));
}

TEST_F(ThreadingRule, FailsWithoutTheFlagBetweenBlanks)
{
    for (const char* flags : {"fpu tm", "fpu ht", "ht fpu", "ht", "fpu hth tm", "fpu xht tm",
                              "fpu\tht\ttm", "fpu HT tm", ""}) {
        SCOPED_TRACE(flags);
        expectFailed(judgeThreads("72", "72", flags));
    }
}

TEST_F(ThreadingRule, TakesEmptyCountsForEqual)
{
    expectPassed(judgeThreads("", "", "fpu ht tm"));
    expectFailed(judgeThreads("", "", "fpu tm"));
}

TEST_F(ThreadingRule, ComparesCountsInThirtyTwoBits)
{
    expectPassed(judgeThreads("72 of them", "4294967368", "fpu ht tm"));
    expectPassed(judgeThreads("-1", "99999999999999999999", "fpu ht tm"));
}

TEST_F(ThreadingRule, IsSkippedInASupportedGuest)
{
    facts.hyVendorId = "VMwareVMware";
    const Judgement judgement = judgeThreads("72", "72", "fpu ht tm hypervisor");

    EXPECT_EQ(judgement.block, skippedBlock("validateHTT", notInAGuest));
    EXPECT_EQ(judgement.record, "('Hyperthreading','',3,'" + plain(notInAGuest) + "')");
}

TEST_F(ThreadingRule, JudgesAnUnsupportedGuestLikeAnyHost)
{
    facts.hyVendorId = "KVMKVMKVM";

    expectPassed(judgeThreads("72", "72", "fpu ht tm hypervisor"));
    expectFailed(judgeThreads("71", "72", "fpu ht tm hypervisor"));
}

TEST_F(ThreadingRule, CannotRunOnAnotherArchitecture)
{
    becomeSupportedGuest();
    const Judgement judgement = judge(&ValidateSystemInfo::validateHTT, "not valid");

    EXPECT_EQ(judgement.block, failedBlock("validateHTT", notValid));
    EXPECT_EQ(judgement.record, notValidRecord);
}

}  // namespace vetraTests
