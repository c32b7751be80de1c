"""The sampling profiler of fsperf (-p): what it prints, and what its call graphs say."""
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time

import pytest

import fakehost
import io_runs

SUBMIT = "FileAccess::SubmitThread::run"
COMPLETION = "FileAccess::LocalFileCompletionThread::run"
ON_THREADS = ("--param", "async_read_submit=on", "--param", "async_write_submit_active=on",
              "--param", "async_write_submit_blocks=all")
MODES = ["all", "main", "trigger", "submit", "completion"]
SAMPLING_SIGNAL = signal.SIGRTMIN + 7
SAMPLER = "profiler"
OBSERVED_SECONDS = 60

NODE = re.compile(r'  (n\d+) \[label=".*\\nself [\d.]+ % \((\d+)\)\\ntotal [\d.]+ % \((\d+)\)", '
                  r'tooltip="((?:[^"\\]|\\.)*)", (.*)\];')
EDGE = re.compile(r'  (n\d+) -> (n\d+) \[label="(\d+)".*\];')
TITLE = re.compile(r'  label="(.*)";')


class Graph:
    """A call graph as its file has it."""

    def __init__(self, path):
        self.own, self.total, self.roots, self.calls = {}, {}, set(), {}
        names = {}
        for line in path.read_text().splitlines():
            if node := NODE.fullmatch(line):
                name = re.sub(r"\\(.)", r"\1", node[4]).replace("&amp;", "&")
                names[node[1]] = name
                self.own[name], self.total[name] = int(node[2]), int(node[3])
                if "peripheries=2" in node[5]:
                    self.roots.add(name)
            elif edge := EDGE.fullmatch(line):
                self.calls[names[edge[1]], names[edge[2]]] = int(edge[3])
            elif title := TITLE.fullmatch(line):
                self.title = title[1]

    def below(self, function):
        return {callee for caller, callee in self.calls if caller == function}


@pytest.fixture
def place():
    """A directory in memory: the passes are short, and a profile has what the engine does."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as directory:
        yield pathlib.Path(directory)


def profile(place, tmp_path, mode, *more, measurements="throughput", size="128M"):
    run = io_runs.fsperf("-m", measurements, "-b", "4K", "-f", size, "-o", "verbose",
                         "-p", f"{mode}:{tmp_path}/prof", *more, place)
    assert (run.returncode, run.stderr) == (0, b"")
    assert list(place.iterdir()) == []
    graphs = [Graph(tmp_path / f"prof-{kind}.dot") for kind in ("cpu", "wait")]
    assert sorted(path.name for path in tmp_path.glob("prof*")) == ["prof-cpu.dot",
                                                                    "prof-wait.dot"]
    return run.stdout.decode(), graphs


def skip_where_signals_wait():
    """The thread sanitizer calls a handler when the thread next enters the sanitizer, which one that
    sleeps in a system call does not."""
    if b"__tsan_init" in fakehost.program("fsperf").read_bytes():
        pytest.skip("the thread sanitizer holds signals back from a thread that sleeps")


def only_root(graph):
    (root,) = graph.roots
    return root


def expect_sums(graph):
    """Own samples are all samples, and those of the only root."""
    assert sum(graph.own.values()) == graph.total[only_root(graph)]
    for function, total in graph.total.items():
        assert graph.own[function] <= total <= graph.total[only_root(graph)]


def expect_drawn(path):
    if not shutil.which("dot"):
        pytest.skip("there is no program dot")
    run = subprocess.run(["dot", "-Tsvg", path], capture_output=True, timeout=60)
    assert (run.returncode, run.stderr) == (0, b"") and b"</svg>" in run.stdout


def test_every_pass_is_profiled_and_all_lines_stand_in_their_order(place, tmp_path):
    output, (processor, wait) = profile(place, tmp_path, "all", measurements="all")
    base = f"{tmp_path}/prof"
    passes = ["write-sync", "write-async"] * 2 + ["read-sync", "read-async"]
    expected = [r"\r>>>>>>>>>> INITIALIZE PROFILER <<<<<<<<<<\n",
                r"all samples forgotten\n\r>>>>>>>>>> PROFILER INITIALIZED <<<<<<<<<<\n"]
    for name in passes:
        expected += [
            rf"\r>>>>>>>>>> PROFILER '{name}' STARTING <<<<<<<<<<\n",
            r"\rsampling 997 times a second\n"
            rf"\r>>>>>>>>>> PROFILER '{name}' STARTED <<<<<<<<<<\n",
            rf"\r>>>>>>>>>> PROFILER '{name}' STOPPING <<<<<<<<<<\n",
            r"\r\d+ samples of processor time and \d+ of wait time from \d+ threads, \d+ dropped"
            r"(, \d+ turns missed)?\n"
            rf"\r>>>>>>>>>> PROFILER '{name}' STOPPED <<<<<<<<<<\n"]
    expected += [r"\r>>>>>>>>>> PROFILER WRITING OUTPUT <<<<<<<<<<\n",
                 rf"\rprofiler print -o {base}-cpu.dot,{base}-wait.dot\n"
                 rf"{base}-cpu.dot: \d+ samples in \d+ functions\n"
                 rf"{base}-wait.dot: \d+ samples in \d+ functions\n"
                 r"all samples forgotten\n\r>>>>>>>>>> PROFILER OUTPUT WRITTEN <<<<<<<<<<\n"]
    position = 0
    for lines in expected:
        found = re.compile(lines).search(output, position)
        assert found, lines
        position = found.end()
    assert output.count("PROFILER '") == 4 * len(passes)
    for graph in (processor, wait):
        assert sum(graph.own.values()) > 0


@pytest.mark.parametrize("mode", MODES)
def test_graphs_can_be_drawn(place, tmp_path, mode):
    profile(place, tmp_path, mode, *ON_THREADS, size="64M")
    for kind in ("cpu", "wait"):
        expect_drawn(tmp_path / f"prof-{kind}.dot")


@pytest.mark.parametrize("mode", ["main", "trigger"])
def test_the_engines_own_thread_is_cut_to_its_run(place, tmp_path, mode):
    # A pass of one request at a time has no trigger phase and runs to its end.
    _, (processor, _) = profile(place, tmp_path, mode, measurements="latency")
    root = only_root(processor)
    assert root.startswith("runTests(vetraTests::CCmdOptions&, ")
    assert any(name.startswith(f"vetraTests::{phase}(") for name in processor.below(root)
               for phase in ("testInitialWrite", "testOverwrite", "testRead"))
    assert any(name.startswith("vetraTests::CFileAccessRequestHandler::execute")
               for name in processor.total)
    expect_sums(processor)


def test_the_completion_thread_shows_what_it_does(place, tmp_path):
    _, (processor, wait) = profile(place, tmp_path, "completion", *ON_THREADS)
    assert only_root(processor) == COMPLETION + "()"
    expect_sums(processor)
    # In memory it may never have to wait.
    assert wait.roots <= {COMPLETION + "()"}
    below = {name.partition("(")[0] for name in processor.below(COMPLETION + "()")}
    assert "FileAccess::LocalFileCompletionThread::handle" in below
    assert re.search(rf"{COMPLETION} and below: \d+ of \d+ samples kept", processor.title)


def test_the_submit_thread_waits_for_its_start(place, tmp_path):
    skip_where_signals_wait()
    _, (processor, wait) = profile(place, tmp_path, "submit", *ON_THREADS)
    assert only_root(wait) == SUBMIT + "()"
    expect_sums(wait)
    assert "FileAccess::RequestDispatcher::waitForStart(unsigned long)" in wait.below(SUBMIT + "()")
    # It does so little that few samples find it at work, or none.
    assert processor.roots <= {SUBMIT + "()"}


def test_trigger_mode_ends_with_the_trigger_phase(place, tmp_path):
    output, _ = profile(place, tmp_path, "trigger", *ON_THREADS, size="64M")
    assert output.count("STOPPED AT END OF TRIGGER PHASE <<<<<<<<<<\n") == 3
    assert "' STOPPED <<<<<<<<<<" not in output


def test_a_profile_that_cannot_be_written_fails_the_run(place, tmp_path):
    run = io_runs.fsperf("-b", "4K", "-f", "1M", "-p", f"all:{tmp_path}/missing/prof", place)
    assert run.returncode == 1
    assert b"\rERROR writing profiler output: \n" in run.stderr
    assert f"cannot write '{tmp_path}/missing/prof-cpu.dot': No such file".encode() in run.stderr
    assert list(tmp_path.iterdir()) == []


def caught_signals(process):
    for line in pathlib.Path(f"/proc/{process.pid}/status").read_text().splitlines():
        if line.startswith("SigCgt:"):
            return int(line.split()[1], 16)
    return 0


def thread_names(process):
    for file in pathlib.Path(f"/proc/{process.pid}/task").glob("*/comm"):
        try:
            yield file.read_text().strip()
        except OSError:  # it has ended
            pass


def seen_during(place, *profiling):
    """Whether a run had the sampler's handler and thread, as long as its threads were there."""
    handler = sampler = False
    looks = 0
    with io_runs.started("fsperf", "-m", "throughput", "-b", "4K", "-f", "512M", "-o", "short",
                         *ON_THREADS, *profiling, place) as process:
        end = time.monotonic() + OBSERVED_SECONDS
        while process.poll() is None and time.monotonic() < end:
            names = set(thread_names(process))
            if any(name.startswith("completion-") for name in names):
                looks += 1
                handler |= bool(caught_signals(process) >> (SAMPLING_SIGNAL - 1) & 1)
                sampler |= SAMPLER in names
        assert io_runs.finish(process) == (0, b"")
    assert looks > 0
    return handler, sampler


def test_without_a_profile_there_is_no_handler_and_no_thread(place, tmp_path):
    assert seen_during(place) == (False, False)
    assert seen_during(place, "-p", f"off:{tmp_path}/prof") == (False, False)
    assert list(tmp_path.iterdir()) == []
    # The same look finds them where they are.
    assert seen_during(place, "-p", f"all:{tmp_path}/prof") == (True, True)


def test_the_programs_name_their_functions():
    for name in ("fsperf", "vetra"):
        sections = subprocess.run(["readelf", "-SW", fakehost.program(name)], capture_output=True,
                                  text=True, check=True, timeout=60).stdout
        assert " .symtab " in sections and " .eh_frame_hdr " in sections
