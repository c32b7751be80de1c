"""Runs with faults at random moments, until there were enough of them.

    scripts/torture [--faults N] [--seed S] [--only NAME]

Ends with 1 if a run hung, left something behind, or ended otherwise than it must."""
import argparse
import os
import pathlib
import random
import sys
import tempfile
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))

import io_mounts  # noqa: E402
import mounts  # noqa: E402
import network_hosts  # noqa: E402
from host_faults import HostFaults  # noqa: E402
from network_faults import NetworkFaults  # noqa: E402
from tally import Tally  # noqa: E402


def name_of(method):
    return method.__name__.replace("_", " ")


def run_until(count, kinds, tally, wanted):
    chosen = [kind for kind in kinds if wanted in (None, name_of(kind))]
    if not chosen:
        sys.exit(f"no fault of that name; there are: {', '.join(map(name_of, kinds))}")
    for number in range(20 * count):
        if sum(tally.faults[name_of(kind)] for kind in chosen) >= count:
            return
        kind = chosen[number % len(chosen)]
        kind(name_of(kind))
        if sys.stderr.isatty():
            print(f"\r{tally.runs.total()} runs, {tally.faults.total()} faults", end="",
                  file=sys.stderr, flush=True)
    tally.wrong.append(f"only {tally.faults.total()} faults met a run")


def main():
    parser = argparse.ArgumentParser(description="Runs with faults at random moments.")
    parser.add_argument("--faults", type=int, default=240, help="at least so many (default: 240)")
    parser.add_argument("--seed", type=int, default=time.time_ns() % 1_000_000)
    parser.add_argument("--only", help="one kind of fault")
    options = parser.parse_args()
    for reason in (mounts.refusal(), network_hosts.refusal()):
        if reason:
            sys.exit(f"torture: cannot run here: {reason}")
    print(f"seed {options.seed}, programs of {os.environ['VETRA_BIN']}")
    chance, tally, began = random.Random(options.seed), Tally(), time.monotonic()
    with (io_mounts.private(), tempfile.TemporaryDirectory(prefix="vetra-torture-") as place,
          network_hosts.joined_hosts(place, 2) as hosts):
        on_host = HostFaults(tally, chance).kinds
        between = NetworkFaults(tally, chance, hosts).kinds
        if options.only:
            run_until(options.faults, on_host + between, tally, options.only)
        else:
            run_until(options.faults * 2 // 3, on_host, tally, None)
            run_until(options.faults - options.faults * 2 // 3, between, tally, None)
    return tally.report(began)


if __name__ == "__main__":
    sys.exit(main())
