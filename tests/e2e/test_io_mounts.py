"""Measurements on the file systems that operators have, each made for the test."""
import contextlib
import json
import pathlib
import tempfile
import time

import pytest

import io_mounts
from io_runs import DATA_FILE, PAUSE_SECONDS, fsperf
from io_trace import traced

MIB = 1 << 20
GIB = 1 << 30
KINDS = ["ext4", "xfs", "btrfs", "tmpfs"]
# Whether a file system is known as a real one, and whether it is supported.
WORDS = {"ext4": ("Yes", "Yes"), "xfs": ("Yes", "Yes"), "btrfs": ("Yes", "No"),
         "tmpfs": ("No", "No"), "ramfs": ("No", "No")}
DIRECTIONS = ("Initial", "Overwrite", "Read")
# Figures are printed with six digits.
PRINTED = 1e-5
# Six digits are up to 5e-6 off; a figure and the two that it follows from, three times that.
PRINTED_THRICE = 1.51e-5
CLOCKS_AGREE = 0.03
ATTEMPTS = 3


@pytest.fixture(scope="module", autouse=True)
def own_mounts(namespaces):
    with io_mounts.private():
        yield


@pytest.fixture
def mounted():
    """Mounts a fresh file system of that kind; where it lies on an image, this lies on the disk.
    The test is skipped on a machine that lacks what it takes."""
    with contextlib.ExitStack() as stack:
        place = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="vetra-e2e-")))

        def mount(kind):
            try:
                return stack.enter_context(file_system(kind, place))
            except io_mounts.Unavailable as reason:
                pytest.skip(str(reason))

        yield mount


def file_system(kind, place):
    if kind == "tmpfs":
        return io_mounts.memory(place / kind, 4 * GIB)
    if kind == "ramfs":
        return io_mounts.mounted(kind, place / kind)
    return io_mounts.on_image(kind, place / kind, place / "image", 2 * GIB)


def names_in(directory):
    return sorted(path.name for path in directory.iterdir())


def check_head(document, directory, kind, size, block):
    assert document["Path"] == str(directory)
    assert document["FileSystem"] == kind
    assert (document["Validated"], document["Supported"]) == WORDS[kind]
    assert (document["TotalSize"], document["BlockSize"]) == (str(size), str(block))
    assert (document["IoOrder"], document["RandomizedData"]) == ("random", "Yes")
    assert document["MeasurementTypes"] == "full"


def check_throughput(figures):
    """Figures of a pass whose requests are submitted by threads follow from one another."""
    figure = {name: float(text) for name, text in figures.items()}
    transferred, triggered = figure["IoThroughput"], figure["TriggerThroughput"]
    assert transferred > 0
    assert figure["RatioTriggerTime2IOTime"] == pytest.approx(transferred / triggered,
                                                              rel=PRINTED_THRICE)
    # The caller has handed over all requests before the last of them can have ended.
    assert triggered >= transferred
    assert figure["AsyncSubmitThroughput"] > 0 and figure["SyncSubmitThroughput"] == 0


def check_latency(figures, size, block):
    """With one request at a time the latency is what each of them takes of the whole time."""
    seconds = size / MIB / float(figures["Throughput"])
    mean = seconds * 1e6 / (size // block)
    latency = int(figures["Latency"])
    # It is printed in whole microseconds; between two requests the caller takes a moment as well.
    assert latency <= mean * (1 + PRINTED) and mean * 0.95 <= latency + 1


@pytest.mark.parametrize("kind", KINDS)
def test_a_whole_measurement_has_figures_that_fit_together(mounted, kind):
    directory = mounted(kind)
    before = names_in(directory)
    run = fsperf("-m", "all", "-b", "4K", "-f", "64M", "-o", "json", directory)
    assert (run.returncode, run.stderr) == (0, b"")
    document = json.loads(run.stdout)
    check_head(document, directory, kind, 64 * MIB, 4096)
    for direction in DIRECTIONS:
        check_throughput(document[direction]["Throughput"])
        check_latency(document[direction]["Latency"], 64 * MIB, 4096)
    assert names_in(directory) == before


def throughput_from_outside(trace, size):
    """MB/s between the first submission and the last completion, by the tracer's clock."""
    first = min(call.time for call in trace.of("io_submit"))
    last = max(call.time + call.spent for call in trace.of("io_getevents") if call.result)
    return size / MIB / (last - first)


def difference(directory, phase, size):
    """How far the printed throughput is from that which the tracer saw in the same run."""
    trace = traced("-t", phase, "-b", "1M", "-f", f"{size // MIB}M", "-s", "1M", "-c", "-o", "json",
                   "noinit", "noclean", directory)
    assert (trace.run.returncode, trace.run.stderr) == (0, b"")
    assert sum(trace.batches()) == size // MIB
    figures = json.loads(trace.run.stdout)["Read" if phase == "read" else "Overwrite"]
    printed = float(figures["Throughput"]["IoThroughput"])
    return abs(printed / throughput_from_outside(trace, size) - 1)


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("phase", ["overwrite", "read"])
def test_the_printed_throughput_is_that_which_is_seen_from_outside(mounted, kind, phase):
    directory = mounted(kind)
    size = 512 * MIB
    run = fsperf("-t", "initial_write", "-b", "1M", "-f", "512M", "-s", "1M", "-c", "-o", "json",
                 "noclean", directory)
    assert (run.returncode, run.stderr) == (0, b"")
    # A thread that has to wait for a processor between the two clocks may spoil one run, not all.
    differences = []
    while not differences or (differences[-1] > CLOCKS_AGREE and len(differences) < ATTEMPTS):
        differences.append(difference(directory, phase, size))
    assert min(differences) <= CLOCKS_AGREE, differences


def test_a_file_system_that_refuses_direct_transfers_is_said_once(mounted):
    directory = mounted("ramfs")
    run = fsperf("-m", "all", "-b", "4K", "-f", "4M", "-o", "json", directory)
    line = (f"vetra: the file system of {directory} refuses direct I/O (the opening of a file: "
            "Invalid argument); the page cache is used, and figures are not the device's\n")
    assert (run.returncode, run.stderr) == (0, line.encode())
    check_head(json.loads(run.stdout), directory, "ramfs", 4 * MIB, 4096)
    assert names_in(directory) == []


def test_a_test_that_fails_leaves_neither_mount_nor_loop_device(tmp_path):
    image = tmp_path / "image"
    with contextlib.suppress(ZeroDivisionError):
        with contextlib.ExitStack() as stack:
            try:
                place = stack.enter_context(
                    io_mounts.on_image("ext4", tmp_path / "place", image, 16 * MIB))
            except io_mounts.Unavailable as reason:
                pytest.skip(str(reason))
            assert place.is_mount() and io_mounts.loop_devices_of(image)
            (place / DATA_FILE).touch()
            raise ZeroDivisionError
    assert not place.is_mount()
    end = time.monotonic() + 10
    while io_mounts.loop_devices_of(image) and time.monotonic() < end:
        time.sleep(PAUSE_SECONDS)  # the kernel takes the device away by itself, a little later
    assert io_mounts.loop_devices_of(image) == []
