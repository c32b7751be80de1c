"""System calls of a measurement, as strace saw them from outside."""
import dataclasses
import pathlib
import re
import tempfile

import io_runs

CALLS = ("io_setup", "io_submit", "io_getevents")
LINE = re.compile(r"(?P<thread>\d+) +(?P<time>\d+\.\d+) (?P<rest>.*)")
BEGUN = re.compile(r"(?P<name>\w+)\((?P<words>[^)]*?)(?:\) += (?P<result>\S+)| <unfinished \.\.\.>)"
                   r"(?P<more>.*)")
ENDED = re.compile(r"<\.\.\. (?P<name>\w+) resumed>.*\) += (?P<result>\S+)(?P<more>.*)")
SPENT = re.compile(r"<(\d+\.\d+)>$")


@dataclasses.dataclass
class Call:
    """One system call. The positions are those of its begin and of its end among all that was seen;
    the time is that of its begin, in seconds, and spent the seconds until its end."""
    thread: str
    name: str
    arguments: list
    time: float
    begin: int
    end: int = None
    result: int = None
    spent: float = None

    @property
    def queue(self):
        return self.arguments[0]

    @property
    def batch(self):
        """How many requests an io_submit was given."""
        return self.arguments[1]


@dataclasses.dataclass
class Trace:
    run: object
    calls: list

    def of(self, name):
        return [call for call in self.calls if call.name == name]

    def batches(self, queue=None):
        return [call.batch for call in self.of("io_submit") if queue in (None, call.queue)]

    def submitters(self):
        """The kinds of threads that gave requests to the kernel."""
        return {self._kind(call.thread) for call in self.of("io_submit")}

    def _kind(self, thread):
        # By what only they do: the first thread sets the queues up, completion threads reap.
        if any(call.thread == thread for call in self.of("io_setup")):
            return "main"
        reaps = any(call.thread == thread for call in self.of("io_getevents"))
        return "completion" if reaps else "submit"

    def queues(self):
        return list(dict.fromkeys(call.queue for call in self.of("io_submit")))


def traced(*arguments, calls=CALLS, **options):
    """Runs fsperf under strace; the arguments of the calls come as numbers."""
    with tempfile.TemporaryDirectory(prefix="vetra-e2e-") as place:
        output = pathlib.Path(place) / "trace"
        names = ",".join(calls)
        run = io_runs.fsperf(*arguments, **options, under=(
            "strace", "-f", "-ttt", "-T", "-e", f"trace={names}", "-e", f"raw={names}",
            "-o", output))
        return Trace(run, _calls_in(output.read_text()))


def _calls_in(text):
    calls, open_calls = [], {}
    for position, line in enumerate(text.splitlines()):
        head = LINE.fullmatch(line)
        begun, ended = BEGUN.fullmatch(head["rest"]), ENDED.fullmatch(head["rest"])
        if begun:
            arguments = [_number(word) for word in begun["words"].rstrip(", ").split(", ")]
            call = Call(head["thread"], begun["name"], arguments, float(head["time"]), position)
            calls.append(call)
            open_calls[head["thread"]] = call
        if ended or (begun and begun["result"]):
            _end(open_calls.pop(head["thread"]), position, ended or begun)
    return calls


def _end(call, position, match):
    call.end = position
    call.result = _number(match["result"])
    call.spent = float(SPENT.search(match["more"])[1])


def _number(word):
    try:
        return int(word, 0)
    except ValueError:
        return None


def system_calls(*arguments):
    """All system calls of a run of fsperf that must succeed, as strace counts them."""
    with tempfile.TemporaryDirectory(prefix="vetra-e2e-") as place:
        output = pathlib.Path(place) / "counts"
        run = io_runs.fsperf(*arguments, under=("strace", "-c", "-f", "-U", "calls,name",
                                                "-o", output))
        assert (run.returncode, run.stderr) == (0, b"")
        return int(re.search(r"^ *(\d+) +total$", output.read_text(), re.MULTILINE)[1])
