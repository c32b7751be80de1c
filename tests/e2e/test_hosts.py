"""Each fake host: what the programs say of it, byte by byte against the independent model."""
import functools
import json
import re

import pytest

import expected
import fakehost
from model import Model

CODE_TO_STATUS = {0: 0, 1: 1, 3: 0, 4: 2, 5: 3}


class Judged:
    """One host with its model, and one run of each program on it, made when first asked for."""

    def __init__(self, host):
        self.host, self.model = host, Model(host.directory)

    @functools.cached_property
    def tool(self):
        return self.host.evaluate()

    @functools.cached_property
    def api(self):
        return self.host.api("--all")

    @functools.cached_property
    def api_json(self):
        return self.host.api("--json", "--all")

    @property
    def is_x86(self):
        return self.model.run_status() == 0

    @property
    def complaints(self):
        return expected.shell_complaints(self.host) if self.is_x86 else b""


@pytest.fixture(scope="module", params=fakehost.host_names())
def judged(request, new_host):
    return Judged(new_host(request.param))


def split_record(record):
    """A record's item, value, code and message."""
    item, rest = record.removeprefix(b"('").split(b"','", 1)
    code = list(re.finditer(rb"(?=',([0-9]),')", rest))[-1]
    return item, rest[:code.start()], int(code[1]), rest[code.start() + 5:].removesuffix(b"')")


def test_fact_document(judged):
    text = judged.model.document() if judged.is_x86 else b""
    assert judged.tool.result == text + b"\n"


def test_report(judged):
    if not judged.is_x86:
        assert b"EVALUATED SYSTEM SETUP" not in judged.tool.stdout
        return
    assert judged.tool.report == judged.model.report()


def test_report_names_each_rule_once_and_in_order(judged):
    if not judged.is_x86:
        return
    shown = [name for name in expected.RULES_OF_THE_REPORT if judged.model.rule(name)[0]]
    assert list(judged.tool.rules) == shown


def test_whole_standard_output(judged):
    run, cwd = judged.tool, judged.tool.cwd
    report = judged.model.report() if judged.is_x86 else None
    noise = judged.model.noise() if judged.is_x86 else b""
    assert run.status == 0
    assert run.stdout == (expected.configuration(cwd, [("1", "EvalOS")])
                          + expected.evalos(noise, report)
                          + expected.writing(cwd, *run.results))


def test_standard_error_holds_only_what_the_shell_misses(judged):
    assert judged.tool.stderr == judged.complaints


def test_records(judged):
    records = judged.model.records()
    assert set(records) == set(expected.ACTIONS)
    assert judged.api.stdout == b"".join(records[name] + b"\n" for name in expected.ACTIONS)


def test_noise_of_single_checks_goes_to_standard_error(judged):
    noise = judged.model.noise() if judged.is_x86 else b""
    for run in (judged.api, judged.api_json):
        assert run.stderr == judged.complaints + noise


def test_status_of_single_checks_is_that_of_the_worst(judged):
    codes = [split_record(record)[2] for record in judged.model.records().values()]
    assert judged.api.status == max(CODE_TO_STATUS[code] for code in codes)
    assert judged.api_json.status == judged.api.status


def test_json_records(judged):
    records = judged.model.records()
    shown = json.loads(judged.api_json.stdout)
    assert [entry["action"] for entry in shown] == list(expected.ACTIONS)
    for entry in shown:
        item, value, code, message = split_record(records[entry["action"]])
        assert set(entry) == {"action", "item", "value", "code", "message"}
        assert entry["item"].encode() == item
        assert (type(entry["code"]), entry["code"]) == (int, code)
        assert same_text(entry["value"], value)
        assert same_text(entry["message"], message)


def same_text(shown, raw):
    """Bytes of no character set cannot be shown in JSON; all others come through unchanged."""
    try:
        return shown == raw.decode()
    except UnicodeDecodeError:
        return [c for c in shown if c < "\x7f"] == [chr(b) for b in raw if b < 0x7f]
