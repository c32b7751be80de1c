"""Runs of the measuring programs: to their end, or up to a moment that can be seen from outside."""
import contextlib
import json
import os
import signal
import subprocess
import time

import fakehost

DATA_FILE = "datavol.dat"
TIMEOUT_SECONDS = 120
PAUSE_SECONDS = 0.0005
HOST = "measured"


def environment(under=()):
    options = fakehost.sanitizer_options()
    if under:
        # The search for leaks traces the program itself, and of two tracers one is refused.
        options["ASAN_OPTIONS"] += ":detect_leaks=0"
    return {**os.environ, **options, "HOST": HOST}


def fsperf(*arguments, under=(), **options):
    """Runs fsperf to its end; under: the words of a program that starts and watches it."""
    command = [*under, fakehost.program("fsperf"), *arguments]
    return subprocess.run([*map(str, command)], capture_output=True, env=environment(under),
                          timeout=TIMEOUT_SECONDS, **options)


@contextlib.contextmanager
def started(name, *arguments, prepare=None, **options):
    """A program under way; killed at the end of the block if it still runs. prepare is called in
    the child before the program is there."""
    def in_child():
        # Whoever starts the tests in the background may have had some of them ignored.
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_DFL)
        if prepare:
            prepare()

    options = {"stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE, **options}
    with subprocess.Popen([fakehost.program(name), *map(str, arguments)], env=environment(),
                          preexec_fn=in_child, **options) as process:
        try:
            yield process
        finally:
            process.kill()


def finish(process):
    """Waits for the end of a started program; its status and its standard error."""
    errors = process.communicate(timeout=TIMEOUT_SECONDS)[1]
    return process.returncode, errors


def until(process, condition):
    """Waits until something can be seen of a program that must not end before."""
    end = time.monotonic() + TIMEOUT_SECONDS
    while not condition():
        assert process.poll() is None, f"ended early with {process.returncode}"
        assert time.monotonic() < end, "never seen"
        time.sleep(PAUSE_SECONDS)


def until_written(process, directory):
    """Waits until the data file holds something."""
    path = directory / DATA_FILE
    until(process, lambda: path.exists() and path.stat().st_blocks > 0)


def until_opened(process, directory):
    """Waits until the program has the data file open."""
    path = os.path.realpath(directory / DATA_FILE)

    def is_open():
        with contextlib.suppress(OSError):
            place = f"/proc/{process.pid}/fd"
            return any(_target(f"{place}/{number}") == path for number in os.listdir(place))
        return False

    until(process, is_open)


def _target(link):
    try:
        return os.readlink(link)
    except OSError:
        return None


@contextlib.contextmanager
def held(process):
    """The program stands still inside the block."""
    process.send_signal(signal.SIGSTOP)
    state = os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
    assert state.si_code == os.CLD_STOPPED, "ended before it could be stopped"
    try:
        yield
    finally:
        process.send_signal(signal.SIGCONT)


def configuration(directory, test="LogVolumeIO", buffer="1M"):
    """The text of a configuration with one I/O test. The buffer of such a test is as large as its
    file, 5 GiB; the value of the last parameter carries the option that makes it small."""
    parameters = {"size_kernel_io_queue": "128", "num_submit_queues": f"1 -s {buffer} -c"}
    return json.dumps({"tests": [{"id": 1, "class": test, "config": {
        "duration": "short", "mount": {HOST: [str(directory)]}, "parameter": parameters}}]})
