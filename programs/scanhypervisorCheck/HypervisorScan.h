#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace HypervisorScan {

/// What the processor answers to CPUID.
struct CpuidRegisters {
    std::uint32_t eax;
    std::uint32_t ebx;
    std::uint32_t ecx;
    std::uint32_t edx;

    bool operator==(const CpuidRegisters&) const = default;
};

/// Asks for one leaf, with subleaf 0.
using CpuidReader = std::function<CpuidRegisters(std::uint32_t leaf)>;

/// The reader of the processor that this runs on.
CpuidRegisters readCpuid(std::uint32_t leaf);

/// Where the kernel shows the strings of the BIOS.
inline constexpr const char* systemDmiDirectory = "/sys/class/dmi/id";

/// The hypervisor under which a machine runs; both texts are empty on bare metal.
struct Hypervisor {
    std::string name;      ///< readable, "unknown" if nothing tells it
    std::string vendorId;  ///< the processor's signature, "XEN" for a Xen guest; may be empty
};

/// Finds the hypervisor.
///
/// The processor's signature decides. Hypervisors that imitate Microsoft's for the sake of their
/// guests show their own signature as well, and that one counts. Where there is no signature, the
/// strings in `dmiDirectory` give the name, and the vendor's identifier stays empty.
///
/// Threads: any.
/// Errors:  a string that is missing or cannot be read counts as empty.
Hypervisor scan(const CpuidReader& cpuid, const std::filesystem::path& dmiDirectory);

}  // namespace HypervisorScan
