"""The command line of vetra: three useful forms, and the usage for everything else."""
import pytest

import expected

USAGE_ERRORS = {
    "nothing": [],
    "flag-alone": ["-f"],
    "two-files": ["-f", "a.json", "b.json"],
    "help-with-more": ["-h", "x"],
    "long-help-with-more": ["--help", "x"],
    "version-with-more": ["-v", "x"],
    "long-version-with-more": ["--version", "x"],
    "upper-case-flag": ["-F", "config.json"],
    "longer-flag": ["-fx", "config.json"],
    "flag-and-blank": ["-f ", "config.json"],
    "shorter-flag": ["-", "config.json"],
    "empty-flag": ["", "config.json"],
    "long-flag": ["--file", "config.json"],
    "flag-behind-file": ["config.json", "-f"],
    "file-alone": ["config.json"],
    "upper-case-help": ["-H"],
    "upper-case-version": ["-V"],
    "longer-help": ["--helpme"],
    "shorter-help": ["--hel"],
    "empty-argument": [""],
    "joined-flags": ["-hv"],
}


@pytest.mark.parametrize("arguments", USAGE_ERRORS.values(), ids=USAGE_ERRORS.keys())
def test_other_arguments_print_the_usage_and_end_with_255(host, arguments):
    run = host.vetra({}, arguments=arguments)
    assert (run.status, run.stdout, run.stderr) == (255, expected.USAGE, b"")
    assert not run.log


@pytest.mark.parametrize("flag", ["-h", "--help"])
def test_help_prints_the_usage(host, flag):
    run = host.vetra(arguments=[flag])
    assert (run.status, run.stdout, run.stderr) == (0, expected.USAGE, b"")


@pytest.mark.parametrize("flag", ["-v", "--version"])
def test_version_prints_one_line(host, flag):
    run = host.vetra(arguments=[flag])
    assert expected.VERSION.fullmatch(run.stdout)
    assert (run.status, run.stderr) == (0, b"")


def test_both_forms_of_the_version_agree(host):
    assert host.vetra(arguments=["-v"]).stdout == host.vetra(arguments=["--version"]).stdout


@pytest.mark.parametrize("arguments", [["-h"], ["-v"], []], ids=["help", "version", "usage"])
def test_without_a_run_no_file_comes_into_being(host, arguments):
    run = host.vetra(arguments=arguments)
    assert [path.name for path in run.cwd.iterdir()] == ["scanhypervisorCheck"]
    assert run.commands == []


@pytest.mark.parametrize("name", ["config.json", "./config.json", "-h", "-f", "--version",
                                  "name with blanks.json", "n\u00e4me.json"])
def test_a_run_takes_any_file_name(host, name):
    run = host.vetra(arguments=["-f", name], files={name: b"{}"})
    assert (run.status, run.stdout, run.stderr) == (0, expected.configuration(run.cwd), b"")


def test_an_absolute_path_serves(host):
    cwd = host.working_directory()
    run = host.vetra({}, arguments=["-f", cwd / "config.json"], cwd=cwd)
    assert (run.status, run.stdout) == (0, expected.configuration(cwd))


@pytest.mark.parametrize("name", ["", "missing.json", "missing/config.json"])
def test_a_missing_file_is_an_error_with_status_0(host, name):
    run = host.vetra(arguments=["-f", name])
    assert run.status == 0 and run.stderr == b""
    assert expected.is_error(run.stdout, 4, b"Error while opening the file.")
