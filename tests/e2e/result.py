"""What one run of a program left: output, result files, log, and the report taken apart."""
import dataclasses
import json
import re

ESCAPE = re.compile(rb"\x1b\[[0-9;]*m")
RESULT_NAME = re.compile(r"^test_(?P<key>[^_]+)_(?P<milliseconds>\d+)_Vetra_(?P<test>.+)$")
STAMP = rb"\d[^\n]{7,60}?"
EVENT = re.compile(rb"^" + STAMP + rb" TRACE (INFO|ERROR): ", re.MULTILINE)
TITLE = b"=" * 80 + b"\nEVALUATED SYSTEM SETUP ON "
RULER = b"-" * 80 + b"\n"
BLOCK = re.compile(rb"(?P<name>\w+) *: *(?P<colour>\x1b\[[0-9;]+m)(?P<status>\w+)\x1b\[0m"
                   rb"[\t\n](?: {9}Severity:  (?P<severity>\w+)\n)?(?: {11}Reason:  )?"
                   rb"(?P<reason>.*)\n\Z", re.DOTALL)


@dataclasses.dataclass
class Rule:
    """One rule's place in the report."""
    status: str
    severity: str
    reason: str


class Run:
    """Status and output of a program that has ended, and the files in its directory."""

    def __init__(self, status, stdout, stderr, cwd, period):
        self.status, self.stdout, self.stderr, self.cwd = status, stdout, stderr, cwd
        self.period = period
        self.commands = []

    @property
    def results(self):
        """Result files below the working directory: relative path to content."""
        paths = [path for path in sorted(self.cwd.rglob("test_*"))
                 if RESULT_NAME.match(path.name) and path.is_file()]
        return {str(path.relative_to(self.cwd)): path.read_bytes() for path in paths}

    @property
    def result(self):
        """The content of the only result file."""
        (content,) = self.results.values()
        return content

    @property
    def log(self):
        path = self.cwd / "vetra.trc"
        return path.read_bytes() if path.is_file() else b""

    @property
    def events(self):
        """The log as a list of (severity, message)."""
        log = self.log
        heads = list(EVENT.finditer(log))
        assert not heads or heads[0].start() == 0, log[:200]
        assert heads or not log, log[:200]
        ends = [head.start() for head in heads[1:]] + [len(log)]
        return [(head.group(1).decode(), log[head.end():end].removesuffix(b"\n"))
                for head, end in zip(heads, ends)]

    @property
    def report(self):
        """The report that the only test put on the terminal."""
        start = self.stdout.index(TITLE)
        return self.stdout[start:self.stdout.rindex(RULER) + len(RULER)]

    @property
    def rules(self):
        """The rules of the report, in its order: name to Rule."""
        title, _, blocks = self.report.partition(b"=" * 80 + b"\n")[2].partition(
            b"=" * 80 + b"\n")
        assert title.startswith(b"EVALUATED SYSTEM SETUP ON ")
        matches = [BLOCK.match(block) for block in blocks.split(RULER) if block]
        assert all(matches), blocks
        return {match["name"].decode(): _rule(match) for match in matches}

    def rule(self, name):
        return self.rules[name]

    @property
    def json(self):
        """Standard output read as a JSON document."""
        return json.loads(self.stdout)

    def __repr__(self):
        return f"status {self.status}\nstdout {self.stdout!r}\nstderr {self.stderr!r}"


def _rule(match):
    texts = (match["status"], match["severity"] or b"", match["reason"])
    return Rule(*(text.decode("utf-8", "surrogateescape") for text in texts))
