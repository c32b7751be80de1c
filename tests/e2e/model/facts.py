"""The facts of a host and the document made of them.

Each fact lives twice: as an attribute that keeps the last value met and that the rules read, and
as an entry of a group that keeps the first. Both are bytes.
"""

from .tables import DETAILED_KERNELS
from .text import (before, behind, decimal, divide, float32, int32, join_numbers, lines, number,
                   split, strtol, trim)

_CLOCK_SOURCE = b"/sys/devices/system/clocksource/clocksource0/current_clocksource"
_HUGE_PAGES = b"/sys/kernel/mm/transparent_hugepage/enabled"
_FREQUENCIES = b"/sys/devices/system/cpu/cpu0/cpufreq/"

_CPU_KEYS = {
    b"physical id": "physical_id",
    b"processor": "processor",
    b"cpu cores": "cpu_cores",
    b"model name": "model_name",
    b"flags": "cpu_flags",
    b"vendor_id": "vendor_id",
    b"cpu family": "cpu_family",
    b"model": "model",
}

_ATTRIBUTES = """
    distribution version patch_level
    kernel_version major_version minor_version kernel_release
    clock_info thp product_name hypervisor hypervisor_vendor
    cpu_cores cpu_family cpu_speed cpu_flags lp_count model model_name physical_id processor
    socket_count vendor_id cpu_cores_count pp_count core_memory_ratio total_memory
    rpm_compat_list rpm_libgcc_list rpm_libstd_list
    dimm_size dimm_speeds dimm_sizes dimm_count node_sizes
    frequency_list max_freq proc_cmdline scaling_driver scaling_governor
""".split()


def produce_json(groups):
    """The text of a two-level map, in byte order of the names, nothing escaped."""
    text = b"{\n"
    for group_index, name in enumerate(sorted(groups)):
        text += b'   %s"%s" : {\n' % (b"," if group_index else b"", name)
        for index, key in enumerate(sorted(groups[name])):
            text += b'      %s"%s" :"%s"\n' % (b"," if index else b"", key, groups[name][key])
        text += b"   }\n"
    return text + b"}\n"


def _measure(line):
    """The number behind the first blank behind the first colon."""
    return number(behind(behind(line, b":"), b" "))


class FactStore:
    """Gathers the facts of one host; `noise` is what it prints meanwhile."""

    def __init__(self, host):
        self._host = host
        self.groups = {}
        self.noise = b""
        self._current = {}
        self._memory_kb = b""
        for name in _ATTRIBUTES:
            setattr(self, name, b"")

    def arch(self):
        return "x86" if b"x86" in self._host.machine else "not valid"

    def installed_packages(self):
        """Lines of the full package query, asked of the host anew."""
        return lines(self._host.installed_packages())

    def gather(self):
        """Gathers everything and returns the document. A second call adds nothing to groups."""
        if "x86" in self.arch():
            self._gather_system()
            self._gather_clock_source()
            self._gather_processors()
            self._gather_hypervisor()
            self._gather_product()
            self._gather_huge_pages()
            self._gather_runtime()
            self._gather_memory()
            self._gather_nodes()
            self._gather_governor()
        return produce_json(self.groups)

    def _set(self, attribute, key, value):
        setattr(self, attribute, value)
        self._current.setdefault(key, value)

    def _store(self, group):
        self.groups.setdefault(group, dict(self._current))

    def _close(self, group):
        self._store(group)
        self._current.clear()

    def _dump_lines(self):
        path = b"/usr/kor/%s/SYS/global/zdb/install/hwinfo/bios_%s.txt"
        host = self._host
        return host.file_lines(path % (host.variable("KORSYSTEMNAME"), host.variable("HOST")))

    # Operating system

    def _gather_system(self):
        for line in self._host.file_lines(b"/etc/SuSE-release"):
            self._take_suse_line(line)
        for line in self._host.file_lines(b"/etc/redhat-release"):
            if line.startswith(b"Red Hat"):
                self._take_red_hat_line(line)
        self._current.clear()
        self._take_kernel(trim(self._host.release))
        self._close(b"validateLinuxKernelVersion")

    def _take_suse_line(self, line):
        if line.startswith(b"SUSE"):
            self._set("distribution", b"Distribution name", trim(line))
        if line.startswith(b"VERSION"):
            self._set("version", b"Version", trim(behind(line, b"=")))
        if line.startswith(b"PATCHLEVEL"):
            self._set("patch_level", b"Patchlevel", trim(behind(line, b"=")))
            self._store(b"validateDistribution")

    def _take_red_hat_line(self, line):
        self._set("distribution", b"Distribution name", line)
        release = trim(before(line, b"("))
        self._set("version", b"Version", before(release, b"."))
        self._set("patch_level", b"Patchlevel", behind(release, b"."))
        self._store(b"validateDistribution")

    def _take_kernel(self, release):
        if not any(name in self.distribution for name in DETAILED_KERNELS):
            # The attributes stay empty on purpose: only the document shows the release.
            self._current.setdefault(b"kernel version", release)
            return
        pieces = split(release, b"-") + [b"", b""]
        numbers = split(pieces[0], b".") + [b"", b"", b""]
        own_release = split(pieces[1], b".") + [b""]
        self._set("kernel_version", b"kernel version", trim(numbers[0]))
        self._set("major_version", b"major version", trim(numbers[1]))
        self._set("minor_version", b"minor version", trim(numbers[2]))
        self._set("kernel_release", b"kernel release", trim(own_release[0]))

    def _gather_clock_source(self):
        for line in self._host.file_lines(_CLOCK_SOURCE):
            self._set("clock_info", b"clock info", trim(line))
            self._store(b"validateClocksource")
        self._current.clear()

    def _gather_huge_pages(self):
        for line in self._host.file_lines(_HUGE_PAGES):
            self.thp = trim(line)
        self._set("thp", b"thp", self.thp)
        self._close(b"validateTHP")

    def _gather_runtime(self):
        for attribute, key, word in (
                ("rpm_libstd_list", b"rpm libstd list", b"libstd"),
                ("rpm_libgcc_list", b"rpm libgcc list", b"libgcc"),
                ("rpm_compat_list", b"rpm compat-kor list", b"compat-kor")):
            printed = self._host.pipeline("rpm", word)
            # The last character goes, whatever it is; an inner line end becomes a comma.
            self._set(attribute, key, printed[:-1].replace(b"\n", b","))
        self._close(b"validateRuntime")

    # Processors

    def _gather_processors(self):
        physical_ids, speeds = set(), []
        count = self._read_cpuinfo(physical_ids, speeds)
        sockets = decimal(len(physical_ids))
        self._set("socket_count", b"socket count", sockets)
        self._set("lp_count", b"logical processor count", decimal(int32(count)))
        self._set("cpu_speed", b"cpu speed", join_numbers(speeds))
        self._close(b"validateCPU")
        cores = number(self.cpu_cores)
        product = int32(cores * 2 * number(sockets))
        self._set("pp_count", b"physical processor count", decimal(product))
        self._set("cpu_cores_count", b"cpu cores count", decimal(cores))
        self._set("socket_count", b"socket count", sockets)
        self._close(b"validateHTT")
        self._gather_total_memory(int32(count))

    def _read_cpuinfo(self, physical_ids, speeds):
        count = 0
        for line in self._host.file_lines(b"/proc/cpuinfo"):
            key, _, rest = line.partition(b":")
            key = key.rstrip(b" \n\r\t")
            if key == b"cpu MHz":
                speeds.append(number(rest))
            elif key in _CPU_KEYS:
                value = before(rest, b"@") if key == b"model name" else rest
                value = trim(value)
                entry = b"vendor id" if key == b"vendor_id" else key
                self._set(_CPU_KEYS[key], entry, value)
                if key == b"physical id":
                    physical_ids.add(value)
                if key == b"processor":
                    count += 1
        return count

    def _gather_total_memory(self, processor_count):
        for line in self._host.file_lines(b"/proc/meminfo"):
            if b"MemTotal" in line:
                self._memory_kb = before(trim(behind(line, b":")), b" ")
        self._set("total_memory", b"Total Memory", trim(self._memory_kb))
        gib = divide(int32(strtol(self._memory_kb)), 2**20)
        self._set("core_memory_ratio", b"Core Memory Ratio", decimal(_ratio(gib, processor_count)))
        self._close(b"validateCoreMemoryRatio")

    # Platform

    def _gather_hypervisor(self):
        for line in lines(self._host.scanner_output() or b""):
            if b"Hypervisor" in line:
                self.hypervisor = trim(behind(line, b":"))
            if b"Vendor ID" in line:
                self.hypervisor_vendor = trim(behind(line, b":"))
        self._set("hypervisor", b"hypervisor", self.hypervisor)
        self._set("hypervisor_vendor", b"vendor id", self.hypervisor_vendor)
        self._close(b"validateHypervisor")

    def _gather_product(self):
        text = trim(self._host.pipeline("dmidecode", b"Product Name", first_line=True))
        if not text:
            for line in self._dump_lines():
                if line.startswith(b"Product Name"):
                    text = trim(line)
        name = trim(behind(text, b":"))
        if b"-[" in name:
            name = trim(before(name, b"-["))
        self._current.clear()
        self._set("product_name", b"Product Name", name)
        self._close(b"validateApplianceSystemType")

    def _gather_governor(self):
        for line in self._host.file_lines(_FREQUENCIES + b"scaling_max_freq"):
            self._set("max_freq", b"max freq", decimal(divide(number(trim(line)), 1000)))
        for path, attribute, key in (
                (_FREQUENCIES + b"scaling_driver", "scaling_driver", b"scaling driver"),
                (_FREQUENCIES + b"scaling_governor", "scaling_governor", b"scaling governor"),
                (b"/proc/cmdline", "proc_cmdline", b"proc cmdline")):
            for line in self._host.file_lines(path):
                self._set(attribute, key, trim(line))
        frequencies = [number(before(line, b" ")) for line in lines(self._frequency_text())]
        if frequencies:
            self._set("frequency_list", b"dimmfreq list", join_numbers(frequencies))
        self._close(b"validateCPUgovernor")

    def _frequency_text(self):
        printed = self._host.pipeline("dmidecode.frequency", b"MHz")
        if printed:
            return printed
        return b"\n".join(trim(behind(line, b":")) for line in self._dump_lines()
                          if b"Current Speed" in line and b"MHz" in line)

    # Memory

    def _gather_memory(self):
        self._gather_module_sizes()
        self._gather_module_speeds()
        self._current.clear()

    def _gather_module_sizes(self):
        megabytes = self._host.pipeline("dmidecode.type17", b"Size", b"MB")
        gigabytes = self._host.pipeline("dmidecode.type17", b"Size", b"GB")
        if not megabytes and not gigabytes:
            sized = [line for line in self._dump_lines() if b"Size" in line]
            megabytes = b"\n".join(line for line in sized if b"MB" in line)
            # Only a gigabyte line is dropped for naming a range.
            gigabytes = b"\n".join(line for line in sized
                                   if b"GB" in line and b"Range" not in line)
        sizes = [_measure(line) for line in lines(megabytes)]
        sizes += [int32(_measure(line) << 10) for line in lines(gigabytes)]
        self._current.clear()
        if sizes:
            self._set("dimm_sizes", b"dimmsize list items", join_numbers(sizes))
        self._set("dimm_count", b"dimmsize list length", decimal(len(sizes)))
        self._set("dimm_size", b"dimmSize", decimal(int32(sum(sizes))))

    def _gather_module_speeds(self):
        physical, configured = [], []
        for line in lines(self._host.pipeline("dmidecode.type17", b"Speed")):
            if not _take_speed(line, physical, configured):
                self.noise += b"Speed not found in dmidecode\n"
        if not physical and not configured:
            for line in self._dump_lines():
                foreign = b"Max Speed" in line or b"Current Speed" in line
                if b"Configured Clock Speed" in line or not foreign:
                    _take_speed(line, physical, configured)
        if physical:
            self._set("dimm_speeds", b"dimmSpeedphysical", join_numbers(physical))
        self._store(b"validateMemory")

    def _gather_nodes(self):
        sizes = [_measure(line)
                 for line in lines(self._host.pipeline("numactl", b"size", b"MB"))]
        if sizes:
            self.node_sizes = join_numbers(sizes)
        self._set("node_sizes", b"nodesize list items", self.node_sizes)
        self._close(b"validateMemoryDistribution")


def _take_speed(line, physical, configured):
    """Files the speed of a line, if it has one; false if the line is about no speed at all."""
    if b"Configured Clock Speed" in line:
        target = configured
    elif b"Speed" in line:
        target = physical
    else:
        return False
    if b"MHz" in line:
        target.append(_measure(line))
    return True


def _ratio(gib, processor_count):
    if processor_count == 0:
        # What a conversion of no finite number gives on the machines this runs on.
        return -(2**31)
    return int32(int(float32(float32(gib) / float32(processor_count))))
