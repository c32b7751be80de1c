"""The network test when ssh, the peer, its server or the line between fails. Each run ends within
15 seconds: with a line about it and a failed test, or, for a peer lost in a measurement and a port
that is none, abnormally with the exception's text as the last words."""
import contextlib
import json
import re
import signal
import socket
import tempfile
from concurrent import futures

import pytest

from network_hosts import (ASSUMED_PORT, END, ENDS_WITHIN_SECONDS, NAMES, RECEIPT, SERVER, STRING,
                           Listening, answer, frame, joined_hosts, passing_on, take, take_request,
                           until, until_nothing_is_left, which)

LOAD = 65535
LISTENING = f"{SERVER}: listening on port {ASSUMED_PORT}"
NOT_STARTED = "VNSNetServer starting on remote host failed"
RATE_LINES = (r"Average throughtput \(MBit/s\): \d+", r"Average bidi throughtput \(MBit/s\): \d+")
NO_NETSTAT = r"(ba)?sh: .*netstat: command not found"
LOST = r"(connection ended by|receive from|send to) zirn02:4464"


@pytest.fixture
def pair(namespaces, scratch):
    """The host on which the tool runs, and its peer."""
    with joined_hosts(scratch, 2) as hosts:
        yield hosts


def measure(host, *peers, **options):
    """The tool with these peers, within the time that every failure is given."""
    return host.measure(*peers, timeout=ENDS_WITHIN_SECONDS, **options)


def told(run):
    """The lines between the start of the test and its verdict, or the end of them."""
    lines = run.stdout.decode().partition("Start running test:\n NetworkTest\n")[2].splitlines()
    verdicts = [number for number, line in enumerate(lines) if line.startswith("NetworkTestrun ")
                or line.startswith("NetworkTest run ")]
    return lines[:verdicts[0]] if verdicts else lines


def has_failed(run, *lines, record=None):
    """Whether the test has failed after these lines (patterns), with these records."""
    assert len(told(run)) == len(lines), run
    assert all(re.fullmatch(line, shown) for line, shown in zip(lines, told(run))), run
    assert b"\nNetworkTestrun failed\nWriting output to " in run.stdout
    assert (run.status, json.loads(run.result)) == (0, record or {}), run


def has_ended_abnormally(run, last_words, *lines):
    """Whether the process was aborted after these lines, without a result."""
    assert len(told(run)) == len(lines), run
    assert all(re.fullmatch(line, shown) for line, shown in zip(lines, told(run))), run
    assert b"run failed" not in run.stdout
    assert re.search(rf"^vetra: unexpected exception .*{last_words}.*\n\Z", run.stderr.decode(),
                     re.MULTILINE), run
    assert (run.status, run.results) == (-signal.SIGABRT, {}), run


def is_in_order(run):
    assert b"\nNetworkTest run OK.\n" in run.stdout, run
    (record,) = json.loads(run.result).values()
    assert record["LoadSize"] == LOAD and min(record.values()) > 0


def record_of(run, peer):
    """What the result must hold when the first peer was measured and printed."""
    one_way, both_ways = (int(line.rpartition(" ")[2]) for line in told(run)[2:4])
    assert min(one_way, both_ways) > 0
    return {peer: {"LoadSize": LOAD, "Throughput": one_way, "ThroughputBidi": both_ways}}


def starting(host):
    return f"VNSNetServer starting on {re.escape(host)}"


def not_running(host):
    return f"Server is not running properly on host {host.name}"


def has_only_its_server(host):
    until(lambda: len(host.processes()) == len(host.servers()) == 1, "the server alone")


# Names and directories that a shell would take for something else.

REFUSED_NAMES = ("", "zirn02; touch {}", "$(touch {})", "`touch {}`", "zirn02\ntouch {}",
                 "zirn02|touch {}", "-oProxyCommand=touch {}", "root@zirn02", "zirn02 -v", "'",
                 "zirn02\"", "zirn\u00e402", "zirn02\t")
REFUSED_DIRECTORIES = ("vetra", "", "/x;touch {}", "/$(touch {})", "/`touch {}`", "/a b", "/a\"",
                       "/a'", "/a\n")


def test_a_name_that_is_none_is_refused_and_nothing_is_executed(pair):
    host, peer = pair
    files = host.files(), peer.files()
    for name in REFUSED_NAMES:
        name = name.format(host.home / "touched")
        run = measure(host, name)
        lines = f"VNSNetServer starting on {name}\n{NOT_STARTED}".split("\n")
        has_failed(run, *map(re.escape, lines))
        complaint = run.stderr.decode()
        assert complaint.startswith(f'vetra: "{name}" is no host name: ')
        own = {f"site/vetra/{file}" for file in ("config.json", "vetra.trc", *run.results)}
        assert (host.files() - files[0], peer.files()) == (own, files[1])


def test_a_base_directory_that_is_none_is_refused_and_nothing_is_executed(pair):
    host, peer = pair
    files = peer.files()
    for directory in REFUSED_DIRECTORIES:
        directory = directory.format(host.home / "touched")
        run = measure(host, peer, environment={"remote_base_dir": directory})
        has_failed(run, starting(peer.name), NOT_STARTED)
        assert run.stderr.startswith(f'vetra: the base directory "{directory}" '.encode())
        assert not (host.place / "home" / "touched").exists() and peer.files() == files


# What ssh and the peer's shell refuse.

def test_an_unknown_host_counts_as_not_started(pair):
    run = measure(pair[0], "zirn09.nowhere")
    has_failed(run, starting("zirn09.nowhere"), NOT_STARTED)
    assert b"Could not resolve hostname zirn09.nowhere" in run.stderr


def test_a_peer_that_refuses_ssh_counts_as_not_started(pair):
    host, peer = pair
    peer.stop_sshd()
    run = measure(host, peer)
    has_failed(run, starting(peer.name), NOT_STARTED)
    assert b"Connection refused" in run.stderr


def test_a_user_whom_the_peer_does_not_know_counts_as_not_started(pair):
    host, peer = pair
    (peer.place / "home" / ".ssh" / "user_key.pub").write_text("")
    run = measure(host, peer)
    has_failed(run, starting(peer.name), NOT_STARTED)
    assert b"Permission denied" in run.stderr


def test_a_host_that_is_down_costs_no_more_than_the_connect_timeout(pair):
    host, peer = pair
    peer.namespaces.must("ip", "link", "set", "eth0", "down")
    run = measure(host, peer)
    has_failed(run, starting(peer.name), NOT_STARTED)
    assert run.stderr.startswith(b"ssh: connect to host zirn02 port 22: ")


def test_a_base_directory_that_the_peer_lacks_counts_as_not_started(pair):
    host, peer = pair
    peer.files_of_bundle.rename(peer.files_of_bundle.parent / "elsewhere")
    run = measure(host, peer)
    has_failed(run, starting(peer.name), NOT_STARTED)
    assert re.search(rb"cd: .*/vetra: No such file or directory\n", run.stderr)
    until_nothing_is_left(*pair)


def test_a_directory_without_profile_counts_as_not_started(pair):
    host, peer = pair
    (peer.files_of_bundle / "envprofile.sh").unlink()
    run = measure(host, peer)
    has_failed(run, starting(peer.name), NOT_STARTED)
    assert re.search(rb"/vetra/envprofile.sh: No such file or directory\n", run.stderr)
    until_nothing_is_left(*pair)


def test_a_server_that_the_peer_lacks_counts_as_not_started(pair):
    host, peer = pair
    peer.server_script()
    run = measure(host, peer)
    has_failed(run, starting(peer.name), NOT_STARTED)
    assert re.search(rb"/lib/VNSNetServerBidi: No such file or directory\n", run.stderr)
    until_nothing_is_left(*pair)


def test_a_first_line_that_greets_counts_as_not_started(pair):
    host, peer = pair
    peer.server_script("echo", "echo 'accepting requests on 4464'", f"echo '{LISTENING}'")
    run = measure(host, peer)
    has_failed(run, starting(peer.name), "accepting requests on 4464", NOT_STARTED)


def test_records_from_before_a_failure_stay_and_later_peers_are_not_tried(pair):
    host, peer = pair
    run = host.vetra({"InternHosts": {"localhost": "zirn02", "zirn01": "zirn09.nowhere"}},
                     timeout=ENDS_WITHIN_SECONDS)
    has_failed(run, starting(peer.name), LISTENING, *RATE_LINES, starting("zirn09.nowhere"),
               NOT_STARTED, record=record_of(run, peer.name))
    run = measure(host, "zirn09.nowhere", peer)
    has_failed(run, starting("zirn09.nowhere"), NOT_STARTED)
    until_nothing_is_left(*pair)


# How the port is found.

def test_without_netstat_the_usual_port_is_assumed(pair):
    host, peer = pair
    peer.command("netstat")
    run = measure(host, peer)
    is_in_order(run)
    assert re.fullmatch(NO_NETSTAT + "\n", run.stderr.decode()), run
    until_nothing_is_left(*pair)


def test_without_netstat_a_server_at_another_port_is_not_found_and_stays(pair):
    host, peer = pair
    peer.command("netstat")
    with Listening(peer.listener(), lambda connection: None):
        run = measure(host, peer)
    has_failed(run, starting(peer.name), rf"{SERVER}: listening on port (?!4464)\d+",
               rf".*{LOST}.*", not_running(peer))
    has_only_its_server(peer)


def test_a_port_that_is_no_number_ends_the_tool_and_the_server_stays(pair):
    host, peer = pair
    peer.command("netstat", "echo 'tcp6 0 0 :::4464 :::* LISTEN 7/VNSNetServerBidi'")
    run = measure(host, peer)
    has_ended_abnormally(run, "invalid_argument.*stoi", starting(peer.name), LISTENING)
    has_only_its_server(peer)


# The server is lost.

def test_a_server_killed_before_the_probe_is_not_running(pair):
    host, peer = pair
    name = SERVER[:15]  # as far as the kernel keeps it
    peer.command("netstat", f'{which("netstat")} "$@"', f"/usr/bin/pkill -KILL -x {name}",
                 f"while /usr/bin/pgrep -x {name}; do :; done >/dev/null")
    run = measure(host, peer)
    has_failed(run, starting(peer.name), LISTENING, rf".*connect to {peer.name}:{ASSUMED_PORT}.*",
               not_running(peer))
    until_nothing_is_left(*pair)


@pytest.mark.parametrize("loads", [4.5, 14.5], ids=["two-way", "one-way"])
def test_a_server_killed_during_a_series_ends_the_tool_with_the_exceptions_text(pair, loads):
    host, peer = pair
    peer.command("netstat")
    with Listening(peer.listener(), passing_on(peer, int(loads * LOAD))):
        run = measure(host, peer)
    has_ended_abnormally(run, LOST, starting(peer.name), rf"{SERVER}: listening on port \d+")
    until_nothing_is_left(*pair)


# Somebody else answers in the place of the server. The runs are all made at the same time, since
# most of it is waiting: each has a name and an address of the peer for itself.

STAND_IN = f"{SERVER}: a stand-in"
RECEIVED = frame(RECEIPT, 1, LOAD)
EXCHANGE = "ERR_NET_EXCHANGE"
TOOLS_AT_ONCE = 8


def answering(**instead):
    """For Listening: answers as the server does, but with these bytes to requests of these names;
    None ends the connection."""
    def talk(connection):
        while True:
            name, received = take_request(connection)
            usual = answer(received, *([b"0" * received] if name == "BidiVNS" else []))
            reply = instead.get(name, usual)
            if reply is None:
                return
            connection.sendall(reply)
    return talk


def blurting(noise):
    """For Listening: says this, whatever it is asked."""
    def talk(connection):
        connection.sendall(noise)
        connection.shutdown(socket.SHUT_WR)
        take(connection, 1 << 20)
    return talk


def silent(connection):
    take(connection, 1 << 20)


# Who is not running: what the peer does, and the exception in the line about it.
BAD_PROBES = {
    "silent": (silent, "ETIMEDOUT"),
    "another-protocol": (blurting(b"HTTP/1.1 400 Bad Request\r\n\r\n"), EXCHANGE),
    "zeros": (blurting(b"\0" * 64), EXCHANGE),
    "short": (blurting(b"\0\0\0\3"), "ECONNRESET"),
    "wrong-receipt": (blurting(frame(RECEIPT, 0, 2)), EXCHANGE),
    "receipt-of-2^63": (blurting(frame(RECEIPT, 0, 1 << 63)), EXCHANGE),
    "strings-without-end": (blurting(frame(RECEIPT, (1 << 32) - 1, 1)), EXCHANGE),
    "string-of-2^63": (blurting(frame(STRING, 0, 1 << 63)), EXCHANGE),
    "end": (blurting(frame(END)), EXCHANGE),
    "gone": (lambda connection: None, "ECONNRESET|EPIPE"),
}
# Who breaks off a series: what the peer does, and the exception in the tool's last words.
BAD_SERIES = {
    "two-way-silent": (answering(BidiVNS=b""), "ETIMEDOUT"),
    "reply-of-2^63": (answering(BidiVNS=RECEIVED + frame(STRING, 0, 1 << 63)), EXCHANGE),
    "reply-of-2^64-1": (answering(BidiVNS=RECEIVED + frame(STRING, 0, (1 << 64) - 1)), EXCHANGE),
    "reply-too-long": (answering(BidiVNS=RECEIVED + frame(STRING, 0, LOAD + 1)), EXCHANGE),
    "no-reply": (answering(BidiVNS=answer(LOAD)), EXCHANGE),
    "two-way-garbage": (answering(BidiVNS=b"\xff" * 100), EXCHANGE),
    "two-way-gone": (answering(BidiVNS=None), "ECONNRESET"),
    "byte-missing": (answering(MeasureVNS=frame(RECEIPT, 0, LOAD - 1)), EXCHANGE),
    "one-way-garbage": (answering(MeasureVNS=b"\0" * 100), EXCHANGE),
    "one-way-gone": (answering(MeasureVNS=None), "ECONNRESET"),
}
BAD_STOPS = {"gone": answering(StopVNS=None), "garbage": answering(StopVNS=b"\xff" * 100)}
# What netstat shows where the server has the usual port.
GOOD_ROWS = {
    "none": "",
    "no-colon": "VNSNetServer\n",
    "no-blank": "tcp:VNSNetServer\n",
    "no-blank-but-later": f"tcp:VNSNetServer\ntcp 0 0 0.0.0.0:{ASSUMED_PORT} x VNSNetServer\n",
    "two": f"tcp 0 0 0.0.0.0:{ASSUMED_PORT} x VNSNetServer\ntcp 0 0 0.0.0.0:1 x VNSNetServer\n",
    "digits-first": f"tcp 0 0 0.0.0.0:{ASSUMED_PORT}/tcp x VNSNetServer\n",
    "cut-to-16-bits": f"tcp 0 0 0.0.0.0:{ASSUMED_PORT + (1 << 16)} x VNSNetServer\n",
    "another-program": f"tcp 0 0 0.0.0.0:1 x sshd\ntcp 0 0 0.0.0.0:{ASSUMED_PORT} x VNSNetServer\n",
}
BAD_ROWS = {
    "letters": ("tcp 0 0 0.0.0.0:x4464 x VNSNetServer\n", "invalid_argument"),
    "too-large": ("tcp 0 0 0.0.0.0:2147483648 x VNSNetServer\n", "out_of_range"),
    "nothing": ("tcp: x VNSNetServer\n", "invalid_argument"),
}


def cases():
    """(kind, name) to what netstat shows and what the peer does; the longest come first."""
    known = {
        **{("probe", name): ("", talk) for name, (talk, _) in BAD_PROBES.items()},
        **{("series", name): ("", talk) for name, (talk, _) in BAD_SERIES.items()},
        **{("stop", name): ("", talk) for name, talk in BAD_STOPS.items()},
        **{("good rows", name): (rows, answering()) for name, rows in GOOD_ROWS.items()},
        **{("bad rows", name): (rows, answering()) for name, (rows, _) in BAD_ROWS.items()}}
    return dict(sorted(known.items(), key=lambda case: "silent" not in case[0][1]))


def _run_all(host, peer):
    """Runs the tool for each of the cases; (kind, name) to the peer's name and the run, or to what
    went wrong with it."""
    rows_of = peer.place / "rows"
    rows_of.mkdir()
    peer.server_script(f"echo '{STAND_IN}'")
    # The third word is the address at which ssh was reached.
    peer.command("netstat", "set -- $SSH_CONNECTION", f"exec /bin/cat {rows_of}/$3")
    with contextlib.ExitStack() as stack, futures.ThreadPoolExecutor(TOOLS_AT_ONCE) as pool:
        found = {}
        for name, (case, (rows, talk)) in zip(NAMES[2:], cases().items()):
            address = peer.also_known_as(name)
            (rows_of / address).write_text(rows)
            stack.enter_context(Listening(peer.listener(address=address), talk))
            found[case] = name, pool.submit(measure, host, name, directory=name)
        futures.wait([run for _, run in found.values()])
    return found


@pytest.fixture(scope="module")
def stand_ins(namespaces):
    """Gives the name of the peer and the run for a case."""
    with (tempfile.TemporaryDirectory(prefix="vetra-e2e-") as place,
          joined_hosts(place, 2) as (host, peer)):
        found = _run_all(host, peer)
        yield lambda *case: (found[case][0], found[case][1].result())


@pytest.mark.parametrize("case", BAD_PROBES)
def test_a_peer_that_does_not_confirm_the_probe_is_not_running(stand_ins, case):
    peer, run = stand_ins("probe", case)
    has_failed(run, starting(peer), STAND_IN, rf".*({BAD_PROBES[case][1]}).*{peer}:4464 .*",
               f"Server is not running properly on host {peer}")
    assert run.stderr == b""


@pytest.mark.parametrize("case", BAD_SERIES)
def test_a_peer_that_breaks_off_a_series_ends_the_tool(stand_ins, case):
    peer, run = stand_ins("series", case)
    has_ended_abnormally(run, f"{BAD_SERIES[case][1]}.*{peer}:4464", starting(peer), STAND_IN)


@pytest.mark.parametrize("case", BAD_STOPS)
def test_a_peer_that_cannot_be_stopped_fails_the_test_and_keeps_its_record(stand_ins, case):
    peer, run = stand_ins("stop", case)
    has_failed(run, starting(peer), STAND_IN, *RATE_LINES, f".*{peer}:4464.*",
               f"Stopping Server failed on host {peer}", record=record_of(run, peer))


@pytest.mark.parametrize("case", GOOD_ROWS)
def test_rows_of_netstat_give_or_leave_the_usual_port(stand_ins, case):
    _, run = stand_ins("good rows", case)
    is_in_order(run)
    assert run.stderr == b""


@pytest.mark.parametrize("case", BAD_ROWS)
def test_a_row_without_a_number_ends_the_tool_and_names_the_conversion(stand_ins, case):
    peer, run = stand_ins("bad rows", case)
    has_ended_abnormally(run, f"{BAD_ROWS[case][1]}.*stoi", starting(peer), STAND_IN)
