"""The run of the tests: what reaches the terminal, the log and the result files, in which order."""
import json
import os
import pathlib
import re
import resource
import stat

import pytest

import expected
from model import Model
from result import RESULT_NAME, STAMP

EVALOS = {"id": 1, "class": "EvalOS"}
UNKNOWN = {"id": 2, "class": "NoSuchTest"}
READING = ("INFO", b"Reading from file config.json")
NOT_CREATED = ("ERROR", b"Error while creating test object.")


def key_of(name):
    return RESULT_NAME.match(os.path.basename(name))["key"]


# Standard output and result files.

def test_two_tests_run_and_are_written_in_the_order_of_their_ids(host):
    run = host.vetra({"tests": [{"id": 10, "class": "EvalOS"}, {"id": 2.5, "class": "EvalOS"}]})
    report = Model(host.directory).report()
    names = sorted(run.results, key=lambda name: float(key_of(name)))
    assert [key_of(name) for name in names] == ["2.5", "10"]
    assert run.stdout == (expected.configuration(run.cwd, [("2.5", "EvalOS"), ("10", "EvalOS")])
                          + 2 * expected.evalos(report=report)
                          + expected.writing(run.cwd, *names))
    assert (run.status, run.stderr) == (0, b"")


def test_each_result_file_holds_the_facts_and_one_line_end(host):
    run = host.vetra({"tests": [EVALOS, {"id": 2, "class": "EvalOS"}]})
    assert list(run.results.values()) == 2 * [Model(host.directory).document() + b"\n"]


@pytest.mark.parametrize("number, shown", [(1.5, "1.5"), (2.0, "2"), (1000000, "1e+06"),
                                           (1234567, "1.23457e+06"), (0, "0"), (-3, "-3"),
                                           (0.1, "0.1"), (0.00001, "1e-05")])
def test_the_id_stands_in_the_file_name_as_a_stream_prints_it(host, number, shown):
    run = host.vetra({"tests": [{"id": number, "class": "EvalOS"}]})
    (name,) = run.results
    assert key_of(name) == shown
    assert run.stdout.endswith(expected.writing(run.cwd, name))


@pytest.mark.parametrize("zone, hours", [("UTC0", 0), ("AHEAD-5", 5), ("BEHIND+8", -8)])
def test_the_file_name_holds_the_milliseconds_of_the_local_clock(host, zone, hours):
    run = host.evaluate(environment={"TZ": zone})
    (name,) = run.results
    shown = int(RESULT_NAME.match(name)["milliseconds"])
    before, after = (int(1000 * (moment + 3600 * hours)) for moment in run.period)
    assert before <= shown <= after


def test_the_log_holds_the_local_time(host):
    stamps = [host.vetra({}, environment={"TZ": zone}).log.split(b" TRACE ")[0]
              for zone in ("AHEAD-5", "BEHIND+8")]
    hours = [int(re.search(rb"[ T](\d\d):\d\d:\d\d", stamp)[1]) for stamp in stamps]
    assert (hours[0] - hours[1]) % 24 in (12, 13)  # 13 hours apart, one less over a full hour


def test_results_go_to_the_output_directory(host):
    run = host.vetra({"output_dir": "out/of/tests", "tests": [EVALOS]})
    (name,) = run.results
    assert name.startswith("out/of/tests/test_1_")
    assert run.stdout.endswith(b"Writing output to %s\n" % name.encode())


def test_an_output_directory_keeps_its_slash_at_the_end(host):
    run = host.vetra({"output_dir": "out/", "tests": [EVALOS]})
    (name,) = run.results
    shown = name.replace("out/", "out//")
    assert run.stdout.endswith(b"Writing output to %s\n" % shown.encode())


def test_an_unregistered_class_is_passed_over(host):
    run = host.vetra({"tests": [{"id": 0, "class": ""}, EVALOS, UNKNOWN]})
    report = Model(host.directory).report()
    (name,) = run.results
    assert run.stdout == (
        expected.configuration(run.cwd, [("0", ""), ("1", "EvalOS"), ("2", "NoSuchTest")])
        + b" is not registered.\n" + expected.evalos(report=report)
        + b"NoSuchTest is not registered.\n" + expected.writing(run.cwd, name))
    assert run.events.count(NOT_CREATED) == 2


def test_tests_without_id_share_one_result_file(host):
    run = host.vetra({"tests": [{"class": "EvalOS"}, {"id": 5, "class": "A"}, {"class": "EvalOS"}]})
    report = Model(host.directory).report()
    (name,) = run.results
    assert key_of(name) == "0"
    assert run.stdout == (expected.configuration(run.cwd, [("0", "EvalOS"), ("0", "EvalOS")])
                          + 2 * expected.evalos(report=report)
                          + expected.writing(run.cwd, name))


def test_the_configuration_of_a_test_is_shown_as_json(host):
    given = {"b": [1, 2.5, "x\"y\\", None, True], "a": {"\u00e4": {}}}
    run = host.vetra({"tests": [{**EVALOS, "config": given}]})
    shown = re.search(rb"\nSetting test configuration: (.*)\nEstimated testDuration:\n", run.stdout,
                      re.DOTALL)[1]
    assert json.loads(shown) == given
    report = Model(host.directory).report()
    assert expected.evalos(report=report, config=shown) in run.stdout


def test_an_empty_configuration_is_shown_as_an_empty_object(host):
    run = host.vetra({"tests": [{**EVALOS, "config": {}}]})
    shown = re.search(rb"\nSetting test configuration: (.*)\nEstimated testDuration:\n", run.stdout,
                      re.DOTALL)[1]
    assert json.loads(shown) == {}


@pytest.mark.parametrize("machine", ["aarch64", "ppc64le", "i686", "", "X86_64"])
def test_a_machine_that_is_not_x86_fails_and_still_gets_its_file(host, machine):
    host.uname(machine=machine)
    run = host.vetra({"tests": [EVALOS, {"id": 2, "class": "EvalOS"}]})
    assert list(run.results.values()) == [b"\n", b"\n"]
    assert run.stdout == (expected.configuration(run.cwd, [("1", "EvalOS"), ("2", "EvalOS")])
                          + 2 * expected.evalos() + expected.writing(run.cwd, *run.results))
    assert (run.status, run.stderr, run.commands) == (0, b"", [])
    assert run.events.count(("INFO", b"EvalOSrun failed")) == 2


def test_a_machine_name_with_x86_in_it_is_x86(host):
    host.uname(machine="new-x86-128")
    run = host.evaluate()
    assert run.report == Model(host.directory).report()


@pytest.mark.host("nothing-known")
def test_a_host_that_fails_is_still_run_ok(host):
    run = host.evaluate()
    assert run.status == 0
    assert b"\nEvalOS run OK.\n" in run.stdout


@pytest.mark.parametrize("name, shown", [(None, b""), ("", b""), ("zirn 7: \u00e4", None)])
def test_the_title_names_the_host_of_the_environment(host, name, shown):
    host.env(HOST=name)
    title = name.encode() if shown is None else shown
    run = host.evaluate()
    assert run.report.startswith(b"=" * 80 + b"\nEVALUATED SYSTEM SETUP ON " + title + b":\n"
                                 + b"=" * 80 + b"\n")
    assert run.report == Model(host.directory).report()


def test_a_foreign_locale_changes_nothing(host):
    run = host.evaluate(environment={"LC_ALL": "de_DE.UTF-8", "LANG": "de_DE.UTF-8"})
    assert run.result == Model(host.directory).document() + b"\n"
    assert run.report == Model(host.directory).report()


def test_each_run_is_a_run_of_its_own(host):
    cwd = host.working_directory()
    first = host.evaluate(cwd=cwd)
    names = set(first.results)
    second = host.evaluate(cwd=cwd)
    assert names <= set(second.results)
    assert len(set(second.results.values())) == 1


# The log.

def test_the_log_of_a_whole_run(host):
    run = host.evaluate()
    (name,) = run.results
    report = Model(host.directory).report()
    assert run.events == [
        READING,
        ("INFO", expected.message(run.cwd, [("1", "EvalOS")])),
        ("INFO", b"Start running test:EvalOS"),
        ("INFO", b"Get test result:" + report),
        ("INFO", b"Writing output to:"),
        ("INFO", f"{run.cwd}/{name}".encode())]


def test_each_line_of_the_log_has_a_stamp_and_one_line_end(host):
    run = host.vetra({})
    lines = (b"Reading from file config.json", expected.message(run.cwd))
    pattern = b"".join(STAMP + rb" TRACE INFO: " + re.escape(line) + b"\n" for line in lines)
    assert re.fullmatch(pattern, run.log)


def test_the_log_of_an_entry_of_no_class(host):
    run = host.vetra({"tests": [{"id": 1}]})
    assert run.events == [READING, ("INFO", expected.message(run.cwd, [("1", "")])), NOT_CREATED]


def test_the_log_of_a_failed_test(host):
    host.uname(machine="aarch64")
    run = host.evaluate()
    (name,) = run.results
    assert run.events[2:] == [
        ("INFO", b"Start running test:EvalOS"), ("INFO", b"EvalOSrun failed"),
        ("INFO", b"Writing output to:"), ("INFO", f"{run.cwd}/{name}".encode())]


def test_the_log_of_a_refused_configuration(host):
    assert host.vetra({"Tests": 1}).events == [READING]


def test_the_log_is_made_when_missing_and_grows_from_run_to_run(host):
    cwd = host.working_directory()
    first = host.vetra({}, cwd=cwd).log
    second = host.vetra({}, cwd=cwd).log
    assert first and second.startswith(first)
    assert host.vetra({}, cwd=cwd).events == 3 * [READING, ("INFO", expected.message(cwd))]


def test_a_log_of_somebody_else_is_added_to(host):
    run = host.vetra({}, files={"vetra.trc": b"an older line"})
    assert run.log.startswith(b"an older line")
    assert run.log.count(b" TRACE INFO: ") == 2


def without_log(cwd):
    (cwd / "vetra.trc").mkdir()


def with_closed_log(cwd):
    (cwd / "vetra.trc").write_bytes(b"closed\n")
    (cwd / "vetra.trc").chmod(0o400)


@pytest.mark.parametrize("prepare", [without_log, with_closed_log])
def test_a_log_that_cannot_be_written_stops_nothing(host, prepare):
    run = host.evaluate(prepare=prepare, limited=True)
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (expected.configuration(run.cwd, [("1", "EvalOS")])
                          + expected.evalos(report=Model(host.directory).report())
                          + expected.writing(run.cwd, *run.results))
    assert run.log in (b"", b"closed\n")


def test_a_pipe_in_the_place_of_the_log_holds_nothing_up(host):
    run = host.vetra({"tests": [EVALOS]}, prepare=lambda cwd: os.mkfifo(cwd / "vetra.trc"))
    assert (run.status, run.stderr, len(run.results)) == (0, b"", 1)


def test_a_log_at_the_limit_of_file_sizes_stops_nothing(host):
    program = pathlib.Path(os.environ["VETRA_BIN"], "vetra")
    if b"__tsan_init" in program.read_bytes():
        pytest.skip("the thread sanitizer's own start needs a file")
    run = host.vetra({"tests": [EVALOS]}, files={"vetra.trc": b"an older line\n"},
                     limits=[(resource.RLIMIT_FSIZE, (0, 0))])
    assert run.status == 0
    assert b"EvalOS run OK.\n" in run.stdout
    assert run.log == b"an older line\n"


def test_a_directory_with_a_nul_in_its_name_touches_no_other_file(host):
    run = host.vetra({"output_dir": "keep\0", "tests": [EVALOS]}, files={"keep": b"mine"})
    assert (run.status, run.results) == (0, {})
    assert (run.cwd / "keep").read_bytes() == b"mine"


def test_the_log_outlives_a_small_limit_of_descriptors(host):
    tests = [{"id": number, "class": "A"} for number in range(200)]
    run = host.vetra({"tests": tests}, limits=[(resource.RLIMIT_NOFILE, (64, 4096))])
    assert run.events.count(NOT_CREATED) == 200


# Files and their modes.

@pytest.mark.parametrize("umask", [0o000, 0o022, 0o027, 0o077])
def test_files_get_the_mode_that_the_umask_leaves(host, umask):
    run = host.evaluate(umask=umask)
    (name,) = run.results
    for path in (run.cwd / "vetra.trc", run.cwd / name):
        assert stat.S_IMODE(path.stat().st_mode) == 0o666 & ~umask


def assert_written_nowhere(run, output_dir):
    assert (run.status, run.stderr, run.results) == (0, b"", {})
    assert re.search(rb"\nWriting output to %s/test_1_\d+_Vetra_EvalOS\n\Z"
                     % re.escape(output_dir.encode()), run.stdout)
    assert run.events[-2] == ("INFO", b"Writing output to:")
    assert run.events[-1][1].startswith(output_dir.encode() + b"/test_1_")


def test_a_result_in_a_directory_that_cannot_be_made_gets_lost_without_a_word(host):
    place = "config.json/out"
    assert_written_nowhere(host.vetra({"output_dir": place, "tests": [EVALOS]}), place)


def test_a_result_that_may_not_be_written_gets_lost_without_a_word(host):
    def prepare(cwd):
        (cwd / "out").mkdir()
        (cwd / "out").chmod(0o500)

    run = host.vetra({"output_dir": "out", "tests": [EVALOS]}, prepare=prepare, limited=True)
    assert_written_nowhere(run, "out")


def test_nothing_else_is_left_in_the_directory(host):
    run = host.evaluate()
    (name,) = run.results
    left = {path.name for path in run.cwd.iterdir()}
    assert left == {"config.json", "scanhypervisorCheck", "vetra.trc", name}
