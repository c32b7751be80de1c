#include <gmock/gmock.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "programs/scanhypervisorCheck/HypervisorScan.h"
#include "tests/programs/scanhypervisorCheck/FakeMachine.h"

namespace {

using HypervisorScan::Hypervisor;

struct Bios {
    const char* title;
    std::vector<std::pair<const char*, const char*>> strings;
    const char* name;
};

void PrintTo(const Bios& bios, std::ostream* stream)
{
    *stream << bios.title;
}

class GuestWithoutSignature : public testing::TestWithParam<Bios> {};

TEST_P(GuestWithoutSignature, IsNamedByItsBios)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    for (const auto& [file, text] : GetParam().strings)
        machine.setDmi(file, text);

    const Hypervisor found = machine.scan();
    EXPECT_EQ(found.name, GetParam().name);
    EXPECT_EQ(found.vendorId, "");
}

INSTANTIATE_TEST_SUITE_P(
    Bios, GuestWithoutSignature,
    testing::Values(
        Bios{"VMware", {{"sys_vendor", "VMware, Inc."}, {"product_name", "VMware7,1"}}, "VMware"},
        Bios{"VMwareProduct", {{"product_name", "VMware Virtual Platform"}}, "VMware"},
        Bios{"HyperV",
             {{"sys_vendor", "Microsoft Corporation"}, {"product_name", "Virtual Machine"}},
             "Microsoft Hyper-V"},
        Bios{"MicrosoftLaptop",
             {{"sys_vendor", "Microsoft Corporation"}, {"product_name", "Surface"}},
             "unknown"},
        Bios{"Qemu", {{"sys_vendor", "QEMU"}, {"product_name", "Standard PC"}}, "QEMU"},
        Bios{"KvmProduct", {{"sys_vendor", "Red Hat"}, {"product_name", "KVM"}}, "KVM"},
        Bios{"Xen", {{"sys_vendor", "Xen"}, {"product_name", "HVM domU"}}, "Xen"},
        Bios{"NotXen", {{"sys_vendor", "Xenon Systems"}, {"bios_vendor", "Xenon"}}, "unknown"},
        Bios{"VirtualBox", {{"sys_vendor", "innotek GmbH"}}, "VirtualBox"},
        Bios{"VirtualBoxProduct",
             {{"sys_vendor", "Oracle Corporation"}, {"product_name", "VirtualBox"}},
             "VirtualBox"},
        Bios{"Cloud", {{"sys_vendor", "Amazon EC2"}, {"product_name", "m5.large"}}, "Amazon EC2"},
        Bios{"Parallels", {{"sys_vendor", "Parallels Software International Inc."}}, "Parallels"},
        Bios{"ParallelsProduct", {{"product_name", "Parallels Virtual Platform"}}, "Parallels"},
        Bios{"Bhyve", {{"sys_vendor", "FreeBSD"}, {"product_name", "BHYVE"}}, "bhyve"},
        Bios{"BhyveVendor", {{"bios_vendor", "BHYVE"}}, "bhyve"},
        Bios{"Bochs", {{"sys_vendor", "Bochs"}, {"product_name", "Bochs"}}, "Bochs"},
        Bios{"GoogleCloud",
             {{"sys_vendor", "Google"}, {"product_name", "Google Compute Engine"}},
             "Google Compute Engine"},
        Bios{"OpenStack",
             {{"sys_vendor", "OpenStack Foundation"}, {"product_name", "OpenStack Nova"}},
             "OpenStack"},
        Bios{"Nutanix", {{"sys_vendor", "Nutanix"}, {"product_name", "AHV"}}, "Nutanix AHV"},
        Bios{"NutanixServer", {{"sys_vendor", "Nutanix"}, {"product_name", "NX"}}, "unknown"},
        Bios{"BoardAlone", {{"board_vendor", "QEMU"}}, "QEMU"},
        Bios{"BiosAlone", {{"bios_vendor", "Xen"}}, "Xen"},
        Bios{"Blanks", {{"sys_vendor", "  Xen \t"}}, "Xen"},
        Bios{"EmptyStrings", {{"sys_vendor", ""}, {"product_name", ""}}, "unknown"},
        Bios{"Server", {{"sys_vendor", "Maker"}, {"product_name", "Server"}}, "unknown"}),
    [](const auto& tested) { return tested.param.title; });

TEST(GuestWithoutDmi, IsUnknownWithoutADirectory)
{
    FakeMachine machine;
    machine.setHypervisorBit();

    ASSERT_FALSE(std::filesystem::exists(machine.dmiDirectory()));
    EXPECT_EQ(machine.scan().name, "unknown");
}

TEST(GuestWithoutDmi, IsUnknownWhereAStringIsADirectory)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    std::filesystem::create_directories(machine.dmiDirectory() / "sys_vendor");

    EXPECT_EQ(machine.scan().name, "unknown");
}

TEST(GuestWithASignature, IsNotNamedByItsBios)
{
    FakeMachine machine;
    machine.setHypervisorBit();
    machine.setSignature(0x40000000, "VMwareVMware");
    machine.setDmi("sys_vendor", "QEMU");

    EXPECT_EQ(machine.scan().name, "VMware");
    EXPECT_EQ(machine.scan().vendorId, "VMwareVMware");
}

}  // namespace
