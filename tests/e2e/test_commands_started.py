"""Which external commands one evaluation of a host starts, and how often.

Each start costs an operator's time and may want rights, so there is none too many, and none but
the documented ones: the standard tools beside them are watched as well."""
import collections

import pytest

import expected

PACKAGES = ["rpm -qa"] * 3 + ["grep libstd", "grep libgcc", "grep compat-kor"]
MODULES = (["/usr/sbin/dmidecode --type 17"] * 3
           + ["grep Size", "grep MB", "grep Size", "grep GB", "grep Speed"])
NODES = ["numactl --hardware", "grep size", "grep MB"]
FREQUENCY = ["/usr/sbin/dmidecode -s processor-frequency", "grep MHz"]
PRODUCT = ["/usr/sbin/dmidecode", "grep Product Name", "head -1"]
SCANNER = ["./scanhypervisorCheck"]
GATHERING = SCANNER + PRODUCT + PACKAGES + MODULES + NODES + FREQUENCY
INSTALLED = ["rpm -q -a"]


def started(run):
    commands = [f"/usr/sbin/{line}" if line.startswith("dmidecode") else line
                for line in run.commands]
    return collections.Counter(commands)


@pytest.mark.parametrize("name", [
    "suse12sp1-e7v3-2socket-passes", "suse12sp3-e7v4-2socket", "rhel72-e7v2-8890-2socket",
    "rhel73-e5v3-1socket", "both-release-files", "guest-hyper-v", "guest-kvm-not-accepted",
    "uneven-numa-nodes", "gold-6154-not-accepted"])
def test_a_known_distribution_has_its_packages_listed_once_more(new_host, name):
    run = new_host(name).evaluate(watched=True)
    assert started(run) == collections.Counter(GATHERING + INSTALLED)


@pytest.mark.host("suse11sp4-e7v2-2socket")
def test_an_unknown_distribution_has_not(host):
    assert started(host.evaluate(watched=True)) == collections.Counter(GATHERING)


@pytest.mark.host("guest-without-scanner")
def test_without_a_scanner_the_rest_is_started_as_ever(host):
    run = host.evaluate(watched=True)
    assert started(run) == (collections.Counter(GATHERING + INSTALLED)
                            - collections.Counter(SCANNER))


@pytest.mark.host("bios-dump-instead-of-dmidecode")
def test_the_dump_takes_no_command(host):
    run = host.evaluate(watched=True)
    assert started(run) == collections.Counter(
        line for line in GATHERING + INSTALLED if not line.startswith("/usr/sbin/dmidecode"))
    assert run.stderr == expected.shell_complaints(host)


@pytest.mark.host("nothing-known")
def test_on_a_host_without_anything_the_stages_behind_are_still_there(host):
    run = host.evaluate(watched=True)
    assert started(run) == collections.Counter(
        line for line in GATHERING if line.startswith(("grep", "head")))


@pytest.mark.parametrize("name", ["aarch64", "ppc64le"])
def test_on_another_machine_nothing_is_started(new_host, name):
    assert new_host(name).evaluate(watched=True).commands == []
    assert new_host(name).api("--all", watched=True).commands == []


@pytest.mark.parametrize("arguments", [["--all"], ["CHECK_CPU"], ["--json", "CHECK_CPU"]])
def test_single_checks_gather_once(host, arguments):
    run = host.api(*arguments, watched=True)
    assert started(run) == collections.Counter(GATHERING)


def test_two_tests_gather_twice(host):
    run = host.vetra({"tests": [{"id": 1, "class": "EvalOS"}, {"id": 2, "class": "EvalOS"}]},
                     watched=True)
    assert started(run) == collections.Counter(2 * (GATHERING + INSTALLED))


def test_the_order_of_gathering(host):
    sources = [line for line in host.evaluate().commands if not line.startswith(("grep", "head"))]
    assert sources == [
        "./scanhypervisorCheck", "dmidecode", "rpm -qa", "rpm -qa", "rpm -qa",
        "dmidecode --type 17", "dmidecode --type 17", "dmidecode --type 17", "numactl --hardware",
        "dmidecode -s processor-frequency", "rpm -q -a"]
