#include "programs/scanhypervisorCheck/ScannerCommand.h"

#include <iostream>
#include <string_view>

#include "Version/Version.h"

namespace HypervisorScan {

namespace {

constexpr int usageStatus = 64;
constexpr int outputStatus = 74;

constexpr const char* usage =
    "Usage: ./scanhypervisorCheck to print the hypervisor under which this machine runs\n"
    "       or ./scanhypervisorCheck -h or --help for usage info\n"
    "       or ./scanhypervisorCheck -v or --version for version\n"
    "\n"
    "Prints two lines, \"Hypervisor: NAME\" and \"Vendor ID: IDENTIFIER\". Both values are empty "
    "on\n"
    "bare metal. The identifier is the signature that the processor shows, XEN for a Xen guest,\n"
    "and empty under a hypervisor that shows none.\n";

bool isEither(std::string_view argument, std::string_view brief, std::string_view full)
{
    return argument == brief || argument == full;
}

int refuse(std::string_view argument)
{
    std::cerr << "scanhypervisorCheck: unexpected argument '" << argument
              << "'; expected none, or one of -h, --help, -v, --version" << std::endl;
    return usageStatus;
}

// What was printed has reached the standard output, or that is said.
int statusOfOutput()
{
    if (std::cout.good())
        return 0;
    std::cerr << "scanhypervisorCheck: standard output cannot be written" << std::endl;
    return outputStatus;
}

void printVersion()
{
    std::cout << "scanhypervisorCheck-" << zdbver_version() << " (" << zdbver_compiledate() << ")"
              << std::endl;
}

void printHypervisor(const Hypervisor& hypervisor)
{
    std::cout << "Hypervisor: " << hypervisor.name << std::endl;
    std::cout << "Vendor ID: " << hypervisor.vendorId << std::endl;
}

}  // namespace

int runScanner(int argc, const char* const* argv, const CpuidReader& cpuid,
               const std::filesystem::path& dmiDirectory)
{
    if (argc < 2) {
        printHypervisor(scan(cpuid, dmiDirectory));
        return statusOfOutput();
    }
    const bool isHelp = isEither(argv[1], "-h", "--help");
    if (!isHelp && !isEither(argv[1], "-v", "--version"))
        return refuse(argv[1]);
    if (argc > 2)
        return refuse(argv[2]);
    if (isHelp)
        std::cout << usage << std::flush;
    else
        printVersion();
    return statusOfOutput();
}

}  // namespace HypervisorScan
