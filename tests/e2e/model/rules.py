"""The thirteen rules that judge the facts of a host.

A rule that depends on another runs it again and searches its block; so the rules keep nothing
but the record of the one that finished last and what they printed meanwhile.
"""

from . import messages, tables
from .report import FAILED, HIGH, MEDIUM, NOTAPPLICABLE, SUCESS, Outcome, record
from .text import behind, decimal, divide, int32, number, split, split_numbers, trim


def nested_text(block):
    """The part of a block that a depending rule searches."""
    return trim(behind(block, b":"))


def is_allowed_distribution(measured_arch, distribution, patch_level):
    """True if a table row has the three; only the patch level is trimmed."""
    return (measured_arch, distribution, trim(patch_level)) in tables.ALLOWED_DISTRIBUTIONS


class Rules:
    """Runs rules on facts. `record`, `outcome` and `noise` tell what came of it."""

    def __init__(self, facts, arch):
        self._facts = facts
        self._arch = arch
        self.record = b""
        self.outcome = None
        self.noise = b""

    def run(self, name):
        """Runs one rule and returns its block, which may be empty."""
        return getattr(self, "_" + name)()

    def _depend_on(self, name):
        return nested_text(self.run(name))

    def _is_x86(self):
        return "x86" in self._arch

    def _finish(self, outcome, new_record):
        self.outcome = outcome
        self.record = new_record
        return outcome.block()

    def _pass(self, rule, item, value=b""):
        return self._finish(Outcome(rule, SUCESS), record(item, value, 0))

    def _fail(self, rule, item, value, reason, message=None):
        written = record(item, value, 4, reason if message is None else message)
        return self._finish(Outcome(rule, FAILED, HIGH, reason), written)

    def _warn(self, rule, item, value, reason):
        return self._finish(Outcome(rule, FAILED, MEDIUM, reason), record(item, value, 1, reason))

    def _skip(self, rule, item, value, reason, message=None):
        written = record(item, value, 3, reason if message is None else message)
        return self._finish(Outcome(rule, NOTAPPLICABLE, b"", reason), written)

    def _cannot_run(self, rule, reason=messages.ARCHITECTURE, item=b"ARCHITECTURE"):
        return self._finish(Outcome(rule, FAILED, HIGH, reason), record(item, b"", 5, reason))

    # Operating system

    def _validateDistribution(self):
        facts = self._facts
        name, item = "validateDistribution", b"distribution_patchlevel"
        # Measured as x86 whatever the architecture is.
        if is_allowed_distribution(b"x86", facts.distribution, facts.patch_level):
            return self._pass(name, item, facts.patch_level)
        return self._fail(name, item, facts.patch_level, messages.DISTRIBUTION)

    def _validateLinuxKernelVersion(self):
        name, item = "validateLinuxKernelVersion", b"linuxkernelversion"
        distribution = self._depend_on("validateDistribution")
        facts = self._facts
        texts = (facts.kernel_version, facts.major_version, facts.minor_version)
        if not self._is_x86():
            return self._cannot_run(name)
        if SUCESS not in distribution:
            return self._skip(name, item, b"-".join(texts), messages.KERNEL_SKIPPED)
        required, message = self._kernel_threshold()
        # Part by part on purpose: a newer kernel with a small middle number fails.
        if any(number(text) < least for text, least in zip(texts, required)):
            return self._warn(name, item, b"-".join(texts), message)
        return self._pass(name, item, b"-".join(texts))

    def _kernel_threshold(self):
        if self._is_patched_suse_12():
            return (3, 12, 74), messages.KERNEL_SUSE
        if tables.RED_HAT_73 in self._facts.distribution:
            return (3, 10, 0), messages.KERNEL_RED_HAT
        return (9999, 9999, 9999), messages.KERNEL_UNKNOWN

    def _is_patched_suse_12(self):
        level = self._facts.patch_level
        return tables.SUSE_12 in self._facts.distribution and (b"1" in level or b"2" in level)

    def _validateRuntime(self):
        if not self._is_x86():
            return self._cannot_run("validateRuntime", messages.RUNTIME_UNKNOWN, b"runtime")
        block = b""
        if tables.SUSE_12 in self._facts.distribution:
            block = self._judge_runtime(self._has_suse_runtime(), messages.RUNTIME_SUSE)
        for distribution, package in ((tables.RED_HAT_72, tables.COMPAT_RHEL72),
                                      (tables.RED_HAT_73, tables.COMPAT_RHEL73)):
            if distribution in self._facts.distribution:
                found = any(package in line for line in self._facts.installed_packages())
                block = self._judge_runtime(found, messages.RUNTIME_RED_HAT)
        return block

    def _judge_runtime(self, is_ready, message):
        if is_ready:
            return self._pass("validateRuntime", b"runtime")
        return self._fail("validateRuntime", b"runtime", b"", message)

    def _has_suse_runtime(self):
        packages = self._facts.installed_packages()
        return (_has_suse_package(packages, tables.SUSE_LIBSTDCXX)
                and _has_suse_package(packages, tables.SUSE_LIBGCC))

    # Processor, clock and hypervisor

    def _validateClocksource(self):
        name, item, clock = "validateClocksource", b"clocksource", self._facts.clock_info
        expected = b"tsc" if self._is_x86() else b""
        if expected in clock:
            return self._pass(name, item, clock)
        return self._warn(name, item, clock, messages.CLOCK_SOURCE)

    def _validateCPU(self):
        name, item, facts = "validateCPU", b"cpu_name", self._facts
        if not self._is_x86():
            return self._cannot_run(name)
        families = tables.ACCEPTED_FAMILIES.get(facts.vendor_id, {})
        family = families.get(facts.cpu_family, {}).get(facts.model, b"")
        if facts.model_name in tables.ACCEPTED_PROCESSORS or family:
            return self._pass(name, item, facts.model_name)
        return self._fail(name, item, facts.model_name, messages.CPU)

    def _validateHypervisor(self):
        name, item, vendor = "validateHypervisor", b"hypervisor", self._facts.hypervisor_vendor
        if not self._is_x86():
            return self._cannot_run(name)
        if b"hypervisor" not in self._facts.cpu_flags and not self._facts.hypervisor:
            return self._skip(name, item, b"", messages.BARE_METAL)
        if vendor not in tables.ACCEPTED_HYPERVISORS:
            return self._fail(name, item, vendor, messages.HYPERVISOR)
        return self._pass(name, item, vendor)

    def _validateHTT(self):
        name, item, facts = "validateHTT", b"Hyperthreading", self._facts
        if not self._is_x86():
            return self._cannot_run(name)
        if SUCESS in self._depend_on("validateHypervisor"):
            return self._skip(name, item, b"", messages.HTT_VIRTUAL)
        if number(facts.lp_count) == number(facts.pp_count) and b" ht " in facts.cpu_flags:
            return self._pass(name, item)
        return self._fail(name, item, b"", messages.HTT)

    def _validateTHP(self):
        name, item, thp = "validateTHP", b"thp", self._facts.thp
        distribution = self._facts.distribution
        if self._is_patched_suse_12():
            message = messages.THP_SUSE
        elif tables.RED_HAT_72 in distribution or tables.RED_HAT_73 in distribution:
            message = messages.THP_RED_HAT
        else:
            return self._cannot_run(name, messages.UNKNOWN_DISTRIBUTION)
        if b"[never]" in thp:
            return self._pass(name, item, thp)
        return self._fail(name, item, thp, message)

    def _validateCoreMemoryRatio(self):
        name, item = "validateCoreMemoryRatio", b"corememoryratio"
        hypervisor = self._depend_on("validateHypervisor")
        processor = self._depend_on("validateCPU")
        if self._is_x86() and SUCESS in hypervisor:
            return self._skip(name, item, b"", messages.RATIO_VIRTUAL)
        # Asked before the architecture, which is why another architecture ends here.
        if SUCESS not in processor:
            return self._skip(name, item, b"", messages.RATIO_NON_PRODUCTION,
                              messages.RATIO_NON_PRODUCTION_RECORD)
        if not self._is_x86():
            return self._cannot_run(name)
        return self._judge_ratio(name, item)

    def _judge_ratio(self, name, item):
        model = self._facts.model_name
        ratio = number(self._facts.core_memory_ratio)
        if b"E7" in model:
            limits = (limit for word, limit in tables.E7_RATIOS if word in model)
            if any(ratio <= limit for limit in limits):
                return self._pass(name, item, decimal(ratio))
            return self._fail(name, item, decimal(ratio), messages.RATIO)
        if b"E5" in model:
            return self._skip(name, item, b"", messages.RATIO_E5)
        return self._fail(name, item, model, messages.RATIO)

    # Memory

    def _validateMemory(self):
        name, facts = "validateMemory", self._facts
        hypervisor = self._depend_on("validateHypervisor")
        sizes = set(split_numbers(facts.dimm_sizes))
        slow = [speed for speed in split_numbers(facts.dimm_speeds)
                if speed <= tables.HIGHEST_SLOW_SPEED]
        total = number(facts.dimm_size)
        if not self._is_x86():
            return self._cannot_run(name)
        if SUCESS in hypervisor:
            return self._skip(name, b"hypervisormemory", b"", messages.MEMORY_VIRTUAL)
        if len(sizes) != 1:
            return self._fail(name, b"invalid modulesize count", decimal(len(sizes)),
                              messages.MEMORY_MODULES)
        if slow:
            # The record speaks of differing modules here, the reason of slow ones.
            return self._fail(name, b"invalid modulesspeed count", decimal(len(slow)),
                              messages.MEMORY_SPEED, messages.MEMORY_MODULES)
        if total not in tables.ALLOWED_MEMORY_MB:
            return self._fail(name, b"totalmemory", decimal(total), messages.MEMORY_TOTAL)
        return self._pass(name, b"memorycheck")

    def _validateMemoryDistribution(self):
        name, item = "validateMemoryDistribution", b"memorydistribution"
        memory = self._depend_on("validateMemory")
        if b"SKIPPED" in memory:
            return self._skip(name, item, b"", messages.NODES_SKIPPED)
        if FAILED in memory:
            return self._skip(name, item, b"", messages.NODES_FAILED)
        if not self._is_x86():
            return self._cannot_run(name)
        total = number(self._facts.dimm_size)
        average_module = divide(total, number(self._facts.dimm_count))
        nodes = split_numbers(self._facts.node_sizes)
        in_nodes = int32(sum(nodes))
        outliers = self._count_outliers(nodes, in_nodes)
        if average_module > int32(total - in_nodes) and not outliers:
            return self._pass(name, item)
        return self._fail(name, item, self._facts.dimm_size, messages.NODES)

    def _count_outliers(self, nodes, in_nodes):
        if not nodes:
            return 0
        average = float(divide(in_nodes, len(nodes)))
        outliers = sum(not (size >= average * 0.95 and average * 1.05 >= size) for size in nodes)
        self.noise += messages.NODES_OUTLIER * outliers
        return outliers

    # Frequencies and server

    def _validateCPUgovernor(self):
        name, facts = "validateCPUgovernor", self._facts
        speeds = split_numbers(facts.cpu_speed)
        if not speeds or number(facts.max_freq) in speeds:
            return self._pass(name, b"pstate", facts.scaling_governor)
        if b"max_cstate=0" in facts.proc_cmdline or b"max_cstate=1" in facts.proc_cmdline:
            return self._pass(name, b"cstate", facts.proc_cmdline)
        if b"intel_pstate" in facts.scaling_driver and b"performance" in facts.scaling_governor:
            return self._pass(name, b"pstate", facts.scaling_driver)
        # Nothing ever lists a deviating frequency, so no host fails; the value is their count.
        return self._pass(name, b"pstate", b"0")

    def _validateApplianceSystemType(self):
        name, item = "validateApplianceSystemType", b"appliancetype"
        product = self._facts.product_name
        if product in tables.CERTIFIED_SERVERS:
            return self._pass(name, item, product)
        return self._fail(name, item, product, product + messages.SERVER)


def _has_suse_package(packages, words):
    for line in packages:
        if any(word in line for word in words):
            third_field = b"".join(split(line, b"-")[2:3])
            if any(release in third_field for release in tables.SUSE_PACKAGE_RELEASES):
                return True
    return False
