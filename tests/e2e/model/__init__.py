"""An independent model of what vetra says about a host.

The end-to-end tests compare the program with it, so it shares nothing with the program: it reads
a host directory and works out the fact document, the report, the records and the lines that
gathering and judging print on the way.
"""

from . import tables
from .facts import FactStore
from .host import Host
from .report import RULER, title
from .rules import Rules


class Model:
    """The expected results for one host directory. All texts are bytes."""

    rules = tables.RULES
    actions = tuple(tables.ACTIONS)

    def __init__(self, host_dir):
        self._host = Host(host_dir)
        self._facts = FactStore(self._host)
        self._document = self._facts.gather()
        self._report, self._rule_noise = self._judge()

    def arch(self):
        """The architecture word as the tool names it, a str."""
        return self._facts.arch()

    def document(self):
        """The fact document; two lines on a host where nothing is gathered."""
        return self._document

    def report(self):
        """The report of a run, empty where a run ends before it judges."""
        return self._report

    def noise(self):
        """What gathering, then judging print on standard output by themselves in one run."""
        return self._facts.noise + self._rule_noise

    def gather_noise(self):
        """The part of the noise that gathering alone prints."""
        return self._facts.noise

    def records(self):
        """Every action with its record."""
        return {action: self.check_action(action) for action in tables.ACTIONS}

    def check_action(self, action):
        """The record of one action, or the hint that an unknown one gets."""
        if action not in tables.ACTIONS:
            return tables.UNKNOWN_ACTION
        return self._run(tables.ACTIONS[action]).record

    def action_noise(self, action):
        """What the rule behind one action prints on standard output."""
        return self._run(tables.ACTIONS[action]).noise

    def rule(self, name):
        """Status word as shown, severity and reason; all empty if the rule says nothing."""
        outcome = self._run(name).outcome
        if outcome is None:
            return b"", b"", b""
        return outcome.shown()[0], outcome.severity, outcome.reason

    def run_status(self):
        """0 if a run gathers and judges, -1 if it refuses the architecture."""
        return 0 if "x86" in self.arch() else -1

    def _run(self, name):
        rules = Rules(self._facts, self.arch())
        rules.run(name)
        return rules

    def _judge(self):
        if self.run_status() != 0:
            return b"", b""
        rules = Rules(self._facts, self.arch())
        text = title(self._host.variable("HOST"))
        for name in self.rules:
            text += rules.run(name) + RULER
        return text, rules.noise
