"""What the measuring scripts of this folder share: one run, and how figures are summed up.

Figures are medians with the quartiles in brackets; a single run says nothing on a busy machine."""
import argparse
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


class Build:
    """The build directory that is measured."""

    def __init__(self, directory):
        self.directory = pathlib.Path(directory).resolve()
        self.vetra = self._needed("bin/vetra")
        self.fsperf = self._needed("bin/fsperf")
        self.pass_meter = self._needed("bench/libpass_meter.so")
        self.random_fill = self._needed("bench/RandomFillLoop")
        self.launcher = self._needed("bench/MeasuredRun")
        self.command_loop = self._needed("bench/CommandLoop")
        self.scanner = self.directory / "bin/scanhypervisorCheck"

    def _needed(self, name):
        path = self.directory / name
        if not path.exists():
            sys.exit(f"{path} is missing: build the preset release first, or name a --build")
        return path

    def run(self, program, *arguments, cwd, own=False, limit=600):
        """Runs a program once; returns what the launcher says of it as a dictionary."""
        options = ["--limit", str(limit)] + (["--own"] if own else [])
        command = [self.launcher, *options, program, *arguments]
        environment = {**os.environ, "HOST": platform.node()}
        finished = subprocess.run([str(part) for part in command], cwd=cwd, env=environment,
                                  stdout=subprocess.PIPE, check=True)
        return json.loads(finished.stdout)


def argument_parser(description):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--build", default=ROOT / "build/release",
                        help="the build directory to measure (default: build/release)")
    return parser


def quartiles(figures):
    """The median, the first and the third quartile."""
    low, middle, high = statistics.quantiles(figures, n=4, method="inclusive")
    return middle, low, high


def spread(figures, unit="", scale=1.0):
    """The figures as text: the median, and the quartiles in brackets."""
    middle, low, high = (scale * value for value in quartiles(figures))
    return f"{middle:.3f}{unit} [{low:.3f}..{high:.3f}]"


def machine():
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return f"{os.cpu_count()} processors, {memory:.0f} GiB, kernel {platform.release()}"
