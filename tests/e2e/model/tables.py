"""The fixed data of the rules: accepted names, limits and messages."""

SUSE_12 = b"SUSE Linux Enterprise Server 12"
RED_HAT_72 = b"Red Hat Enterprise Linux Server release 7.2 (Maipo)"
RED_HAT_73 = b"Red Hat Enterprise Linux Server release 7.3 (Maipo)"

# Distributions whose kernel release is taken apart; on others only the document shows it.
DETAILED_KERNELS = (SUSE_12 + b" (ppc64le)", SUSE_12, RED_HAT_72, RED_HAT_73)

# Architecture word, distribution line, patch level.
ALLOWED_DISTRIBUTIONS = (
    (b"ppc64le", SUSE_12 + b" (ppc64le)", b"1"),
    (b"ppc64le", SUSE_12 + b" (ppc64le)", b"2"),
    (b"ppc64le", RED_HAT_73, b"3"),
    (b"x86", RED_HAT_72, b"2"),
    (b"x86", RED_HAT_73, b"3"),
    (b"x86", SUSE_12 + b" (x86_64)", b"1"),
    (b"x86", SUSE_12 + b" (x86_64)", b"2"),
)

COMPAT_RHEL72 = b"compat-kor-c++-6.el7_2.x86_64"
COMPAT_RHEL73 = b"compat-kor-c++-6-6.3.1-1.el7_3.x86_64"
SUSE_LIBSTDCXX = (b"libstdc++6-5.3.1+r233831", b"libstdc++6-6.2.1+r239768")
SUSE_LIBGCC = (b"libgcc_s1-5.3.1+r233831", b"libgcc_s1-6.2.1+r239768")
SUSE_PACKAGE_RELEASES = (b"10.1", b"9.1.x86_64", b"2.4.x86_64")

ACCEPTED_FAMILIES = {b"GenuineIntel": {b"6": {b"79": b"Broadwell-EP/EX"}}}
ACCEPTED_HYPERVISORS = (b"XEN", b"VMwareVMware", b"VmwareVmware", b"Microsoft Hv")

# Word that the model name must hold as well, highest ratio.
E7_RATIOS = ((b"", 6.4), (b"v2", 8.54), (b"v3", 10.67), (b"v4", 11.6))

ALLOWED_MEMORY_MB = (
    24576, 49152, 65536, 131072, 196608, 262144, 327680, 393216, 524288, 1048576, 1572864,
    2097152, 3145728, 4194304, 6291456, 9437184, 12582912,
)
HIGHEST_SLOW_SPEED = 1065

# Front-end action, rule.
ACTIONS = {
    "CHECK_APPLIANCETYPE": "validateApplianceSystemType",
    "CHECK_CLOCKSOURCE": "validateClocksource",
    "CHECK_COREMEMORYRATIO": "validateCoreMemoryRatio",
    "CHECK_CPU": "validateCPU",
    "CHECK_CPUGOVERNOR": "validateCPUgovernor",
    "CHECK_DISTRIBUTION": "validateDistribution",
    "CHECK_HTT": "validateHTT",
    "CHECK_HYPERVISOR": "validateHypervisor",
    "CHECK_MEMORY": "validateMemory",
    "CHECK_MEMORYDISTRIBUTION": "validateMemoryDistribution",
    "CHECK_THP": "validateTHP",
}
UNKNOWN_ACTION = b'Please check the usage of vetraApi using "./vetraApi -h"'

# In the order of the report.
RULES = (
    "validateDistribution",
    "validateLinuxKernelVersion",
    "validateClocksource",
    "validateCPU",
    "validateHypervisor",
    "validateHTT",
    "validateApplianceSystemType",
    "validateTHP",
    "validateRuntime",
    "validateMemory",
    "validateMemoryDistribution",
    "validateCoreMemoryRatio",
    "validateCPUgovernor",
)

CERTIFIED_SERVERS = (
    b"Express5800/A1080a [NE3100-xxxx]", b"Express5800/A1040a [NE3100-xxxx]",
    b"BladeSymphony E57A2", b"7143", b"7147", b"7145", b"7148", b"7383", b"7914", b"7915",
    b"5460", b"3837", b"ProLiant DL580 Gen8", b"ProLiant DL580 Gen9", b"PowerEdge R920",
    b"PowerEdge R930", b"ProLiant ML350p Gen8", b"Compute Blade 2000 X57A2",
    b"Compute Blade E57A2", b"Lenovo WQ R680 G7", b"PowerEdge R620", b"PowerEdge T620",
    b"PRIMERGY RX600 S5", b"PRIMERGY RX900 S1", b"738325Z]-", b"PRIMERGY RX900 S2",
    b"PRIMERGY RX600 S6", b"PRIMERGY RX300 S6", b"PRIMERGY RX350 S7", b"PRIMERGY TX300 S6",
    b"PRIMERGY TX300 S7", b"ProLiant DL980 G7", b"ProLiant DL580 G7", b"ProLiant BL680c G7",
    b"UCSC-BASE-M2-C460", b"C260-BASE-2646", b"B440-BASE-M2", b"Compute Blade 520XB1",
    b"R460-4640810", b"CH242 V3 8HDD", b"PowerEdge R910", b"-[7145]-", b"System x3850 X6",
    b"System x3950 X6", b"x3950 X6", b"x3850 X6", b"System x3690 X5", b"System x3650 M4",
    b"System x3550 M4", b"IBM System x3550 M4", b"System x3500 M4", b"System x3850 X5",
    b"System x3850 X5 / x3950 X5", b"Tecal RH5885 V2", b"Tecal RH5885 V3",
    b"VMware Virtual Platform", b"System x3950 X5", b"PRIMEQUEST 2400S", b"PRIMEQUEST 2400E",
    b"PRIMEQUEST 2400L", b"PRIMEQUEST 2800B", b"PRIMEQUEST 2800E", b"PRIMEQUEST 2800E2",
    b"PRIMEQUEST 2800L", b"bullion S", b"Cisco C880 M4", b"Compute Blade 520XB2",
    b"Flex System x880 X6 Compute Node -[7903FT6]-", b"NX7700x/A2010M-60 [NE3400-001Y]",
    b"PRIMERGY RX4770 M1", b"PRIMERGY RX4770 M2", b"RH8100 V3", b"Superdome2 16s",
    b"Superdome2 16s x86", b"System x3950 X6 -[3837AC4]-", b"Tecal RH5885H V3", b"RH5885H V3",
    b"UCSB-EX-M4-1", b"UCSC-C460-M4", b"UV300", b"3590R G3", b"Compute Blade 520XB3",
    b"UCSB-EX-M4-2", b"UCSB-EX-M4-3", b"9008", b"9016", b"x3950 X6 -[6241AC1]-",
    b"x3850 X6 -[6241FT3]-", b"ProLiant DL360 Gen9", b"RH2288H V3", b"PRIMEQUEST 2800B2",
    b"PRIMERGY RX350 S8", b"PRIMERGY TX300 S8", b"RH2288H V2-8S", b"CH242 V3 DDR4", b"SR950",
    b"UCSC-C480-IO", b"PowerEdge R940", b"PowerEdge R740xd", b"UCSC-C480-M5", b"PRIMEQUEST 3800B",
    b"PowerEdge R630", b"PowerEdge T630", b"PowerEdge R730", b"PowerEdge R730xd",
    b"PRIMERGY RX2540 M2", b"PRIMERGY RX2560 M2", b"PRIMERGY TX2560 M2", b"ProLiant DL560 Gen10",
    b"NF8460M4", b"NF8480M4", b"TS860G3", b"TS860", b"Express5800/A2040b [NE3400-xxxx]",
    b"NX7700x/A2010M-60 [NE3400-xxxx]", b"Express5800/A2040c [NE3400-xxxx]",
    b"NX7700x/3012M-4 [NE3400-xxxx]", b"Express5800/A2040d [NE3400-xxxx]",
    b"NX7700x/4012M-4 [NE3400-xxxx]",
)

ACCEPTED_PROCESSORS = (
    b"Intel(R) Xeon(R) CPU E7- 8870",
    b"Intel(R) Xeon(R) CPU E7- 4870",
    b"Intel(R) Xeon(R) CPU E7- 2870",
    b"Intel(R) Xeon(R) CPU E7-8880 v2",
    b"Intel(R) Xeon(R) CPU E7-4880 v2",
    b"Intel(R) Xeon(R) CPU E7-2880 v2",
    b"Intel(R) Xeon(R) CPU E7-8890 v2",
    b"Intel(R) Xeon(R) CPU E7-4890 v2",
    b"Intel(R) Xeon(R) CPU E7-2890 v2",
    b"Intel(R) Xeon(R) CPU E7-8890 v3",
    b"Intel(R) Xeon(R) CPU E7-8880 v3",
    b"Intel(R) Xeon(R) CPU E7-4890 v3",
    b"Intel(R) Xeon(R) CPU E7-2890 v3",
    b"Intel(R) Xeon(R) CPU E7-4880 v3",
    b"Intel(R) Xeon(R) CPU E7-2880 v3",
    b"Intel(R) Xeon(R) CPU E5-2670 v3",
    b"Intel(R) Xeon(R) CPU E5-2680 v3",
    b"Intel(R) Xeon(R) CPU E5-2687 v3",
    b"Intel(R) Xeon(R) CPU E5-2690 v3",
    b"Intel(R) Xeon(R) CPU E5-2699 v3",
    b"Intel(R) Xeon(R) CPU E5-2670 v2",
    b"Intel(R) Xeon(R) CPU E5-2680 v2",
    b"Intel(R) Xeon(R) CPU E5-2687 v2",
    b"Intel(R) Xeon(R) CPU E5-2690 v2",
    b"Intel(R) Xeon(R) CPU E7-8880 v4",
    b"Intel(R) Xeon(R) CPU E7-8890 v4",
    b"Intel(R) Xeon(R) CPU E5-2665 v2",
    b"Intel(R) Xeon(R) CPU E5-2665 v3",
    b"Intel(R) Xeon(R) CPU E5-2665 v4",
    b"Intel(R) Xeon(R) CPU E5-2687W v3",
    b"Intel(R) Xeon(R) CPU E5-2697 v3",
    b"Intel(R) Xeon(R) X7560",
    b"Intel(R) Xeon(R) CPU E7-8880L v3",
    b"Intel(R) Xeon(R) CPU E7-8894 v4",
    b"Intel(R) Xeon(R) Platinum 8176 CPU",
    b"Intel(R) Xeon(R) Platinum 8176M CPU",
    b"Intel(R) Xeon(R) Platinum 8180 CPU",
    b"Intel(R) Xeon(R) Platinum 8180M CPU",
)
