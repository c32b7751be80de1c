"""What a series of runs with faults came to."""
import collections
import time

LONGEST_SECONDS = 60


class Tally:
    """Counts runs, and notes each that was not as it must be. A run that did not end in time is a
    hang; it has been killed by whoever found it."""

    def __init__(self):
        self.runs = collections.Counter()
        self.faults = collections.Counter()
        self.statuses = collections.defaultdict(collections.Counter)
        self.wrong, self.left, self.hangs = [], [], []

    def ended(self, kind, status, allowed, seen=""):
        """A run with a fault of this kind has ended with a status out of those, or another."""
        self.statuses[kind][status] += 1
        if status not in allowed:
            self.wrong.append(f"{kind}: status {status}, not one of {sorted(allowed)}; {seen}")

    def must(self, kind, is_so, what):
        if not is_so:
            self.wrong.append(f"{kind}: {what}")

    def found(self, kind, names):
        """Files or processes that should have gone."""
        self.left.extend(f"{kind}: {name} was left" for name in names)

    def report(self, began):
        print(f"\n{'fault':<44} {'runs':>5} {'faults':>6}  ended with")
        for kind, runs in self.runs.items():
            ends = ", ".join(f"{status}: {count}"
                             for status, count in sorted(self.statuses[kind].items()))
            print(f"{kind:<44} {runs:>5} {self.faults[kind]:>6}  {ends}")
        for line in [*self.wrong, *self.left, *self.hangs]:
            print(line)
        print(f"\nruns {self.runs.total()}, faults injected {self.faults.total()}, "
              f"left behind {len(self.left)}, hangs {len(self.hangs)}, "
              f"wrong statuses or words {len(self.wrong)}; {time.monotonic() - began:.0f} s")
        return 1 if self.wrong or self.left or self.hangs else 0
