"""One pass of fsperf or of fio over the same file, told by the same library (pass_meter.c)."""
import json
import os
import re
import subprocess
import tempfile

IN_FLIGHT = 64
UNITS = {"": 1, "K": 2**10, "M": 2**20, "G": 2**30}
BATCHED = ("--iodepth_batch_submit=16", "--iodepth_batch_complete_min=1",
           "--iodepth_batch_complete_max=32")
LIMIT_SECONDS = 900


def size_of(text):
    number, unit = re.fullmatch(r"(\d+)([KMG]?)", text).groups()
    return int(number) * UNITS[unit]


def takes_direct(path):
    try:
        os.close(os.open(path, os.O_RDWR | os.O_DIRECT))
    except OSError:
        return False
    return True


class Workload:
    """Blocks of a size, each once, in random order, over a file of a size in a directory."""

    def __init__(self, directory, block, size, operation="read"):
        self.directory = str(directory)
        self.file = os.path.join(self.directory, "datavol.dat")
        self.block, self.size, self.operation = block, size, operation
        self.requests = size_of(size) // size_of(block)
        # As much as the requests in flight hold: fio has no more, so both sides find the same
        # share of their buffers in the caches.
        self.buffer = min(IN_FLIGHT * size_of(block), size_of(size))


def run(command, environment=None):
    finished = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                              env={**os.environ, **(environment or {})}, timeout=LIMIT_SECONDS)
    if finished.returncode != 0:
        raise RuntimeError(f"{command} ended with {finished.returncode}: {finished.stderr}")
    return finished.stdout


def metered(meter, workload, command):
    """What a pass of the command cost; the rate in MB/s (2**20) and processor seconds a request."""
    with tempfile.NamedTemporaryFile() as report:
        run(command, {"LD_PRELOAD": str(meter), "PASS_METER_REPORT": report.name,
                      "PASS_METER_REQUESTS": str(workload.requests)})
        figures = json.load(report)
    figures["rate"] = size_of(workload.size) / 2**20 / figures["wall"]
    figures["cpu_per_request"] = figures["cpu"] / workload.requests
    figures["calls_per_request"] = (figures["submits"] + figures["reaps"]) / workload.requests
    return figures


def fsperf_command(fsperf, workload, *more):
    return [fsperf, "-t", workload.operation, "-b", workload.block, "-f", workload.size,
            "-s", workload.buffer, "-c", "-o", "json_short", *more, workload.directory]


def fio_command(workload, *more):
    direction = {"read": "randread", "overwrite": "randwrite"}[workload.operation]
    return ["fio", "--name=pass", f"--filename={workload.file}", f"--direct={int(takes_direct(workload.file))}",
            f"--bs={size_of(workload.block)}", f"--size={size_of(workload.size)}",
            f"--rw={direction}", "--overwrite=1", "--output-format=json", *more]


def fsperf_pass(build, workload):
    return metered(build.pass_meter, workload,
                   fsperf_command(build.fsperf, workload, "noinit", "noclean"))


def fio_pass(build, workload, *more):
    return metered(build.pass_meter, workload,
                   fio_command(workload, "--ioengine=libaio", f"--iodepth={IN_FLIGHT}", *more))


def fsperf_latency(build, workload):
    """Microseconds of a request; the engine prints whole ones, so they come from its rate."""
    text = run(fsperf_command(build.fsperf, workload, "-m", "latency", "noinit", "noclean"))
    document = json.loads(text)
    side = document["Read" if workload.operation == "read" else "Overwrite"]
    return size_of(workload.block) / (float(side["Latency"]["Throughput"]) * 2**20) * 1e6


def fio_latency(workload):
    """Microseconds of a request, by fio's own mean."""
    job = json.loads(run(fio_command(workload, "--ioengine=psync")))["jobs"][0]
    return job["read" if workload.operation == "read" else "write"]["lat_ns"]["mean"] / 1e3


def fill(build, workload):
    """Makes the file, fully written, unless it is there."""
    if os.path.exists(workload.file) and os.path.getsize(workload.file) == size_of(workload.size):
        return
    run([build.fsperf, "-t", "initial_write", "-b", "1M", "-f", workload.size, "-s", "64M", "-c",
         "-o", "json_short", "noclean", workload.directory])
