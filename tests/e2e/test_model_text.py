"""Checks the model's arithmetic, lines and pipelines against values typed by hand."""

import subprocess

import pytest

from built_host import build_host
from model.host import Host, collect
from model.text import int32, lines, strtol, trim


# Numbers and lines

@pytest.mark.parametrize("text, expected", [
    (b"", 0), (b"abc", 0), (b" 2133 MHz", 2133), (b"\t\v-7.9", -7), (b"+5", 5), (b"- 5", 0),
    (b"2593.9", 2593), (b"0x10", 0), (b"010", 10), (b"12\x0034", 12),
    (b"9223372036854775807", 9223372036854775807),
    (b"9223372036854775808", 9223372036854775807),
    (b"-9223372036854775809", -9223372036854775808),
    (b"9" * 5000, 9223372036854775807),
    (b"0" * 5000 + b"12", 12),
])
def test_numbers_end_at_the_first_other_letter_and_saturate(text, expected):
    assert strtol(text) == expected


@pytest.mark.parametrize("value, expected", [
    (2147483648, -2147483648), (4294967296, 0), (-2147483649, 2147483647),
    (9223372036854775807, -1), (-9223372036854775808, 0),
])
def test_numbers_keep_their_low_32_bits(value, expected):
    assert int32(value) == expected


def test_trimming_leaves_vertical_tab_and_form_feed():
    assert trim(b" \r\n\t\va b\f \t") == b"\va b\f"
    assert trim(b" \t\r\n") == b""
    assert trim(b"") == b""


def test_lines_have_no_extra_empty_one_at_the_end():
    assert lines(b"") == []
    assert lines(b"a\nb") == [b"a", b"b"]
    assert lines(b"a\n\n") == [b"a", b""]
    assert lines(b"\n") == [b""]


# Commands

def test_long_output_lines_are_collected_whole():
    output = b"x" * 600 + b"\n" + b"y" * 255 + b"\n" + b"z"
    assert collect(output) == output


def test_nul_byte_hides_the_rest_of_its_piece():
    assert collect(b"ab\0cd\nef\n") == b"abef\n"
    assert collect(b"a\0" + b"x" * 253 + b"tail\n") == b"atail\n"


@pytest.mark.parametrize("content", [
    b"", b"Size: 8 GB\n", b"Size: 8 GB", b"Size: 8 MB and 1 GB\r\nSize: No\n\nRank: 1\n",
    b"Size: 8 GB\0\n", b"other\0\nSize: 8 GB\n", b"other\0\n", b"Size \xff\xfe GB\n",
])
@pytest.mark.parametrize("words", [("Size",), ("Size", "GB")])
@pytest.mark.parametrize("first_line", [False, True])
def test_pipelines_print_what_the_shell_prints(tmp_path, content, words, first_line):
    host = Host(build_host(tmp_path, commands={"dmidecode": content}))
    stages = ['cat "$1"'] + ['grep "%s"' % word for word in words] + ["head -1"] * first_line
    script = " | ".join(stages) + " 2>&1"
    arguments = ["/bin/sh", "-c", script, "sh", str(tmp_path / "commands" / "dmidecode.txt")]
    printed = subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                             env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"}, check=False).stdout
    encoded = [word.encode() for word in words]
    assert host.pipeline("dmidecode", *encoded, first_line=first_line) == collect(printed)


def test_missing_package_manager_answers_through_the_shell(tmp_path):
    assert Host(build_host(tmp_path)).installed_packages() == b"sh: 1: rpm: not found\n"
