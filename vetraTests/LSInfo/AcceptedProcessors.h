#pragma once

#include <iterator>
#include <string_view>

namespace vetraTests {

/// The model names of the processors that are supported for productive use, compared whole. The
/// first three have a blank behind "E7-".
inline constexpr std::string_view acceptedProcessors[] = {
    "Intel(R) Xeon(R) CPU E7- 8870",      "Intel(R) Xeon(R) CPU E7- 4870",
    "Intel(R) Xeon(R) CPU E7- 2870",      "Intel(R) Xeon(R) CPU E7-8880 v2",
    "Intel(R) Xeon(R) CPU E7-4880 v2",    "Intel(R) Xeon(R) CPU E7-2880 v2",
    "Intel(R) Xeon(R) CPU E7-8890 v2",    "Intel(R) Xeon(R) CPU E7-4890 v2",
    "Intel(R) Xeon(R) CPU E7-2890 v2",    "Intel(R) Xeon(R) CPU E7-8890 v3",
    "Intel(R) Xeon(R) CPU E7-8880 v3",    "Intel(R) Xeon(R) CPU E7-4890 v3",
    "Intel(R) Xeon(R) CPU E7-2890 v3",    "Intel(R) Xeon(R) CPU E7-4880 v3",
    "Intel(R) Xeon(R) CPU E7-2880 v3",    "Intel(R) Xeon(R) CPU E5-2670 v3",
    "Intel(R) Xeon(R) CPU E5-2680 v3",    "Intel(R) Xeon(R) CPU E5-2687 v3",
    "Intel(R) Xeon(R) CPU E5-2690 v3",    "Intel(R) Xeon(R) CPU E5-2699 v3",
    "Intel(R) Xeon(R) CPU E5-2670 v2",    "Intel(R) Xeon(R) CPU E5-2680 v2",
    "Intel(R) Xeon(R) CPU E5-2687 v2",    "Intel(R) Xeon(R) CPU E5-2690 v2",
    "Intel(R) Xeon(R) CPU E7-8880 v4",    "Intel(R) Xeon(R) CPU E7-8890 v4",
    "Intel(R) Xeon(R) CPU E5-2665 v2",    "Intel(R) Xeon(R) CPU E5-2665 v3",
    "Intel(R) Xeon(R) CPU E5-2665 v4",    "Intel(R) Xeon(R) CPU E5-2687W v3",
    "Intel(R) Xeon(R) CPU E5-2697 v3",    "Intel(R) Xeon(R) X7560",
    "Intel(R) Xeon(R) CPU E7-8880L v3",   "Intel(R) Xeon(R) CPU E7-8894 v4",
    "Intel(R) Xeon(R) Platinum 8176 CPU", "Intel(R) Xeon(R) Platinum 8176M CPU",
    "Intel(R) Xeon(R) Platinum 8180 CPU", "Intel(R) Xeon(R) Platinum 8180M CPU",
};
static_assert(std::size(acceptedProcessors) == 38);

/// The second way in, by vendor, family and model: the name of the architecture at the end of the
/// path.
inline constexpr std::string_view acceptedProcessorFamilies =
    R"({"GenuineIntel": {"6":{"79":"Broadwell-EP/EX"}}})";

/// The vendor identifiers of the supported hypervisors, compared whole.
inline constexpr std::string_view acceptedHypervisors[] = {
    "XEN",
    "VMwareVMware",
    "VmwareVmware",
    "Microsoft Hv",
};
static_assert(std::size(acceptedHypervisors) == 4);

/// The most gibibytes per logical processor that a processor generation may have.
struct CoreMemoryLimit {
    std::string_view generation;  ///< a part of the model's name
    double gibibytes;
};
inline constexpr CoreMemoryLimit coreMemoryLimits[] = {
    {"E7", 6.4},
    {"v2", 8.54},
    {"v3", 10.67},
    {"v4", 11.6},
};
static_assert(std::size(coreMemoryLimits) == 4);

}  // namespace vetraTests
