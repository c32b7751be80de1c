"""Checks the model's rules and their records against bytes typed by hand."""

import pytest

from built_host import SUSE_12_SP1, build_host, good_host
from model import Model
from model.facts import FactStore
from model.host import Host
from model.rules import Rules
from model.tables import ACCEPTED_PROCESSORS, CERTIFIED_SERVERS

SUSE = b"SUSE Linux Enterprise Server 12 (x86_64)"
RED_HAT_72 = b"Red Hat Enterprise Linux Server release 7.2 (Maipo)"
RED_HAT_73 = b"Red Hat Enterprise Linux Server release 7.3 (Maipo)"
E7_V4 = b"Intel(R) Xeon(R) CPU E7-8890 v4"
MIXED = b"Different memory modules are used! This will have impact on memory performance"
NOT_PRODUCTION = (b"This configuration can be run only for \nnon-production systems. \n"
                  b"This is not supported on production system.")
MISSING_MEMORY = (b"TotalMemory Size is not an allowed memory configuration. \n"
                  b"Also, the measured TotalMemory - TotalNodeMemory exceeds the  \n"
                  b"average size of a DIMM module. Please check if all DIMMs are \n"
                  b"in place and work properly. \n"
                  b"If so, this comment can be ignored")


@pytest.fixture(name="judge")
def fixture_judge(tmp_path):
    """Runs one rule on facts given by hand and returns the rules object."""
    def run(name, arch="x86", packages=None, **facts):
        commands = {} if packages is None else {"rpm": packages}
        store = FactStore(Host(build_host(tmp_path, commands=commands)))
        for attribute, value in facts.items():
            assert isinstance(getattr(store, attribute), bytes)
            setattr(store, attribute, value)
        rules = Rules(store, arch)
        rules.block = rules.run(name)
        return rules
    return run


def shown(rules):
    return rules.outcome.shown()[0], rules.outcome.severity, rules.outcome.reason


# Distribution and kernel

NO_DISTRIBUTION = (b"The operating system distribution is not sufficient \n"
                   b" to operate KOR ZIRN for production environments. \n"
                   b" Please see KOR Note 2235581 for more details.")


def test_suse_12_patch_level_3(tmp_path):
    release = SUSE_12_SP1.replace(b"= 1", b"= 3")
    model = Model(good_host(tmp_path, files={"/etc/SuSE-release": release}))
    assert model.rule("validateDistribution") == (b"FAILED", b"HIGH", NO_DISTRIBUTION)
    assert model.records()["CHECK_DISTRIBUTION"] == (
        b"('distribution_patchlevel','3',4,'" + NO_DISTRIBUTION + b"')")
    assert model.rule("validateLinuxKernelVersion") == (
        b"SKIPPED", b"", b"validateDistribution is a failure")
    assert model.records()["CHECK_THP"] == (
        b"('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid. Continue ...')")


def test_skipped_kernel_rule_records_the_version(judge):
    rules = judge("validateLinuxKernelVersion", distribution=SUSE, patch_level=b"3",
                  kernel_version=b"3", major_version=b"12", minor_version=b"74")
    assert rules.record == (
        b"('linuxkernelversion','3-12-74',3,'validateDistribution is a failure')")


def test_patch_level_is_trimmed_for_the_comparison_only(judge):
    rules = judge("validateDistribution", distribution=SUSE, patch_level=b" 2 ")
    assert shown(rules) == (b"SUCESS", b"", b"")
    assert rules.record == b"('distribution_patchlevel',' 2 ',0,'')"


def test_power_distributions_never_match(judge):
    rules = judge("validateDistribution", arch="ppc64le", patch_level=b"1",
                  distribution=b"SUSE Linux Enterprise Server 12 (ppc64le)")
    assert shown(rules)[0] == b"FAILED"


def test_red_hat_72_always_warns_about_its_kernel(tmp_path):
    model = Model(good_host(tmp_path, release="3.10.0-327.el7.x86_64", files={
        "/etc/SuSE-release": None, "/etc/redhat-release": RED_HAT_72 + b"\n"},
        commands={"rpm": b"compat-kor-c++-6.el7_2.x86_64\n"}))
    assert model.rule("validateDistribution") == (b"SUCESS", b"", b"")
    assert model.rule("validateLinuxKernelVersion") == (
        b"WARNING", b"MEDIUM", b"Not a valid distribution.")
    assert model.rule("validateRuntime") == (b"SUCESS", b"", b"")


def test_red_hat_72_has_no_valid_kernel(judge):
    rules = judge("validateLinuxKernelVersion", distribution=RED_HAT_72, patch_level=b"2",
                  kernel_version=b"3", major_version=b"10", minor_version=b"0")
    assert shown(rules) == (b"WARNING", b"MEDIUM", b"Not a valid distribution.")
    assert rules.record == b"('linuxkernelversion','3-10-0',1,'Not a valid distribution.')"


@pytest.mark.parametrize("version, status", [
    ((b"3", b"12", b"74"), b"SUCESS"), ((b"4", b"4", b"21"), b"WARNING"),
    ((b"3", b"13", b"0"), b"WARNING"), ((b"3", b"12", b"73"), b"WARNING"),
    ((b"4", b"12", b"74"), b"SUCESS"), ((b"", b"", b""), b"WARNING"),
])
def test_kernel_parts_are_compared_one_by_one(judge, version, status):
    rules = judge("validateLinuxKernelVersion", distribution=SUSE, patch_level=b"1",
                  kernel_version=version[0], major_version=version[1], minor_version=version[2])
    assert shown(rules)[0] == status


@pytest.mark.parametrize("version, status", [
    ((b"3", b"10", b"0"), b"SUCESS"), ((b"2", b"10", b"0"), b"WARNING"),
    ((b"3", b"9", b"0"), b"WARNING"), ((b"3", b"10", b"-1"), b"WARNING"),
])
def test_kernel_of_red_hat_73(judge, version, status):
    rules = judge("validateLinuxKernelVersion", distribution=RED_HAT_73, patch_level=b"3",
                  kernel_version=version[0], major_version=version[1], minor_version=version[2])
    assert shown(rules)[0] == status


def test_passed_kernel_rule_records_the_version(judge):
    rules = judge("validateLinuxKernelVersion", distribution=SUSE, patch_level=b"1",
                  kernel_version=b"3", major_version=b"12", minor_version=b"074")
    assert rules.record == b"('linuxkernelversion','3-12-074',0,'')"


def test_low_kernel_texts(judge):
    old = {"kernel_version": b"2", "major_version": b"6", "minor_version": b"32"}
    text = (b"Kernelversion is too low and might have bugs related to XFS. \n"
            b"For more details review KOR Note: ")
    suse = judge("validateLinuxKernelVersion", distribution=SUSE, patch_level=b"2", **old)
    assert suse.record == b"('linuxkernelversion','2-6-32',1,'" + text + b"2205917')"
    red_hat = judge("validateLinuxKernelVersion", distribution=RED_HAT_73, patch_level=b"3", **old)
    assert red_hat.record == b"('linuxkernelversion','2-6-32',1,'" + text + b"2292690')"


def test_kernel_rule_on_another_architecture(judge):
    rules = judge("validateLinuxKernelVersion", arch="ppc64le")
    assert rules.record == b"('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')"
    assert shown(rules) == (b"FAILED", b"HIGH", b"Variable ARCHITECTURE not valid.")


# Runtime

SUSE_RUNTIME = (b"Runtime environment is not ready for ZIRN 2.0. \n"
                b"Please see KOR Note 2455582 for more details.")
RED_HAT_RUNTIME = (b"Runtime environment in this distribution is not ready for ZIRN 2.0.\n"
                   b"Please see KOR Note 2455582 for more details.")


@pytest.mark.parametrize("packages, status", [
    (b"libstdc++6-5.3.1+r233831-10.1.x86_64\nlibgcc_s1-6.2.1+r239768-2.4.x86_64\n", b"SUCESS"),
    (b"libstdc++6-6.2.1+r239768-9.1.x86_64\nlibgcc_s1-5.3.1+r233831-110.1\n", b"SUCESS"),
    (b"libstdc++6-5.3.1+r233831-10.1.x86_64\n", b"FAILED"),
    (b"libstdc++6-5.3.1+r233831-9.1\nlibgcc_s1-5.3.1+r233831-10.1\n", b"FAILED"),
    (b"libstdc++6-5.3.1+r233831\nlibgcc_s1-5.3.1+r233831\n", b"FAILED"),
    (b"a-libstdc++6-5.3.1+r233831-10.1.x86_64\nlibgcc_s1-5.3.1+r233831-10.1\n", b"FAILED"),
    (None, b"FAILED"),
])
def test_suse_runtime(judge, packages, status):
    rules = judge("validateRuntime", packages=packages, distribution=SUSE)
    assert shown(rules)[0] == status
    assert rules.record == (b"('runtime','',0,'')" if status == b"SUCESS" else
                            b"('runtime','',4,'" + SUSE_RUNTIME + b"')")


@pytest.mark.parametrize("distribution, packages, status", [
    (RED_HAT_72, b"x\ncompat-kor-c++-6.el7_2.x86_64\n", b"SUCESS"),
    (RED_HAT_72, b"compat-kor-c++-6-6.3.1-1.el7_3.x86_64\n", b"FAILED"),
    (RED_HAT_73, b"compat-kor-c++-6-6.3.1-1.el7_3.x86_64\nglibc-2.17-1.el7\n", b"SUCESS"),
    (RED_HAT_73, b"glibc-2.17-157.el7_3.x86_64\n", b"FAILED"),
    (RED_HAT_73, None, b"FAILED"),
])
def test_red_hat_runtime(judge, distribution, packages, status):
    rules = judge("validateRuntime", packages=packages, distribution=distribution)
    assert shown(rules)[0] == status
    assert rules.record == (b"('runtime','',0,'')" if status == b"SUCESS" else
                            b"('runtime','',4,'" + RED_HAT_RUNTIME + b"')")


def test_unknown_distribution_has_an_empty_runtime_block(judge):
    rules = judge("validateRuntime", distribution=b"Debian")
    assert rules.block == b""
    assert rules.record == b""


def test_runtime_on_another_architecture(judge):
    rules = judge("validateRuntime", arch="not valid", distribution=SUSE)
    assert rules.record == (
        b"('runtime','',5,'Problem in identifying Runtime Environment in OS Distribution.')")


# Processor, clock and hypervisor

def test_tables_are_complete():
    assert len(set(ACCEPTED_PROCESSORS)) == len(ACCEPTED_PROCESSORS) == 38
    assert len(set(CERTIFIED_SERVERS)) == len(CERTIFIED_SERVERS) == 119


@pytest.mark.parametrize("arch, clock, status", [
    ("x86", b"tsc", b"SUCESS"), ("x86", b"hpet", b"WARNING"), ("x86", b"", b"WARNING"),
    ("ppc64le", b"timebase", b"SUCESS"),
])
def test_clock_source(judge, arch, clock, status):
    rules = judge("validateClocksource", arch=arch, clock_info=clock)
    assert shown(rules)[0] == status
    assert rules.record == b"('clocksource','" + clock + (
        b"',0,'')" if status == b"SUCESS" else
        b"',1,'The clocksource can have a significant performance impact.')")


@pytest.mark.parametrize("name, status", [
    (E7_V4, b"SUCESS"), (E7_V4 + b" ", b"FAILED"), (b"Intel(R) Xeon(R) CPU E7- 8870", b"SUCESS"),
    (b"Intel(R) Xeon(R) CPU E7-8870", b"FAILED"), (b"", b"FAILED"),
])
def test_processor_names_are_compared_whole(judge, name, status):
    rules = judge("validateCPU", model_name=name)
    assert shown(rules)[0] == status
    assert rules.record == b"('cpu_name','" + name + (
        b"',0,'')" if status == b"SUCESS" else
        b"',4,'CPU Model is not supported for productive usage')")


def test_family_lets_an_unlisted_name_in_and_the_name_decides_the_ratio(judge):
    family = {"vendor_id": b"GenuineIntel", "cpu_family": b"6", "model": b"79",
              "core_memory_ratio": b"3"}
    name = b"Intel(R) Xeon(R) CPU Unlisted"
    assert shown(judge("validateCPU", model_name=name, **family)) == (b"SUCESS", b"", b"")
    rules = judge("validateCoreMemoryRatio", model_name=name, **family)
    assert rules.record == (b"('corememoryratio','Intel(R) Xeon(R) CPU Unlisted',4,"
                            b"'The system has a non valid \ncore-memory ratio for analytics')")


@pytest.mark.parametrize("facts, expected_record", [
    ({}, b"('hypervisor','',3,'This is not a virtual machine')"),
    ({"hypervisor_vendor": b"XEN"}, b"('hypervisor','',3,'This is not a virtual machine')"),
    ({"hypervisor": b"Xen", "hypervisor_vendor": b"XEN"}, b"('hypervisor','XEN',0,'')"),
    ({"cpu_flags": b"fpu hypervisor", "hypervisor_vendor": b"Microsoft Hv"},
     b"('hypervisor','Microsoft Hv',0,'')"),
    ({"cpu_flags": b"hypervisor"}, b"('hypervisor','',4,'Hypervisor is not supported')"),
    ({"hypervisor": b"KVM", "hypervisor_vendor": b"KVMKVMKVM"},
     b"('hypervisor','KVMKVMKVM',4,'Hypervisor is not supported')"),
])
def test_hypervisor(judge, facts, expected_record):
    assert judge("validateHypervisor", **facts).record == expected_record


@pytest.mark.parametrize("vendor, code", [
    (b"XEN", b"0"), (b"VMwareVMware", b"0"), (b"VmwareVmware", b"0"), (b"Microsoft Hv", b"0"),
    (b"Xen", b"4"), (b"vmwarevmware", b"4"), (b"Microsoft Hv ", b"4"),
])
def test_hypervisor_vendors_are_compared_whole(judge, vendor, code):
    rules = judge("validateHypervisor", hypervisor=b"any", hypervisor_vendor=vendor)
    assert rules.record.startswith(b"('hypervisor','" + vendor + b"'," + code + b",'")


@pytest.mark.parametrize("flags, logical, physical, status", [
    (b"fpu ht sse", b"2", b"2", b"SUCESS"), (b"fpu ht", b"2", b"2", b"FAILED"),
    (b"fpu ht sse", b"2", b"4", b"FAILED"), (b"fpu ht sse", b"", b"", b"SUCESS"),
    (b"", b"", b"", b"FAILED"),
])
def test_threading(judge, flags, logical, physical, status):
    rules = judge("validateHTT", cpu_flags=flags, lp_count=logical, pp_count=physical)
    assert shown(rules)[0] == status
    assert rules.record == (b"('Hyperthreading','',0,'')" if status == b"SUCESS" else
                            b"('Hyperthreading','',4,'Hyperthreading is not enabled')")


def test_threading_in_a_supported_virtual_machine(judge):
    rules = judge("validateHTT", hypervisor=b"Xen", hypervisor_vendor=b"XEN")
    assert rules.record == (
        b"('Hyperthreading','',3,'Check is not applicable when running in a VM. Please see "
        b"KOR Note 1788665 and the IAAS section of the ZIRN Hardware Directory for details.')")


def test_unsupported_virtual_machine_is_judged_like_bare_metal(judge):
    guest = {"hypervisor": b"KVM", "hypervisor_vendor": b"KVMKVMKVM"}
    assert judge("validateHTT", cpu_flags=b"fpu ht hypervisor sse", **guest).record == (
        b"('Hyperthreading','',0,'')")
    assert judge("validateMemory", **guest, **memory(32)).record == b"('memorycheck','',0,'')"


@pytest.mark.parametrize("distribution, level, thp, ending", [
    (SUSE, b"1", b"always madvise [never]", b"0,'')"),
    (SUSE, b"2", b"[always] madvise never", b"KOR Note 2205917')"),
    (SUSE, b"1", b"", b"KOR Note 2205917')"),
    (RED_HAT_72, b"2", b"[always]", b"KOR Note 2292690')"),
    (RED_HAT_73, b"3", b"[always]", b"KOR Note 2292690')"),
])
def test_huge_pages(judge, distribution, level, thp, ending):
    rules = judge("validateTHP", arch="any", distribution=distribution, patch_level=level, thp=thp)
    enabled = (b"4,'Transparent hugepages is enabled, this can lead to a system \n"
               b"stall during memory defragmentation operation. \nFor More details: ")
    assert rules.record == b"('thp','" + thp + b"'," + (
        ending if ending.startswith(b"0") else enabled + ending)


@pytest.mark.parametrize("name, ratio, status", [
    (E7_V4, b"11", b"SUCESS"), (E7_V4, b"12", b"FAILED"), (E7_V4, b"-5", b"SUCESS"),
    (b"Intel(R) Xeon(R) CPU E7- 8870", b"6", b"SUCESS"),
    (b"Intel(R) Xeon(R) CPU E7- 8870", b"7", b"FAILED"),
    (b"Intel(R) Xeon(R) CPU E7-8880 v2", b"8", b"SUCESS"),
    (b"Intel(R) Xeon(R) CPU E7-8880 v2", b"9", b"FAILED"),
    (b"Intel(R) Xeon(R) CPU E7-8880 v3", b"10", b"SUCESS"),
    (b"Intel(R) Xeon(R) CPU E7-8880 v3", b"11", b"FAILED"),
])
def test_ratio_of_e7_generations(judge, name, ratio, status):
    rules = judge("validateCoreMemoryRatio", model_name=name, core_memory_ratio=ratio)
    assert shown(rules)[0] == status
    assert rules.record == b"('corememoryratio','" + ratio + (
        b"',0,'')" if status == b"SUCESS" else
        b"',4,'The system has a non valid \ncore-memory ratio for analytics')")


def test_ratio_of_e5_and_of_a_failed_processor_are_both_skipped(judge):
    text = (b"The core to memory ratio for analytics does not apply for \n"
            b"E5 processors. Please check Note for correct configuration")
    e5 = judge("validateCoreMemoryRatio", model_name=b"Intel(R) Xeon(R) CPU E5-2670 v3")
    assert shown(e5) == (b"SKIPPED", b"", text)
    assert e5.record == b"('corememoryratio','',3,'" + text + b"')"
    failed = judge("validateCoreMemoryRatio", model_name=b"other")
    assert shown(failed) == (b"SKIPPED", b"", NOT_PRODUCTION)
    assert failed.record == (
        b"('corememoryratio','',3,'This configuration can be run only for \n"
        b"non-production systems.\nThis is not supported on production system.')")


def test_ratio_of_platinum_fails_with_the_name(judge):
    rules = judge("validateCoreMemoryRatio", model_name=b"Intel(R) Xeon(R) Platinum 8180 CPU")
    assert rules.record == (b"('corememoryratio','Intel(R) Xeon(R) Platinum 8180 CPU',4,"
                            b"'The system has a non valid \ncore-memory ratio for analytics')")


def test_ratio_in_a_virtual_machine_and_on_another_architecture(judge):
    virtual = {"hypervisor": b"Xen", "hypervisor_vendor": b"XEN", "model_name": E7_V4}
    assert judge("validateCoreMemoryRatio", **virtual).record == (
        b"('corememoryratio','',3,'The core to memory ratio for analytics does not \n"
        b"apply for Virtual environments')")
    # The processor text is asked before the architecture, so code 5 is out of reach.
    assert shown(judge("validateCoreMemoryRatio", arch="ppc64le", **virtual)) == (
        b"SKIPPED", b"", NOT_PRODUCTION)


# Memory

def memory(count, speeds=(b"2133",), size=b"32768", total=None):
    total = count * int(size) if total is None else total
    return {"dimm_sizes": b",".join([size] * count), "dimm_speeds": b",".join(speeds),
            "dimm_count": b"%d" % count, "dimm_size": b"%d" % total}


@pytest.mark.parametrize("facts, expected_record", [
    (memory(32, [b"2133"] * 32), b"('memorycheck','',0,'')"),
    (memory(32, [b"2133", b"1066"]), b"('memorycheck','',0,'')"),
    (memory(32, [b"2133", b"1065"]), b"('invalid modulesspeed count','1',4,'" + MIXED + b"')"),
    (memory(32, [b"0", b"x", b"1066"]), b"('invalid modulesspeed count','2',4,'" + MIXED + b"')"),
    (memory(40), b"('totalmemory','1310720',4,"
                 b"'Total memory size is not an allowed memory configuration')"),
    ({"dimm_sizes": b"8192,16384,8192", "dimm_speeds": b"800"},
     b"('invalid modulesize count','2',4,'" + MIXED + b"')"),
    ({}, b"('invalid modulesize count','0',4,'" + MIXED + b"')"),
    ({"dimm_sizes": b"24576", "dimm_size": b"24576"}, b"('memorycheck','',0,'')"),
])
def test_memory(judge, facts, expected_record):
    assert judge("validateMemory", **facts).record == expected_record


@pytest.mark.parametrize("gigabytes", [24, 48, 64, 128, 192, 256, 320, 384, 512, 1024, 1536, 2048,
                                       3072, 4096, 6144, 9216, 12288])
def test_allowed_totals(judge, gigabytes):
    fits = judge("validateMemory", **memory(2, total=gigabytes * 1024))
    assert fits.record == b"('memorycheck','',0,'')"
    over = judge("validateMemory", **memory(2, total=gigabytes * 1024 + 1))
    assert over.record.startswith(b"('totalmemory','%d',4,'Total" % (gigabytes * 1024 + 1))


def test_slow_modules_have_a_reason_of_their_own(judge):
    rules = judge("validateMemory", **memory(32, [b"1065"]))
    assert shown(rules) == (
        b"FAILED", b"HIGH", b"DIMM speed too slow! This will have impact on memory performance")


def test_memory_of_a_supported_virtual_machine(judge):
    virtual = {"hypervisor": b"Xen", "hypervisor_vendor": b"XEN"}
    text = (b"Memory rules for hypervisor configurations have to follow hypervisor specific "
            b"guidelines. Please see KOR Note 1788665 and the IAAS section of the ZIRN Hardware "
            b"Directory for details.")
    rules = judge("validateMemory", **virtual)
    assert shown(rules) == (b"SKIPPED", b"", text)
    assert rules.record == b"('hypervisormemory','',3,'" + text + b"')"
    assert judge("validateMemoryDistribution", **virtual).record == (
        b"('memorydistribution','',3,"
        b"'Since validate Memory is skipped, memory distribution is not applicable')")


def test_distribution_after_failed_memory(judge):
    expected = (b"('memorydistribution','',3,'Since validateMemory failed and the memory "
                b"distribution is \nnot applicable')")
    assert judge("validateMemoryDistribution").record == expected
    assert judge("validateMemoryDistribution", arch="ppc64le", **memory(32)).record == expected


@pytest.mark.parametrize("nodes, noise_lines, passes", [
    (b"262144,262144,262144,262144", 0, True),
    (b"253952,253952,253952,253953", 0, True),      # 32767 missing, one less than a module
    (b"253952,253952,253952,253952", 0, False),     # a whole module is missing
    (b"300000,300000,300000,300000", 0, True),      # more than the total
    (b"249037,249037,249037,301465", 1, False),
    (b"", 0, False),
    (b"9500,10500", 0, False),                      # both exactly at the limits, too little
    (b"9499,10501", 2, False),
    (b"2147483647,2147483647", 2, False),           # the sum wraps to -2
])
def test_distribution(judge, nodes, noise_lines, passes):
    rules = judge("validateMemoryDistribution", node_sizes=nodes, **memory(32))
    assert rules.noise == b"nodesize is too far from average nodesize\n" * noise_lines
    assert rules.record == (b"('memorydistribution','',0,'')" if passes else
                            b"('memorydistribution','1048576',4,'" + MISSING_MEMORY + b"')")


def test_outliers_are_told_once_in_a_run(tmp_path):
    numactl = b"node 0 size: 16000 MB\nnode 1 size: 8000 MB\n"
    model = Model(good_host(tmp_path, commands={"numactl": numactl}))
    assert model.noise() == b"nodesize is too far from average nodesize\n" * 2
    assert model.action_noise("CHECK_MEMORYDISTRIBUTION") == model.noise()
    assert model.rule("validateMemoryDistribution") == (b"FAILED", b"HIGH", MISSING_MEMORY)


# Frequencies

@pytest.mark.parametrize("facts, expected_record", [
    ({"scaling_governor": b"powersave"}, b"('pstate','powersave',0,'')"),
    ({"cpu_speed": b"2400,1200,2400", "max_freq": b"2400", "scaling_governor": b"g"},
     b"('pstate','g',0,'')"),
    ({"cpu_speed": b"2400", "max_freq": b"2600", "proc_cmdline": b"x max_cstate=1"},
     b"('cstate','x max_cstate=1',0,'')"),
    ({"cpu_speed": b"2400", "max_freq": b"2600", "proc_cmdline": b"max_cstate=10"},
     b"('cstate','max_cstate=10',0,'')"),
    ({"cpu_speed": b"2400", "scaling_driver": b"intel_pstate", "scaling_governor": b"powersave"},
     b"('pstate','0',0,'')"),
    ({"cpu_speed": b"2400", "scaling_driver": b"intel_pstate", "scaling_governor": b"performance"},
     b"('pstate','intel_pstate',0,'')"),
    ({"cpu_speed": b"2400", "scaling_driver": b"intel_pstate", "scaling_governor": b"performance",
      "proc_cmdline": b"max_cstate=0"}, b"('cstate','max_cstate=0',0,'')"),
    ({"cpu_speed": b"2400,0", "scaling_governor": b"g"}, b"('pstate','g',0,'')"),
    ({"cpu_speed": b"2400", "scaling_driver": b"other", "scaling_governor": b"performance"},
     b"('pstate','0',0,'')"),
])
def test_governor(judge, facts, expected_record):
    rules = judge("validateCPUgovernor", arch="any", **facts)
    assert shown(rules) == (b"SUCESS", b"", b"")
    assert rules.record == expected_record


# Server

@pytest.mark.parametrize("product, passes", [
    (b"PowerEdge R920", True), (b"PowerEdge R920 ", False), (b"poweredge r920", False),
    (b"System x3850 X6", True), (b"x3850 X6", True), (b"x3850 X6 -[6241FT3]-", True),
    (b"VMware Virtual Platform", True), (b"7145", True), (b"71455", False), (b"", False),
    (b"Express5800/A1080a [NE3100-xxxx]", True), (b"NX7700x/4012M-4 [NE3400-xxxx]", True),
    (b"738325Z]-", True),
])
def test_server(judge, product, passes):
    rules = judge("validateApplianceSystemType", arch="any", product_name=product)
    text = (product + b" is not a certified ZIRN Server.\n"
            b" Due to new validations, this information can be outdated. \n"
            b" Please look into the KOR ZIRN PAM for more details")
    assert shown(rules) == ((b"SUCESS", b"", b"") if passes else (b"FAILED", b"HIGH", text))
    assert rules.record == b"('appliancetype','" + product + (
        b"',0,'')" if passes else b"',4,'" + text + b"')")
