"""The check of forbidden calls, on small trees."""
import pytest

import check_calls


def faults_of(tmp_path, path, text):
    (tmp_path / path).parent.mkdir(parents=True, exist_ok=True)
    (tmp_path / path).write_text(text)
    return check_calls.faults(tmp_path)


@pytest.mark.parametrize("call", ["system(", "::system(", "std::strcpy (", "sprintf(", "gets("])
def test_a_forbidden_call_fails(tmp_path, call):
    (fault,) = faults_of(tmp_path, "impl/a.cpp", f"void f()\n{{\n    {call}x);\n}}\n")
    assert fault.startswith("impl/a.cpp:3: ")


def test_a_shell_fails_where_nobody_checks_its_text(tmp_path):
    (fault,) = faults_of(tmp_path, "impl/a.cpp", "auto p = ::popen(text, \"r\");\n")
    assert "popen" in fault
    for path in check_calls.WITH_A_CHECKED_TEXT:
        assert not faults_of(tmp_path / "other", path, "auto p = ::popen(text, \"r\");\n")


@pytest.mark.parametrize("text", [
    "host.system(x);", "host->system(x);", "Basis::system(x);", "snprintf(a, b);", "// system(x)",
    'print("system(x)");', "int system = 3;", "fgets(a, b, c);"])
def test_what_only_looks_like_one_passes(tmp_path, text):
    assert not faults_of(tmp_path, "impl/a.cpp", text + "\n")


@pytest.mark.parametrize("path", ["tests/a.cpp", "bench/a.c", "fuzz/a.cpp", "impl/a.py"])
def test_other_files_are_free(tmp_path, path):
    assert not faults_of(tmp_path, path, "system(x);\n")
