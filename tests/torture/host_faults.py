"""Faults of runs on one host: signals, full file systems, limits, directories that go away."""
import contextlib
import json
import os
import resource
import shutil
import signal
import subprocess
import tempfile
import time

import io_mounts
import io_runs
from tally import LONGEST_SECONDS

MIB = 1 << 20
ENDING = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT]
# Long enough for every moment of a run to be hit, from the start of the process on.
RUN = ("-m", "all", "-b", "64K", "-f", "192M", "-s", "64K", "-c", "-o", "json")
LATEST_SIGNAL = 0.6
LATEST_IN_THE_TOOL = 0.15
ABORTED, BAD_FILE = -signal.SIGABRT, -signal.SIGXFSZ
# The codes of a run that could not open or fill its file.
REFUSED = set(range(1, 16))


class HostFaults:
    """Each method is one run with one fault at a random moment."""

    def __init__(self, tally, random):
        self.tally, self.random = tally, random
        self.kinds = [self.signal_to_the_engine, self.kill_of_the_engine,
                      self.signal_while_it_is_profiled, self.full_file_system,
                      self.directory_removed, self.data_file_removed, self.limit_of_file_size,
                      self.limit_of_descriptors, self.reader_gone, self.signal_to_the_tool,
                      self.output_that_cannot_be_written]

    @contextlib.contextmanager
    def place(self, size="512m"):
        with tempfile.TemporaryDirectory(prefix="vetra-torture-") as directory:
            with io_mounts.memory(f"{directory}/place", size) as place:
                yield place

    def moment(self, latest=LATEST_SIGNAL):
        time.sleep(self.random.uniform(0, latest))

    def finish(self, kind, process):
        """Its status, or None for one that hung and was killed; its errors are in `errors`."""
        self.tally.runs[kind] += 1
        try:
            self.errors = process.communicate(timeout=LONGEST_SECONDS)[1]
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            self.tally.hangs.append(f"{kind}: still there after {LONGEST_SECONDS} s")
            return None
        return process.returncode

    def injected(self, kind, process, inject):
        """Does it to a process that may have ended before."""
        if process.poll() is None:
            inject()
            self.tally.faults[kind] += 1

    def data_files(self, place):
        return [path.name for path in place.iterdir()]

    def engine(self, place, *more, **options):
        return io_runs.started("fsperf", *RUN, *more, place, **options)

    def signal_to_the_engine(self, kind):
        number = self.random.choice(ENDING)
        with self.place() as place, self.engine(place) as run:
            self.moment()
            self.injected(kind, run, lambda: run.send_signal(number))
            self.tally.ended(kind, self.finish(kind, run), {-number, 0}, self.errors)
            self.tally.found(kind, self.data_files(place))

    def kill_of_the_engine(self, kind):
        """Nothing can be removed then; the next run must do with what is left."""
        with self.place() as place:
            with self.engine(place) as run:
                self.moment()
                self.injected(kind, run, run.kill)
                self.tally.ended(kind, self.finish(kind, run), {-signal.SIGKILL, 0}, self.errors)
            after = io_runs.fsperf("-m", "throughput", "-b", "64K", "-f", "1M", "-o", "json", place)
            self.tally.must(kind, after.returncode == 0, f"the next run ended with {after}")
            self.tally.found(kind, self.data_files(place))

    def signal_while_it_is_profiled(self, kind):
        number = self.random.choice(ENDING)
        with self.place() as place, tempfile.TemporaryDirectory() as graphs:
            with self.engine(place, "-p", "all:graph", cwd=graphs) as run:
                self.moment()
                self.injected(kind, run, lambda: run.send_signal(number))
                status = self.finish(kind, run)
                self.tally.ended(kind, status, {-number, 0}, self.errors)
            self.tally.found(kind, self.data_files(place))
            names = sorted(os.listdir(graphs))
            self.tally.must(kind, names in ([], ["graph-cpu.dot", "graph-wait.dot"]),
                            f"graphs {names} after status {status}")

    def full_file_system(self, kind):
        with self.place("224m") as place, self.engine(place) as run:
            self.moment(0.2)

            def fill():
                with contextlib.suppress(OSError), open(place / "filler", "wb") as filler:
                    while True:
                        filler.write(bytes(MIB))

            self.injected(kind, run, fill)
            status = self.finish(kind, run)
            self.tally.ended(kind, status, {0, ABORTED, *REFUSED}, self.errors)
            self.tally.must(kind, status == 0 or self.errors.strip(), "failed without a line")
            (place / "filler").unlink(missing_ok=True)
            self.tally.found(kind, self.data_files(place))

    def directory_removed(self, kind):
        with self.place() as root:
            place = root / "data"
            place.mkdir()
            with self.engine(place) as run:
                self.moment()
                self.injected(kind, run, lambda: shutil.rmtree(place, ignore_errors=True))
                self.tally.ended(kind, self.finish(kind, run), {0, ABORTED, *REFUSED}, self.errors)
            shutil.rmtree(place, ignore_errors=True)
            self.tally.found(kind, self.data_files(root))

    def data_file_removed(self, kind):
        with self.place() as place, self.engine(place) as run:
            self.moment()
            self.injected(kind, run,
                          lambda: (place / io_runs.DATA_FILE).unlink(missing_ok=True))
            self.tally.ended(kind, self.finish(kind, run), {0, ABORTED, *REFUSED}, self.errors)
            self.tally.found(kind, self.data_files(place))

    def limit_of_file_size(self, kind):
        size = self.random.randrange(0, 192 * MIB)

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

        with self.place() as place, self.engine(place, prepare=limit) as run:
            self.tally.faults[kind] += 1
            self.tally.ended(kind, self.finish(kind, run), {BAD_FILE, ABORTED, *REFUSED},
                             self.errors)
            self.tally.found(kind, self.data_files(place))

    def limit_of_descriptors(self, kind):
        count = self.random.randrange(6, 24)  # what the loader needs is more than five

        def limit():
            resource.setrlimit(resource.RLIMIT_NOFILE, (count, count))

        with self.place() as place, self.engine(place, prepare=limit) as run:
            self.tally.faults[kind] += 1
            status = self.finish(kind, run)
            self.tally.ended(kind, status, {0, ABORTED, *REFUSED}, self.errors)
            self.tally.must(kind, status == 0 or self.errors.strip(), "failed without a line")
            self.tally.found(kind, self.data_files(place))

    def reader_gone(self, kind):
        reading, writing = os.pipe()
        with self.place() as place, self.engine(place, stdout=writing) as run:
            os.close(writing)
            self.moment()
            self.injected(kind, run, lambda: os.close(reading))
            self.tally.ended(kind, self.finish(kind, run), {-signal.SIGPIPE, 0}, self.errors)
            with contextlib.suppress(OSError):
                os.close(reading)
            self.tally.found(kind, self.data_files(place))

    def tool(self, place, **options):
        (place / "config.json").write_text(json.dumps(
            {"output_dir": str(place / "results"),
             "tests": [{"id": number, "class": "EvalOS"} for number in range(3)]}))
        return io_runs.started("vetra", "-f", "config.json", cwd=place, **options)

    def check_results(self, kind, place):
        for path in (place / "results").glob("*"):
            with contextlib.suppress(FileNotFoundError):
                text = path.read_text()
                self.tally.must(kind, not text or text.endswith("\n"), f"half of {path.name}")

    def signal_to_the_tool(self, kind):
        number = self.random.choice([*ENDING, signal.SIGKILL])
        with self.place() as place, self.tool(place, start_new_session=True) as run:
            self.moment(LATEST_IN_THE_TOOL)
            self.injected(kind, run, lambda: run.send_signal(number))
            self.tally.ended(kind, self.finish(kind, run), {-number, 0}, self.errors)
            self.check_results(kind, place)

    def output_that_cannot_be_written(self, kind):
        with self.place("2m") as place, self.tool(place) as run:
            self.moment(LATEST_IN_THE_TOOL)
            self.injected(kind, run, lambda: self.fill(place))
            self.tally.ended(kind, self.finish(kind, run), {0}, self.errors)

    @staticmethod
    def fill(place):
        with contextlib.suppress(OSError), open(place / "filler", "wb", buffering=0) as filler:
            while True:
                filler.write(bytes(4096))
