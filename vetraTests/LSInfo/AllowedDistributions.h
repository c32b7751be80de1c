#pragma once

#include <iterator>
#include <string_view>

namespace vetraTests {

inline constexpr std::string_view suse12 = "SUSE Linux Enterprise Server 12";
inline constexpr std::string_view redHat72 = "Red Hat Enterprise Linux Server release 7.2 (Maipo)";
inline constexpr std::string_view redHat73 = "Red Hat Enterprise Linux Server release 7.3 (Maipo)";

/// A distribution with the service pack or minor release that is allowed for production.
struct AllowedDistribution {
    std::string_view architecture;
    std::string_view line;
    std::string_view patchLevel;
};
inline constexpr AllowedDistribution allowedDistributions[] = {
    {"ppc64le", "SUSE Linux Enterprise Server 12 (ppc64le)", "1"},
    {"ppc64le", "SUSE Linux Enterprise Server 12 (ppc64le)", "2"},
    {"ppc64le", redHat73, "3"},
    {"x86", redHat72, "2"},
    {"x86", redHat73, "3"},
    {"x86", "SUSE Linux Enterprise Server 12 (x86_64)", "1"},
    {"x86", "SUSE Linux Enterprise Server 12 (x86_64)", "2"},
};
static_assert(std::size(allowedDistributions) == 7);

}  // namespace vetraTests
