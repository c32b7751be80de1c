#include "programs/scanhypervisorCheck/HypervisorScan.h"

#include <cpuid.h>

#include <algorithm>
#include <fstream>
#include <string_view>

#include "Basis/Text.h"
#include "programs/scanhypervisorCheck/HypervisorNames.h"

namespace HypervisorScan {

namespace {

constexpr std::uint32_t featureLeaf = 1;
constexpr std::uint32_t hypervisorBit = 1U << 31;

// Each hypervisor that a machine shows has a block of leaves of its own.
constexpr std::uint32_t firstVendorLeaf = 0x40000000;
constexpr std::uint32_t lastVendorLeaf = 0x40010000;
constexpr std::uint32_t vendorLeafStep = 0x100;

constexpr std::string_view microsoftSignature = "Microsoft Hv";
constexpr std::string_view xenSignature = "XenVMMXenVMM";
// What the rules know a Xen guest by.
constexpr const char* xenVendorId = "XEN";

constexpr const char* nameOfUnknown = "unknown";

bool isPrintable(char letter)
{
    return letter >= ' ' && letter <= '~';
}

std::string strippedOf(std::string_view text, std::string_view fill)
{
    const std::size_t first = text.find_first_not_of(fill);
    if (first == std::string_view::npos)
        return {};
    return std::string(text.substr(first, text.find_last_not_of(fill) - first + 1));
}

std::string lettersOf(const CpuidRegisters& registers)
{
    std::string letters;
    for (const std::uint32_t word : {registers.ebx, registers.ecx, registers.edx}) {
        for (unsigned shift = 0; shift < 32; shift += 8)
            letters.push_back(static_cast<char>(word >> shift & 0xFF));
    }
    return letters;
}

// Empty if the registers hold anything but letters. Short signatures are filled up with zeros, but
// all of them reach into the second register; small numbers of other leaves do not.
std::string signatureOf(const CpuidRegisters& registers)
{
    if (registers.ebx == 0 || registers.ecx == 0)
        return {};
    const std::string letters = strippedOf(lettersOf(registers), std::string_view("\0", 1));
    if (!std::all_of(letters.begin(), letters.end(), isPrintable))
        return {};
    return strippedOf(letters, " ");
}

std::string findSignature(const CpuidReader& cpuid)
{
    // Intel's processors answer with their highest basic leaf when asked for one they do not have.
    const CpuidRegisters echo = cpuid(cpuid(0).eax);
    std::string found;
    for (std::uint32_t leaf = firstVendorLeaf; leaf <= lastVendorLeaf; leaf += vendorLeafStep) {
        const CpuidRegisters registers = cpuid(leaf);
        if (registers == echo)
            continue;
        const std::string signature = signatureOf(registers);
        if (signature.empty())
            continue;
        if (signature != microsoftSignature)
            return signature;
        found = signature;
    }
    return found;
}

std::string firstLineOf(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return std::string(Basis::trimmed(line));
}

DmiStrings readDmiStrings(const std::filesystem::path& directory)
{
    return {firstLineOf(directory / "sys_vendor"), firstLineOf(directory / "product_name"),
            firstLineOf(directory / "board_vendor"), firstLineOf(directory / "bios_vendor")};
}

}  // namespace

CpuidRegisters readCpuid(std::uint32_t leaf)
{
    CpuidRegisters registers{};
    __cpuid_count(leaf, 0, registers.eax, registers.ebx, registers.ecx, registers.edx);
    return registers;
}

Hypervisor scan(const CpuidReader& cpuid, const std::filesystem::path& dmiDirectory)
{
    if ((cpuid(featureLeaf).ecx & hypervisorBit) == 0)
        return {};

    const std::string signature = findSignature(cpuid);
    if (signature.empty()) {
        const std::string_view name = nameOfDmiStrings(readDmiStrings(dmiDirectory));
        return {name.empty() ? nameOfUnknown : std::string(name), ""};
    }
    const std::string_view name = nameOfSignature(signature);
    return {std::string(name.empty() ? std::string_view(signature) : name),
            signature == xenSignature ? xenVendorId : signature};
}

}  // namespace HypervisorScan
