"""The parameters of the file layer, by what the kernel and an onlooker see of them."""
import contextlib
import json
import pathlib
import re

import pytest

import io_mounts
from io_runs import DATA_FILE, fsperf, held, started, until_written
from io_trace import CALLS, system_calls, traced

KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30
REQUESTS = 2048
WORK = ("-m", "throughput", "-b", "4K", "-f", f"{REQUESTS * 4}K", "-s", "4K", "-c")


@pytest.fixture(scope="module", autouse=True)
def own_mounts(namespaces):
    with io_mounts.private():
        yield


@pytest.fixture
def place(scratch):
    with io_mounts.memory(pathlib.Path(scratch) / "place", GIB) as directory:
        yield directory


@pytest.fixture
def disk(scratch):
    """A file system that is flagged as one that wants its writes submitted asynchronously."""
    with contextlib.ExitStack() as stack:
        try:
            directory = stack.enter_context(io_mounts.on_image(
                "ext4", pathlib.Path(scratch) / "disk", pathlib.Path(scratch) / "image", 64 * MIB))
        except io_mounts.Unavailable as reason:
            pytest.skip(str(reason))
        yield directory


def parameters(**values):
    return [word for key, value in values.items() for word in ("--param", f"{key}={value}")]


def one_pass(directory, phase, *words, work=WORK, output="json", calls=CALLS, **values):
    """The system calls of one pass over one file: the file is there before, unless it is written
    anew."""
    noinit = []
    if phase != "initial_write":
        run = fsperf("-t", "initial_write", *work, "-o", "json", "noclean", directory)
        assert (run.returncode, run.stderr) == (0, b"")
        noinit = ["noinit"]
    trace = traced("-t", phase, *work, "-o", output, *noinit, *words, *parameters(**values),
                   directory, calls=calls)
    assert (trace.run.returncode, trace.run.stderr) == (0, b"")
    assert sum(trace.batches()) == REQUESTS, "each request is submitted once"
    return trace


# Who submits.

DIRECTION = {"read": "Read", "overwrite": "Overwrite", "initial_write": "Initial"}


def check_submitter(trace, phase, on_threads):
    """Who is seen to submit, and what the figures say of it."""
    figures = json.loads(trace.run.stdout)[DIRECTION[phase]]["Throughput"]
    if on_threads:
        assert trace.submitters() <= {"submit", "completion"}
        assert figures["SyncSubmitThroughput"] == "0"
        assert float(figures["AsyncSubmitThroughput"]) > 0
    else:
        assert trace.submitters() == {"main"} and set(trace.batches()) == {1}
        assert figures["AsyncSubmitThroughput"] == "0"
        assert float(figures["SyncSubmitThroughput"]) > 0


@pytest.mark.parametrize("word, on_threads", [("on", True), ("off", False)])
def test_reads_are_submitted_as_async_read_submit_says(place, word, on_threads):
    trace = one_pass(place, "read", async_read_submit=word, async_write_submit_active="off"
                     if on_threads else "on")
    check_submitter(trace, "read", on_threads)


@pytest.mark.parametrize("word, on_threads", [("on", True), ("off", False), ("auto", False)])
def test_writes_into_memory_are_submitted_as_async_write_submit_active_says(place, word,
                                                                           on_threads):
    trace = one_pass(place, "overwrite", async_write_submit_active=word, async_read_submit="off"
                     if on_threads else "on")
    check_submitter(trace, "overwrite", on_threads)


@pytest.mark.parametrize("word, on_threads", [("auto", True), ("off", False)])
def test_writes_onto_a_disk_are_automatically_submitted_by_threads(disk, word, on_threads):
    trace = one_pass(disk, "overwrite", async_write_submit_active=word)
    check_submitter(trace, "overwrite", on_threads)


@pytest.mark.parametrize("word, phases", [("none", []), ("new", ["initial_write"]),
                                          ("all", ["initial_write", "overwrite"])])
@pytest.mark.parametrize("phase", ["initial_write", "overwrite"])
def test_async_write_submit_blocks_tells_new_blocks_from_others(place, word, phases, phase):
    trace = one_pass(place, phase, async_write_submit_active="on", async_write_submit_blocks=word)
    check_submitter(trace, phase, phase in phases)


# Threads and queues.

def thread_names(process):
    return sorted(path.read_text().strip()
                  for path in pathlib.Path(f"/proc/{process.pid}/task").glob("*/comm"))


@pytest.mark.parametrize("submit, completion", [(1, 1), (3, 2), (16, 16)])
def test_each_queue_has_its_thread(place, submit, completion):
    with started("fsperf", "-m", "latency", "-b", "64K", "-f", "512M", "-s", "64K", "-c", "-o",
                 "json", *parameters(num_submit_queues=submit, num_completion_queues=completion),
                 place) as run:
        until_written(run, place)
        with held(run):
            names = thread_names(run)
    ours = [name for name in names if name != "fsperf"]
    assert ours == sorted([f"submit-{i}" for i in range(submit)]
                          + [f"completion-{i}" for i in range(completion)])


def test_every_queue_takes_part(place):
    trace = one_pass(place, "overwrite", output="full", num_submit_queues=4,
                     num_completion_queues=3, async_write_submit_active="on")
    assert len(trace.of("io_setup")) == len(trace.queues()) == 3
    reapers = {call.thread for call in trace.of("io_getevents") if call.result}
    assert len(reapers) == 3
    submitted, completed = printed_queues(trace.run.stdout)
    assert [queue["requests"] for queue in submitted] == [REQUESTS // 4] * 4
    assert len(completed) == 3 and sum(queue["requests"] for queue in completed) == REQUESTS


def printed_queues(text):
    """The lines of the queues in the statistics of a run of one pass: those of the submit queues
    and those of the completion queues."""
    pattern = re.compile(
        r"   queue \d+: (?P<calls>\d+) calls, (?P<requests>\d+) requests, "
        r"batches of (?P<least>\d+) to (?P<most>\d+), mean (?P<mean>\d+), "
        r"at most (?P<flight>\d+) in flight\n")
    halves = text.decode().split("Work of the completion queues")
    assert len(halves) == 2
    return [[{key: int(number) for key, number in line.groupdict().items()}
             for line in pattern.finditer(half)] for half in halves]


@pytest.mark.parametrize("size", [128, 512, 2048])
def test_the_kernel_is_asked_for_size_kernel_io_queue(place, size):
    trace = one_pass(place, "read", size_kernel_io_queue=size, num_completion_queues=2)
    assert [call.arguments[0] for call in trace.of("io_setup")] == [size, size]
    assert {call.result for call in trace.of("io_setup")} == {0}


# Requests in flight and batches.

def most_in_flight(trace, queue):
    """Requests given to the kernel and not yet taken back, when there were most of them. What is
    being given counts, since a slot was taken for it before."""
    steps = [(call.begin, call.batch) for call in trace.of("io_submit") if call.queue == queue]
    steps += [(call.end, -call.result) for call in trace.of("io_getevents")
              if call.queue == queue]
    now = most = 0
    for _, step in sorted(steps):
        now += step
        most = max(most, now)
    assert now == 0
    return most


@pytest.mark.parametrize("submitted", ["on", "off"])
@pytest.mark.parametrize("limit", [1, 2, 7, 64, 300])
def test_no_more_than_max_parallel_io_requests_are_in_flight(place, limit, submitted):
    trace = one_pass(place, "read", async_read_submit=submitted, max_parallel_io_requests=limit,
                     **consistent_batches(limit))
    most = most_in_flight(trace, trace.queues()[0])
    # How full a caller keeps the queue depends on how fast it is drained meanwhile.
    assert most == limit if submitted == "on" else 1 <= most <= limit


def consistent_batches(limit):
    """Batches that a queue of that many requests takes."""
    most = min(limit, 64)
    return {"max_submit_batch_size": most, "min_submit_batch_size": max(1, min(16, most - 1))}


def test_the_limit_holds_for_each_completion_queue(place):
    trace = one_pass(place, "read", max_parallel_io_requests=20, max_submit_batch_size=8,
                     min_submit_batch_size=4, num_completion_queues=3, num_submit_queues=2)
    for queue in trace.queues():
        assert most_in_flight(trace, queue) <= 20


@pytest.mark.parametrize("limit", [2, 5, 20, 64])
def test_no_batch_is_larger_than_max_submit_batch_size(place, limit):
    trace = one_pass(place, "read", max_submit_batch_size=limit, min_submit_batch_size=1)
    assert max(trace.batches()) <= limit
    assert limit > 20 or max(trace.batches()) == limit


def small_batches(trace, least):
    """Batches below the least, given while requests were in flight and as many more were waiting,
    by a thread that could know it: what other threads had begun was over, and they slept."""
    found = []
    for call in trace.of("io_submit"):
        earlier = [other for other in trace.calls if other.begin < call.begin]
        if any(other.name == "io_submit" and busy_since(trace, other, call) for other in earlier):
            continue
        given = sum(other.batch for other in earlier if other.name == "io_submit")
        reaped = sum(other.result for other in earlier
                     if other.name == "io_getevents" and other.end < call.begin)
        if call.batch < least and given > reaped and REQUESTS - given >= least:
            found.append(call)
    return found


def busy_since(trace, other, call):
    """Whether another thread may not have counted yet what it gave to the kernel, or gave it after
    this one had looked, which may have been at any time since this one's own call before."""
    if other.thread == call.thread:
        return False
    looked = max((mine.end for mine in trace.calls
                  if mine.thread == call.thread and mine.end < call.begin), default=-1)
    return other.end > looked or not any(
        later.thread == other.thread and other.end < later.begin < call.begin
        for later in trace.calls)


@pytest.mark.parametrize("least", [2, 16, 40])
def test_while_something_is_in_flight_no_batch_is_below_min_submit_batch_size(disk, least):
    trace = one_pass(disk, "read", min_submit_batch_size=least, max_submit_batch_size=64,
                     calls=(*CALLS, "futex"))
    assert small_batches(trace, least) == []
    assert max(trace.batches()) >= least


def test_an_idle_queue_takes_less_than_a_batch_at_once(disk):
    trace = one_pass(disk, "read", min_submit_batch_size=40, max_submit_batch_size=64)
    assert trace.batches()[0] < 40


def test_fewer_requests_than_a_batch_go_out(place):
    work = ("-b", "4K", "-f", "12K", "-o", "json")
    trace = traced("-t", "initial_write", *work, *parameters(
        min_submit_batch_size=63, async_write_submit_active="on"), place)
    assert (trace.run.returncode, trace.run.stderr) == (0, b"")
    assert sum(trace.batches()) == 3 and trace.submitters() <= {"submit", "completion"}


@pytest.mark.parametrize("least, most", [(1, 2), (4, 8), (16, 64)])
def test_the_printed_batches_are_those_that_the_kernel_saw(disk, least, most):
    trace = one_pass(disk, "read", output="full", min_submit_batch_size=least,
                     max_submit_batch_size=most)
    (submitted,), (completed,) = printed_queues(trace.run.stdout)
    sizes = trace.batches()
    assert submitted | {"flight": 0} == {
        "calls": len(sizes), "requests": REQUESTS, "least": min(sizes), "most": max(sizes),
        "mean": REQUESTS // len(sizes), "flight": 0}
    reaped = [call.result for call in trace.of("io_getevents") if call.result]
    assert completed | {"flight": 0} == {
        "calls": len(reaped), "requests": REQUESTS, "least": min(reaped), "most": max(reaped),
        "mean": REQUESTS // len(reaped), "flight": 0}
    assert completed["flight"] <= 64 and submitted["flight"] <= 64
    assert b"   calling threads: 0 calls, 0 requests\n" in trace.run.stdout


@pytest.mark.parametrize("where", ["place", "disk"])
@pytest.mark.parametrize("phase", ["overwrite", "read"])
def test_five_requests_share_a_system_call(request, where, phase):
    place = request.getfixturevalue(where)
    counts = []
    requests = (256, 256 + 4096)
    for number in requests:
        (place / DATA_FILE).write_bytes(bytes(number * 4 * KIB))
        counts.append(system_calls("-t", phase, "-b", "4K", "-f", f"{number * 4}K", "-s", "4K",
                                   "-c", "-o", "json", "noinit", *parameters(
                                       async_write_submit_active="on"), place))
    assert (counts[1] - counts[0]) / (requests[1] - requests[0]) <= 0.2
