"""The harness itself, with the machine's own cat and a few lines of shell as the program.

A fake host that lets the machine shine through would make all other tests worthless."""
import os
import pathlib
import subprocess

import pytest

import fakehost
import mounts

CPUINFO = "/proc/cpuinfo"
GOVERNOR = "/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor"
CLOCK = "/sys/devices/system/clocksource/clocksource0/current_clocksource"
HUGE_PAGES = "/sys/kernel/mm/transparent_hugepage/enabled"
DUMP = "/usr/kor/K01/SYS/global/zdb/install/hwinfo/bios_zirn01.txt"
BOUND = (CPUINFO, "/proc/meminfo", "/proc/cmdline", CLOCK, HUGE_PAGES, GOVERNOR)
LAYERED = ("/etc/SuSE-release", "/etc/redhat-release", DUMP)


@pytest.fixture(params=["overlay", "links"])
def laid(request, monkeypatch, host):
    """A fake host, laid over the machine in each of the two ways."""
    if request.param == "overlay" and not mounts.overlay_works():
        pytest.skip("this kernel lays no overlay over the machine's directories")
    monkeypatch.setattr(mounts, "overlay_works", lambda: request.param == "overlay")
    return host


def shell(host, text, **options):
    return host.run("/bin/sh", ["-c", text], **options)


def assert_seen(host, path):
    host.write(path, b"of the fake host \xff\n")
    run = shell(host, f"/bin/cat {path}")
    assert (run.stdout, run.stderr, run.status) == (b"of the fake host \xff\n", b"", 0)


def assert_absent(host, path):
    host.write(path, "x")
    host.remove(path)
    run = shell(host, f"/bin/cat {path}")
    assert (run.stdout, run.status) == (b"", 1)


@pytest.mark.parametrize("path", BOUND)
def test_a_file_of_the_kernel_is_that_of_the_host(host, path):
    assert_seen(host, path)


@pytest.mark.parametrize("path", BOUND)
def test_a_file_of_the_kernel_that_the_host_lacks_cannot_be_opened(host, path):
    assert_absent(host, path)


@pytest.mark.parametrize("path", LAYERED)
def test_a_file_of_the_host_is_seen(laid, path):
    assert_seen(laid, path)


@pytest.mark.parametrize("path", LAYERED)
def test_a_file_that_the_host_lacks_is_absent(laid, path):
    assert_absent(laid, path)
    assert shell(laid, f"[ ! -e {path} ]").status == 0


def test_nothing_of_it_stays_on_the_machine(laid):
    before = pathlib.Path("/proc/self/mounts").read_text()
    there = [os.path.exists(path) for path in BOUND + LAYERED]
    laid.write(DUMP, "x")
    assert shell(laid, f"/bin/cat {DUMP}").status == 0
    assert pathlib.Path("/proc/self/mounts").read_text() == before
    assert [os.path.exists(path) for path in BOUND + LAYERED] == there


def test_other_files_of_the_machine_are_seen_as_ever(laid):
    paths = "/etc/passwd /usr/bin/env /proc/self/status /usr/sbin /usr/lib /etc"
    laid.write(DUMP, "x")
    assert shell(laid, f"for path in {paths}; do [ -r $path ] || exit 3; done").status == 0
    passwd = pathlib.Path("/etc/passwd").read_bytes()
    assert shell(laid, "/bin/cat /etc/passwd").stdout == passwd


COMMANDS = {
    "rpm -qa": "rpm", "rpm -q -a": "rpm", "numactl --hardware": "numactl",
    "/usr/sbin/dmidecode": "dmidecode", "/usr/sbin/dmidecode --type 17": "dmidecode.type17",
    "/usr/sbin/dmidecode -s processor-frequency": "dmidecode.frequency",
}


@pytest.mark.parametrize("line, name", COMMANDS.items(), ids=COMMANDS.keys())
def test_a_command_prints_what_the_host_holds(host, line, name):
    host.command(name, "the answer\n")
    run = shell(host, line)
    assert (run.stdout, run.stderr, run.status) == (b"the answer\n", b"", 0)
    assert run.commands == [line.removeprefix("/usr/sbin/")]


@pytest.mark.parametrize("line", ["rpm -qa", "numactl --hardware", "/usr/sbin/dmidecode"])
def test_a_command_that_the_host_lacks_is_not_found(laid, line):
    laid.without_dmidecode()
    laid.command("rpm", None)
    laid.command("numactl", None)
    run = shell(laid, line)
    assert (run.stdout, run.status, run.commands) == (b"", 127, [])


def test_dmidecode_without_an_answer_prints_nothing(host):
    host.without_dmidecode()
    host.command("dmidecode", "x\n")
    run = shell(host, "/usr/sbin/dmidecode --type 17")
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)


def test_a_command_with_unknown_arguments_is_told(host):
    with pytest.raises(AssertionError, match="rpm -ql glibc"):
        shell(host, "rpm -ql glibc")


def test_only_the_tools_of_the_shell_are_in_the_path(host):
    assert shell(host, "command -v grep head && ! command -v ls").status == 0
    assert shell(host, "grep x /etc/passwd | head -1").commands == []


def test_a_watched_run_tells_all_tools(host):
    run = shell(host, "grep -q . /etc/passwd; head -1 /etc/passwd; uname -r", watched=True)
    assert run.commands == ["grep -q . /etc/passwd", "head -1 /etc/passwd", "uname -r"]


def test_uname_is_that_of_the_host(host):
    host.uname(machine="s390x", release="1.2.3-fake")
    run = shell(host, "uname -m; uname -r; uname -s", tools=["uname"])
    assert run.stdout == b"s390x\n1.2.3-fake\nLinux\n"


def test_the_rest_of_uname_is_that_of_the_machine(host):
    kernel = subprocess.run(["uname", "-sv"], stdout=subprocess.PIPE, check=True).stdout
    assert shell(host, "uname -sv", tools=["uname"]).stdout == kernel


def test_the_environment_holds_what_the_host_says(host):
    host.env(HOST=None, KORSYSTEMNAME="XYZ")
    run = shell(host, 'echo "${HOST-unset} ${KORSYSTEMNAME-unset} ${HOME-unset} ${LANG-unset}"')
    assert run.stdout == b"unset XYZ unset unset\n"


def test_the_scanner_is_there_with_its_mode(host):
    host.scanner("Vendor ID: XEN\n")
    assert shell(host, "./scanhypervisorCheck").stdout == b"Vendor ID: XEN\n"
    assert shell(host, "./scanhypervisorCheck", scanner_mode=0o644).status == 126
    assert shell(host, ": >>scanhypervisorCheck", scanner_read_only=True).status == 2
    host.scanner(None)
    assert shell(host, "./scanhypervisorCheck").status == 127


def test_a_limited_run_meets_file_modes(host):
    def closed(cwd):
        (cwd / "closed").write_text("x")
        (cwd / "closed").chmod(0)

    assert shell(host, "/bin/cat closed", prepare=closed).stdout == b"x"
    assert shell(host, "/bin/cat closed", prepare=closed, limited=True).status == 1


def test_a_program_that_hangs_is_ended_and_told(host):
    with pytest.raises(AssertionError, match="hung; it had printed b'begun"):
        shell(host, "echo begun; /bin/sleep 1000 | /bin/cat",
              timeout=0.5)


def test_runs_have_directories_of_their_own(host):
    first, second = shell(host, ": >left"), shell(host, "/bin/ls -A")
    assert (first.cwd / "left").exists() and first.cwd != second.cwd
    assert b"left" not in second.stdout


def test_a_host_is_a_copy(host):
    host.write(CPUINFO, "changed")
    original = fakehost.HOSTS / fakehost.PASSING_HOST / "root/proc/cpuinfo"
    assert original.read_bytes() != b"changed"


def test_modules_are_listed_as_dmidecode_lists_them():
    text = fakehost.memory_devices([fakehost.Dimm("32 GB"), fakehost.Dimm(None)])
    lines = [line.strip() for line in text.splitlines() if "Size" in line or "Speed" in line]
    assert lines == ["Size: 32 GB", "Speed: 2133 MHz", "Configured Clock Speed: 1866 MHz",
                     "Size: No Module Installed", "Speed: Unknown",
                     "Configured Clock Speed: Unknown"]


def test_every_fake_host_says_what_is_special_about_it():
    assert len(fakehost.host_names()) >= 26
    for name in fakehost.host_names():
        about = (fakehost.HOSTS / name / "about.txt").read_text()
        assert about.endswith("\n") and about.count("\n") == 1 and len(about) > 10
