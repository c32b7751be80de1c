#include "programs/scanhypervisorCheck/ScannerCommand.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <iostream>
#include <string>
#include <vector>

#include "Version/Version.h"
#include "tests/programs/CapturedStream.h"
#include "tests/programs/scanhypervisorCheck/FakeMachine.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ScannerCommand : public testing::Test {
protected:
    int run(std::initializer_list<const char*> words)
    {
        std::vector<const char*> argv{"scanhypervisorCheck"};
        argv.insert(argv.end(), words);
        return HypervisorScan::runScanner(static_cast<int>(argv.size()), argv.data(),
                                          machine.cpuid(), machine.dmiDirectory());
    }

    FakeMachine machine;
    CapturedStream out{std::cout};
    CapturedStream err{std::cerr};
};

TEST_F(ScannerCommand, PrintsTwoLinesAndFlushesEach)
{
    machine.setHypervisorBit();
    machine.setSignature(0x40000000, "XenVMMXenVMM");

    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(out.text(), "Hypervisor: Xen\nVendor ID: XEN\n");
    EXPECT_EQ(out.flushes(), 2);
    EXPECT_EQ(err.text(), "");
}

TEST_F(ScannerCommand, PrintsTwoLinesWithoutValuesOnBareMetal)
{
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(out.text(), "Hypervisor: \nVendor ID: \n");
}

TEST_F(ScannerCommand, PrintsANameWithoutAnIdentifierWhereNoSignatureIs)
{
    machine.setHypervisorBit();
    machine.setDmi("sys_vendor", "VMware, Inc.");

    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(out.text(), "Hypervisor: VMware\nVendor ID: \n");
}

TEST_F(ScannerCommand, HelpSaysWhatIsPrinted)
{
    EXPECT_EQ(run({"-h"}), 0);
    const std::string brief = out.text();
    EXPECT_EQ(run({"--help"}), 0);

    EXPECT_THAT(brief, StartsWith("Usage: ./scanhypervisorCheck "));
    EXPECT_THAT(brief, HasSubstr("Vendor ID"));
    EXPECT_EQ(out.text(), brief + brief);
    EXPECT_TRUE(machine.reads().empty());
}

TEST_F(ScannerCommand, VersionIsOneLineWithTheDateOfTheBuild)
{
    EXPECT_EQ(run({"-v"}), 0);
    EXPECT_EQ(run({"--version"}), 0);

    const std::string line = "scanhypervisorCheck-" + std::string(zdbver_version()) + " (" +
                             zdbver_compiledate() + ")\n";
    EXPECT_EQ(out.text(), line + line);
}

TEST_F(ScannerCommand, RefusesAnUnknownArgumentInOneLineThatNamesIt)
{
    EXPECT_EQ(run({"--scan", "-h"}), 64);

    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(err.text(), HasSubstr("'--scan'"));
    EXPECT_THAT(err.text(), HasSubstr("--version"));
    EXPECT_EQ(err.lineEnds(), 1);
    EXPECT_TRUE(machine.reads().empty());
}

TEST_F(ScannerCommand, RefusesASecondArgument)
{
    EXPECT_EQ(run({"-v", "twice"}), 64);

    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(err.text(), HasSubstr("'twice'"));
}

TEST_F(ScannerCommand, RefusesAnEmptyArgument)
{
    EXPECT_EQ(run({""}), 64);
    EXPECT_THAT(err.text(), HasSubstr("''"));
}

}  // namespace
