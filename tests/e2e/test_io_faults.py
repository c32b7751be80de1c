"""What a measurement does when something fails or ends it: one clear line, a status, no file."""
import contextlib
import ctypes
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import time

import pytest

import fakehost
import io_mounts
import io_runs
import mounts
from io_runs import DATA_FILE, finish, fsperf, held, started, until_opened, until_written

MIB = 1 << 20
# Far more than a machine has: a file system in memory takes only what is written.
PLENTY = 64 << 30
# Runs that are interrupted long before they could end.
LONG = ("-b", "64K", "-f", "8G", "-s", "64K", "-c", "-o", "json")
SMALL = ("-b", "4K", "-f", "1M", "-o", "json")
ENDING = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]
MOMENTS = 10
LATEST_MOMENT = 0.15


@pytest.fixture(scope="module", autouse=True)
def own_mounts(namespaces):
    with io_mounts.private():
        yield


@pytest.fixture
def place(scratch):
    """A file system in memory with room for everything."""
    with io_mounts.memory(pathlib.Path(scratch) / "place", PLENTY) as directory:
        yield directory


@pytest.fixture
def small_place(scratch):
    """A file system in memory of 8 MiB."""
    with io_mounts.memory(pathlib.Path(scratch) / "place", 8 * MIB) as directory:
        yield directory


@pytest.fixture
def on_image(scratch):
    """Mounts a fresh ext4 on an image of that size; the test is skipped where that cannot be."""
    with contextlib.ExitStack() as stack:
        def make(size):
            image = pathlib.Path(scratch) / "images" / "image"
            try:
                stack.enter_context(io_mounts.memory(image.parent, PLENTY))
                return image, stack.enter_context(io_mounts.on_image(
                    "ext4", pathlib.Path(scratch) / "place", image, size))
            except io_mounts.Unavailable as reason:
                pytest.skip(str(reason))

        yield make


@pytest.fixture
def plain_memory():
    """A sanitizer reserves more address space than any limit, and ends a program that asks for
    more than there is with a report of its own."""
    if fakehost.is_sanitized("fsperf"):
        pytest.skip("the programs carry a sanitizer")


def fatal_line(directory, what, error, program="fsperf"):
    """A pattern: the one line of a transfer that failed."""
    path = re.escape(os.fsencode(directory / DATA_FILE))
    return (re.escape(program.encode()) + rb": fatal: " + error + rb": " + what + rb" of " + path
            + rb" at offset \d+, size \d+ [^\n]*\n")


def is_empty(directory):
    return list(directory.iterdir()) == []


def sparse_file(directory, size):
    with open(directory / DATA_FILE, "wb") as file:
        file.truncate(size)


def fill(directory):
    """Another file takes what space there is."""
    with contextlib.suppress(OSError), open(directory / "other", "wb", buffering=0) as file:
        while file.write(bytes(64 << 10)):
            pass


NO_SPACE = rb"28 ENOSPC: No space left on device"


# A full file system, phase by phase.

def test_a_file_system_that_is_too_small_is_said_before_the_first_request(small_place):
    run = fsperf("-b", "4K", "-f", "64M", "-o", "json", small_place)
    line = (f"vetra: {small_place}/{DATA_FILE} needs {64 * MIB} bytes, but only {8 * MIB} are "
            "free\nERROR: Creation of data file failed!\n")
    assert (run.returncode, run.stdout, run.stderr) == (4, b"", line.encode())
    assert is_empty(small_place)


@pytest.mark.parametrize("arguments", [
    ("-t", "initial_write", "-m", "latency"), ("-t", "initial_write", "-m", "throughput"),
    ("-t", "overwrite"), ("-t", "read")], ids=" ".join)
def test_a_file_system_that_fills_up_meanwhile_ends_the_first_writing(place, arguments):
    with started("fsperf", *arguments, *LONG, place) as run:
        until_written(run, place)
        with held(run):
            io_mounts.leave_no_space(place)
        status, errors = finish(run)
    assert status == -signal.SIGABRT
    assert re.fullmatch(fatal_line(place, b"write", NO_SPACE), errors)
    assert is_empty(place)


def test_the_space_of_another_file_on_a_disk_is_missing_to_ours(on_image):
    _, place = on_image(64 * MIB)
    shutil.rmtree(place / "lost+found")
    with started("fsperf", "-t", "initial_write", "-m", "latency", "-b", "4K", "-f", "48M", "-s",
                 "4K", "-c", "-o", "json", place) as run:
        until_written(run, place)
        with held(run):
            fill(place)
        status, errors = finish(run)
    assert status == -signal.SIGABRT
    assert re.fullmatch(fatal_line(place, b"write", NO_SPACE), errors)
    assert [path.name for path in place.iterdir()] == ["other"]


@pytest.mark.parametrize("measured", ["latency", "throughput"])
@pytest.mark.parametrize("words, left", [((), []), (("noclean",), [DATA_FILE])])
def test_overwriting_holes_of_a_full_file_system_ends_the_run(small_place, measured, words, left):
    sparse_file(small_place, 4 * MIB)
    fill(small_place)
    run = fsperf("-t", "overwrite", "-m", measured, "-b", "4K", "-f", "4M", "-o", "json", "noinit",
                 *words, small_place)
    assert (run.returncode, run.stdout) == (-signal.SIGABRT, b"")
    assert re.fullmatch(fatal_line(small_place, b"write", NO_SPACE), run.stderr)
    assert sorted(path.name for path in small_place.iterdir()) == [*left, "other"]


# Directories.

def test_a_directory_without_write_permission_is_refused_to_root_as_well(place):
    directory = place / "data"
    directory.mkdir(mode=0o555)
    run = fsperf(*SMALL, directory)
    assert (run.returncode, run.stderr) == (2, b"ERROR: No write permission on directory!\n")
    assert is_empty(directory)


def test_a_directory_that_cannot_be_listed_serves_for_writing(place):
    directory = place / "data"
    directory.mkdir(mode=0o300)
    run = fsperf("-t", "write", *SMALL, directory, preexec_fn=mounts.give_up_capabilities)
    assert (run.returncode, run.stderr) == (0, b"")
    assert is_empty(directory)


def test_a_mount_that_is_read_only_fails_the_creation(place):
    io_mounts.remount(place, "ro")
    run = fsperf(*SMALL, place)
    line = (f"vetra: cannot open {place}/{DATA_FILE}: Read-only file system\n"
            "ERROR: Creation of data file failed!\n")
    assert (run.returncode, run.stdout, run.stderr) == (4, b"", line.encode())


def test_a_directory_that_is_gone_fails_the_next_creation(place):
    directory = place / "data"
    directory.mkdir()
    with started("fsperf", "-m", "all", "-b", "4K", "-f", "64M", "-s", "4K", "-c", "-o", "json",
                 directory) as run:
        until_written(run, directory)
        with held(run):
            shutil.rmtree(directory)
        status, errors = finish(run)
    line = (f"vetra: cannot inspect {directory}: No such file or directory\n"
            "ERROR: Creation of data file failed!\n")
    assert (status, errors) == (4, line.encode())
    assert is_empty(place)


def test_a_file_that_somebody_removes_is_said_at_the_end(place):
    with started("fsperf", "-t", "initial_write", "-b", "4K", "-f", "64M", "-s", "4K", "-c",
                 "-o", "json", place) as run:
        until_written(run, place)
        with held(run):
            (place / DATA_FILE).unlink()
        status, errors = finish(run)
    line = f"{place}/{DATA_FILE} was removed by somebody else while it was measured\n"
    assert (status, errors) == (0, line.encode())


# Transfers that fail.

@pytest.mark.parametrize("measured", ["latency", "throughput"])
def test_a_read_that_the_device_refuses_ends_the_run(on_image, measured):
    image, place = on_image(64 * MIB)
    shutil.rmtree(place / "lost+found")
    arguments = ("-b", "64K", "-f", "32M", "-s", "64K", "-o", "json")
    assert fsperf("-t", "initial_write", *arguments, "noclean", place).returncode == 0
    os.truncate(image, MIB)
    run = fsperf("-t", "read", "-m", measured, *arguments, "noinit", place)
    assert (run.returncode, run.stdout) == (-signal.SIGABRT, b"")
    assert re.fullmatch(fatal_line(place, b"read", rb"5 EIO: Input/output error"), run.stderr)
    assert is_empty(place)


@pytest.mark.parametrize("measured", ["latency", "throughput"])
def test_a_write_that_the_device_refuses_ends_the_run(on_image, measured):
    image, place = on_image(64 * MIB)
    shutil.rmtree(place / "lost+found")
    io_mounts.leave_no_space(image.parent)
    run = fsperf("-t", "initial_write", "-m", measured, "-b", "64K", "-f", "32M", "-o", "json",
                 place)
    assert (run.returncode, run.stdout) == (-signal.SIGABRT, b"")
    # Which of the two a loop device makes of its own full file system depends on the kernel.
    error = rb"(5 EIO: Input/output error|" + NO_SPACE + rb")"
    assert re.fullmatch(fatal_line(place, b"write", error), run.stderr)
    assert is_empty(place)


def test_a_file_that_is_too_short_for_the_read_ends_the_run(place):
    sparse_file(place, 0)
    run = fsperf("-t", "read", *SMALL, "noinit", place)
    assert (run.returncode, run.stdout) == (-signal.SIGABRT, b"")
    assert re.fullmatch(fatal_line(place, b"read", rb"61 ENODATA: No data available"),
                        run.stderr)
    assert is_empty(place)


# What the system does not grant.

@contextlib.contextmanager
def requests_reserved(leaving):
    """Kernel requests in use, but for `leaving` of them."""
    def number(name):
        return int(pathlib.Path(f"/proc/sys/fs/aio-{name}").read_text())

    count = number("max-nr") - number("nr") - leaving
    if count <= 0 or number("max-nr") > 4 * MIB:
        pytest.skip(f"fs.aio-max-nr is {number('max-nr')}")
    library = ctypes.CDLL("libaio.so.1")
    context = ctypes.c_void_p()
    assert library.io_setup(count, ctypes.byref(context)) == 0
    try:
        yield number("max-nr")
    finally:
        library.io_destroy(context)


def test_requests_that_the_kernel_does_not_grant_are_said_with_the_limit(place):
    # A run that asks for the most there can be, so that others on the machine have enough before
    # it, and some while it holds what it got.
    with requests_reserved(leaving=16 * 2048 - 1) as allowed:
        run = fsperf(*SMALL, "--param", "num_completion_queues=16", "--param",
                     "size_kernel_io_queue=2048", place)
    assert (run.returncode, run.stdout) == (3, b"")
    line = re.fullmatch(
        rb"vetra: cannot set up 2048 asynchronous requests: Resource temporarily unavailable: "
        rb"(\d+) of (\d+) allowed are in use; raise the limit with sysctl fs\.aio-max-nr\n"
        rb"ERROR: Creation of file factory failed!\n", run.stderr)
    assert line and 0 < int(line[1]) <= int(line[2]) == allowed
    assert is_empty(place)


@pytest.mark.parametrize("arguments, line", [
    (("-f", "1024P"), b"ERROR: Exception: Could not allocate buffer!\n"),
    (("-f", "1024P", "-s", "4K"),
     b"ERROR: Exception: Could not allocate IO control block buffer!\n")])
def test_memory_that_no_machine_has_is_refused(plain_memory, place, arguments, line):
    run = fsperf("-b", "4K", *arguments, "-o", "json", place)
    assert (run.returncode, run.stdout, run.stderr) == (3, b"", line)
    assert is_empty(place)


def test_wherever_memory_ends_there_is_one_line_and_no_file(plain_memory, place):
    step, refused, granted = 64 << 10, 0, 16 << 10
    statuses = {}
    while granted - refused > 1:
        limit = (refused + granted) // 2
        run = fsperf("-b", "4K", "-f", "128M", "-s", "4K", "-c", "-o", "json", place,
                     preexec_fn=lambda size=limit * step: resource.setrlimit(
                         resource.RLIMIT_AS, (size, size)))
        assert is_empty(place)
        statuses[limit] = run.returncode
        if run.returncode == 0:
            granted = limit
            continue
        refused = limit
        assert run.stdout == b"" and run.stderr.count(b"\n") in (1, 2), run.stderr
    assert set(statuses.values()) <= {0, 1, 3}
    # What fails last is the list of the blocks' order, when the file is there already.
    assert statuses[refused] == 1


# Signals.

@pytest.fixture
def moments():
    seed = int(os.environ.get("VETRA_E2E_SEED") or random.SystemRandom().randrange(1 << 32))
    print(f"the same moments again: VETRA_E2E_SEED={seed}")
    return random.Random(seed)


def interrupt(process, number, delay):
    """Sends the signal after so many seconds, unless the program has ended by then."""
    end = time.monotonic() + delay
    while time.monotonic() < end and process.poll() is None:
        time.sleep(io_runs.PAUSE_SECONDS)
    process.send_signal(number)
    return finish(process)


@pytest.mark.parametrize("number", ENDING, ids=lambda number: number.name)
def test_a_signal_at_any_moment_of_a_phase_ends_it_without_a_file(place, moments, number):
    for _ in range(MOMENTS):
        phase = moments.choice(["initial_write", "overwrite", "read"])
        words = [] if phase == "initial_write" else ["noinit"]
        measured = moments.choice(["latency", "throughput"])
        if words:
            sparse_file(place, 8 << 30)
        with started("fsperf", "-t", phase, "-m", measured, *LONG, *words, place) as run:
            if words:
                until_opened(run, place)  # before that a file of an earlier run is left alone
            status, errors = interrupt(run, number, moments.uniform(0, LATEST_MOMENT))
        assert (status, errors) == (-number, b""), (phase, measured)
        assert is_empty(place), (phase, measured)


@pytest.mark.parametrize("number", ENDING, ids=lambda number: number.name)
def test_a_signal_between_the_phases_leaves_no_file_either(place, moments, number):
    arguments = ("-m", "all", "-b", "64K", "-f", "1M", "-o", "json", place)
    begin = time.monotonic()
    assert fsperf(*arguments).returncode == 0
    whole = time.monotonic() - begin
    for _ in range(MOMENTS):
        with started("fsperf", *arguments) as run:
            status, errors = interrupt(run, number, moments.uniform(0, whole))
        assert status in (0, -number) and errors == b""
        assert is_empty(place)


@pytest.mark.parametrize("number", ENDING, ids=lambda number: number.name)
def test_a_file_that_is_to_be_kept_outlives_the_signal(place, number):
    with started("fsperf", *LONG, "noclean", place) as run:
        until_written(run, place)
        run.send_signal(number)
        assert finish(run) == (-number, b"")
    assert [path.name for path in place.iterdir()] == [DATA_FILE]


def test_a_reader_that_goes_away_ends_the_run_without_a_file(place):
    reading, writing = os.pipe()
    with started("fsperf", "-m", "all", "-b", "4K", "-f", "1M", "-o", "full", place,
                 stdout=writing) as run:
        os.close(writing)
        with open(reading, "rb") as output:
            while not output.readline().startswith(b"Full statistics"):
                assert run.poll() is None
        assert finish(run) == (-signal.SIGPIPE, b"")
    assert is_empty(place)


def test_the_tool_writes_its_results_though_its_reader_has_gone_away(place):
    reading, writing = os.pipe()
    os.close(reading)
    (place / "config.json").write_text('{"tests": [{"id": 1, "class": "EvalOS"}]}')
    with started("vetra", "-f", "config.json", stdout=writing, cwd=place) as run:
        os.close(writing)
        assert finish(run)[0] == 0
    (result,) = place.glob("test_*_EvalOS")
    assert json.loads(result.read_text())


def limited_to(size):
    return lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


def test_a_limit_for_files_ends_the_writing_one_way_or_the_other(place):
    arguments = ("-t", "initial_write", "-b", "64K", "-f", "4M", "-o", "json", place)
    run = fsperf("-m", "latency", *arguments, preexec_fn=limited_to(MIB))
    assert (run.returncode, run.stderr) == (-signal.SIGXFSZ, b"")
    assert is_empty(place)
    # The threads of the file layer take no signals: there the transfer itself fails.
    run = fsperf("-m", "throughput", *arguments, preexec_fn=limited_to(MIB))
    assert run.returncode == -signal.SIGABRT
    assert re.fullmatch(fatal_line(place, b"write", rb"27 EFBIG: File too large"), run.stderr)
    assert is_empty(place)


# Two at a time.

def test_the_second_run_in_a_directory_is_refused_and_the_first_goes_on(place):
    with started("fsperf", "-m", "latency", "-b", "64K", "-f", "32M", "-o", "json",
                 place) as first:
        until_written(first, place)
        with held(first):
            second = fsperf(*SMALL, place)
        assert finish(first) == (0, b"")
    line = (f"vetra: the directory {place} is in use by another measurement\n"
            "ERROR: Creation of file factory failed!\n")
    assert (second.returncode, second.stdout, second.stderr) == (3, b"", line.encode())
    assert is_empty(place)


def test_runs_in_two_directories_do_not_disturb_one_another(place):
    directories = [place / "one", place / "two"]
    for directory in directories:
        directory.mkdir()
    with started("fsperf", "-m", "latency", "-b", "64K", "-f", "32M", "-o", "json",
                 directories[0]) as first:
        until_written(first, directories[0])
        with held(first):
            second = fsperf("-m", "all", *SMALL, directories[1])
        assert finish(first) == (0, b"")
    assert (second.returncode, second.stderr) == (0, b"")
    assert all(is_empty(directory) for directory in directories)


# The same engine below the driver.

@contextlib.contextmanager
def vetra_measuring(directory, scratch, **options):
    """A run of the tool with one I/O test on the directory; its own files lie elsewhere."""
    own = pathlib.Path(scratch) / "own"
    own.mkdir()
    (own / "config.json").write_text(io_runs.configuration(directory))
    with started("vetra", "-f", "config.json", cwd=own, **options) as run:
        yield run


def test_the_tool_goes_on_after_a_test_that_found_too_little_space(small_place, scratch):
    with vetra_measuring(small_place, scratch) as run:
        status, errors = finish(run)
    line = (f"vetra: {small_place}/{DATA_FILE} needs {5 << 30} bytes, but only {8 * MIB} are "
            "free\nERROR: Creation of data file failed!\n")
    assert (status, errors) == (0, line.encode())
    assert is_empty(small_place)


def test_the_tool_aborts_where_a_file_system_fills_up(place, scratch):
    with vetra_measuring(place, scratch) as run:
        until_written(run, place)
        with held(run):
            io_mounts.leave_no_space(place)
        status, errors = finish(run)
    assert status == -signal.SIGABRT
    assert re.fullmatch(fatal_line(place, b"write", NO_SPACE, "vetra"), errors)
    assert is_empty(place)


@pytest.mark.parametrize("number", ENDING, ids=lambda number: number.name)
def test_a_signal_ends_the_tool_and_its_file(place, scratch, number):
    with vetra_measuring(place, scratch) as run:
        until_written(run, place)
        run.send_signal(number)
        assert finish(run) == (-number, b"")
    assert is_empty(place)


def test_the_tool_survives_the_signal_of_a_limit_and_aborts_for_its_transfer(place, scratch):
    with vetra_measuring(place, scratch, prepare=limited_to(64 * MIB)) as run:
        status, errors = finish(run)
    assert status == -signal.SIGABRT
    assert re.fullmatch(fatal_line(place, b"write", rb"27 EFBIG: File too large", "vetra"), errors)
    assert is_empty(place)
