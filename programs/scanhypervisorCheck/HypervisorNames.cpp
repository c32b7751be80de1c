#include "programs/scanhypervisorCheck/HypervisorNames.h"

#include "Basis/Text.h"

namespace HypervisorScan {

namespace {

struct KnownSignature {
    std::string_view signature;
    std::string_view name;
};

constexpr KnownSignature knownSignatures[] = {
    {"XenVMMXenVMM", "Xen"},
    {"VMwareVMware", "VMware"},
    {"VmwareVmware", "VMware"},
    {"Microsoft Hv", "Microsoft Hyper-V"},
    {"KVMKVMKVM", "KVM"},
    {"Linux KVM Hv", "KVM"},
    {"TCGTCGTCGTCG", "QEMU"},
    {"bhyve bhyve", "bhyve"},
    {"BHyVE BHyVE", "bhyve"},
    {"prl hyperv", "Parallels"},
    // The same with the bytes of each register reversed; the gap is one blank or two.
    {"lrpepyh vr", "Parallels"},
    {"lrpepyh  vr", "Parallels"},
    {"VBoxVBoxVBox", "VirtualBox"},
    {"ACRNACRNACRN", "ACRN"},
    {"Jailhouse", "Jailhouse"},
    {"QNXQVMBSQG", "QNX"},
    {"UnisysSpar64", "Unisys s-Par"},
    {"HAXMHAXMHAXM", "HAXM"},
    {"___ NVMM ___", "NVMM"},
    {"OpenBSDVMM58", "OpenBSD VMM"},
};

// The words with which a vendor's and a product's string begin; an empty one fits all.
struct KnownMachine {
    std::string_view vendor;
    std::string_view product;
    std::string_view name;
};

// Products before vendors: whoever runs KVM under a brand of his own often leaves that word.
constexpr KnownMachine knownMachines[] = {
    {"", "KVM", "KVM"},
    {"", "VirtualBox", "VirtualBox"},
    {"", "VMware", "VMware"},
    {"", "Parallels", "Parallels"},
    {"", "BHYVE", "bhyve"},
    {"", "Google Compute Engine", "Google Compute Engine"},
    {"", "OpenStack", "OpenStack"},
    {"Microsoft Corporation", "Virtual Machine", "Microsoft Hyper-V"},
    {"VMware", "", "VMware"},
    {"Xen", "", "Xen"},
    {"Amazon EC2", "", "Amazon EC2"},
    {"QEMU", "", "QEMU"},
    {"innotek GmbH", "", "VirtualBox"},
    {"Parallels", "", "Parallels"},
    {"BHYVE", "", "bhyve"},
    {"Bochs", "", "Bochs"},
    {"Nutanix", "AHV", "Nutanix AHV"},
};

bool isLetter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

// "Xenon" does not begin with the word "Xen".
bool beginsWithWord(std::string_view text, std::string_view word)
{
    if (!Basis::startsWith(text, word))
        return false;
    return word.empty() || text.size() == word.size() || !isLetter(text[word.size()]);
}

bool isMadeBy(const DmiStrings& strings, const KnownMachine& machine)
{
    const bool isVendor = beginsWithWord(strings.systemVendor, machine.vendor) ||
                          beginsWithWord(strings.boardVendor, machine.vendor) ||
                          beginsWithWord(strings.biosVendor, machine.vendor);
    return isVendor && beginsWithWord(strings.productName, machine.product);
}

}  // namespace

std::string_view nameOfSignature(std::string_view signature)
{
    for (const KnownSignature& known : knownSignatures) {
        if (signature == known.signature)
            return known.name;
    }
    return {};
}

std::string_view nameOfDmiStrings(const DmiStrings& strings)
{
    for (const KnownMachine& machine : knownMachines) {
        if (isMadeBy(strings, machine))
            return machine.name;
    }
    return {};
}

}  // namespace HypervisorScan
