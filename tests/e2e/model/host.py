"""A host that lies in a directory: its files, its environment and what its commands print.

Commands run in the C locale, under a shell that words its messages as dash does.
"""

import json
import os

from .text import lines

GREP_BINARY = b"grep: (standard input): binary file matches\n"
RPM_MISSING = b"sh: 1: rpm: not found\n"

_READ_BUFFER = 256


def collect(output):
    """Puts command output together from C strings of at most 255 bytes.

    A piece ends at a line end or when the buffer is full; a NUL byte hides the rest of its piece.
    """
    pieces = []
    position = 0
    while position < len(output):
        end = position + _READ_BUFFER - 1
        line_end = output.find(b"\n", position, end)
        if line_end >= 0:
            end = line_end + 1
        pieces.append(output[position:end].split(b"\0", 1)[0])
        position = end
    return b"".join(pieces)


def grep(word, data):
    """What grep prints on standard output and on standard error.

    Input that holds a NUL byte counts as binary: the matching lines are withheld and one message
    tells that there are some. The input is taken as read in one piece.
    """
    if b"\0" in data:
        return b"", GREP_BINARY if word in data else b""
    return b"".join(line + b"\n" for line in lines(data) if word in line), b""


def head(data):
    """The first line."""
    return data[: data.find(b"\n") + 1] or data


class Host:
    """Reads a host directory. A file or command that is not in it does not exist."""

    def __init__(self, directory):
        self._directory = directory
        described = json.loads((directory / "host.json").read_text(encoding="utf-8"))
        self.machine = _as_bytes(described["machine"])
        self.release = _as_bytes(described["release"])
        self._environment = described.get("environment", {})

    def variable(self, name):
        """An environment variable; an unset one is empty."""
        return _as_bytes(self._environment.get(name, ""))

    def file_lines(self, path):
        """The lines of a file given by its path on the host, none if it cannot be read."""
        data = _content(os.fsencode(self._directory / "root") + path)
        return lines(data) if data is not None else []

    def pipeline(self, source, *words, first_line=False):
        """Output of a command whose output runs through one grep per word, and head at the end.

        Only the messages of the last stage come back with the output; those of the others, a
        missing command's among them, go elsewhere.
        """
        data = self._printed("commands", source + ".txt") or b""
        message = b""
        for word in words:
            data, message = grep(word, data)
        return collect(head(data) if first_line else data + message)

    def installed_packages(self):
        """Output of the package query when it runs alone."""
        printed = self._printed("commands", "rpm.txt")
        return collect(RPM_MISSING if printed is None else printed)

    def scanner_output(self):
        """Output of the hypervisor scanner, None if there is no scanner."""
        printed = self._printed("scanner.txt")
        return None if printed is None else collect(printed)

    def _printed(self, *path):
        return _content(os.fsencode(self._directory.joinpath(*path)))


def _as_bytes(value):
    return value.encode("utf-8", "surrogateescape")


def _content(path):
    try:
        with open(path, "rb") as stream:
            return stream.read()
    except OSError:
        return None
