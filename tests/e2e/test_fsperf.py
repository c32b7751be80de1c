"""The measuring engine as a program: exit statuses, what it prints, and what it leaves behind."""
import json
import os
import pathlib
import re
import signal
import subprocess

import pytest

README = pathlib.Path(__file__).parents[2] / "README.md"
SMALL = ("-b", "4K", "-f", "1M")


@pytest.fixture
def directory(tmp_path):
    place = tmp_path / "data"
    place.mkdir()
    return place


def fsperf(*arguments, **options):
    program = os.path.join(os.environ["VETRA_BIN"], "fsperf")
    return subprocess.run([program, *map(str, arguments)], capture_output=True, timeout=120,
                          **options)


def test_without_arguments_and_with_help_it_prints_its_usage():
    for arguments in ((), ("-h",), ("--help",)):
        run = fsperf(*arguments)
        assert run.returncode == 0 and run.stdout.startswith(80 * b"*" + b"\n")
        assert b"noclean" in run.stdout


@pytest.mark.parametrize("flag", ["-v", "--version"])
def test_it_tells_its_version(flag):
    run = fsperf(flag)
    assert run.returncode == 0
    assert re.fullmatch(rb"fsperf-\d+\.\d+\.\d+ \(\d{4}-\d\d-\d\d\)\n", run.stdout)


def test_json_stands_alone_and_agrees_with_itself(directory):
    run = fsperf("-m", "all", *SMALL, "-o", "json", directory)
    assert (run.returncode, run.stderr) == (0, b"")
    document = json.loads(run.stdout)
    assert document["TotalSize"] == "1048576" and document["MeasurementTypes"] == "full"
    for phase in ("Initial", "Overwrite", "Read"):
        assert float(document[phase]["Throughput"]["IoThroughput"]) > 0
        assert float(document[phase]["Latency"]["Throughput"]) > 0
    assert list(directory.iterdir()) == []


def test_the_report_is_followed_by_the_row_of_the_table(directory):
    run = fsperf("-m", "all", *SMALL, directory)
    assert (run.returncode, run.stderr) == (0, b"")
    assert run.stdout.startswith(b"The tests will be executed with the following settings:\n")
    assert re.fullmatch(rb"4K     1M   ( +\d+\.\d\d){4}", run.stdout.splitlines()[-1])


@pytest.mark.parametrize("order", ["random", "sequential"])
@pytest.mark.parametrize("parameters", [
    {}, {"num_completion_queues": 4, "num_submit_queues": 4}, {"async_read_submit": "off"},
    {"async_write_submit_active": "off"}, {"async_write_submit_blocks": "none"},
    {"size_kernel_io_queue": 128, "max_parallel_io_requests": 2, "max_submit_batch_size": 2,
     "min_submit_batch_size": 1}])
def test_every_way_of_submission_comes_to_its_end(directory, order, parameters):
    words = [word for key, value in parameters.items() for word in ("--param", f"{key}={value}")]
    run = fsperf("-m", "all", *SMALL, "-i", order, "-o", "json", *words, directory)
    assert (run.returncode, run.stderr) == (0, b"")
    assert json.loads(run.stdout)["IoOrder"] == order


def test_a_file_that_is_kept_can_be_read_again(directory):
    assert fsperf(*SMALL, "-o", "json", "noclean", directory).returncode == 0
    assert (directory / "datavol.dat").stat().st_size == 1 << 20
    run = fsperf("-t", "read", *SMALL, "-o", "json", "noinit", directory)
    assert (run.returncode, list(directory.iterdir())) == (0, [])
    assert list(json.loads(run.stdout))[-1] == "Read"


def test_refused_arguments_have_status_2(directory):
    run = fsperf("-b", "0", directory)
    assert (run.returncode, run.stderr) == (2, b"ERROR: Invalid block size specified!\n")
    assert b"evaluation is unsuccessful\n" in run.stdout


def test_a_parameter_out_of_range_has_status_3(directory):
    run = fsperf(*SMALL, "--param", "num_submit_queues=17", directory)
    assert run.returncode == 3
    assert run.stderr.endswith(b"ERROR: Parameter check failed!\n")
    assert b'Parameter value "16" in file factory does not match specified\n' in run.stderr


def test_a_missing_data_file_has_status_7_without_a_word(directory):
    run = fsperf("-t", "read", *SMALL, "noinit", directory)
    assert (run.returncode, run.stderr) == (7, b"")


def test_more_than_fits_is_refused_with_both_numbers(directory):
    run = fsperf("-b", "1G", "-f", "1024T", "-s", "1G", "-t", "initial_write", directory)
    assert run.returncode == 4
    assert re.search(rb"needs 1125899906842624 bytes, but only \d+ are free\n", run.stderr)
    assert run.stderr.endswith(b"ERROR: Creation of data file failed!\n")
    assert list(directory.iterdir()) == []


@pytest.mark.parametrize("mode", ["off", "all", "main", "trigger", "submit", "completion"])
def test_a_run_can_be_profiled_in_every_mode(directory, tmp_path, mode):
    run = fsperf("-m", "all", *SMALL, "-o", "json", "-p", f"{mode}:{tmp_path}/prof", directory)
    assert (run.returncode, run.stderr) == (0, b"")
    assert float(json.loads(run.stdout)["Read"]["Throughput"]["IoThroughput"]) > 0
    written = {path.name for path in tmp_path.glob("prof*")}
    assert written == (set() if mode == "off" else {"prof-cpu.dot", "prof-wait.dot"})


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_ends_a_run_and_removes_its_file(directory, number):
    program = os.path.join(os.environ["VETRA_BIN"], "fsperf")
    with subprocess.Popen([program, "-m", "latency", "-b", "4K", "-f", "128M", "-s", "4K",
                           str(directory)], stdout=subprocess.DEVNULL) as run:
        while not (directory / "datavol.dat").exists() and run.poll() is None:
            pass
        run.send_signal(number)
        assert run.wait(timeout=60) == -number
    assert list(directory.iterdir()) == []


def test_a_directory_serves_one_measurement_at_a_time(directory):
    program = os.path.join(os.environ["VETRA_BIN"], "fsperf")
    with subprocess.Popen([program, "-m", "latency", "-b", "4K", "-f", "128M", "-s", "4K",
                           str(directory)], stdout=subprocess.DEVNULL) as first:
        while not (directory / "datavol.dat").exists() and first.poll() is None:
            pass
        second = fsperf(*SMALL, directory)
        first.terminate()
    assert second.returncode == 3
    assert b"is in use by another measurement\n" in second.stderr
    assert second.stderr.endswith(b"ERROR: Creation of file factory failed!\n")


def test_the_conversion_of_the_readme_makes_an_array(directory):
    texts = [fsperf("-m", "all", *SMALL, "-o", "json", directory).stdout for _ in range(2)]
    joined = b"{\n" + b",\n".join(texts) + b"}\n"
    script = re.search(r"^    sed '(.*)' test_", README.read_text(), re.M)[1]
    array = subprocess.run(["sed", script], input=joined, capture_output=True, check=True).stdout
    assert [document["BlockSize"] for document in json.loads(array)] == ["4096", "4096"]
