"""Calls that the programs do without: those that cannot know how large a buffer is, those that are
not safe with threads, and shells that run a text nobody has checked.

Tests and measurements may do what they like."""
import pathlib
import re
import sys

import check_text
import tree

FREE_FOLDERS = ("tests/", "bench/", "fuzz/")
FORBIDDEN = ("system", "strcpy", "stpcpy", "strcat", "sprintf", "vsprintf", "gets", "strtok",
             "tmpnam", "tempnam", "mktemp", "alloca", "strncpy", "readdir_r", "execlp", "execvp")
# A shell runs what is handed to these; where they stand, the text is put together from parts that
# are constants or were checked.
SHELLS = ("popen",)
WITH_A_CHECKED_TEXT = ("impl/network/RemoteCommand.cpp", "vetraTests/LSInfo/SystemInfo.cpp")

# A member of that name is somebody else's function.
CALL = re.compile(r"(?<![\w.>])(?P<scope>(?:\w+::)*)(?P<name>\w+)\s*\(")
SCOPES = ("", "std::")


def faults_of(path, text):
    text = check_text._blanked(text).replace("(::", "( ::")
    for match in CALL.finditer(text):
        if match["scope"] not in SCOPES:
            continue
        name, line = match["name"], text.count("\n", 0, match.start()) + 1
        if name in FORBIDDEN:
            yield f"{path}:{line}: {name} is not used here"
        elif name in SHELLS and path not in WITH_A_CHECKED_TEXT:
            yield f"{path}:{line}: {name} with a text that nobody is known to check"


def faults(root):
    return [fault for path in tree.files_of(root)
            if path.endswith(check_text.CPP_SUFFIXES) and not path.startswith(FREE_FOLDERS)
            for fault in faults_of(path, (pathlib.Path(root) / path).read_text())]


if __name__ == "__main__":
    sys.exit(tree.report(faults(sys.argv[1])))
