"""What the programs write as root where others may write too, and what they hand on to commands."""
import json
import os
import subprocess

import pytest

import fakehost

SOMEBODY = 65534
UNTOUCHED = b"as it was\n"

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="only root can make links for others")


@pytest.fixture
def shared(tmp_path):
    """A directory that everybody may write to, in one that only root may."""
    tmp_path.chmod(0o755)
    (tmp_path / "target").write_bytes(UNTOUCHED)
    place = tmp_path / "shared"
    place.mkdir()
    place.chmod(0o777)
    return place


def link_of_somebody(path, target):
    path.symlink_to(target)
    os.chown(path, SOMEBODY, SOMEBODY, follow_symlinks=False)


def run(name, *arguments, cwd, **variables):
    environment = {**os.environ, **fakehost.sanitizer_options(), **variables}
    return subprocess.run([fakehost.program(name), *map(str, arguments)], cwd=cwd, timeout=120,
                          env=environment, capture_output=True)


def vetra(cwd, output_dir, tests=({"id": 1, "class": "EvalOS"},), **variables):
    config = cwd.parent / "config.json"
    config.write_text(json.dumps({"output_dir": str(output_dir), "tests": list(tests)}))
    return run("vetra", "-f", config, cwd=cwd, **variables)


def test_the_log_goes_through_no_link_of_another_user(shared):
    link_of_somebody(shared / "vetra.trc", "../target")
    done = vetra(shared, shared.parent / "results")
    assert done.returncode == 0
    assert (shared.parent / "target").read_bytes() == UNTOUCHED
    assert len(list((shared.parent / "results").iterdir())) == 1


def test_the_log_goes_through_a_link_of_its_own_user(shared):
    (shared / "vetra.trc").symlink_to("../log")
    (shared.parent / "log").write_bytes(UNTOUCHED)
    assert vetra(shared, shared.parent / "results").returncode == 0
    assert (shared.parent / "log").read_bytes().startswith(UNTOUCHED + b"2")


def test_a_result_goes_through_no_link_of_another_user(shared):
    (shared.parent / "elsewhere").mkdir()
    link_of_somebody(shared / "results", "../elsewhere")
    done = vetra(shared.parent, shared / "results")
    assert done.returncode == 0 and b"Writing output to " in done.stdout
    assert b"is not written: it leads through a symbolic link of another user" in done.stderr
    assert not list((shared.parent / "elsewhere").iterdir())
    (shared / "results").unlink()
    (shared / "results").symlink_to("../elsewhere")
    vetra(shared.parent, shared / "results")
    assert len(list((shared.parent / "elsewhere").iterdir())) == 1


def write_initially(shared):
    return run("fsperf", "-m", "throughput", "-t", "initial_write", "-b", "4K", "-f", "1M", shared,
               cwd=shared.parent)


def test_the_data_file_is_made_through_no_link_of_another_user(shared):
    link_of_somebody(shared / "datavol.dat", "../missing")
    done = write_initially(shared)
    assert done.returncode != 0
    assert f"{shared}/datavol.dat: Permission denied\n".encode() in done.stderr
    assert not (shared.parent / "missing").exists()


def test_a_link_in_the_place_of_an_old_data_file_is_removed_and_not_followed(shared):
    link_of_somebody(shared / "datavol.dat", "../target")
    assert write_initially(shared).returncode == 0
    assert (shared.parent / "target").read_bytes() == UNTOUCHED
    assert not list(shared.iterdir())


def test_graphs_are_written_through_no_link_of_another_user(shared):
    (shared.parent / "elsewhere").mkdir()
    link_of_somebody(shared / "graphs", "../elsewhere")
    place = shared.parent / "data"
    place.mkdir()
    done = run("fsperf", "-m", "throughput", "-t", "initial_write", "-b", "4K", "-f", "1M", "-p",
               "all:shared/graphs/prof", place, cwd=shared.parent)
    assert done.returncode == 1 and b"Permission denied" in done.stderr
    assert not list((shared.parent / "elsewhere").iterdir())


STEERING = {"BASH_ENV": "x", "ENV": "x", "CDPATH": "x", "GREP_OPTIONS": "x", "GREP_COLOR": "1",
            "LD_BIND_NOW": "x", "LD_LIBRARY_PATH": "/nowhere"}


@pytest.mark.parametrize("name", ["vetra", "vetraApi"])
def test_commands_get_nothing_that_would_steer_them(shared, name):
    place = shared.parent
    (place / "bin").mkdir()
    script = place / "bin" / "rpm"
    script.write_text(f"#!/bin/sh\nenv > {place}/seen\n")
    script.chmod(0o755)
    variables = {**STEERING, "PATH": f"{place}/bin:{os.environ['PATH']}", "ZIRN_KEPT": "kept"}
    if name == "vetra":
        vetra(place, place / "results", **variables)
    else:
        run("vetraApi", "--all", cwd=place, **variables)
    seen = dict(line.split("=", 1) for line in (place / "seen").read_text().splitlines()
                if "=" in line)
    assert seen["ZIRN_KEPT"] == "kept"
    assert not [one for one in seen if one.startswith(("LD_", "GREP_")) or one in STEERING]
