"""capture-host: what it captures is the host, and on this machine model and program agree on it."""
import json
import os
import pathlib
import shutil
import subprocess

import pytest

import expected
import fakehost
from model import Model

SCRIPT = pathlib.Path(__file__).parent / "capture-host"
TOOLS = ("cat", "mkdir", "rm", "sed", "tr", "uname", "timeout")
EVALOS = {"tests": [{"id": 1, "class": "EvalOS"}]}


def captured(host, *about, **options):
    """Runs the script on a fake host; returns the run and the directory that it made."""
    cwd = host.working_directory()
    run = host.run(SCRIPT, [cwd / "captured", *about], cwd=cwd, tools=TOOLS, **options)
    return run, cwd / "captured"


def contents(directory):
    return {str(path.relative_to(directory)): path.read_bytes()
            for path in directory.rglob("*") if path.is_file()}


@pytest.mark.parametrize("name", fakehost.host_names())
def test_a_captured_host_is_judged_as_the_host_itself(new_host, name):
    host = new_host(name)
    run, directory = captured(host)
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    original, copy = Model(host.directory), Model(directory)
    assert copy.document() == original.document()
    assert copy.report() == original.report()
    assert copy.records() == original.records()


def test_all_files_are_captured_as_they_are(host):
    run, directory = captured(host, "a server", "of two sockets")
    expected_files = contents(host.directory)
    files = contents(directory)
    assert run.status == 0
    assert files.pop("about.txt") == b"a server of two sockets\n"
    assert json.loads(files.pop("host.json")) == host.facts
    del expected_files["about.txt"], expected_files["host.json"]
    serial = b"\tSerial Number: "
    assert serial + b"0000001\n" in expected_files["commands/dmidecode.txt"]
    expected_files["commands/dmidecode.txt"] = expected_files["commands/dmidecode.txt"].replace(
        serial + b"0000001\n", serial + b"Not Captured\n")
    assert files == expected_files


@pytest.mark.host("nothing-known")
def test_a_host_without_anything_gives_just_its_names(host):
    _, directory = captured(host)
    assert set(contents(directory)) == {"about.txt", "host.json"}
    assert json.loads((directory / "host.json").read_text()) == host.facts


def test_the_environment_is_captured_with_all_its_characters(host):
    host.env(HOST='a "b" \\c', KORSYSTEMNAME="")
    _, directory = captured(host)
    assert json.loads((directory / "host.json").read_text())["environment"] == {
        "HOST": 'a "b" \\c', "KORSYSTEMNAME": ""}


def test_a_scanner_that_cannot_be_executed_prints_nothing(host):
    _, directory = captured(host, scanner_mode=0o644)
    assert (directory / "scanner.txt").read_bytes() == b""


def test_a_scanner_that_is_not_writable_counts_as_missing(host):
    _, directory = captured(host, scanner_read_only=True)
    assert not (directory / "scanner.txt").exists()


def test_an_existing_directory_is_left_alone(host):
    cwd = host.working_directory()
    run = host.run(SCRIPT, [cwd], cwd=cwd, tools=TOOLS)
    assert run.status == 73 and b"exists already" in run.stderr
    assert [path.name for path in cwd.iterdir()] == ["scanhypervisorCheck"]


@pytest.mark.parametrize("arguments", [[], [""]])
def test_without_a_directory_there_is_a_usage(host, arguments):
    run = host.run(SCRIPT, arguments, tools=TOOLS)
    assert (run.status, run.stdout) == (64, b"")
    assert run.stderr.startswith(b"Usage: capture-host DIRECTORY")


# This machine.

@pytest.fixture
def here(namespaces, scratch):
    """A directory with our scanner in it, and what the script captures of this machine there."""
    cwd = pathlib.Path(scratch).resolve() / "run"
    cwd.mkdir()
    shutil.copy(fakehost.program("scanhypervisorCheck"), cwd)
    directory = cwd.parent / "captured"
    subprocess.run([SCRIPT, directory], cwd=cwd, env={"PATH": fakehost.TOOL_PATH, "HOST": "here"},
                   check=True, stdin=subprocess.DEVNULL, timeout=fakehost.TIMEOUT_SECONDS)
    (cwd / "config.json").write_text(json.dumps(EVALOS))
    return cwd, directory


def test_this_machine_is_judged_as_the_model_judges_it(here):
    cwd, directory = here
    # Clock speeds change by themselves; all else is read from where it really stands.
    pinned = [(path, directory / "root" / path[1:]) for path in ("/proc/cpuinfo", "/proc/meminfo")
              if (directory / "root" / path[1:]).exists()]
    run = fakehost.run_here(fakehost.program("vetra"), ["-f", "config.json"], cwd, pinned,
                            {"HOST": "here"})
    model = Model(directory)
    assert run.result == model.document() + b"\n"
    assert run.stdout == (expected.configuration(cwd, [("1", "EvalOS")])
                          + expected.evalos(model.noise(), model.report())
                          + expected.writing(cwd, *run.results))
    assert run.status == 0


def test_this_machine_serves_as_a_fake_host(here, new_host):
    _, directory = here
    host = new_host(directory)
    run, model = host.evaluate(), Model(directory)
    assert run.result == model.document() + b"\n"
    assert run.report == model.report()


def test_the_capture_leaves_nothing_but_its_directory(here):
    cwd, directory = here
    assert sorted(os.listdir(cwd)) == ["config.json", "scanhypervisorCheck"]
    assert sorted(os.listdir(directory.parent)) == ["captured", "run"]
