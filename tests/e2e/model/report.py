"""How an outcome looks: the coloured block of the report and the one-line record."""

from dataclasses import dataclass

from .text import decimal

SUCESS = b"SUCESS"
FAILED = b"FAILED"
NOTAPPLICABLE = b"NOTAPPLICABLE"
HIGH = b"HIGH"
MEDIUM = b"MEDIUM"

_GREEN = b"\x1b[1;32m"
_RED = b"\x1b[1;31m"
_YELLOW = b"\x1b[1;33m"
_BLUE = b"\x1b[1;34m"
_PLAIN = b"\x1b[0m"

RULER = b"-" * 80 + b"\n"


@dataclass(frozen=True)
class Outcome:
    """What one rule found out."""

    rule: str
    status: bytes
    severity: bytes = b""
    reason: bytes = b""

    def shown(self):
        """The status word of the report and its colour."""
        if self.status == SUCESS:
            return SUCESS, _GREEN
        if self.status == NOTAPPLICABLE:
            return b"SKIPPED", _BLUE
        return (FAILED, _RED) if self.severity == HIGH else (b"WARNING", _YELLOW)

    def block(self):
        """The lines of the report. The colour sequence itself fills the second column."""
        word, colour = self.shown()
        text = self.rule.encode().ljust(30) + b":" + colour.rjust(48) + word + _PLAIN
        if self.status == SUCESS:
            return text + b"\t" + self.reason + b"\n"
        text += b"\n"
        if self.status == FAILED:
            text += b"Severity:  ".rjust(20) + self.severity + b"\n"
        return text + b"Reason:  ".rjust(20) + self.reason + b"\n"


def title(host):
    """The head of a report."""
    line = b"=" * 80 + b"\n"
    return line + b"EVALUATED SYSTEM SETUP ON " + host + b":\n" + line


def record(item, value, code, message=b""):
    """The machine-readable outcome; nothing in it is escaped."""
    return b"('%s','%s',%s,'%s')" % (item, value, decimal(code), message if code else b"")
