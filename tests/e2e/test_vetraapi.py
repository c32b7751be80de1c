"""vetraApi, the front end for single checks: records, JSON, status, and where the noise goes."""
import json

import pytest

import expected
from model import Model

BY_CODE = {0: 0, 1: 1, 3: 0, 4: 2, 5: 3}


def records_of(host, *actions):
    records = Model(host.directory).records()
    return b"".join(records[action] + b"\n" for action in actions)


# Which records, and in which order.

@pytest.mark.parametrize("action", expected.ACTIONS)
def test_each_action_prints_its_record(host, action):
    run = host.api(action)
    assert run.stdout == records_of(host, action)
    assert run.stderr == b""


def test_records_come_in_the_order_given(host):
    backwards = expected.ACTIONS[::-1]
    assert host.api(*backwards).stdout == records_of(host, *backwards)


def test_an_action_may_be_given_twice(host):
    twice = ("CHECK_THP", "CHECK_CPU", "CHECK_THP")
    assert host.api(*twice).stdout == records_of(host, *twice)


def test_all_prints_the_eleven_in_the_order_of_the_table(host):
    assert host.api("--all").stdout == records_of(host, *expected.ACTIONS)


@pytest.mark.host("no-release-file")
def test_the_known_record_of_a_failed_distribution_holds_line_feeds(host):
    assert host.api("CHECK_DISTRIBUTION").stdout == (
        b"('distribution_patchlevel','',4,'The operating system distribution is not sufficient \n"
        b" to operate KOR ZIRN for production environments. \n"
        b" Please see KOR Note 2235581 for more details.')\n")


def test_facts_are_gathered_once_for_many_actions(host):
    run = host.api("--all", watched=True)
    assert sorted(run.commands) == sorted(host.api("CHECK_THP", watched=True).commands)


# JSON.

def test_json_is_an_array_in_the_order_given(host):
    run = host.api("--json", "CHECK_THP", "CHECK_CLOCKSOURCE")
    assert run.json == [
        {"action": "CHECK_THP", "item": "thp", "value": "always madvise [never]", "code": 0,
         "message": ""},
        {"action": "CHECK_CLOCKSOURCE", "item": "clocksource", "value": "tsc", "code": 0,
         "message": ""}]
    assert run.stderr == b"" and run.stdout.endswith(b"\n")


@pytest.mark.host("no-release-file")
def test_json_escapes_line_feeds(host):
    (entry,) = host.api("--json", "CHECK_DISTRIBUTION").json
    assert entry == {
        "action": "CHECK_DISTRIBUTION", "item": "distribution_patchlevel", "value": "", "code": 4,
        "message": "The operating system distribution is not sufficient \n to operate KOR ZIRN for "
                   "production environments. \n Please see KOR Note 2235581 for more details."}


ODD_TEXTS = {
    "quotation-marks": 'root="a b" quiet',
    "apostrophes": "a='b','c' d",
    "backslashes": "a\\b\\\\c\\\"d\\n",
    "controls": "a\x01b\x1f\x7f\tc",
    "accents": "gr\u00fc\u00df \u20ac \U0001f600",
    "record-inside": "x','1','y",
    "digit-inside": "x',4,'y",
}


@pytest.mark.parametrize("text", ODD_TEXTS.values(), ids=ODD_TEXTS.keys())
def test_json_carries_any_text_in_a_value(host, text):
    line = f"{text} intel_idle.max_cstate=1"
    host.write("/proc/cmdline", line + "\n")
    host.write("/sys/devices/system/cpu/cpu0/cpufreq/scaling_max_freq", "9999000\n")
    run = host.api("--json", "CHECK_CPUGOVERNOR")
    assert run.json == [{"action": "CHECK_CPUGOVERNOR", "item": "cstate", "value": line, "code": 0,
                         "message": ""}]
    assert host.api("CHECK_CPUGOVERNOR").stdout == f"('cstate','{line}',0,'')\n".encode()


def test_json_carries_quotation_marks_in_a_message(host):
    host.dmidecode(product='The "Best" \\ One')
    (entry,) = host.api("--json", "CHECK_APPLIANCETYPE").json
    assert entry["value"] == 'The "Best" \\ One'
    assert entry["message"].startswith('The "Best" \\ One is not a certified ZIRN Server.\n')


def test_json_stays_valid_with_bytes_of_no_character_set(host):
    host.dmidecode(product=b"Odd \xff\xc3 One")
    run = host.api("--json", "CHECK_APPLIANCETYPE")
    (entry,) = json.loads(run.stdout.decode("utf-8"))
    assert entry["code"] == 4
    assert entry["value"].startswith("Odd ") and entry["value"].endswith(" One")


# Unknown actions, and none.

@pytest.mark.parametrize("action", ["CHECK_KERNEL", "check_cpu", "CHECK_CPU ", "", "CHECK_RUNTIME",
                                    "validateCPU"])
def test_an_unknown_action_prints_the_hint_and_ends_with_64(host, action):
    run = host.api(action)
    assert (run.status, run.stdout) == (64, expected.UNKNOWN_ACTION + b"\n")


@pytest.mark.parametrize("actions", [("CHECK_THP", "NONE"), ("NONE", "CHECK_THP")])
def test_an_unknown_action_among_others_ends_with_64(host, actions):
    run = host.api(*actions)
    assert run.status == 64
    assert expected.UNKNOWN_ACTION + b"\n" in run.stdout


@pytest.mark.parametrize("arguments", [(), ("--json",)], ids=["nothing", "json-alone"])
def test_no_action_prints_the_usage_on_standard_error(host, arguments):
    run = host.api(*arguments)
    assert (run.status, run.stdout) == (64, b"")
    assert b"vetraApi" in run.stderr and b"CHECK_THP" in run.stderr
    assert run.commands == []


# Help and version.

@pytest.mark.parametrize("flag", ["-h", "--help"])
def test_help_names_all_actions_and_what_has_none(host, flag):
    run = host.api(flag)
    assert (run.status, run.stderr, run.commands) == (0, b"", [])
    for action in expected.ACTIONS:
        assert action.encode() in run.stdout
    for word in (b"kernel", b"runtime", b"--all", b"--json"):
        assert word in run.stdout.lower()


def test_both_forms_of_help_and_version_agree(host):
    assert host.api("-h").stdout == host.api("--help").stdout
    assert host.api("-v").stdout == host.api("--version").stdout


def test_the_version_is_that_of_the_tool(host):
    run = host.api("-v")
    assert (run.status, run.stderr, run.commands) == (0, b"", [])
    shown = host.vetra(arguments=["-v"]).stdout.removeprefix(b"vetra-")
    assert run.stdout.endswith(shown) and run.stdout.count(b"\n") == 1


# The exit status.

@pytest.mark.parametrize("name, action, code", [
    ("suse12sp1-e7v3-2socket-passes", "CHECK_THP", 0),
    ("suse12sp1-e7v3-2socket-passes", "CHECK_HYPERVISOR", 3),
    ("guest-xen", "CHECK_CLOCKSOURCE", 1),
    ("guest-xen", "CHECK_APPLIANCETYPE", 4),
    ("suse12sp3-e7v4-2socket", "CHECK_THP", 5),
    ("aarch64", "CHECK_CPU", 5),
    ("aarch64", "CHECK_CPUGOVERNOR", 0),
])
def test_the_status_follows_the_code(new_host, name, action, code):
    host = new_host(name)
    run = host.api(action)
    assert b"',%d,'" % code in run.stdout
    assert run.status == BY_CODE[code]
    assert host.api("--json", action).status == BY_CODE[code]


@pytest.mark.host("guest-xen")
@pytest.mark.parametrize("actions, status", [
    (("CHECK_CPU", "CHECK_CLOCKSOURCE"), 1),
    (("CHECK_CLOCKSOURCE", "CHECK_CPU"), 1),
    (("CHECK_APPLIANCETYPE", "CHECK_CLOCKSOURCE"), 2),
    (("CHECK_HTT", "CHECK_HYPERVISOR"), 0),
])
def test_the_worst_of_many_actions_gives_the_status(host, actions, status):
    assert host.api(*actions).status == status


# Noise.

@pytest.mark.host("uneven-numa-nodes")
def test_what_rules_print_goes_to_standard_error(host):
    noise = 4 * b"nodesize is too far from average nodesize\n"
    run = host.api("CHECK_MEMORYDISTRIBUTION")
    assert (run.stdout, run.stderr) == (records_of(host, "CHECK_MEMORYDISTRIBUTION"), noise)
    assert json.loads(host.api("--json", "CHECK_MEMORYDISTRIBUTION").stdout)[0]["code"] == 4


@pytest.mark.host("uneven-numa-nodes")
def test_rules_that_are_not_asked_print_nothing(host):
    assert host.api("CHECK_MEMORY").stderr == b""


def test_nothing_is_left_in_the_directory(host):
    run = host.api("--all")
    assert [path.name for path in run.cwd.iterdir()] == ["scanhypervisorCheck"]
