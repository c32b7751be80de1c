#pragma once

#include <filesystem>
#include <map>
#include <string_view>

#include "programs/scanhypervisorCheck/HypervisorScan.h"

/// A processor and a directory of BIOS strings. At first it is a bare-metal processor that answers
/// 0 to leaves that it does not have, and no directory.
class FakeMachine {
public:
    FakeMachine();
    ~FakeMachine();

    FakeMachine(const FakeMachine&) = delete;
    FakeMachine& operator=(const FakeMachine&) = delete;

    void setHypervisorBit();

    /// Twelve letters in a vendor leaf, a shorter text filled up with zeros.
    void setSignature(std::uint32_t leaf, std::string_view letters);
    void setLeaf(std::uint32_t leaf, const HypervisorScan::CpuidRegisters& registers);

    /// Intel's way: leaves that it does not have answer like the highest basic one.
    void echoHighestBasicLeaf(const HypervisorScan::CpuidRegisters& registers);

    /// Writes one BIOS string, as the kernel does with a line end.
    void setDmi(std::string_view file, std::string_view text);

    HypervisorScan::CpuidReader cpuid();
    const std::filesystem::path& dmiDirectory() const { return directory; }
    HypervisorScan::Hypervisor scan();

    /// How often each leaf was read.
    const std::map<std::uint32_t, int>& reads() const { return readsOfLeaf; }

private:
    HypervisorScan::CpuidRegisters read(std::uint32_t leaf);

    std::map<std::uint32_t, HypervisorScan::CpuidRegisters> leaves;
    HypervisorScan::CpuidRegisters elsewhere{};
    std::map<std::uint32_t, int> readsOfLeaf;
    std::filesystem::path parent;
    std::filesystem::path directory;
};
