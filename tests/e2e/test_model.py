"""Checks the model's facts and texts against bytes typed by hand.

The model judges the program, so nothing may judge the model but texts that a person wrote.
"""

import pytest

from built_host import build_host, good_host
from model import Model

DUMP = "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_zirn01.txt"
DUMP_ENVIRONMENT = {"HOST": "zirn01", "KORSYSTEMNAME": "K01"}
CPUINFO = "/proc/cpuinfo"


def document_of(tmp_path, **parts):
    return Model(build_host(tmp_path, **parts)).document()


# The document

GOOD_DOCUMENT = b"""{
   "validateApplianceSystemType" : {
      "Product Name" :"PowerEdge R930"
   }
   ,"validateCPU" : {
      "cpu cores" :"1"
      ,"cpu family" :"6"
      ,"cpu speed" :"2200,1200"
      ,"flags" :"fpu ht sse"
      ,"logical processor count" :"2"
      ,"model" :"79"
      ,"model name" :"Intel(R) Xeon(R) CPU E7-8890 v4"
      ,"physical id" :"0"
      ,"processor" :"0"
      ,"socket count" :"1"
      ,"vendor id" :"GenuineIntel"
   }
   ,"validateCPUgovernor" : {
      "dimmfreq list" :"2200"
      ,"max freq" :"2200"
      ,"proc cmdline" :"root=/dev/sda1 quiet"
      ,"scaling driver" :"intel_pstate"
      ,"scaling governor" :"performance"
   }
   ,"validateClocksource" : {
      "clock info" :"tsc"
   }
   ,"validateCoreMemoryRatio" : {
      "Core Memory Ratio" :"11"
      ,"Total Memory" :"24000000"
   }
   ,"validateDistribution" : {
      "Distribution name" :"SUSE Linux Enterprise Server 12 (x86_64)"
      ,"Patchlevel" :"1"
      ,"Version" :"12"
   }
   ,"validateHTT" : {
      "cpu cores count" :"1"
      ,"physical processor count" :"2"
      ,"socket count" :"1"
   }
   ,"validateHypervisor" : {
      "hypervisor" :""
      ,"vendor id" :""
   }
   ,"validateLinuxKernelVersion" : {
      "kernel release" :"60"
      ,"kernel version" :"3"
      ,"major version" :"12"
      ,"minor version" :"74"
   }
   ,"validateMemory" : {
      "dimmSize" :"24576"
      ,"dimmSpeedphysical" :"2133"
      ,"dimmsize list items" :"24576"
      ,"dimmsize list length" :"1"
   }
   ,"validateMemoryDistribution" : {
      "nodesize list items" :"24000"
   }
   ,"validateRuntime" : {
      "rpm compat-kor list" :""
      ,"rpm libgcc list" :"libgcc_s1-5.3.1+r233831-10.1.x86_64"
      ,"rpm libstd list" :"libstdc++6-5.3.1+r233831-10.1.x86_64"
   }
   ,"validateTHP" : {
      "thp" :"always madvise [never]"
   }
}
"""


def test_good_host_document(tmp_path):
    assert Model(good_host(tmp_path)).document() == GOOD_DOCUMENT


EMPTY_DOCUMENT = b"""{
   "validateApplianceSystemType" : {
      "Product Name" :""
   }
   ,"validateCPU" : {
      "cpu speed" :""
      ,"logical processor count" :"0"
      ,"socket count" :"0"
   }
   ,"validateCPUgovernor" : {
   }
   ,"validateCoreMemoryRatio" : {
      "Core Memory Ratio" :"-2147483648"
      ,"Total Memory" :""
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
      "dimmSize" :"0"
      ,"dimmsize list length" :"0"
   }
   ,"validateMemoryDistribution" : {
      "nodesize list items" :""
   }
   ,"validateRuntime" : {
      "rpm compat-kor list" :""
      ,"rpm libgcc list" :""
      ,"rpm libstd list" :""
   }
   ,"validateTHP" : {
      "thp" :""
   }
}
"""


def test_host_without_any_source_document(tmp_path):
    assert document_of(tmp_path) == EMPTY_DOCUMENT


def test_other_architecture_gathers_nothing(tmp_path):
    model = Model(good_host(tmp_path, machine="ppc64le"))
    assert model.arch() == "not valid"
    assert model.document() == b"{\n}\n"
    assert model.report() == b""
    assert model.noise() == b""
    assert model.run_status() == -1
    assert model.check_action("CHECK_CPU") == (
        b"('ARCHITECTURE','',5,'Variable ARCHITECTURE not valid.')")


def test_longer_machine_names_count_as_x86(tmp_path):
    model = Model(good_host(tmp_path, machine="my_x86_128"))
    assert model.arch() == "x86"
    assert model.run_status() == 0


def test_quotation_marks_pass_into_the_document(tmp_path):
    text = document_of(tmp_path, files={"/proc/cmdline": b'root=LABEL="a b" x=\'y\'\n'})
    assert b'      "proc cmdline" :"root=LABEL="a b" x=\'y\'"\n' in text


def test_lines_of_files_are_trimmed(tmp_path):
    text = document_of(tmp_path, files={
        "/etc/SuSE-release": b"SUSE Linux \r\nVERSION =\t7 \r\nPATCHLEVEL\t= 9\t\r\n",
        "/proc/cmdline": b"\t quiet \n",
        "/sys/devices/system/clocksource/clocksource0/current_clocksource": b" tsc \n"})
    assert b'"proc cmdline" :"quiet"\n' in text
    assert b'"clock info" :"tsc"\n' in text
    assert (b'      "Distribution name" :"SUSE Linux"\n'
            b'      ,"Patchlevel" :"9"\n'
            b'      ,"Version" :"7"\n') in text


def test_any_byte_passes_into_the_document(tmp_path):
    text = document_of(tmp_path, files={"/proc/cmdline": b"a\0\xff\\b\n"})
    assert b'"proc cmdline" :"a\0\xff\\b"\n' in text


# Processors

def test_virtual_machine_without_physical_ids_has_no_sockets(tmp_path):
    cpuinfo = b"processor : 0\ncpu cores : 4\nprocessor : 1\ncpu cores : 4\n"
    text = document_of(tmp_path, files={CPUINFO: cpuinfo})
    assert (b'   ,"validateHTT" : {\n'
            b'      "cpu cores count" :"4"\n'
            b'      ,"physical processor count" :"0"\n'
            b'      ,"socket count" :"0"\n') in text


def test_no_cores_line_makes_the_product_zero(tmp_path):
    text = document_of(tmp_path, files={CPUINFO: b"processor : 0\nphysical id : 0\n"})
    assert b'"physical processor count" :"0"\n      ,"socket count" :"1"\n' in text


def test_product_of_cores_wraps_in_32_bits(tmp_path):
    cpuinfo = b"physical id : 0\ncpu cores : 1073741824\n"
    text = document_of(tmp_path, files={CPUINFO: cpuinfo})
    assert b'"physical processor count" :"-2147483648"\n' in text


def test_document_keeps_the_first_and_the_rules_see_the_last_model(tmp_path):
    cpuinfo = (b"processor\t: 7\nmodel name\t: first\n"
               b"processor\t: 9\nmodel name\t: Intel(R) Xeon(R) Platinum 8180 CPU @ 2.50GHz\n")
    model = Model(build_host(tmp_path, files={CPUINFO: cpuinfo}))
    assert b'"model name" :"first"\n      ,"processor" :"7"\n' in model.document()
    assert model.records()["CHECK_CPU"] == b"('cpu_name','Intel(R) Xeon(R) Platinum 8180 CPU',0,'')"


def test_keys_are_compared_whole_and_stripped_on_the_right_only(tmp_path):
    cpuinfo = b" model : 1\nmodels : 2\nmodel\f: 3\nmodel \t: 4\nflags\nvendor_id: a: b \n"
    text = document_of(tmp_path, files={CPUINFO: cpuinfo})
    assert (b'      "cpu speed" :""\n'
            b'      ,"flags" :""\n'
            b'      ,"logical processor count" :"0"\n'
            b'      ,"model" :"4"\n'
            b'      ,"socket count" :"0"\n'
            b'      ,"vendor id" :"a: b"\n') in text


def test_speeds_are_whole_numbers_in_the_order_of_the_file(tmp_path):
    cpuinfo = b"cpu MHz\t: 2593.9\ncpu MHz\t: 1200.0\ncpu MHz\ncpu MHz\t: 2593.1"
    text = document_of(tmp_path, files={CPUINFO: cpuinfo})
    assert b'"cpu speed" :"2593,1200,0,2593"\n' in text


@pytest.mark.parametrize("kilobytes, processors, expected", [
    (b"267386880", 32, b"7"),          # 255 GiB
    (b"268435455", 36, b"7"),          # a little less than 256 GiB
    (b"2147483648", 16, b"-128"),      # 2 TiB wrap to -2048 GiB
    (b"4294967296", 16, b"0"),         # 4 TiB
    (b"1048576", 0, b"-2147483648"),
    (b"9" * 30, 1, b"0"),              # saturates to -1 kB
])
def test_ratio_is_truncated_twice_and_wraps(tmp_path, kilobytes, processors, expected):
    text = document_of(tmp_path, files={
        CPUINFO: b"processor : 0\n" * processors,
        "/proc/meminfo": b"MemFree: 1 kB\nMemTotal:\t " + kilobytes + b" kB\n"})
    assert (b'      "Core Memory Ratio" :"' + expected + b'"\n'
            b'      ,"Total Memory" :"' + kilobytes + b'"\n') in text


# Memory

def memory_group(*entries):
    return b'   ,"validateMemory" : {\n' + b"".join(entries) + b"   }\n"


def test_megabyte_modules_come_first(tmp_path):
    text = document_of(tmp_path, commands={
        "dmidecode.type17": b"\tSize: 32 GB\n\tSize: 16384 MB\n\tSize: No Module Installed\n"})
    assert memory_group(b'      "dimmSize" :"49152"\n',
                        b'      ,"dimmsize list items" :"16384,32768"\n',
                        b'      ,"dimmsize list length" :"2"\n') in text


def test_empty_slot_is_no_module(tmp_path):
    text = document_of(tmp_path, commands={
        "dmidecode.type17": b"\tSize: 8 GB\n\tSize: No Module Installed\n"})
    assert memory_group(b'      "dimmSize" :"8192"\n',
                        b'      ,"dimmsize list items" :"8192"\n',
                        b'      ,"dimmsize list length" :"1"\n') in text


def test_newer_output_counts_modules_twice_and_knows_no_speed(tmp_path):
    text = document_of(tmp_path, commands={
        "dmidecode.type17": b"\tSize: 32 GB\n\tSpeed: 2933 MT/s\n"
                            b"\tConfigured Memory Speed: 2666 MT/s\n"
                            b"\tVolatile Size: 32 GB\n\tCache Size: None\n"})
    assert memory_group(b'      "dimmSize" :"65536"\n',
                        b'      ,"dimmsize list items" :"32768,32768"\n',
                        b'      ,"dimmsize list length" :"2"\n') in text


def test_gigabytes_are_shifted_in_32_bits(tmp_path):
    text = document_of(tmp_path, commands={
        "dmidecode.type17": b"\tSize: 2097152 GB\n\tSize: 2147483647 MB\n"})
    assert memory_group(b'      "dimmSize" :"-1"\n',
                        b'      ,"dimmsize list items" :"2147483647,-2147483648"\n',
                        b'      ,"dimmsize list length" :"2"\n') in text


def test_sizes_and_their_sum_are_numbers_of_32_bits(tmp_path):
    text = document_of(tmp_path, commands={
        "dmidecode.type17": b"\tSize: 2147483647 MB\n\tSize: 4294967298 MB\n\tSize: MB\n"})
    assert memory_group(b'      "dimmSize" :"-2147483647"\n',
                        b'      ,"dimmsize list items" :"2147483647,2,0"\n',
                        b'      ,"dimmsize list length" :"3"\n') in text


def test_dump_drops_ranges_of_gigabyte_lines_only(tmp_path):
    dump = (b"  Size: 4 GB\n  Range Size: 16 GB\n  Range Size: 512 MB\n"
            b"  Size: 2 MB (GB)\n  Speed: 1600 MHz\n")
    text = document_of(tmp_path, files={DUMP: dump}, environment=DUMP_ENVIRONMENT)
    assert memory_group(b'      "dimmSize" :"6658"\n',
                        b'      ,"dimmSpeedphysical" :"1600"\n',
                        b'      ,"dimmsize list items" :"512,2,4096,2048"\n',
                        b'      ,"dimmsize list length" :"4"\n') in text


def test_dump_is_not_asked_while_the_command_names_a_size(tmp_path):
    text = document_of(tmp_path, files={DUMP: b"Size: 4 GB\n"}, environment=DUMP_ENVIRONMENT,
                       commands={"dmidecode.type17": b"\tSize: 16 MB\n"})
    assert b'"dimmsize list items" :"16"\n' in text


def test_dump_is_found_without_a_host_name(tmp_path):
    path = "/usr/kor/SYS/global/zdb/install/hwinfo/bios_.txt"
    text = document_of(tmp_path, files={path: b"Product Name: SR950\n"}, environment={})
    assert b'"Product Name" :"SR950"\n' in text


def test_configured_speed_is_not_stored(tmp_path):
    text = document_of(tmp_path, commands={
        "dmidecode.type17": b"\tSpeed: 2133 MHz\n\tConfigured Clock Speed: 1866 MHz\n"})
    assert b'"dimmSpeedphysical" :"2133"\n' in text


def test_configured_speed_alone_still_prevents_the_fallback(tmp_path):
    text = document_of(tmp_path, files={DUMP: b"Speed: 1600 MHz\n"}, environment=DUMP_ENVIRONMENT,
                       commands={"dmidecode.type17": b"\tConfigured Clock Speed: 1866 MHz\n"})
    assert b"dimmSpeedphysical" not in text


def test_dump_speeds_leave_out_those_of_processors(tmp_path):
    dump = (b"Max Speed: 4000 MHz\nCurrent Speed: 2600 MHz\nCurrent Speed:\t2500 MHz\n"
            b"Speed: 1333 MHz\nSpeed: Unknown\nConfigured Clock Speed: 106 MHz\nSpeed:\t1600 MHz\n")
    text = document_of(tmp_path, files={DUMP: dump}, environment=DUMP_ENVIRONMENT)
    assert b'"dimmSpeedphysical" :"1333,0"\n' in text
    assert b'"dimmfreq list" :"2600,2500"\n' in text


def test_configured_speed_of_the_dump_is_not_stored(tmp_path):
    dump = b"Configured Clock Speed (Max Speed): 1066 MHz\n"
    text = document_of(tmp_path, files={DUMP: dump}, environment=DUMP_ENVIRONMENT)
    assert b"dimmSpeedphysical" not in text


def test_diagnostic_of_grep_is_no_speed(tmp_path):
    model = Model(build_host(tmp_path, files={DUMP: b"Speed: 1333 MHz\n"},
                             environment=DUMP_ENVIRONMENT,
                             commands={"dmidecode.type17": b"\tSpeed: 2133 MHz\0\n"}))
    assert model.noise() == b"Speed not found in dmidecode\n"
    assert b'"dimmSpeedphysical" :"1333"\n' in model.document()


def test_numa_nodes_in_their_order(tmp_path):
    numactl = b"available: 4 nodes (0-3)\n" + b"".join(
        b"node %d cpus: %d\nnode %d size: 65536 MB\nnode %d free: 1 MB\n" % (n, n, n, n)
        for n in range(4))
    text = document_of(tmp_path, commands={"numactl": numactl})
    assert b'"nodesize list items" :"65536,65536,65536,65536"\n' in text


# Operating system and platform

def test_suse_11_shows_the_whole_kernel_release_in_the_document_only(tmp_path):
    release = b"SUSE Linux Enterprise Server 11 (x86_64)\nVERSION = 11\nPATCHLEVEL = 4\n"
    model = Model(build_host(tmp_path, files={"/etc/SuSE-release": release},
                             release=" 3.0.101-63-default "))
    assert (b'   ,"validateLinuxKernelVersion" : {\n'
            b'      "kernel version" :"3.0.101-63-default"\n   }\n') in model.document()
    assert model.rule("validateLinuxKernelVersion") == (
        b"SKIPPED", b"", b"validateDistribution is a failure")


def test_kernel_release_is_split_at_its_marks(tmp_path):
    model = Model(good_host(tmp_path, release="4.4.21-69-default"))
    assert (b'      "kernel release" :"69"\n'
            b'      ,"kernel version" :"4"\n'
            b'      ,"major version" :"4"\n'
            b'      ,"minor version" :"21"\n') in model.document()


def test_parts_of_the_kernel_release_are_trimmed(tmp_path):
    model = Model(good_host(tmp_path, release="4 . 4\t. 21 - 69 .1-default"))
    assert (b'      "kernel release" :"69"\n'
            b'      ,"kernel version" :"4"\n'
            b'      ,"major version" :"4"\n'
            b'      ,"minor version" :"21"\n') in model.document()


def test_kernel_release_without_a_dash_has_no_own_release(tmp_path):
    model = Model(good_host(tmp_path, release="4.4"))
    assert (b'      "kernel release" :""\n'
            b'      ,"kernel version" :"4"\n'
            b'      ,"major version" :"4"\n'
            b'      ,"minor version" :""\n') in model.document()


def test_no_patch_level_line_leaves_no_distribution_group(tmp_path):
    release = b"SUSE Linux Enterprise Server 12 (x86_64)\nVERSION = 12\n"
    text = document_of(tmp_path, files={"/etc/SuSE-release": release})
    assert b'"validateDistribution"' not in text


def test_two_release_files_split_document_and_rules(tmp_path):
    red_hat = b"Red Hat Enterprise Linux Server release 7.2 (Maipo)\n"
    model = Model(good_host(tmp_path, files={"/etc/redhat-release": red_hat}))
    assert (b'      "Distribution name" :"SUSE Linux Enterprise Server 12 (x86_64)"\n'
            b'      ,"Patchlevel" :"1"\n'
            b'      ,"Version" :"12"\n') in model.document()
    assert model.records()["CHECK_DISTRIBUTION"] == b"('distribution_patchlevel','2',0,'')"


def test_red_hat_release_line(tmp_path):
    red_hat = b"Red Hat Enterprise Linux Server release 7.2 (Maipo)\n"
    text = document_of(tmp_path, files={"/etc/redhat-release": red_hat})
    assert (b'   ,"validateDistribution" : {\n'
            b'      "Distribution name" :"Red Hat Enterprise Linux Server release 7.2 (Maipo)"\n'
            b'      ,"Patchlevel" :"2"\n'
            b'      ,"Version" :"Red Hat Enterprise Linux Server release 7"\n   }\n') in text


def test_red_hat_line_is_not_trimmed(tmp_path):
    red_hat = b"Red Hat Enterprise Linux Server release 7.3 (Maipo)\r\n"
    model = Model(build_host(tmp_path, files={"/etc/redhat-release": red_hat}))
    assert b'"Distribution name" :"Red Hat Enterprise Linux Server release 7.3 (Maipo)\r"\n' in (
        model.document())
    assert model.rule("validateDistribution")[0] == b"FAILED"


def test_red_hat_line_without_its_marks_is_version_and_patch_level(tmp_path):
    text = document_of(tmp_path, files={"/etc/redhat-release": b"Red Hat Linux"})
    assert (b'      "Distribution name" :"Red Hat Linux"\n'
            b'      ,"Patchlevel" :"Red Hat Linux"\n'
            b'      ,"Version" :"Red Hat Linux"\n') in text


def test_clock_source_file_that_is_empty_gives_no_group(tmp_path):
    path = "/sys/devices/system/clocksource/clocksource0/current_clocksource"
    text = document_of(tmp_path, files={path: b""})
    assert b"validateClocksource" not in text


def test_last_line_of_the_huge_page_switch_counts(tmp_path):
    path = "/sys/kernel/mm/transparent_hugepage/enabled"
    text = document_of(tmp_path, files={path: b"first\n always [madvise] never \n"})
    assert b'   ,"validateTHP" : {\n      "thp" :"always [madvise] never"\n   }\n' in text


def test_package_lists_lose_their_last_letter(tmp_path):
    text = document_of(tmp_path, commands={
        "rpm": b"libstdc-1\nlibgcc-1\nlibstdc-2\nzlib-1\ncompat-kor-1\ncompat-2\n"})
    assert (b'      "rpm compat-kor list" :"compat-kor-1"\n'
            b'      ,"rpm libgcc list" :"libgcc-1"\n'
            b'      ,"rpm libstd list" :"libstdc-1,libstdc-2"\n') in text


def test_scanner_lines(tmp_path):
    scanner = b"hypervisor: no\n Hypervisor:  VMware \nVendor ID:\tVMwareVMware\n"
    text = document_of(tmp_path, scanner=scanner)
    assert (b'   ,"validateHypervisor" : {\n'
            b'      "hypervisor" :"VMware"\n'
            b'      ,"vendor id" :"VMwareVMware"\n   }\n') in text


def test_scanner_line_may_hold_both_words_and_no_colon(tmp_path):
    text = document_of(tmp_path, scanner=b" Hypervisor Vendor ID ")
    assert (b'      "hypervisor" :"Hypervisor Vendor ID"\n'
            b'      ,"vendor id" :"Hypervisor Vendor ID"\n') in text


def test_maximum_frequency_becomes_megahertz(tmp_path):
    path = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq"
    text = document_of(tmp_path, files={path: b"2600999\n"})
    assert b'   ,"validateCPUgovernor" : {\n      "max freq" :"2600"\n   }\n' in text


def test_maximum_frequency_is_cut_to_32_bits_before_the_division(tmp_path):
    path = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq"
    text = document_of(tmp_path, files={path: b"2147484000\n5\n"})
    assert b'      "max freq" :"-2147483"\n' in text


def test_frequencies_need_no_cpufreq(tmp_path):
    text = document_of(tmp_path, commands={"dmidecode.frequency": b"2600 MHz\n 2700 MHz\n3 GHz\n"})
    assert b'   ,"validateCPUgovernor" : {\n      "dimmfreq list" :"2600,0"\n   }\n' in text


@pytest.mark.parametrize("printed, expected", [
    (b"\tProduct Name: System x3850 X6 -[6241AC4]-\n\tProduct Name: Board\n", b"System x3850 X6"),
    (b"\tProduct Name:  A: B \n", b"A: B"),
    (b"\tProduct Name: SR950\n\tProduct Name: Board\n", b"SR950"),
    (b"\tProduct Name: -[7145]-\n", b""),
    (b"\tProduct Name\n", b"Product Name"),
    (b"  Other Product Name: X\n", b"X"),
])
def test_product_name_of_the_command(tmp_path, printed, expected):
    text = document_of(tmp_path, commands={"dmidecode": printed})
    assert b'      "Product Name" :"' + expected + b'"\n' in text


def test_product_name_of_the_dump_is_the_last_unindented_one(tmp_path):
    dump = b"Product Name: first\nProduct Name: second\n  Product Name: third\n"
    text = document_of(tmp_path, files={DUMP: dump}, environment=DUMP_ENVIRONMENT)
    assert b'      "Product Name" :"second"\n' in text
