// Facts of the platform: hypervisor, frequency settings, product name.

#include <exception>
#include <fstream>
#include <iostream>
#include <utility>

#include "Basis/Text.h"
#include "vetraTests/LSInfo/SystemInfo.h"

namespace vetraTests {

namespace {

constexpr const char* processorFrequencyLines =
    R"(/usr/sbin/dmidecode -s processor-frequency | grep "MHz")";
constexpr const char* firstProductName = R"(/usr/sbin/dmidecode | grep "Product Name" | head -1)";
constexpr std::int32_t kilohertzPerMegahertz = 1000;

// A scanner that the user may not write to counts as missing.
bool scannerIsThere()
{
    return std::fstream("scanhypervisorCheck", std::ios_base::in | std::ios_base::out).is_open();
}

}  // namespace

void SystemInfo::gatherHypervisorInfo()
{
    if (Basis::contains(getArch(), "x86")) {
        if (scannerIsThere()) {
            try {
                readScannerOutput(run("./scanhypervisorCheck"));
            } catch (const std::exception& exception) {
                std::cout << "Cannot determine hypervisor, because scanhypervisor program is not "
                             "executable. Continue ..."
                          << exception.what() << std::endl;
            }
        }
        insert("hypervisor", hypervisor);
        insert("vendor id", hyVendorId);
    }
    storeGroup("validateHypervisor");
    currentGroup.clear();
}

void SystemInfo::readScannerOutput(std::string_view output)
{
    for (const std::string_view line : Basis::split(output, '\n', allocator)) {
        if (Basis::contains(line, "Hypervisor"))
            hypervisor = Basis::trimmed(Basis::behindFirst(line, ":"));
        if (Basis::contains(line, "Vendor ID"))
            hyVendorId = Basis::trimmed(Basis::behindFirst(line, ":"));
    }
}

void SystemInfo::gatherCPUgovernorInfo()
{
    std::ifstream maximum("/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq");
    readMaxFrequency(maximum);
    gatherLines("/sys/devices/system/cpu/cpu0/cpufreq/scaling_driver", scalingDriver,
                "scaling driver");
    gatherLines("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", scalingGovernor,
                "scaling governor");
    gatherLines("/proc/cmdline", procCmdline, "proc cmdline");

    string output = run(processorFrequencyLines);
    if (output.empty()) {
        KORSysFileName();
        std::ifstream dump(biosFileName.c_str());
        output = processorFrequenciesOfBiosDump(dump);
    }
    readProcessorFrequencies(output);
    storeGroup("validateCPUgovernor");
    currentGroup.clear();
}

void SystemInfo::readMaxFrequency(std::istream& file)
{
    for (string line(&allocator); Basis::readLine(file, line);) {
        maxFreq = decimal(Basis::toInt32(Basis::trimmed(line)) / kilohertzPerMegahertz);
        insert("max freq", maxFreq);
    }
}

string SystemInfo::processorFrequenciesOfBiosDump(std::istream& file) const
{
    string frequencies(&allocator);
    bool isFirst = true;
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (!Basis::contains(line, "Current Speed") || !Basis::contains(line, "MHz"))
            continue;
        // Between the texts, not behind them: an empty last one is no line.
        if (!std::exchange(isFirst, false))
            frequencies.append("\n");
        frequencies.append(Basis::trimmed(Basis::behindFirst(line, ":")));
    }
    return frequencies;
}

void SystemInfo::readProcessorFrequencies(std::string_view output)
{
    Numbers frequenciesMhz(&allocator);
    for (const std::string_view line : Basis::split(output, '\n', allocator))
        frequenciesMhz.push_back(Basis::toInt32(Basis::beforeFirst(line, " ")));
    if (frequenciesMhz.empty())
        return;
    dimmfreqList = joined(frequenciesMhz);
    insert("dimmfreq list", dimmfreqList);
}

void SystemInfo::gatherApplianceSystemTypeInfo()
{
    string text = run(firstProductName);
    trim(text);
    if (text.empty()) {
        KORSysFileName();
        std::ifstream dump(biosFileName.c_str());
        text = productNameOfBiosDump(dump);
    }
    readProductName(text);
    currentGroup.clear();
    insert("Product Name", productName);
    storeGroup("validateApplianceSystemType");
    currentGroup.clear();
}

string SystemInfo::productNameOfBiosDump(std::istream& file) const
{
    string text(&allocator);
    for (string line(&allocator); Basis::readLine(file, line);) {
        if (Basis::startsWith(line, "Product Name"))
            text = Basis::trimmed(line);
    }
    return text;
}

void SystemInfo::readProductName(std::string_view text)
{
    // Behind "-[" stands an asset tag, which is no part of the model's name.
    const std::string_view name = Basis::trimmed(Basis::behindFirst(text, ":"));
    productName = Basis::trimmed(Basis::beforeFirst(name, "-["));
}

}  // namespace vetraTests
