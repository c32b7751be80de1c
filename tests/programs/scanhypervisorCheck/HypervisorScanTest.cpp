#include "programs/scanhypervisorCheck/HypervisorScan.h"

#include <gmock/gmock.h>

#include <ostream>
#include <string>

#include "tests/programs/scanhypervisorCheck/FakeMachine.h"

namespace {

using HypervisorScan::CpuidRegisters;
using HypervisorScan::Hypervisor;

constexpr std::uint32_t firstLeaf = 0x40000000;
constexpr std::uint32_t secondLeaf = 0x40000100;
constexpr std::uint32_t lastLeaf = 0x40010000;

void expectHypervisor(FakeMachine& machine, const char* name, const char* vendorId)
{
    const Hypervisor found = machine.scan();
    EXPECT_EQ(found.name, name);
    EXPECT_EQ(found.vendorId, vendorId);
}

// Vendors.

struct Vendor {
    const char* title;
    std::string signature;
    const char* name;
    const char* vendorId;
};

void PrintTo(const Vendor& vendor, std::ostream* stream)
{
    *stream << vendor.title;
}

class HypervisorVendor : public testing::TestWithParam<Vendor> {};

TEST_P(HypervisorVendor, IsNamedAndIdentifiedByItsSignature)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(firstLeaf, GetParam().signature);

    expectHypervisor(machine, GetParam().name, GetParam().vendorId);
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, HypervisorVendor,
    testing::Values(Vendor{"Xen", "XenVMMXenVMM", "Xen", "XEN"},
                    Vendor{"VMware", "VMwareVMware", "VMware", "VMwareVMware"},
                    Vendor{"VMwareOtherSpelling", "VmwareVmware", "VMware", "VmwareVmware"},
                    Vendor{"HyperV", "Microsoft Hv", "Microsoft Hyper-V", "Microsoft Hv"},
                    Vendor{"Kvm", "KVMKVMKVM", "KVM", "KVMKVMKVM"},
                    Vendor{"Qemu", "TCGTCGTCGTCG", "QEMU", "TCGTCGTCGTCG"},
                    Vendor{"Bhyve", "bhyve bhyve ", "bhyve", "bhyve bhyve"},
                    Vendor{"Parallels", "prl hyperv  ", "Parallels", "prl hyperv"},
                    Vendor{"ParallelsWithZeros", "prl hyperv", "Parallels", "prl hyperv"},
                    Vendor{"ParallelsReversed", " lrpepyh vr", "Parallels", "lrpepyh vr"},
                    Vendor{"ParallelsReversedWithTwoBlanks", " lrpepyh  vr", "Parallels",
                           "lrpepyh  vr"},
                    Vendor{"VirtualBox", "VBoxVBoxVBox", "VirtualBox", "VBoxVBoxVBox"},
                    Vendor{"Acrn", "ACRNACRNACRN", "ACRN", "ACRNACRNACRN"},
                    Vendor{"Jailhouse", "Jailhouse", "Jailhouse", "Jailhouse"},
                    Vendor{"KvmOtherSpelling", "Linux KVM Hv", "KVM", "Linux KVM Hv"},
                    Vendor{"BhyveOtherSpelling", "BHyVE BHyVE ", "bhyve", "BHyVE BHyVE"},
                    Vendor{"Qnx", "QNXQVMBSQG", "QNX", "QNXQVMBSQG"},
                    Vendor{"Unisys", "UnisysSpar64", "Unisys s-Par", "UnisysSpar64"},
                    Vendor{"Haxm", "HAXMHAXMHAXM", "HAXM", "HAXMHAXMHAXM"},
                    Vendor{"Nvmm", "___ NVMM ___", "NVMM", "___ NVMM ___"},
                    Vendor{"OpenBsd", "OpenBSDVMM58", "OpenBSD VMM", "OpenBSDVMM58"},
                    Vendor{"Unknown", "Neu-Neu-Neu-", "Neu-Neu-Neu-", "Neu-Neu-Neu-"},
                    Vendor{"UnknownWithBlanks", " Neu Neu  ", "Neu Neu", "Neu Neu"}),
    [](const auto& tested) { return tested.param.title; });

// Bare metal.

TEST(HypervisorScanOnBareMetal, FindsNothing)
{
    FakeMachine machine;
    expectHypervisor(machine, "", "");
}

TEST(HypervisorScanOnBareMetal, AsksForNoLeafThatOnlyAGuestHas)
{
    FakeMachine machine;
    machine.setSignature(firstLeaf, "XenVMMXenVMM");
    machine.setDmi("sys_vendor", "QEMU");

    expectHypervisor(machine, "", "");
    EXPECT_LT(machine.reads().rbegin()->first, firstLeaf);
}

// Imitated hypervisors.

TEST(HypervisorScanOfImitations, AnotherVendorBehindMicrosoftsWins)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(firstLeaf, "Microsoft Hv");
    machine.setSignature(secondLeaf, "KVMKVMKVM");
    expectHypervisor(machine, "KVM", "KVMKVMKVM");

    machine.setSignature(secondLeaf, "XenVMMXenVMM");
    expectHypervisor(machine, "Xen", "XEN");
}

TEST(HypervisorScanOfImitations, AnotherVendorBeforeMicrosoftsWinsToo)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(firstLeaf, "KVMKVMKVM");
    machine.setSignature(secondLeaf, "Microsoft Hv");
    expectHypervisor(machine, "KVM", "KVMKVMKVM");
}

TEST(HypervisorScanOfImitations, MicrosoftsAloneStays)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(secondLeaf, "Microsoft Hv");
    expectHypervisor(machine, "Microsoft Hyper-V", "Microsoft Hv");
}

TEST(HypervisorScanOfImitations, OfTwoOthersTheFirstCounts)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(firstLeaf, "XenVMMXenVMM");
    machine.setSignature(secondLeaf, "KVMKVMKVM");
    expectHypervisor(machine, "Xen", "XEN");
}

// The range of leaves.

TEST(HypervisorScanOfLeaves, LooksAtTheLastOne)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(firstLeaf, "Microsoft Hv");
    machine.setSignature(lastLeaf, "VMwareVMware");
    expectHypervisor(machine, "VMware", "VMwareVMware");
}

TEST(HypervisorScanOfLeaves, AsksForEachOnceAndForNoneBeyond)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(firstLeaf, "Microsoft Hv");
    machine.setSignature(lastLeaf + 0x100, "KVMKVMKVM");
    machine.setSignature(firstLeaf + 0x80, "KVMKVMKVM");

    expectHypervisor(machine, "Microsoft Hyper-V", "Microsoft Hv");
    int vendorLeaves = 0;
    for (const auto& [leaf, count] : machine.reads()) {
        EXPECT_EQ(count, 1) << std::hex << leaf;
        vendorLeaves += leaf >= firstLeaf ? 1 : 0;
    }
    EXPECT_EQ(vendorLeaves, 0x101);
    EXPECT_EQ(machine.reads().rbegin()->first, lastLeaf);
}

// Answers that are no signature.

TEST(HypervisorScanOfGarbage, AnEchoOfTheHighestBasicLeafIsNoSignature)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    const CpuidRegisters letters{0x41414141, 0x42424242, 0x43434343, 0x44444444};
    machine.echoHighestBasicLeaf(letters);
    expectHypervisor(machine, "unknown", "");

    machine.setSignature(secondLeaf, "KVMKVMKVM");
    expectHypervisor(machine, "KVM", "KVMKVMKVM");
}

class NoSignature : public testing::TestWithParam<CpuidRegisters> {};

TEST_P(NoSignature, IsPassedOver)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setLeaf(firstLeaf, GetParam());
    expectHypervisor(machine, "unknown", "");

    machine.setSignature(secondLeaf, "Microsoft Hv");
    expectHypervisor(machine, "Microsoft Hyper-V", "Microsoft Hv");
}

INSTANTIATE_TEST_SUITE_P(
    Registers, NoSignature,
    testing::Values(CpuidRegisters{0x40000001, 0, 0, 0},
                    CpuidRegisters{0x40000001, 0x20202020, 0x20202020, 0x20202020},
                    CpuidRegisters{0x40000001, 0x41414141, 0, 0},
                    CpuidRegisters{0x40000001, 0, 0, 0x41414141},
                    CpuidRegisters{0x40000001, 0x41414141, 0x41410041, 0x41414141},
                    CpuidRegisters{0x40000001, 0x41414141, 0x41410a41, 0x41414141},
                    CpuidRegisters{0x40000001, 0x41414141, 0x41417f41, 0x41414141},
                    CpuidRegisters{0x40000001, 0x41414141, 0x41414141, 0xff414141},
                    CpuidRegisters{0x40000001, 0x41414141, 0x41414141, 0x41411f41}));

TEST(HypervisorScanOfGarbage, ASignatureEndsAtZerosAndMayBeginBehindThem)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setLeaf(firstLeaf, {0x40000001, 0x42414100, 0x42424242, 0x00000043});
    expectHypervisor(machine, "AABBBBBC", "AABBBBBC");
}

// This very machine.

TEST(HypervisorScanOfThisMachine, AgreesWithTheHypervisorBit)
{
    const Hypervisor found =
        HypervisorScan::scan(&HypervisorScan::readCpuid, HypervisorScan::systemDmiDirectory);
    const bool isGuest = (HypervisorScan::readCpuid(1).ecx & 0x80000000) != 0;

    EXPECT_EQ(!found.name.empty(), isGuest);
    EXPECT_LE(found.vendorId.size(), 12U);
}

}  // namespace
