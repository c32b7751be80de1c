// Facts of the operating system: distribution, kernel, runtime packages, clock, huge pages.

#include <sys/utsname.h>

#include <algorithm>
#include <fstream>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/SystemInfo.h"

namespace vetraTests {

namespace {

// On these the kernel release is taken apart; elsewhere it is kept whole.
constexpr std::string_view distributionsWithKnownKernels[] = {
    "SUSE Linux Enterprise Server 12 (ppc64le)",
    "SUSE Linux Enterprise Server 12",
    "Red Hat Enterprise Linux Server release 7.2 (Maipo)",
    "Red Hat Enterprise Linux Server release 7.3 (Maipo)",
};

std::string_view pieceAt(const Basis::vector<std::string_view>& pieces, std::size_t index)
{
    return index < pieces.size() ? pieces[index] : std::string_view();
}

// The lines of an output as a comma list. The last character goes, whatever it is.
void makeCommaList(string& output)
{
    if (output.empty())
        return;
    output.pop_back();
    std::replace(output.begin(), output.end(), '\n', ',');
}

}  // namespace

void SystemInfo::gatherDistribution_LinuxKernelVersion_Info()
{
    std::ifstream suse("/etc/SuSE-release");
    readSuseRelease(suse);
    std::ifstream redHat("/etc/redhat-release");
    readRedHatRelease(redHat);
    currentGroup.clear();

    utsname names{};
    ::uname(&names);
    readKernelRelease(Basis::trimmed(names.release));
    currentGroup.clear();
}

void SystemInfo::readSuseRelease(std::istream& file)
{
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (Basis::startsWith(line, "SUSE")) {
            distribution = Basis::trimmed(line);
            insert("Distribution name", distribution);
        }
        if (Basis::startsWith(line, "VERSION")) {
            version = Basis::trimmed(Basis::behindFirst(line, "="));
            insert("Version", version);
        }
        if (Basis::startsWith(line, "PATCHLEVEL")) {
            patchLevel = Basis::trimmed(Basis::behindFirst(line, "="));
            insert("Patchlevel", patchLevel);
            storeGroup("validateDistribution");
        }
    }
}

void SystemInfo::readRedHatRelease(std::istream& file)
{
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (!Basis::startsWith(line, "Red Hat"))
            continue;
        distribution = line;
        insert("Distribution name", distribution);
        const std::string_view release = Basis::trimmed(Basis::beforeFirst(line, "("));
        patchLevel = Basis::behindFirst(release, ".");
        version = Basis::beforeFirst(release, ".");
        insert("Version", version);
        insert("Patchlevel", patchLevel);
        storeGroup("validateDistribution");
    }
}

void SystemInfo::readKernelRelease(std::string_view release)
{
    const bool isKnown = std::any_of(
        std::begin(distributionsWithKnownKernels), std::end(distributionsWithKnownKernels),
        [this](std::string_view name) { return Basis::contains(distribution, name); });
    if (!isKnown) {
        insert("kernel version", release);
        storeGroup("validateLinuxKernelVersion");
        return;
    }

    const auto pieces = Basis::split(release, '-', allocator);
    const auto numbers = Basis::split(pieceAt(pieces, 0), '.', allocator);
    kernelVersion = Basis::trimmed(pieceAt(numbers, 0));
    majorVersion = Basis::trimmed(pieceAt(numbers, 1));
    minorVersion = Basis::trimmed(pieceAt(numbers, 2));
    // A release without "-" has no second piece and leaves the kernel's own release empty.
    const auto ownNumbers = Basis::split(pieceAt(pieces, 1), '.', allocator);
    kernelRelease = Basis::trimmed(pieceAt(ownNumbers, 0));
    insert("kernel version", kernelVersion);
    insert("major version", majorVersion);
    insert("minor version", minorVersion);
    insert("kernel release", kernelRelease);
    storeGroup("validateLinuxKernelVersion");
}

void SystemInfo::gatherRuntimeInfo()
{
    rpmlibstdList = run("rpm -qa | grep libstd");
    rpmlibgccList = run("rpm -qa | grep libgcc");
    rpmCompatkorList = run("rpm -qa | grep compat-kor");
    makeCommaList(rpmlibstdList);
    makeCommaList(rpmlibgccList);
    makeCommaList(rpmCompatkorList);
    insert("rpm libstd list", rpmlibstdList);
    insert("rpm libgcc list", rpmlibgccList);
    insert("rpm compat-kor list", rpmCompatkorList);
    storeGroup("validateRuntime");
    currentGroup.clear();
}

void SystemInfo::gatherClockSourceInfo()
{
    std::ifstream file("/sys/devices/system/clocksource/clocksource0/current_clocksource");
    readClockSource(file);
    currentGroup.clear();
}

void SystemInfo::readClockSource(std::istream& file)
{
    for (string line(&allocator); Basis::readLine(file, line);) {
        clockInfo = Basis::trimmed(line);
        insert("clock info", clockInfo);
        storeGroup("validateClocksource");
    }
}

void SystemInfo::gatherTHPInfo()
{
    std::ifstream file("/sys/kernel/mm/transparent_hugepage/enabled");
    for (string line(&allocator); Basis::readLine(file, line);)
        thp = Basis::trimmed(line);
    insert("thp", thp);
    storeGroup("validateTHP");
    currentGroup.clear();
}

}  // namespace vetraTests
