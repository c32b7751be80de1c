"""The check of how files are kept, on small trees of which each breaks one rule."""
import pathlib
import subprocess
import sys

import pytest

import check_text
import tree

CHECK = pathlib.Path(check_text.__file__)
# Parted, so that this file passes the check.
WORDS = ["TO" + "DO", "FIX" + "ME", "XX" + "X", "HA" + "CK", "T" + "BD", "WI" + "P",
         "not " + "implemented", "Not yet " + "implemented", "un" + "implemented",
         "place" + "holder", "Place" + "holders"]
PATHS = ["/wo" + "rk/main/x", "/tmp/" + "bash_jobs.0/1"]


@pytest.fixture
def write(tmp_path):
    def write_file(path, text):
        (tmp_path / path).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / path).write_text(text)
        return tmp_path
    return write_file


def body(lines):
    return "    ++count;\n" * lines


def function(lines, head="int run()"):
    """A function whose braces stand on the first and the last of so many lines."""
    return head + " {\n" + body(lines - 2) + "}\n"


@pytest.mark.parametrize("word", WORDS)
@pytest.mark.parametrize("path", ["impl/a.cpp", "impl/a.h", "scripts/run", "README.md",
                                  "tests/test_a.py", "impl/CMakeLists.txt"])
def test_an_unfinished_file_fails(write, path, word):
    (fault,) = check_text.faults(write(path, f"\n# {word}: later\n"))
    assert fault.startswith(f"{path}:2: ")


@pytest.mark.parametrize("text", ["TO" + "DOS are", "method", "NE3100-xxxx", "WI" + "PE",
                                  "implemented"])
def test_a_word_that_only_looks_like_it_passes(write, text):
    assert check_text.faults(write("impl/a.cpp", f"// {text}\n")) == []


def test_a_term_of_the_matter_passes_in_its_files(write):
    text = "// fills the " + WORDS[-2] + "s\n"
    write("impl/a.cpp", text)
    (fault,) = check_text.faults(write("services/Basis/Exception.h", text))
    assert fault.startswith("impl/a.cpp:1: ")


@pytest.mark.parametrize("path", PATHS)
@pytest.mark.parametrize("file", ["bench/run", "docs/a.md", "impl/a.cpp"])
def test_a_path_of_a_build_machine_fails(write, file, path):
    (fault,) = check_text.faults(write(file, f"see {path}\n"))
    assert fault.startswith(f"{file}:1: ")


def test_a_path_that_only_ends_so_passes(write):
    assert check_text.faults(write("docs/a.md", "see home" + PATHS[0] + "\n")) == []


@pytest.mark.parametrize("path", ["impl/a.cpp", "impl/a.h", "tests/a.c"])
def test_a_line_of_101_columns_fails(write, path):
    (fault,) = check_text.faults(write(path, "//" + "a" * 98 + "\n//" + "a" * 99 + "\n"))
    assert fault == f"{path}:2: 101 columns"


@pytest.mark.parametrize("path", ["README.md", "CMakePresets.json"])
def test_a_long_line_of_prose_or_data_passes(write, path):
    assert check_text.faults(write(path, "a" * 300 + "\n")) == []


@pytest.mark.parametrize("path", ["impl/a.cpp", "impl/a.h", "tests/test_a.py", "cmake/a.cmake"])
def test_a_file_of_601_lines_fails(write, path):
    write("impl/b.cpp", "\n" * 600)
    (fault,) = check_text.faults(write(path, "\n" * 601))
    assert fault == f"{path}: 601 lines"


@pytest.mark.parametrize("head", [
    "int run()", "void Engine::run(const string& name) const", "template <class T>\nvoid f(T a)",
    "Engine::Engine() : a(1)", "Engine::Engine() : a{1}, b{2}", "struct stat look(int file)",
    "const auto run = [](int a)"])
def test_a_function_of_71_lines_fails(write, head):
    write("impl/b.cpp", function(70, head))
    (fault,) = check_text.faults(write("impl/a.cpp", function(71, head)))
    assert fault == f"impl/a.cpp:{1 + head.count(chr(10))}: a function of 71 lines"


@pytest.mark.parametrize("around", [
    "namespace Vetra {\n", "namespace {\n", "class Engine final : public Base {\npublic:\n",
    "struct alignas(64) Engine {\n", 'extern "C" {\n', "namespace A {\nnamespace {\nclass B {\n"])
def test_a_long_function_is_found_wherever_it_stands(write, around):
    closing = "};\n" * around.count("{")
    write("impl/b.cpp", around + function(60) + function(60) + closing)
    (fault,) = check_text.faults(write("impl/a.cpp", around + function(71) + closing))
    assert fault.startswith("impl/a.cpp:") and "71 lines" in fault


def test_braces_in_literals_and_comments_do_not_count(write):
    text = ('namespace A {\nconst char* a = "}{{"; // }}\nchar b = \'{\'; /* {\n */\n'
            'auto c = R"(} " {)";\nint d = 1\'000\'000;\n')
    (fault,) = check_text.faults(write("impl/a.cpp", text + function(71) + "}\n"))
    assert fault == "impl/a.cpp:7: a function of 71 lines"


@pytest.mark.parametrize("head", ["constexpr int table[] = {", "const Row Table::rows[]{",
                                  "enum class Code {", "constexpr Rows rows = {"])
def test_a_long_table_passes(write, head):
    assert check_text.faults(write("impl/a.h", head + "\n" + "    {1, 2},\n" * 100 + "};\n")) == []


@pytest.mark.parametrize("path, first", [("tests/a.py", ""), ("bench/a", "#!/usr/bin/python3\n")])
def test_a_python_function_of_71_lines_fails(write, path, first):
    text = first + "def {}():\n" + "    pass\n" * 70
    write("tests/b.py", "def b():\n" + "    pass\n" * 69)
    (fault,) = check_text.faults(write(path, text.format("a")))
    assert fault == f"{path}:{1 + bool(first)}: a function of 71 lines"


@pytest.mark.parametrize("path", ["tests/e2e/hosts/a/root/etc/release", "fuzz/corpus/F/a"])
def test_captured_data_is_not_looked_at(write, path):
    assert check_text.faults(write(path, WORDS[0] + PATHS[0] + "\n")) == []


def test_what_a_repository_ignores_is_not_looked_at(write):
    write(".gitignore", "/out/\n")
    write("out/a.cpp", f"// {WORDS[0]}\n")
    write("kept/b.cpp", f"// {WORDS[0]}\n")
    root = write("gone/c.cpp", f"// {WORDS[0]}\n")
    for command in (["init", "-q"], ["add", "gone/c.cpp"]):
        subprocess.run(["git", "-C", root, *command], check=True)
    (root / "gone/c.cpp").unlink()
    assert tree.files_of(root) == [".gitignore", "kept/b.cpp"]
    (fault,) = check_text.faults(root)
    assert fault.startswith("kept/b.cpp:1: ")


@pytest.mark.parametrize("text, status", [("int a;\n", 0), (f"// {WORDS[0]}\n", 1)])
def test_the_program_ends_with_what_it_found(write, text, status):
    root = write("impl/a.cpp", text)
    run = subprocess.run([sys.executable, CHECK, root], stdout=subprocess.PIPE, text=True)
    assert run.returncode == status
    assert ("impl/a.cpp:1" in run.stdout) == bool(status)
