"""The check of the manual pages, on a small tree with one program and one page."""
import pathlib
import subprocess
import sys

import pytest

import check_manuals

CHECK = pathlib.Path(check_manuals.__file__)
CMAKE = "vetra_library(Runner\n    SOURCES a.cpp)\n\nvetra_program(run\n    SOURCES main.cpp)\n"
USAGE = """run [OPTION]... FILE runs a well-known file from 1-2 places.

  -b SIZE                  size of one thing
  --dry-run                say what would be done,
                           and nothing else
  noclean                  leave the file
  -h, --help
* parameters:
*   - queue_size:
*       - off
"""
OPTIONS = ".TP\n.BI \\-b \" SIZE\"\nThe size.\n.TP\n.B \\-\\-dry\\-run\n.TP\n\\fBnoclean\\fR\n" \
          ".TP\n.BR \\-h \", \" \\-\\-help\n.TP\n.B queue_size\n"
TERMS = ["-b", "--dry-run", "noclean", "-h", "--help", "queue_size"]


def page_with(**changed):
    sections = dict.fromkeys(check_manuals.SECTIONS, "Text.\n") | {"OPTIONS": OPTIONS} | changed
    text = '.\\" for those who know it\n.TH RUN 8\n'
    return text + "".join(f".SH \"{name}\"\n{body}" for name, body in sections.items()
                          if body is not None)


@pytest.fixture
def place(tmp_path):
    """Lays out the tree: what is written over stands in `changed`, by path; None takes it away."""
    def lay_out(changed=None, usage=USAGE, status=0):
        files = {"programs/run/CMakeLists.txt": CMAKE, "docs/man/run.8": page_with(),
                 "build/bin/lib/run": f"#!/bin/sh\ncat <<'END'\n{usage}END\nexit {status}\n"}
        for path, text in (files | (changed or {})).items():
            if text is not None:
                (tmp_path / path).parent.mkdir(parents=True, exist_ok=True)
                (tmp_path / path).write_text(text)
                (tmp_path / path).chmod(0o755)
        return tmp_path, tmp_path / "build/bin"
    return lay_out


def test_a_page_that_names_everything_passes(place):
    assert check_manuals.faults(*place()) == []


def test_what_a_usage_offers():
    assert check_manuals.terms_of(USAGE) == set(TERMS)


@pytest.mark.parametrize("term", TERMS)
def test_an_option_that_the_page_leaves_out_fails(place, term):
    written = term.replace("-", "\\-")
    page = page_with(OPTIONS=OPTIONS.replace(written, "", 1))
    (fault,) = check_manuals.faults(*place({"docs/man/run.8": page}))
    assert fault == f"docs/man/run.8: {term} of the usage is missing under OPTIONS"


def test_a_part_of_a_longer_option_does_not_count(place):
    usage = USAGE + "  --dry                    a little\n"
    (fault,) = check_manuals.faults(*place(usage=usage))
    assert "--dry of" in fault


@pytest.mark.parametrize("where", ["DESCRIPTION", "SEE ALSO"])
def test_an_option_in_another_section_does_not_count(place, where):
    page = page_with(**{"OPTIONS": OPTIONS.replace("noclean", ""), where: "noclean\n"})
    (fault,) = check_manuals.faults(*place({"docs/man/run.8": page}))
    assert "noclean" in fault


def test_an_option_in_a_comment_does_not_count(place):
    page = page_with(OPTIONS=OPTIONS.replace("\\fBnoclean\\fR", '.\\" noclean'))
    (fault,) = check_manuals.faults(*place({"docs/man/run.8": page}))
    assert "noclean" in fault


@pytest.mark.parametrize("section", [name for name in check_manuals.SECTIONS if name != "OPTIONS"])
@pytest.mark.parametrize("body", [None, "", ".PP\n"])
def test_a_section_that_is_missing_or_empty_fails(place, section, body):
    page = page_with(**{section: body})
    (fault,) = check_manuals.faults(*place({"docs/man/run.8": page}))
    assert fault == f"docs/man/run.8: nothing under {section}"


@pytest.mark.parametrize("line", [".Op Fl b", ".NOTE", "'ft B", ". B run"])
def test_a_macro_of_another_kind_fails(place, line):
    page = page_with(FILES=f"Text.\n{line}\n")
    (fault,) = check_manuals.faults(*place({"docs/man/run.8": page}))
    assert "is not one of our macros" in fault


def test_a_program_without_a_page_fails(place):
    assert check_manuals.faults(*place({"docs/man/run.8": None})) == ["docs/man/run.8: missing"]


def test_a_page_without_a_program_fails(place):
    (fault,) = check_manuals.faults(*place({"docs/man/walk.8": page_with()}))
    assert fault == "docs/man/walk.8: no such program"


def test_a_program_that_is_not_built_fails(place):
    assert check_manuals.faults(*place({"build/bin/lib/run": None})) == ["run is not built"]


def test_a_tree_in_which_no_program_is_found_fails(place):
    root, directory = place({"programs/run/CMakeLists.txt": "vetra_library(run)\n",
                             "docs/man/run.8": None})
    assert check_manuals.faults(root, directory) == ["no program in any CMakeLists.txt"]


def test_a_program_that_cannot_print_its_usage_is_no_pass(place):
    with pytest.raises(subprocess.CalledProcessError):
        check_manuals.faults(*place(status=64))


@pytest.mark.parametrize("page, status", [(page_with(), 0), (page_with(FILES=""), 1)])
def test_the_program_ends_with_what_it_found(place, page, status):
    root, directory = place({"docs/man/run.8": page})
    run = subprocess.run([sys.executable, CHECK, root, directory], stdout=subprocess.PIPE, text=True)
    assert run.returncode == status
    assert ("nothing under FILES" in run.stdout) == bool(status)
