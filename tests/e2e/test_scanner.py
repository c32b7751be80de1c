"""The hypervisor scanner in the current directory: found or not, and whatever it may print."""
import json
import os
import pathlib
import shutil
import subprocess

import pytest

import expected
import fakehost
from model import Model

STARTED = "./scanhypervisorCheck"


def hypervisor(run):
    """The fact group about the hypervisor, as text."""
    start = run.result.index(b'"validateHypervisor" :')
    return run.result[start:run.result.index(b"   }\n", start)]


def group(name, vendor):
    return (b'"validateHypervisor" : {\n      "hypervisor" :"' + name
            + b'"\n      ,"vendor id" :"' + vendor + b'"\n')


def test_without_a_scanner_both_facts_are_empty(host):
    host.scanner(None)
    run = host.evaluate()
    assert hypervisor(run) == group(b"", b"")
    assert STARTED not in run.commands
    assert run.report == Model(host.directory).report()


def test_lines_that_cannot_be_written_are_no_success():
    scanner = pathlib.Path(os.environ["VETRA_BIN"]) / "scanhypervisorCheck"
    for argument in [], ["--version"]:
        with open("/dev/full", "w") as full:
            run = subprocess.run([scanner, *argument], stdout=full, stderr=subprocess.PIPE, text=True)
        assert (run.returncode, run.stderr) == (
            74, "scanhypervisorCheck: standard output cannot be written\n")


def test_the_scanner_is_asked_once(host):
    host.scanner("Hypervisor: Xen\nVendor ID: XEN\n")
    run = host.evaluate()
    assert hypervisor(run) == group(b"Xen", b"XEN")
    assert run.commands.count(STARTED) == 1


def test_a_scanner_elsewhere_in_the_path_is_not_looked_for(host):
    host.scanner(None)

    def prepare(cwd):
        (cwd / "tools").mkdir()
        scanner = cwd / "tools/scanhypervisorCheck"
        scanner.write_text("#!/bin/sh\necho Vendor ID: XEN\n")
        scanner.chmod(0o755)

    cwd = host.working_directory()
    run = host.evaluate(cwd=cwd, prepare=prepare, path=cwd / "tools")
    assert hypervisor(run) == group(b"", b"")


def test_a_scanner_that_cannot_be_executed_leaves_both_facts_empty(host):
    host.scanner("Hypervisor: Xen\nVendor ID: XEN\n")
    run = host.evaluate(scanner_mode=0o644)
    assert hypervisor(run) == group(b"", b"")
    assert run.stdout == (expected.configuration(run.cwd, [("1", "EvalOS")])
                          + expected.evalos(report=run.report)
                          + expected.writing(run.cwd, *run.results))
    assert (run.status, run.stderr) == (0, b"")


@pytest.mark.parametrize("options", [
    {"scanner_read_only": True},
    {"scanner_mode": 0o555, "limited": True},
], ids=["read-only-file-system", "read-only-mode"])
def test_a_scanner_that_is_not_writable_counts_as_missing(host, options):
    host.scanner("Hypervisor: Xen\nVendor ID: XEN\n")
    run = host.evaluate(**options)
    assert hypervisor(run) == group(b"", b"")
    assert STARTED not in run.commands
    assert (run.status, run.stderr) == (0, b"")


def test_a_directory_of_that_name_counts_as_missing(host):
    host.scanner(None)
    run = host.evaluate(prepare=lambda cwd: (cwd / "scanhypervisorCheck").mkdir())
    assert hypervisor(run) == group(b"", b"")
    assert run.stderr == b""


def test_the_scanner_stays_as_it_is(host):
    def state(cwd):
        scanner = cwd / "scanhypervisorCheck"
        seen.append((scanner.read_bytes(), scanner.stat().st_mode, scanner.stat().st_mtime_ns))

    seen = []
    state(host.evaluate(prepare=state).cwd)
    assert len(seen) == 2 and seen[0] == seen[1]


ODD = {
    "nothing": (b"", b"", b""),
    "other-words": (b"no idea\nnone: at all\n", b"", b""),
    "lower-case": (b"hypervisor: Xen\nvendor id: XEN\n", b"", b""),
    "no-colon": (b"Hypervisor Xen\nVendor ID XEN\n", b"Hypervisor Xen", b"Vendor ID XEN"),
    "two-colons": (b"Hypervisor: a: b\nVendor ID:c:d\n", b"a: b", b"c:d"),
    "blanks": (b"Hypervisor:  \t Xen \t\r\nVendor ID:XEN\t\n", b"Xen", b"XEN"),
    "one-line": (b"Hypervisor and Vendor ID: both\n", b"both", b"both"),
    "last-line-counts": (b"Hypervisor: A\nHypervisor: B\nVendor ID: C\nVendor ID:\n", b"B", b""),
    "no-line-end": (b"Hypervisor: Xen\nVendor ID: XEN", b"Xen", b"XEN"),
    "vendor-alone": (b"Vendor ID: XEN\n", b"", b"XEN"),
    "words-inside": (b"theHypervisors: Xen\n(Vendor IDs: XEN\n", b"Xen", b"XEN"),
    "long-line": (b"Hypervisor: " + b"x" * 1000 + b"\n" + b"y" * 300 + b"Vendor ID: z\n",
                  b"x" * 1000, b"z"),
    "quotation-marks": (b'Hypervisor: "Xen"\nVendor ID: \'XEN\'\n', b'"Xen"', b"'XEN'"),
    "bytes": (b"Hypervisor: \xff\xfe\nVendor ID: \x01\n", b"\xff\xfe", b"\x01"),
    "form-feed": (b"Hypervisor: \x0bXen\x0c\n", b"\x0bXen\x0c", b""),
}


@pytest.mark.parametrize("printed, name, vendor", ODD.values(), ids=ODD.keys())
def test_odd_output(host, printed, name, vendor):
    host.scanner(printed)
    run = host.evaluate()
    assert hypervisor(run) == group(name, vendor)
    assert run.report == Model(host.directory).report()
    assert (run.status, run.stderr) == (0, b"")


def scanner_script(*lines):
    """Puts a scanner of one's own into the directory."""
    def prepare(cwd):
        path = cwd / "scanhypervisorCheck"
        path.write_text("\n".join(["#!/bin/sh", *lines]) + "\n")
        path.chmod(0o755)
    return prepare


def test_what_the_scanner_says_on_standard_error_counts_too(host):
    run = host.evaluate(prepare=scanner_script("echo 'Vendor ID: XEN' >&2", "exit 3"))
    assert hypervisor(run) == group(b"", b"XEN")
    assert run.stderr == b""


def test_a_scanner_that_dies_leaves_what_it_has_printed(host):
    run = host.evaluate(prepare=scanner_script("echo 'Hypervisor: Xen'", "kill -9 $$"))
    assert hypervisor(run) == group(b"Xen", b"")
    assert run.status == 0


# The scanner that comes with the tool.

def real_scanner(cwd):
    shutil.copy(fakehost.program("scanhypervisorCheck"), cwd / "scanhypervisorCheck")


def test_our_scanner_prints_two_lines(host):
    run = host.run(fakehost.program("scanhypervisorCheck"), [])
    first, second, end = run.stdout.split(b"\n")
    assert first.startswith(b"Hypervisor: ") and second.startswith(b"Vendor ID: ") and end == b""
    assert (run.status, run.stderr, run.commands) == (0, b"", [])


def test_our_scanner_has_two_values_or_none(host):
    run = host.run(fakehost.program("scanhypervisorCheck"), [])
    values = [line.partition(b":")[2].strip() for line in run.stdout.splitlines()]
    assert bool(values[0]) == bool(values[1])
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as cpuinfo:
        flags = next((line for line in cpuinfo if line.startswith("flags")), "")
    if "hypervisor" not in flags.split():
        assert values == [b"", b""]


def test_our_scanner_needs_no_root(host, scratch):
    as_root = host.run(fakehost.program("scanhypervisorCheck"), [])
    os.chmod(scratch, 0o755)
    scanner = shutil.copy(fakehost.program("scanhypervisorCheck"), scratch)
    as_nobody = subprocess.run([scanner], user=65534, group=65534, extra_groups=[], env={},
                               capture_output=True, check=True, timeout=fakehost.TIMEOUT_SECONDS)
    assert (as_nobody.stdout, as_nobody.stderr) == (as_root.stdout, b"")


def test_our_scanner_serves_the_tool(host):
    printed = host.run(fakehost.program("scanhypervisorCheck"), []).stdout
    run = host.evaluate(prepare=real_scanner)
    name, vendor = [line.partition(b":")[2].strip() for line in printed.splitlines()]
    assert hypervisor(run) == group(name, vendor)
    assert os.access(fakehost.program("scanhypervisorCheck"), os.W_OK)


def test_the_facts_stay_readable_as_json_without_odd_values(host):
    assert json.loads(host.evaluate().result)["validateHypervisor"] == {
        "hypervisor": "", "vendor id": ""}
