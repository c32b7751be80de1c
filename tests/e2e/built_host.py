"""Builds small host directories for the tests of the model."""

import json

SUSE_12_SP1 = b"SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\nPATCHLEVEL = 1\n"

GOOD_FILES = {
    "/etc/SuSE-release": SUSE_12_SP1,
    "/proc/cpuinfo": b"processor\t: 0\n"
                     b"vendor_id\t: GenuineIntel\n"
                     b"cpu family\t: 6\n"
                     b"model\t\t: 79\n"
                     b"model name\t: Intel(R) Xeon(R) CPU E7-8890 v4 @ 2.20GHz\n"
                     b"cpu MHz\t\t: 2200.125\n"
                     b"physical id\t: 0\n"
                     b"cpu cores\t: 1\n"
                     b"flags\t\t: fpu ht sse\n"
                     b"\n"
                     b"processor\t: 1\n"
                     b"vendor_id\t: GenuineIntel\n"
                     b"cpu family\t: 6\n"
                     b"model\t\t: 79\n"
                     b"model name\t: Intel(R) Xeon(R) CPU E7-8890 v4 @ 2.20GHz\n"
                     b"cpu MHz\t\t: 1200.000\n"
                     b"physical id\t: 0\n"
                     b"cpu cores\t: 1\n"
                     b"flags\t\t: fpu ht sse\n"
                     b"\n",
    "/proc/meminfo": b"MemTotal:       24000000 kB\nMemFree:         1000000 kB\n",
    "/proc/cmdline": b"root=/dev/sda1 quiet\n",
    "/sys/devices/system/clocksource/clocksource0/current_clocksource": b"tsc\n",
    "/sys/kernel/mm/transparent_hugepage/enabled": b"always madvise [never]\n",
    "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq": b"2200000\n",
    "/sys/devices/system/cpu/cpu0/cpufreq/scaling_driver": b"intel_pstate\n",
    "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor": b"performance\n",
}

GOOD_COMMANDS = {
    "rpm": b"libstdc++6-5.3.1+r233831-10.1.x86_64\nlibgcc_s1-5.3.1+r233831-10.1.x86_64\n",
    "numactl": b"available: 1 nodes (0)\n"
               b"node 0 cpus: 0 1\n"
               b"node 0 size: 24000 MB\n"
               b"node 0 free: 900 MB\n",
    "dmidecode": b"System Information\n\tManufacturer: Somebody\n\tProduct Name: PowerEdge R930\n",
    "dmidecode.type17": b"Memory Device\n\tSize: 24 GB\n\tSpeed: 2133 MHz\n",
    "dmidecode.frequency": b"2200 MHz\n",
}


def build_host(directory, files=None, commands=None, scanner=None, machine="x86_64",
               release="3.12.74-60.64.40-default", environment=None):
    """Writes a host directory and returns it. Whatever is not given does not exist."""
    environment = {"HOST": "zirn01"} if environment is None else environment
    described = {"machine": machine, "release": release, "environment": environment}
    (directory / "host.json").write_text(json.dumps(described))
    for path, content in (files or {}).items():
        _write(directory / "root" / path.lstrip("/"), content)
    for name, content in (commands or {}).items():
        _write(directory / "commands" / (name + ".txt"), content)
    if scanner is not None:
        _write(directory / "scanner.txt", scanner)
    return directory


def good_host(directory, files=None, commands=None, **others):
    """A host that meets every rule, with some files and commands replaced, or removed by None."""
    return build_host(directory, _merged(GOOD_FILES, files), _merged(GOOD_COMMANDS, commands),
                      **others)


def _merged(usual, changed):
    together = {**usual, **(changed or {})}
    return {name: content for name, content in together.items() if content is not None}


def _write(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)
