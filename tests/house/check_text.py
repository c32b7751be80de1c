"""How the files of the tree are kept: nothing unfinished, nothing of a build machine, no thicket.

Lines of C and C++ end at 100 columns, functions at 70 lines, files at 600 lines. Captured data
(the fake hosts of the end-to-end tests, the fuzz corpora) is what it is and is not looked at."""
import ast
import pathlib
import re
import sys

import tree

MOST_COLUMNS = 100
MOST_FUNCTION_LINES = 70
MOST_FILE_LINES = 600

CPP_SUFFIXES = (".h", ".cpp", ".c")
SOURCE_SUFFIXES = CPP_SUFFIXES + (".py", ".cmake")
DATA_FOLDERS = ("tests/e2e/hosts/", "fuzz/corpus/")

# Put together here, so that this file passes its own check.
UNFINISHED = re.compile(r"\b(?:" + "|".join([
    "TO" + "DO", "FIX" + "ME", "XX" + "X", "HA" + "CK", "T" + "BD", "WI" + "P",
    "(?i:not (?:yet )?" + "implemented)", "(?i:un" + "implemented)", "(?i:place" + "holder)s?",
]) + r")\b")
BUILD_MACHINE = re.compile(r"(?<![\w./-])/(?:" + "work/|tmp/" + "bash_jobs" + ")")

# Words that are a term of the matter in the files whose name holds the second text.
TERMS = {"place" + "holder": "Exception"}

LITERAL_OR_COMMENT = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"'
    r'''|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+\'''', re.DOTALL)
# What stands before a brace tells what the brace opens.
SURROUNDING = re.compile(r"\b(?:namespace|class|struct|union|enum|extern)\b")
ALIGNMENT = re.compile(r"\balignas\s*\([^()]*\)")


def is_text(data):
    return b"\0" not in data


def _is_term(word, path):
    return any(word.lower().startswith(term) and part in pathlib.PurePath(path).name
               for term, part in TERMS.items())


def word_faults(path, lines):
    for number, line in enumerate(lines, 1):
        for word in UNFINISHED.findall(line):
            if not _is_term(word, path):
                yield f"{path}:{number}: '{word}' in a finished file"
        if BUILD_MACHINE.search(line):
            yield f"{path}:{number}: a path of a build machine"


def width_faults(path, lines):
    for number, line in enumerate(lines, 1):
        if len(line) > MOST_COLUMNS:
            yield f"{path}:{number}: {len(line)} columns"


def _blanked(text):
    """The text with literals and comments as blanks, line by line in the same place."""
    return LITERAL_OR_COMMENT.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def _opens_surrounding(head):
    """Whether a brace behind this text holds functions, as a namespace or a class does."""
    head = ALIGNMENT.sub("", head)
    return ")" not in head and SURROUNDING.search(head) is not None


def _opens_data(head):
    return head.rstrip().endswith(("=", "]"))


def cpp_functions(text):
    """First and last line of each function body. Tables of data are none and may be long."""
    text = _blanked(text)
    depth = 0  # of braces inside the outermost one that surrounds no functions
    for match in re.finditer(r"[{}]", text):
        position = match.start()
        if depth:
            depth += 1 if match[0] == "{" else -1
            if depth == 0 and not is_data:
                yield text.count("\n", 0, start) + 1, text.count("\n", 0, position) + 1
        elif match[0] == "{":
            head = re.split(r"[;{}]", text[:position])[-1]
            if not _opens_surrounding(head):
                start, depth, is_data = position, 1, _opens_data(head)


def cpp_function_faults(path, text):
    for first, last in cpp_functions(text):
        if last - first + 1 > MOST_FUNCTION_LINES:
            yield f"{path}:{first}: a function of {last - first + 1} lines"


def python_function_faults(path, text):
    for node in ast.walk(ast.parse(text)):
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef)):
            lines = node.end_lineno - node.lineno + 1
            if lines > MOST_FUNCTION_LINES:
                yield f"{path}:{node.lineno}: a function of {lines} lines"


def faults_of(path, data):
    """All that is wrong with one file."""
    text = data.decode("utf-8", errors="replace")
    lines = text.splitlines()
    yield from word_faults(path, lines)
    is_python = path.endswith(".py") or text.startswith(("#!/usr/bin/python3",
                                                         "#!/usr/bin/env python3"))
    is_source = is_python or path.endswith(SOURCE_SUFFIXES)
    if is_source and len(lines) > MOST_FILE_LINES:
        yield f"{path}: {len(lines)} lines"
    if path.endswith(CPP_SUFFIXES):
        yield from width_faults(path, lines)
        yield from cpp_function_faults(path, text)
    if is_python:
        yield from python_function_faults(path, text)


def faults(root):
    found = []
    for path in tree.files_of(root):
        data = (pathlib.Path(root) / path).read_bytes()
        if not path.startswith(DATA_FOLDERS) and is_text(data):
            found.extend(faults_of(path, data))
    return found


def main(root):
    return tree.report(faults(root))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
