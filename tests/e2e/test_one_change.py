"""The server that passes, with one thing changed: what the report then says, told by hand."""
import pytest

from fakehost import Dimm

PASSES = ("SUCESS", "", "")
MIXED = "Different memory modules are used! This will have impact on memory performance"
SLOW = "DIMM speed too slow! This will have impact on memory performance"
NOT_ALLOWED = "Total memory size is not an allowed memory configuration"
MEMORY_FAILED = "Since validateMemory failed and the memory distribution is \nnot applicable"
NODES = ("TotalMemory Size is not an allowed memory configuration. \nAlso, the measured "
         "TotalMemory - TotalNodeMemory exceeds the  \naverage size of a DIMM module. Please check "
         "if all DIMMs are \nin place and work properly. \nIf so, this comment can be ignored")
DISTRIBUTION = ("The operating system distribution is not sufficient \n to operate KOR ZIRN for "
                "production environments. \n Please see KOR Note 2235581 for more details.")
KERNEL = ("Kernelversion is too low and might have bugs related to XFS. \n"
          "For more details review KOR Note: 2205917")
HUGE_PAGES = ("Transparent hugepages is enabled, this can lead to a system \nstall during memory "
              "defragmentation operation. \nFor More details: KOR Note 2205917")
RATIO = "The system has a non valid \ncore-memory ratio for analytics"
NOT_PRODUCTIVE = ("This configuration can be run only for \nnon-production systems. \n"
                  "This is not supported on production system.")
NOT_CERTIFIED = (" is not a certified ZIRN Server.\n Due to new validations, this information can "
                 "be outdated. \n Please look into the KOR ZIRN PAM for more details")
IN_A_GUEST = ("Check is not applicable when running in a VM. Please see KOR Note 1788665 and the "
              "IAAS section of the ZIRN Hardware Directory for details.")
RUNTIME = ("Runtime environment is not ready for ZIRN 2.0. \n"
           "Please see KOR Note 2455582 for more details.")


def shown(run, name):
    rule = run.rule(name)
    return rule.status, rule.severity, rule.reason


def nodes(*sizes):
    return "".join(f"node {number} size: {size} MB\n" for number, size in enumerate(sizes))


def cpuinfo(host):
    return (host.directory / "root/proc/cpuinfo").read_text()


def test_nothing_changed(host):
    run = host.evaluate()
    for name in run.rules:
        if name != "validateHypervisor":
            assert shown(run, name) == PASSES
    assert shown(run, "validateHypervisor") == ("SKIPPED", "", "This is not a virtual machine")


MEMORY = {
    "slowest-accepted": (
        [Dimm("32 GB")] * 15 + [Dimm("32 GB", speed="1066 MHz")], PASSES),
    "slow-module": (
        [Dimm("32 GB")] * 15 + [Dimm("32 GB", speed="1065 MHz")], ("FAILED", "HIGH", SLOW)),
    "slow-configured-only": (
        [Dimm("32 GB", configured="800 MHz")] * 16, PASSES),
    "speeds-unknown": (
        [Dimm("32 GB", speed="Unknown", configured=None)] * 16, PASSES),
    "two-sizes": (
        [Dimm("32 GB")] * 14 + [Dimm("16384 MB")] * 4, ("FAILED", "HIGH", MIXED)),
    "two-sizes-and-slow": (
        [Dimm("32 GB", speed="800 MHz")] * 14 + [Dimm("16384 MB")] * 4, ("FAILED", "HIGH", MIXED)),
    "one-size-in-two-units": (
        [Dimm("32 GB")] * 8 + [Dimm("32768 MB")] * 8, PASSES),
    "empty-slots": (
        [Dimm("32 GB"), Dimm(None)] * 16, PASSES),
    "total-not-allowed": (
        [Dimm("32 GB")] * 40, ("FAILED", "HIGH", NOT_ALLOWED)),
    "one-missing": (
        [Dimm("32 GB")] * 15, ("FAILED", "HIGH", NOT_ALLOWED)),
    "none": (
        [Dimm(None)] * 16, ("FAILED", "HIGH", MIXED)),
}


@pytest.mark.parametrize("memory, outcome", MEMORY.values(), ids=MEMORY.keys())
def test_memory_modules(host, memory, outcome):
    host.dmidecode(memory=memory)
    run = host.evaluate()
    assert shown(run, "validateMemory") == outcome
    if outcome == PASSES:
        assert shown(run, "validateMemoryDistribution") == PASSES
    else:
        assert shown(run, "validateMemoryDistribution") == ("SKIPPED", "", MEMORY_FAILED)


# 512 GiB in modules of 32768 MB.
NODE_SIZES = {
    "even": ((262144, 262144), 0, True),
    "one-node": ((524288,), 0, True),
    "less-than-a-module-missing": ((245761, 245760), 0, True),
    "a-whole-module-missing": ((245760, 245760), 0, False),
    "more-than-there-is": ((300000, 300000), 0, True),
    "at-both-limits": ((273000, 247000), 0, True),
    "one-over-the-limits": ((273001, 246999), 2, False),
    "too-far": ((280000, 240000), 2, False),
    "none": ((), 0, False),
}


@pytest.mark.parametrize("sizes, outliers, passes", NODE_SIZES.values(), ids=NODE_SIZES.keys())
def test_numa_nodes(host, sizes, outliers, passes):
    host.command("numactl", nodes(*sizes))
    run = host.evaluate()
    assert run.stdout.count(b"nodesize is too far from average nodesize\n") == outliers
    outcome = PASSES if passes else ("FAILED", "HIGH", NODES)
    assert shown(run, "validateMemoryDistribution") == outcome


DISTRIBUTIONS = {
    "service-pack-2": ("SUSE Linux Enterprise Server 12 (x86_64)", "2", True),
    "service-pack-3": ("SUSE Linux Enterprise Server 12 (x86_64)", "3", False),
    "service-pack-11": ("SUSE Linux Enterprise Server 12 (x86_64)", "11", False),
    "longer-name": ("SUSE Linux Enterprise Server 12 (x86_64) LTSS", "1", False),
    "power": ("SUSE Linux Enterprise Server 12 (ppc64le)", "1", False),
    "blanks": ("SUSE Linux Enterprise Server 12 (x86_64) ", " 1 ", True),
}


@pytest.mark.parametrize("name, patch_level, passes", DISTRIBUTIONS.values(),
                         ids=DISTRIBUTIONS.keys())
def test_distribution(host, name, patch_level, passes):
    host.write("/etc/SuSE-release", f"{name}\nVERSION = 12\nPATCHLEVEL = {patch_level}\n")
    run = host.evaluate()
    outcome = PASSES if passes else ("FAILED", "HIGH", DISTRIBUTION)
    kernel = PASSES if passes else ("SKIPPED", "", "validateDistribution is a failure")
    assert shown(run, "validateDistribution") == outcome
    assert shown(run, "validateLinuxKernelVersion") == kernel


@pytest.mark.parametrize("release, passes", [
    ("3.12.74-60.64.40-default", True), ("3.12.73-60-default", False), ("3.13.0-1", False),
    ("4.4.21-69-default", False), ("4.12.74-1", True), ("2.12.74-1", False), ("3.12.74", True),
    ("", False), ("-", False), ("3-12-74", False)])
def test_kernel(host, release, passes):
    host.uname(release=release)
    outcome = PASSES if passes else ("WARNING", "MEDIUM", KERNEL)
    assert shown(host.evaluate(), "validateLinuxKernelVersion") == outcome


@pytest.mark.parametrize("source, passes", [
    ("tsc\n", True), ("hyperv_clocksource_tsc_page\n", True), ("hpet\n", False), ("TSC\n", False),
    ("", False)])
def test_clock_source(host, source, passes):
    host.write("/sys/devices/system/clocksource/clocksource0/current_clocksource", source)
    reason = "The clocksource can have a significant performance impact."
    outcome = PASSES if passes else ("WARNING", "MEDIUM", reason)
    assert shown(host.evaluate(), "validateClocksource") == outcome


@pytest.mark.parametrize("switch, passes", [
    ("always madvise [never]\n", True), ("[always] madvise never\n", False),
    ("always [madvise] never\n", False), ("never\n", False), ("", False)])
def test_huge_pages(host, switch, passes):
    host.write("/sys/kernel/mm/transparent_hugepage/enabled", switch)
    outcome = PASSES if passes else ("FAILED", "HIGH", HUGE_PAGES)
    assert shown(host.evaluate(), "validateTHP") == outcome


CPUS = {
    "listed-v2": ("Intel(R) Xeon(R) CPU E7-8890 v2 @ 2.50GHz", True),
    "without-clock": ("Intel(R) Xeon(R) CPU E7-8890 v3", True),
    "first-generation": ("Intel(R) Xeon(R) CPU E7- 8870  @ 2.40GHz", True),
    "first-generation-without-blank": ("Intel(R) Xeon(R) CPU E7-8870  @ 2.40GHz", False),
    "unlisted": ("Intel(R) Xeon(R) CPU E7-8867 v3 @ 2.50GHz", False),
    "lower-case": ("intel(r) xeon(r) cpu e7-8890 v3 @ 2.50GHz", False),
}


@pytest.mark.parametrize("name, passes", CPUS.values(), ids=CPUS.keys())
def test_processor(host, name, passes):
    host.write("/proc/cpuinfo", cpuinfo(host).replace(
        "Intel(R) Xeon(R) CPU E7-8890 v3 @ 2.50GHz", name))
    run = host.evaluate()
    if passes:
        assert shown(run, "validateCPU") == shown(run, "validateCoreMemoryRatio") == PASSES
    else:
        reason = "CPU Model is not supported for productive usage"
        assert shown(run, "validateCPU") == ("FAILED", "HIGH", reason)
        assert shown(run, "validateCoreMemoryRatio") == ("SKIPPED", "", NOT_PRODUCTIVE)


# 72 logical processors; so many whole GiB of memory give the ratio that is named.
@pytest.mark.parametrize("generation, ratio, passes", [
    ("v2", 6, True), ("v2", 8, True), ("v2", 9, False), ("v3", 10, True), ("v3", 11, False),
    ("v4", 11, True), ("v4", 12, False)])
def test_ratio_of_memory_to_cores(host, generation, ratio, passes):
    host.write("/proc/cpuinfo", cpuinfo(host).replace("E7-8890 v3", f"E7-8890 {generation}"))
    host.write("/proc/meminfo", f"MemTotal: {(72 * ratio + 71) * 1048576} kB\n")
    outcome = PASSES if passes else ("FAILED", "HIGH", RATIO)
    assert shown(host.evaluate(), "validateCoreMemoryRatio") == outcome


HYPER_THREADING = {
    "flag-missing": (" ht tm ", " tm ", False),
    "flag-at-the-end": (" erms invpcid", " erms invpcid ht", True),
    "flag-only-at-the-end": (" ht tm ", " tm ht\t", False),
    "half-the-cores": ("cpu cores\t: 18", "cpu cores\t: 9", False),
}


@pytest.mark.parametrize("old, new, passes", HYPER_THREADING.values(), ids=HYPER_THREADING.keys())
def test_hyper_threading(host, old, new, passes):
    text = cpuinfo(host)
    assert old in text
    host.write("/proc/cpuinfo", text.replace(old, new))
    outcome = PASSES if passes else ("FAILED", "HIGH", "Hyperthreading is not enabled")
    assert shown(host.evaluate(), "validateHTT") == outcome


def test_an_accepted_hypervisor_takes_rules_out(host):
    host.scanner("Hypervisor: Xen\nVendor ID: XEN\n")
    run = host.evaluate()
    assert shown(run, "validateHypervisor") == PASSES
    assert shown(run, "validateHTT") == ("SKIPPED", "", IN_A_GUEST)
    for name in ("validateMemory", "validateMemoryDistribution", "validateCoreMemoryRatio"):
        assert run.rule(name).status == "SKIPPED"


@pytest.mark.parametrize("vendor", ["KVMKVMKVM", "xen", "XEN2", ""])
def test_a_hypervisor_that_is_not_accepted_takes_no_rule_out(host, vendor):
    host.scanner(f"Hypervisor: something\nVendor ID: {vendor}\n")
    run = host.evaluate()
    assert shown(run, "validateHypervisor") == ("FAILED", "HIGH", "Hypervisor is not supported")
    assert shown(run, "validateHTT") == shown(run, "validateMemory") == PASSES


@pytest.mark.parametrize("product, known", [
    ("x3850 X6 -[6241FT3]-", "x3850 X6"), ("7145", "7145"), ("71450", None),
    ("PowerEdge R930 ", "PowerEdge R930"), ("poweredge r930", None), ("PowerEdge", None),
    ("A: PowerEdge R930", None), ("VMware Virtual Platform", "VMware Virtual Platform")])
def test_product_name(host, product, known):
    host.dmidecode(product=product)
    outcome = PASSES if known else ("FAILED", "HIGH", product + NOT_CERTIFIED)
    assert shown(host.evaluate(), "validateApplianceSystemType") == outcome


@pytest.mark.parametrize("packages, passes", [
    (["libstdc++6-5.3.1+r233831-10.1.x86_64", "libgcc_s1-6.2.1+r239768-9.1.x86_64"], True),
    (["libstdc++6-6.2.1+r239768-2.4.x86_64", "libgcc_s1-6.2.1+r239768-2.4.x86_64"], True),
    (["libstdc++6-6.2.1+r239768-2.3.x86_64", "libgcc_s1-6.2.1+r239768-2.4.x86_64"], False),
    (["libstdc++6-6.2.1+r239768-2.4.x86_64"], False),
    (["libstdc++6-6.2.1+r239768", "libgcc_s1-6.2.1+r239768-2.4.x86_64"], False),
    ([], False)])
def test_runtime_packages(host, packages, passes):
    host.command("rpm", "".join(f"{package}\n" for package in packages))
    outcome = PASSES if passes else ("FAILED", "HIGH", RUNTIME)
    assert shown(host.evaluate(), "validateRuntime") == outcome


@pytest.mark.parametrize("change, record", [
    ({}, b"('pstate','performance',0,'')"),
    ({"scaling_max_freq": "9900000\n"},
     b"('cstate','root=/dev/sda intel_idle.max_cstate=10',0,'')"),
    ({"scaling_max_freq": "9900000\n", "cmdline": "quiet\n"}, b"('pstate','intel_pstate',0,'')"),
    ({"scaling_max_freq": "9900000\n", "cmdline": "quiet\n", "scaling_governor": "powersave\n"},
     b"('pstate','0',0,'')"),
])
def test_governor_records(host, change, record):
    host.write("/proc/cmdline", "root=/dev/sda intel_idle.max_cstate=10\n")
    for name, text in change.items():
        directory = "/proc" if name == "cmdline" else "/sys/devices/system/cpu/cpu0/cpufreq"
        host.write(f"{directory}/{name}", text)
    assert host.api("CHECK_CPUGOVERNOR").stdout == record + b"\n"


def test_the_record_of_a_slow_module_carries_the_text_on_sizes(host):
    host.dmidecode(memory=[Dimm("32 GB", speed="800 MHz")] * 3 + [Dimm("32 GB")] * 13)
    assert host.api("CHECK_MEMORY").stdout == (
        f"('invalid modulesspeed count','3',4,'{MIXED}')\n".encode())


def test_reason_and_record_of_a_foreign_processor_differ_by_a_blank(host):
    host.write("/proc/cpuinfo", cpuinfo(host).replace("E7-8890 v3", "E7-8867 v3"))
    assert NOT_PRODUCTIVE == host.evaluate().rule("validateCoreMemoryRatio").reason
    message = NOT_PRODUCTIVE.replace("systems. \n", "systems.\n")
    assert host.api("CHECK_COREMEMORYRATIO").stdout == (
        f"('corememoryratio','',3,'{message}')\n".encode())


def test_the_fact_document_of_a_small_host(host):
    for path in ("/proc/cpuinfo", "/proc/meminfo", "/proc/cmdline", "/etc/SuSE-release"):
        host.remove(path)
    for name in ("scaling_max_freq", "scaling_driver", "scaling_governor"):
        host.remove(f"/sys/devices/system/cpu/cpu0/cpufreq/{name}")
    host.write("/proc/meminfo", "MemTotal:        3145728 kB\n")
    host.write("/proc/cpuinfo", "processor\t: 0\nmodel name\t: One @ 2\ncpu MHz\t: 10.9\n"
                                "processor\t: 1\nmodel name\t: Two\ncpu MHz\t: 20\n")
    host.command("rpm", "a\nlibgcc-1\nlibgcc-2\n")
    host.command("numactl", nodes(1024, 2048))
    host.dmidecode(memory=[Dimm("2 GB"), Dimm("1024 MB")], product="Thing -[1]-",
                   frequency="10 MHz\nUnknown\n")
    assert host.evaluate().result.decode() == SMALL_DOCUMENT + "\n"


SMALL_DOCUMENT = """{
   "validateApplianceSystemType" : {
      "Product Name" :"Thing"
   }
   ,"validateCPU" : {
      "cpu speed" :"10,20"
      ,"logical processor count" :"2"
      ,"model name" :"One"
      ,"processor" :"0"
      ,"socket count" :"0"
   }
   ,"validateCPUgovernor" : {
      "dimmfreq list" :"10"
   }
   ,"validateClocksource" : {
      "clock info" :"tsc"
   }
   ,"validateCoreMemoryRatio" : {
      "Core Memory Ratio" :"1"
      ,"Total Memory" :"3145728"
   }
   ,"validateHTT" : {
      "cpu cores count" :"0"
      ,"physical processor count" :"0"
      ,"socket count" :"0"
   }
   ,"validateHypervisor" : {
      "hypervisor" :""
      ,"vendor id" :""
   }
   ,"validateLinuxKernelVersion" : {
      "kernel version" :"3.12.74-60.64.40-default"
   }
   ,"validateMemory" : {
      "dimmSize" :"3072"
      ,"dimmSpeedphysical" :"2133,2133"
      ,"dimmsize list items" :"1024,2048"
      ,"dimmsize list length" :"2"
   }
   ,"validateMemoryDistribution" : {
      "nodesize list items" :"1024,2048"
   }
   ,"validateRuntime" : {
      "rpm compat-kor list" :""
      ,"rpm libgcc list" :"libgcc-1,libgcc-2"
      ,"rpm libstd list" :""
   }
   ,"validateTHP" : {
      "thp" :"always madvise [never]"
   }
}
"""
