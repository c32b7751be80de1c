#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "CapturedOutput.h"
#include "HostFacts.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

/// The rules, with the members that no run can reach from outside.
class Judge : public ValidateSystemInfo {
public:
    using ValidateSystemInfo::ValidateSystemInfo;

    using ValidateSystemInfo::deviatingFrequencies;
    using ValidateSystemInfo::lastResult;
    using ValidateSystemInfo::maxFreqListed;
    using ValidateSystemInfo::noCpuFrequencies;
    using ValidateSystemInfo::verdictOf;
};

/// What a rule leaves: its block, its record, and what it printed by itself.
struct Judgement {
    std::string block;
    std::string record;
    std::string output;
};

/// Cases of two and of three texts.
using Pairs = std::initializer_list<std::pair<std::string_view, std::string_view>>;
using Triples =
    std::initializer_list<std::tuple<std::string_view, std::string_view, std::string_view>>;

/// The first line of a block up to the end of its coloured status word: the name in thirty columns,
/// and forty-one blanks in front of the seven bytes of the colour.
inline std::string blockHead(std::string_view rule, std::string_view colour, std::string_view word)
{
    std::string text(rule);
    text.append(30 - rule.size(), ' ').append(":").append(41, ' ');
    return text.append(colour).append(word).append("\033[0m");
}

inline std::string passedBlock(std::string_view rule)
{
    return blockHead(rule, "\033[1;32m", "SUCESS") + "\t\n";
}

inline std::string failedBlock(std::string_view rule, std::string_view reason)
{
    return blockHead(rule, "\033[1;31m", "FAILED") + "\n         Severity:  HIGH\n" +
           "           Reason:  " + std::string(reason) + "\n";
}

inline std::string warningBlock(std::string_view rule, std::string_view reason)
{
    return blockHead(rule, "\033[1;33m", "WARNING") + "\n         Severity:  MEDIUM\n" +
           "           Reason:  " + std::string(reason) + "\n";
}

inline std::string skippedBlock(std::string_view rule, std::string_view reason)
{
    return blockHead(rule, "\033[1;34m", "SKIPPED") +
           "\n           Reason:  " + std::string(reason) + "\n";
}

/// A host without any fact, and the rules to judge it by.
class RuleTest : public testing::Test {
protected:
    Judgement judge(RulePointer rule) { return judge(rule, "x86"); }

    Judgement judge(RulePointer rule, std::string_view architecture)
    {
        const string arch(architecture, domain.get());
        const CapturedOutput output;
        const std::string block = plain((rules.*rule)(facts, arch));
        return {block, plain(rules.getCheckAction()), output.text()};
    }

    void becomeBareMetal()
    {
        facts.cpuFlags = "fpu vme ht tm";
        facts.hypervisor = "";
        facts.hyVendorId = "";
    }

    void becomeSupportedGuest()
    {
        facts.cpuFlags = "fpu vme ht hypervisor";
        facts.hypervisor = "VMware";
        facts.hyVendorId = "VMwareVMware";
    }

    void becomeUnsupportedGuest()
    {
        facts.cpuFlags = "fpu vme ht hypervisor";
        facts.hypervisor = "KVM";
        facts.hyVendorId = "KVMKVMKVM";
    }

    std::shared_ptr<Basis::Allocator> domain = testDomain();
    HostFacts facts{*domain};
    Judge rules{*domain};
};

}  // namespace vetraTests
