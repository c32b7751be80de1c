// All memory of facts and rules comes from the domain of their owner, and goes back to it.

#include <gtest/gtest.h>

#include <memory_resource>

#include "CapturedOutput.h"
#include "FakeHost.h"
#include "HostFacts.h"
#include "JoltUtils/TypedJson.h"
#include "vetraTests/LSInfo/ValidateSystemInfo.h"

namespace vetraTests {

namespace {

constexpr RulePointer allRules[] = {
    &ValidateSystemInfo::validateDistribution,
    &ValidateSystemInfo::validateLinuxKernelVersion,
    &ValidateSystemInfo::validateClocksource,
    &ValidateSystemInfo::validateCPU,
    &ValidateSystemInfo::validateHypervisor,
    &ValidateSystemInfo::validateHTT,
    &ValidateSystemInfo::validateApplianceSystemType,
    &ValidateSystemInfo::validateTHP,
    &ValidateSystemInfo::validateRuntime,
    &ValidateSystemInfo::validateMemory,
    &ValidateSystemInfo::validateMemoryDistribution,
    &ValidateSystemInfo::validateCoreMemoryRatio,
    &ValidateSystemInfo::validateCPUgovernor,
};

constexpr const char* allActions[] = {
    "CHECK_APPLIANCETYPE",
    "CHECK_CLOCKSOURCE",
    "CHECK_COREMEMORYRATIO",
    "CHECK_CPU",
    "CHECK_CPUGOVERNOR",
    "CHECK_DISTRIBUTION",
    "CHECK_HTT",
    "CHECK_HYPERVISOR",
    "CHECK_MEMORY",
    "CHECK_MEMORYDISTRIBUTION",
    "CHECK_THP",
};

// The default resource gives no memory while it lives: a copy that names no allocator throws.
class NoDefaultResource {
public:
    NoDefaultResource() : former(std::pmr::set_default_resource(std::pmr::null_memory_resource()))
    {
    }
    ~NoDefaultResource() { std::pmr::set_default_resource(former); }
    NoDefaultResource(const NoDefaultResource&) = delete;
    NoDefaultResource& operator=(const NoDefaultResource&) = delete;

private:
    std::pmr::memory_resource* former;
};

// A host whose facts are all longer than what a string holds without the heap.
class WordyHost : public FakeHost {
public:
    WordyHost()
    {
        file("/etc/SuSE-release",
             "SUSE Linux Enterprise Server 12 (x86_64)\n"
             "VERSION = twelve and some more words\nPATCHLEVEL = 1\n");
        kernelRelease = "3.12.74-60.64.40-default-with-a-long-tail";
        file("/sys/devices/system/clocksource/clocksource0/current_clocksource",
             "tsc, and nothing else than that\n");
        file("/sys/kernel/mm/transparent_hugepage/enabled", "always madvise [never]\n");
        file("/proc/meminfo", "MemTotal:       134217728 kB\n");
        file("/proc/cmdline", "BOOT_IMAGE=/boot/vmlinuz root=/dev/sda2 intel_idle.max_cstate=0\n");
        scaling("intel_pstate, as it should be", "performance, as it should be");
        processors("GenuineIntel", "Intel(R) Xeon(R) CPU E7-8890 v3 @ 2.50GHz",
                   "fpu vme ht sse sse2");
        answer("./scanhypervisorCheck", "", "Hypervisor:\nVendor ID:\n");
        answer("/usr/sbin/dmidecode", "", "\tProduct Name: ProLiant DL580 Gen9 -[with a tag]-\n");
        answer("/usr/sbin/dmidecode", "-s processor-frequency", "2500 MHz\n2500 MHz\n2500 MHz\n");
        modules("2133");
        answer("numactl", "--hardware", "node 0 size: 65536 MB\nnode 1 size: 65536 MB\n");
        answer("rpm", "-qa",
               "libstdc++6-5.3.1+r233831-10.1.x86_64\n"
               "libgcc_s1-5.3.1+r233831-10.1.x86_64\ncompat-kor-c++-6.x86_64\n");
        answer("rpm", "-q -a",
               "libstdc++6-5.3.1+r233831-10.1.x86_64\n"
               "libgcc_s1-5.3.1+r233831-10.1.x86_64\n");
    }

    void processors(std::string_view vendor, std::string_view model, std::string_view flags)
    {
        std::string text;
        for (int i = 0; i < 32; ++i) {
            text += "processor : " + std::to_string(i) + "\nvendor_id : " + plain(vendor) +
                    "\ncpu family : 6\nmodel : 79\nmodel name : " + plain(model) +
                    "\ncpu MHz : 2500\nphysical id : the socket of number " +
                    std::to_string(i % 2) + "\ncpu cores : 8\nflags : " + plain(flags) + "\n";
        }
        file("/proc/cpuinfo", text);
    }

    void modules(const std::string& megahertz)
    {
        std::string text;
        for (int i = 0; i < 4; ++i)
            text += "\tSize: 32 GB\n\tSpeed: " + megahertz + " MHz\n";
        answer("/usr/sbin/dmidecode", "--type 17", text);
    }

    void scaling(const std::string& driver, const std::string& governor)
    {
        const std::string directory = "/sys/devices/system/cpu/cpu0/cpufreq/";
        file(directory + "scaling_max_freq", "2600000000\n");
        file(directory + "scaling_driver", driver + "\n");
        file(directory + "scaling_governor", governor + "\n");
    }
};

// Everything that a run and the front end ask for.
void judgeCompletely(Basis::Allocator& domain)
{
    SystemInfo facts(domain);
    ValidateSystemInfo rules(domain);
    const string arch = facts.getArch();
    const string document = facts.gatherInfo();
    const string title("a host with a name that is long", &domain);
    rules.validate(allRules, 13, title, facts, arch);
    EXPECT_FALSE(rules.getHumanReadableReport().empty());
    EXPECT_EQ(rules.getCheckAction().size(), 0U);
    for (const char* action : allActions)
        EXPECT_EQ(rules.checkActions(facts, arch, string(action, &domain)).front(), '(') << action;
    const string unknown("an action that nobody knows", &domain);
    EXPECT_EQ(rules.checkActions(facts, arch, unknown).front(), 'P');
    EXPECT_GT(domain.bytes(), document.size());
}

// Runs it without a default resource, and looks at both domains afterwards.
void expectNothingElsewhere()
{
    const std::shared_ptr<Basis::Allocator> domain = testDomain();
    const std::size_t shared = JoltUtils::JsonAllocator::getDefaultAllocator().bytes();
    {
        const CapturedOutput output;
        const NoDefaultResource none;
        ASSERT_NO_THROW(judgeCompletely(*domain));
    }
    EXPECT_EQ(domain->bytes(), 0U);
    EXPECT_EQ(domain->liveAllocations(), 0U);
    EXPECT_EQ(JoltUtils::JsonAllocator::getDefaultAllocator().bytes(), shared);
}

}  // namespace

TEST(OwnersDomain, ServesAHostThatPasses)
{
    WordyHost host;
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesAHostThatFails)
{
    WordyHost host;
    host.processors("AuthenticAMD", "AMD EPYC 7763 64-Core Processor", "fpu vme sse sse2 svm pae");
    host.file("/etc/SuSE-release", "SUSE Linux Enterprise Server 12 (x86_64)\nPATCHLEVEL = 3\n");
    host.file("/sys/kernel/mm/transparent_hugepage/enabled", "[always] madvise never\n");
    host.answer("/usr/sbin/dmidecode", "", "\tProduct Name: A server that nobody certified\n");
    host.modules("1065");
    host.answer("rpm", "-q -a", "");
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesAHostThatIsAdvised)
{
    WordyHost host;
    host.file("/sys/devices/system/clocksource/clocksource0/current_clocksource",
              "hpet, which is slow to read\n");
    host.kernelRelease = "3.12.49-11-default-with-a-long-tail";
    host.answer("numactl", "--hardware", "node 0 size: 96000 MB\nnode 1 size: 33000 MB\n");
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesAGuest)
{
    WordyHost host;
    host.processors("GenuineIntel", "Intel(R) Xeon(R) CPU E5-2699 v4 @ 2.20GHz",
                    "fpu vme ht hypervisor sse");
    host.answer("./scanhypervisorCheck", "",
                "Hypervisor: VMware ESXi of some version\nVendor ID: VMwareVMware\n");
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesBothReleasesOfTheOtherDistribution)
{
    WordyHost host;
    host.remove("/etc/SuSE-release");
    host.file("/etc/redhat-release", "Red Hat Enterprise Linux Server release 7.2 (Maipo)\n");
    expectNothingElsewhere();
    host.file("/etc/redhat-release", "Red Hat Enterprise Linux Server release 7.3 (Maipo)\n");
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesTheDumpFile)
{
    WordyHost host;
    for (const char* arguments : {"", "-s processor-frequency", "--type 17"})
        host.answer("/usr/sbin/dmidecode", arguments, "");
    host.file("/usr/kor//SYS/global/zdb/install/hwinfo/bios_.txt",
              "Product Name: A server that nobody certified\nCurrent Speed: 2500 MHz and some\n"
              "Size: 16384 MB\nSize: 32 GB\nSpeed: 2133 MHz\nConfigured Clock Speed: 1866 MHz\n");
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesAHostThatShowsNothing)
{
    FakeHost host;
    expectNothingElsewhere();
}

TEST(OwnersDomain, ServesAnotherArchitecture)
{
    FakeHost host;
    host.machine = "ppc64le";
    expectNothingElsewhere();
}

}  // namespace vetraTests
