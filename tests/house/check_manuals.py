"""Every program has a page that names what its --help names.

Who adds an option and forgets the page is told here, and so is who adds a program. That the pages
are set as they should be is for the reader of pages; looked at is what he stumbles over: sections
that are missing, and requests that are none of man(7)."""
import pathlib
import re
import subprocess
import sys

import tree

FOLDER = "docs/man"
SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "FILES", "ENVIRONMENT", "EXIT STATUS",
            "EXAMPLES", "SEE ALSO"]
MACROS = {"TH", "SH", "SS", "TP", "PP", "B", "I", "BR", "RB", "BI", "IB", "IR", "RI", "EX", "EE",
          "br"}
MOST_SECONDS = 60

PROGRAM = re.compile(r"^\s*vetra_program\(\s*([\w-]+)", re.MULTILINE)
# With one dash or two; neither a list's dash nor one inside of a word.
OPTION = re.compile(r"(?<![\w-])--?[A-Za-z][A-Za-z-]*")
# A word that is said as it stands, at the head of an indented line: alone or before a wide gap.
WORD = re.compile(r"^ {1,4}([A-Za-z]\w*)(?: {2,}\S.*)?$", re.MULTILINE)
# "- KEY:" in a frame of asterisks.
KEY = re.compile(r"^\* +- (\w+):", re.MULTILINE)


def programs_of(root):
    """The programs that the tree builds, by their CMake files."""
    names = set()
    for path in tree.files_of(root):
        if pathlib.PurePath(path).name == "CMakeLists.txt":
            names.update(PROGRAM.findall((pathlib.Path(root) / path).read_text()))
    return sorted(names)


def terms_of(usage):
    """What a usage offers: options, words that stand for themselves, keys of parameters."""
    return {term for kind in (OPTION, WORD, KEY) for term in kind.findall(usage)}


def usage_of(program):
    run = subprocess.run([program, "--help"], stdout=subprocess.PIPE, check=True, text=True,
                         timeout=MOST_SECONDS)
    return run.stdout


def _as_read(line):
    """A line of a page as its reader sees it."""
    line = re.sub(r"^\.(?:[A-Z]{1,2}|br)\b *", "", line)
    line = re.sub(r"\\f.", "", line)
    return line.replace("\\-", "-").replace("\\&", "").replace('"', "")


def sections_of(page):
    """The text of a page by its sections, without comments."""
    sections, current = {}, None
    for line in page.splitlines():
        if line.startswith('.\\"'):
            continue
        if line.startswith(".SH"):
            current = line[len(".SH"):].strip().strip('"')
            sections[current] = ""
        elif current:
            sections[current] += _as_read(line) + "\n"
    return sections


def _names(text, term):
    return re.search(rf"(?<![\w-]){re.escape(term)}(?![\w-])", text) is not None


def page_faults(path, page, usage):
    """What is wrong with the page of a program that prints this usage."""
    for number, line in enumerate(page.splitlines(), 1):
        request = re.match(r"[.'](\w*)", line)
        if request and not line.startswith('.\\"') and request[1] not in MACROS:
            yield f"{path}:{number}: '{request[0]}' is not one of our macros"
    sections = sections_of(page)
    for section in SECTIONS:
        if not sections.get(section, "").strip():
            yield f"{path}: nothing under {section}"
    for term in sorted(terms_of(usage)):
        if not _names(sections.get("OPTIONS", ""), term):
            yield f"{path}: {term} of the usage is missing under OPTIONS"


def _executable(directory, name):
    found = [path for path in pathlib.Path(directory).rglob(name) if path.is_file()]
    return found[0] if found else None


def faults(root, directory):
    """All that is wrong with the pages of a tree whose programs lie in or below a directory."""
    root = pathlib.Path(root)
    programs = programs_of(root)
    found = [] if programs else ["no program in any CMakeLists.txt"]
    for name in programs:
        path = f"{FOLDER}/{name}.8"
        program = _executable(directory, name)
        if not (root / path).is_file():
            found.append(f"{path}: missing")
        elif not program:
            found.append(f"{name} is not built")
        else:
            found.extend(page_faults(path, (root / path).read_text(), usage_of(program)))
    pages = {page.stem for page in (root / FOLDER).glob("*.8")}
    found.extend(f"{FOLDER}/{name}.8: no such program" for name in sorted(pages - set(programs)))
    return found


def main(root, directory):
    return tree.report(faults(root, directory))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
