"""Checks the model's whole reports, blocks and records against bytes typed by hand."""

from built_host import build_host, good_host
from model import Model
from model.report import Outcome
from model.rules import nested_text


def green(name):
    return name + b":" + b" " * 41 + b"\x1b[1;32mSUCESS\x1b[0m\t\n" + b"-" * 80 + b"\n"


def blue(name, reason):
    return (name + b":" + b" " * 41 + b"\x1b[1;34mSKIPPED\x1b[0m\n"
            b"           Reason:  " + reason + b"\n" + b"-" * 80 + b"\n")


def test_good_host_report(tmp_path):
    model = Model(good_host(tmp_path))
    assert model.report() == (
        b"=" * 80 + b"\nEVALUATED SYSTEM SETUP ON zirn01:\n" + b"=" * 80 + b"\n"
        + green(b"validateDistribution          ")
        + green(b"validateLinuxKernelVersion    ")
        + green(b"validateClocksource           ")
        + green(b"validateCPU                   ")
        + blue(b"validateHypervisor            ", b"This is not a virtual machine")
        + green(b"validateHTT                   ")
        + green(b"validateApplianceSystemType   ")
        + green(b"validateTHP                   ")
        + green(b"validateRuntime               ")
        + green(b"validateMemory                ")
        + green(b"validateMemoryDistribution    ")
        + green(b"validateCoreMemoryRatio       ")
        + green(b"validateCPUgovernor           "))
    assert model.noise() == b""
    assert model.run_status() == 0


def test_good_host_records(tmp_path):
    assert Model(good_host(tmp_path)).records() == {
        "CHECK_APPLIANCETYPE": b"('appliancetype','PowerEdge R930',0,'')",
        "CHECK_CLOCKSOURCE": b"('clocksource','tsc',0,'')",
        "CHECK_COREMEMORYRATIO": b"('corememoryratio','11',0,'')",
        "CHECK_CPU": b"('cpu_name','Intel(R) Xeon(R) CPU E7-8890 v4',0,'')",
        "CHECK_CPUGOVERNOR": b"('pstate','performance',0,'')",
        "CHECK_DISTRIBUTION": b"('distribution_patchlevel','1',0,'')",
        "CHECK_HTT": b"('Hyperthreading','',0,'')",
        "CHECK_HYPERVISOR": b"('hypervisor','',3,'This is not a virtual machine')",
        "CHECK_MEMORY": b"('memorycheck','',0,'')",
        "CHECK_MEMORYDISTRIBUTION": b"('memorydistribution','',0,'')",
        "CHECK_THP": b"('thp','always madvise [never]',0,'')",
    }


def test_host_name_unset_leaves_the_title_empty(tmp_path):
    report = Model(good_host(tmp_path, environment={})).report()
    assert report.startswith(b"=" * 80 + b"\nEVALUATED SYSTEM SETUP ON :\n" + b"=" * 80 + b"\nval")


def test_failed_block():
    assert Outcome("validateTHP", b"FAILED", b"HIGH", b"why\nso").block() == (
        b"validateTHP                   :                                         "
        b"\x1b[1;31mFAILED\x1b[0m\n"
        b"         Severity:  HIGH\n"
        b"           Reason:  why\nso\n")


def test_medium_failure_is_shown_as_warning_and_held_as_failed():
    outcome = Outcome("validateTHP", b"FAILED", b"MEDIUM", b"why")
    assert outcome.status == b"FAILED"
    assert outcome.block() == (
        b"validateTHP                   :                                         "
        b"\x1b[1;33mWARNING\x1b[0m\n"
        b"         Severity:  MEDIUM\n"
        b"           Reason:  why\n")


def test_nested_search_covers_the_reason():
    block = Outcome("validateHTT", b"FAILED", b"HIGH", b"no SUCESS: why").block()
    assert nested_text(block).endswith(b"Reason:  no SUCESS: why")
    assert nested_text(b"") == b""


def test_unknown_distribution_adds_only_a_ruler_for_the_runtime(tmp_path):
    model = Model(build_host(tmp_path))
    assert model.rule("validateRuntime") == (b"", b"", b"")
    assert (b"Reason:  Variable ARCHITECTURE not valid. Continue ...\n" + b"-" * 80 + b"\n"
            + b"-" * 80 + b"\nvalidateMemory ") in model.report()


def test_unknown_action(tmp_path):
    assert Model(build_host(tmp_path)).check_action("CHECK_RUNTIME") == (
        b'Please check the usage of vetraApi using "./vetraApi -h"')


def test_records_escape_nothing(tmp_path):
    model = Model(build_host(tmp_path, files={
        "/proc/cpuinfo": b"cpu MHz : 1\n", "/proc/cmdline": b"a='b' \xff max_cstate=0\n"}))
    assert model.records()["CHECK_CPUGOVERNOR"] == b"('cstate','a='b' \xff max_cstate=0',0,'')"
