"""The configuration file: which texts are taken, what is shown of them, and how others are refused.

Most configurations name a class that no factory knows, since then nothing but the driver runs."""
import json
import resource

import pytest

import expected
import fakehost

BEYOND_TEN_MEGABYTES = 10_000_000


def assert_refused(run, code, argument, line=b""):
    """The run ended at the configuration, with its line if it has one, and started no test."""
    assert run.status == 0 and run.stderr == b""
    assert run.stdout.startswith(line)
    assert expected.is_error(run.stdout[len(line):], code, argument)
    assert run.results == {} and run.commands == []
    assert [severity for severity, _ in run.events] == ["INFO"]


def assert_taken(run, tests=(), started=None, **shown):
    """The summary is as told and the tests, all of no known class, were asked for in this order."""
    started = [name for _, name in tests] if started is None else started
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (expected.configuration(run.cwd, tests, **shown)
                          + b"".join(map(expected.unregistered, started)))
    assert run.results == {}


# Texts that are no configuration at all.

NO_JSON = {
    "empty": b"",
    "blank": b" ",
    "line-feed": b"\n",
    "word": b"configuration",
    "open-object": b"{",
    "open-string": b'{"output_dir": "x',
    "open-array": b'{"tests": [',
    "trailing-comma": b'{"use_zdb": true,}',
    "missing-comma": b'{"use_zdb": true "report_id": "x"}',
    "missing-colon": b'{"use_zdb" true}',
    "single-quotes": b"{'use_zdb': true}",
    "key-without-quotes": b"{use_zdb: true}",
    "upper-case-literal": b'{"use_zdb": TRUE}',
    "text-behind": b"{} x",
    "second-object": b"{}{}",
    "array": b"[]",
    "array-of-objects": b'[{"tests": []}]',
    "number": b"1",
    "string": b'"tests"',
    "null": b"null",
    "boolean": b"true",
    "comment": b"{} // none",
    "invalid-utf-8": b'{"report_id": "\xff\xfe"}',
    "broken-utf-8": b'{"report_id": "\xe4"}',
    "overlong-utf-8": b'{"report_id": "\xc0\x80"}',
    "surrogate-utf-8": b'{"report_id": "\xed\xa0\x80"}',
    "invalid-utf-8-key": b'{"\xff": 1}',
    "nul-in-string": b'{"report_id": "a\0b"}',
    "nul-behind": b"{}\0",
    "nul-and-more": b"{}\0{",
    "nul-only": b"\0",
    "line-feed-in-string": b'{"report_id": "a\nb"}',
    "bad-escape": b'{"report_id": "\\x"}',
    "leading-zero": b'{"tests": [{"id": 01}]}',
    "plus-sign": b'{"tests": [{"id": +1}]}',
    "hexadecimal": b'{"tests": [{"id": 0x1}]}',
    "not-a-number": b'{"tests": [{"id": NaN}]}',
    "open-nested-100000-deep": b'{"blades": ' + b"[" * 100_000,
    "nested-100000-deep": b'{"blades": ' + b"[" * 100_000 + b"]" * 100_000 + b"}",
    "objects-nested-100000-deep":
        b'{"tests": [{"config": ' + b'{"a":' * 100_000 + b"1" + b"}" * 100_000 + b"}]}",
}


@pytest.mark.parametrize("text", NO_JSON.values(), ids=NO_JSON.keys())
def test_a_text_that_is_no_json_object_is_shown_whole(host, text):
    run = host.vetra(text)
    line = b"Failed to parse json size=%d ,data=%s\n" % (len(text), text)
    assert_refused(run, 5, b"Failed to parse user config json", line)


def test_nesting_within_reason_is_taken(host):
    assert_taken(host.vetra(b'{"blades": ' + b"[" * 400 + b"]" * 400 + b"}"))


# Keys and types.

VALUES = {"null": None, "boolean": True, "number": 1, "string": "x", "array": [], "object": {}}
TOP_LEVEL = {"blades": "array", "output_dir": "string", "report_id": "string", "tests": "array",
             "use_zdb": "boolean"}
IN_A_TEST = {"class": "string", "config": "object", "id": "number", "package": "string",
             "test_timeout": "number"}


def wrong_types(keys):
    return [pytest.param(key, value, id=f"{key}-{kind}")
            for key, right in keys.items() for kind, value in VALUES.items() if kind != right]


@pytest.mark.parametrize("key, value", wrong_types(TOP_LEVEL))
def test_a_wrong_type_at_the_top_is_named_and_refused(host, key, value):
    line = b"Invalid user configuration " + key.encode() + b"\n"
    assert_refused(host.vetra({key: value}), 6, key.encode(), line)


@pytest.mark.parametrize("key", ["Tests", "BLADES", "test", "tests ", " tests", "", "output-dir",
                                 "class", "id", "schl\u00fcssel"])
def test_an_unknown_key_at_the_top_is_named_and_refused(host, key):
    run = host.vetra(json.dumps({key: []}, ensure_ascii=False).encode())
    assert_refused(run, 6, key.encode(), b"Invalid user configuration " + key.encode() + b"\n")


def test_a_line_feed_in_a_key_does_not_break_the_line_of_the_error(host):
    run = host.vetra({"a\nb": []})
    assert_refused(run, 6, b"a\\nb", b"Invalid user configuration a\nb\n")


@pytest.mark.parametrize("key, value", wrong_types(IN_A_TEST))
def test_a_wrong_type_in_a_test_is_refused_without_a_line(host, key, value):
    assert_refused(host.vetra({"tests": [{key: value}]}), 6, key.encode())


@pytest.mark.parametrize("key", ["Class", "ID", "timeout", "", "tests", "output_dir"])
def test_an_unknown_key_in_a_test_is_refused_without_a_line(host, key):
    assert_refused(host.vetra({"tests": [{"id": 1, "class": "A", key: 1}]}), 6, key.encode())


@pytest.mark.parametrize("entry", [None, True, 1, "EvalOS", []])
def test_an_entry_that_is_no_object_is_refused(host, entry):
    assert_refused(host.vetra({"tests": [{"class": "A"}, entry]}), 6, b"tests")


def test_keys_act_in_byte_order_whatever_their_order_in_the_file(host):
    run = host.vetra(b'{"use_zdb": 1, "tests": 2, "blades": 3, "Z": 4}')
    assert_refused(run, 6, b"Z", b"Invalid user configuration Z\n")


def test_of_two_bad_keys_in_a_test_the_first_in_byte_order_counts(host):
    assert_refused(host.vetra(b'{"tests": [{"id": "1", "class": 2}]}'), 6, b"class")


def test_of_two_bad_entries_the_first_in_the_file_counts(host):
    assert_refused(host.vetra({"tests": [{"package": 1}, {"class": 1}]}), 6, b"package")


# What is taken, and what is shown of it.

def test_an_empty_object_is_valid(host):
    assert_taken(host.vetra(b"{}"))


def test_blanks_around_the_object_do_not_matter(host):
    assert_taken(host.vetra(b" \r\n\t{ } \n"))


def test_an_empty_list_of_tests_is_valid(host):
    assert_taken(host.vetra({"tests": []}))


def test_all_keys_at_once(host):
    run = host.vetra({"blades": ["one"], "output_dir": "out", "report_id": "r", "use_zdb": True,
                      "tests": [{"class": "A", "config": {"a": 1}, "id": 7, "package": "p",
                                 "test_timeout": 100}]})
    assert_taken(run, [("7", "A")], output_dir="out", blades=["one"], use_zdb=True)


def test_strings_of_blades_are_kept_and_others_passed_over(host):
    run = host.vetra({"blades": ["one", 1, "two", None, ["x"], {"a": "b"}, True, "", "\u20ac"]})
    assert_taken(run, blades=["one", "two", "", "\u20ac"])


def test_empty_blades(host):
    assert_taken(host.vetra({"blades": []}))


@pytest.mark.parametrize("value", [True, False])
def test_use_zdb_is_shown_as_a_digit(host, value):
    assert_taken(host.vetra({"use_zdb": value}), use_zdb=value)


def test_report_id_package_and_timeout_are_not_shown(host):
    run = host.vetra({"report_id": "hidden", "tests": [
        {"class": "A", "package": "hidden", "test_timeout": 12345, "config": {"hidden": 1}}]})
    assert_taken(run, [("0", "A")])


@pytest.mark.parametrize("seconds", [2.9, -2.9, 0, 4294967296, -1e300, 1e300])
def test_any_number_serves_as_timeout(host, seconds):
    run = host.vetra({"tests": [{"class": "A", "id": 1, "test_timeout": seconds}]})
    assert_taken(run, [("1", "A")])


def test_a_string_may_hold_any_escape(host):
    run = host.vetra(b'{"blades": ["\\u00e4\\ud83d\\ude00\\"\\\\\\/\\t"]}')
    assert_taken(run, blades=["\u00e4\U0001f600\"\\/\t"])


def test_of_duplicate_keys_the_last_counts(host):
    run = host.vetra(b'{"blades": ["a"], "blades": ["b"],'
                     b' "tests": [{"id": 1, "id": 2, "class": "A", "class": "B"}]}')
    assert_taken(run, [("2", "B")], blades=["b"])


def test_a_bad_duplicate_does_no_harm_when_a_good_one_follows(host):
    assert_taken(host.vetra(b'{"use_zdb": 1, "use_zdb": true}'), use_zdb=True)


def test_a_good_duplicate_does_not_help_when_a_bad_one_follows(host):
    run = host.vetra(b'{"use_zdb": true, "use_zdb": 1}')
    assert_refused(run, 6, b"use_zdb", b"Invalid user configuration use_zdb\n")


# The order of the tests.

def entries(*pairs):
    """Test entries of the given (id, class) pairs; no id for None."""
    return {"tests": [{"class": name} if number is None else {"id": number, "class": name}
                      for number, name in pairs]}


ORDERS = {
    "descending": ([(2, "A"), (1.5, "B"), (1, "C")], [("1", "C"), ("1.5", "B"), ("2", "A")]),
    "equal-ids": ([(1, "A"), (2, "B"), (1, "C")], [("1", "C"), ("2", "B")]),
    "no-ids": ([(None, "A"), (None, "B")], [("0", "B")]),
    "first-without-id": ([(None, "A"), (0.5, "B"), (2, "C")],
                         [("0.5", "B"), ("0", "A"), ("2", "C")]),
    "displaced-by-neighbour": ([(3, "A"), (None, "B")], [("0", "B")]),
    "takes-the-key-before": ([(5, "A"), (3, "B"), (None, "C")], [("0", "C"), ("5", "A")]),
    "displaced-by-a-later-one": ([(None, "A"), (1, "B")], [("1", "B")]),
    "negative": ([(0, "A"), (-1, "B"), (-2.5, "C")], [("-2.5", "C"), ("-1", "B"), ("0", "A")]),
    "six-digits": ([(1000000, "A"), (123456, "B"), (1234567, "C"), (0.1, "D"), (1 / 3, "E"),
                    (0.00001, "F"), (2.0, "G")],
                   [("1e-05", "F"), ("0.1", "D"), ("0.333333", "E"), ("2", "G"), ("123456", "B"),
                    ("1e+06", "A"), ("1.23457e+06", "C")]),
    "same-text-different-keys": ([(1.00000001, "A"), (1, "B")], [("1", "B"), ("1", "A")]),
}


@pytest.mark.parametrize("given, order", ORDERS.values(), ids=ORDERS.keys())
def test_order_and_shown_ids(host, given, order):
    assert_taken(host.vetra(entries(*given)), order)


def test_entries_without_a_class_are_asked_for_all_the_same(host):
    run = host.vetra({"tests": [{"id": 1}, {"id": 2, "class": ""}, {}]})
    assert_taken(run, [("1", ""), ("0", "")])


@pytest.mark.parametrize("name", ["evalos", "EvalOS ", " EvalOS", "EvalO", "EvalOS2", "\u00c4"])
def test_a_class_is_compared_whole_and_by_case(host, name):
    run = host.vetra({"tests": [{"id": 1, "class": name}]})
    assert_taken(run, [("1", name)])
    assert ("ERROR", b"Error while creating test object.") in run.events


# The output directory.

def test_the_output_directory_is_made_with_its_parents(host):
    run = host.vetra({"output_dir": "a/b/c"})
    assert_taken(run, output_dir="a/b/c")
    assert (run.cwd / "a/b/c").is_dir()


def test_an_existing_output_directory_is_kept(host):
    def prepare(cwd):
        (cwd / "out").mkdir()
        (cwd / "out/test_before").write_text("kept")

    run = host.vetra({"output_dir": "out"}, prepare=prepare)
    assert_taken(run, output_dir="out")
    assert (run.cwd / "out/test_before").read_text() == "kept"


def test_the_output_directory_stays_when_a_later_key_fails(host):
    run = host.vetra({"output_dir": "out", "use_zdb": 1})
    assert_refused(run, 6, b"use_zdb", b"Invalid user configuration use_zdb\n")
    assert (run.cwd / "out").is_dir()


@pytest.mark.parametrize("earlier", [{"blades": 1}, {"Tests": []}])
def test_no_output_directory_when_an_earlier_key_fails(host, earlier):
    run = host.vetra({"output_dir": "out", **earlier})
    (key,) = earlier
    assert_refused(run, 6, key.encode(), b"Invalid user configuration " + key.encode() + b"\n")
    assert not (run.cwd / "out").exists()


@pytest.mark.parametrize("place", ["config.json/out", "/proc/no/such/place"])
def test_an_output_directory_that_cannot_be_made_is_kept_in_the_summary(host, place):
    assert_taken(host.vetra({"output_dir": place}), output_dir=place)


# The file itself.

def missing(cwd):
    pass


def unreadable(cwd):
    (cwd / "config.json").write_text("{}")
    (cwd / "config.json").chmod(0)


def directory(cwd):
    (cwd / "config.json").mkdir()


def dangling_link(cwd):
    (cwd / "config.json").symlink_to("nowhere")


@pytest.mark.parametrize("prepare", [missing, unreadable, directory, dangling_link])
def test_a_file_that_cannot_be_opened_is_an_error(host, prepare):
    run = host.vetra(prepare=prepare, limited=True)
    assert run.status == 0 and run.stderr == b""
    assert expected.is_error(run.stdout, 4, b"Error while opening the file.")
    assert run.events == [("INFO", b"Reading from file config.json"),
                          ("ERROR", b"Reading from file config.jsonError")]


def test_a_link_is_followed(host):
    def prepare(cwd):
        (cwd / "real.json").write_text('{"use_zdb": true}')
        (cwd / "config.json").symlink_to("real.json")

    assert_taken(host.vetra(prepare=prepare), use_zdb=True)


def test_an_empty_device_reads_as_an_empty_text(host):
    run = host.vetra(arguments=["-f", "/dev/null"])
    assert_refused(run, 5, b"Failed to parse user config json",
                   b"Failed to parse json size=0 ,data=\n")


# Sizes.

def test_a_hundred_thousand_entries_of_one_id(host):
    text = b'{"tests":[' + b",".join([b'{"id":1,"class":"A"}'] * 100_000) + b"]}"
    assert_taken(host.vetra(text), [("1", "A")])


def test_a_hundred_thousand_ids(host):
    text = b'{"tests":[' + b",".join(b'{"id":%d}' % -number for number in range(100_000)) + b"]}"
    run = host.vetra(text + b"x")
    assert_refused(run, 5, b"Failed to parse user config json",
                   b"Failed to parse json size=%d ,data=%sx\n" % (len(text) + 1, text))


LARGE = {
    "string": b'{"report_id": "' + b"x" * BEYOND_TEN_MEGABYTES + b'"}',
    "numbers": b'{"blades": [' + b"0," * (BEYOND_TEN_MEGABYTES // 2) + b"0]}",
    "empty-objects": b'{"blades": [' + b"{}," * (BEYOND_TEN_MEGABYTES // 3) + b"0]}",
    "keys": b'{"tests": [{"config": {' + b",".join(
        b'"%x":0' % number for number in range(BEYOND_TEN_MEGABYTES // 10)) + b"}}]}",
}


@pytest.mark.parametrize("shape", LARGE)
def test_a_large_configuration_takes_memory_in_proportion(host, shape):
    run = host.vetra(LARGE[shape])
    assert run.status == 0 and run.stderr == b""
    assert run.stdout.startswith(b"\nTests will be running")
    if not fakehost.is_sanitized("vetra"):
        # The greatest of all runs so far, so never less than that of this one.
        peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss * 1024
        assert peak <= 64 * len(LARGE[shape]) + (64 << 20)
