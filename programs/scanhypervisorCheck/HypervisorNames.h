#pragma once

#include <string>
#include <string_view>

namespace HypervisorScan {

/// The readable name behind a processor's signature (without blanks at its ends); empty for one
/// that is not known.
std::string_view nameOfSignature(std::string_view signature);

/// The strings by which a BIOS tells who made the machine.
struct DmiStrings {
    std::string systemVendor;
    std::string productName;
    std::string boardVendor;
    std::string biosVendor;
};

/// The readable name of the hypervisor that makes such a machine; empty if it cannot be told.
std::string_view nameOfDmiStrings(const DmiStrings& strings);

}  // namespace HypervisorScan
