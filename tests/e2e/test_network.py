"""The network test between real hosts that are in order, and the peer's server by itself."""
import contextlib
import json
import os
import re
import signal

import pytest

import expected
import fakehost
from network_hosts import (ASSUMED_PORT, SERVER, Listening, ask, finish, frame, header,
                           joined_hosts, take, until, until_nothing_is_left)

LOAD = 65535
LISTENING = f"{SERVER}: listening on port {ASSUMED_PORT}\n"
JOINED = f"{SERVER}: one more user of the server that listens on port {ASSUMED_PORT}\n"
RATE = r"([1-9]\d*)"


@pytest.fixture
def alone(namespaces, scratch):
    with joined_hosts(scratch, 1) as (host,):
        yield host


@pytest.fixture
def pair(namespaces, scratch):
    with joined_hosts(scratch, 2) as hosts:
        yield hosts


@pytest.fixture
def trio(namespaces, scratch):
    with joined_hosts(scratch, 3) as hosts:
        yield hosts


# What a run prints, to the letter but for the rates.

def measured(peer, line=LISTENING):
    return (f"VNSNetServer starting on {peer}\n{line}"
            f"Average throughtput (MBit/s): {RATE}\nAverage bidi throughtput (MBit/s): {RATE}\n")


def reported(peer):
    return (f"Result for: {peer}\n    LoadSize(Bytes): {LOAD}\n"
            f"    Throughput(MBits/s): {RATE}\n    ThroughputBidi(MBits/s): {RATE}\n")


def shown(config, skipped="", client="zirn01"):
    """A configuration on the way to its test, and what it says of it."""
    text = json.dumps(config, separators=(",", ":"), sort_keys=True)
    return (f"Setting test configuration: {text}\n"
            f"Configuring NetworkTest for host {client}\n{skipped}")


def of_one_test(setting, peers, measurements, report):
    return (f"Creating Test instance NetworkTest...\nTest usage:\n"
            f"This test is used to measure network speed\n{setting}"
            f"Estimated testDuration:\n{100 * peers}ms\nStart running test:\n NetworkTest\n"
            f"{measurements}NetworkTest run OK.\nNetworkTest Result:\n{report}\n")


def rates(run, host, *texts):
    """The rates that a good run of these tests has printed, once its output is as it must be."""
    tests = [(str(number), "NetworkTest") for number, _ in enumerate(texts, 1)]
    names = sorted(run.results)
    assert [name.split("_")[1] for name in names] == [number for number, _ in tests]
    wanted = re.escape(
        (expected.configuration(host.bundle, tests)).decode() + "".join(texts)
        + expected.writing(host.bundle, *names).decode())
    match = re.fullmatch(wanted.replace(re.escape(RATE), RATE), run.stdout.decode())
    assert match, run.stdout.decode()
    assert (run.status, run.stderr) == (0, b"")
    return [int(rate) for rate in match.groups()]


def records(**peers):
    """What a result file holds: each peer with its one-way and its two-way rate."""
    return {peer: {"LoadSize": LOAD, "Throughput": one_way, "ThroughputBidi": both_ways}
            for peer, (one_way, both_ways) in peers.items()}


def in_order(run, host, peer):
    """The rates of a run that measured one peer, with any line of its server."""
    config = host.config(peer)
    text = of_one_test(shown(config, client=host.name), 1, measured(peer.name, "LINE\n"),
                       reported(peer.name))
    line = re.compile(rf"^{SERVER}: .* port \d+$", re.MULTILINE)
    run.stdout = line.sub("LINE", run.stdout.decode()).encode()
    one_way, both_ways, *in_report = rates(run, host, text)
    assert in_report == [one_way, both_ways]
    assert json.loads(run.result) == records(**{peer.name: (one_way, both_ways)})
    return one_way, both_ways


# The tool with peers that are in order.

def test_each_peer_is_measured_both_ways_and_nothing_is_left(trio):
    host, second, third = trio
    before = {each.name: each.files() for each in trio}
    config = {"InternHosts": {"zirn01": "zirn02", "localhost": "zirn03"}}
    run = host.vetra(config)
    until_nothing_is_left(*trio)
    figures = rates(run, host, of_one_test(shown(config), 2,
                                           measured(third.name) + measured(second.name),
                                           reported(second.name) + reported(third.name)))
    of_third, of_second, in_report = figures[:2], figures[2:4], figures[4:]
    assert in_report == of_second + of_third
    assert json.loads(run.result) == records(zirn02=of_second, zirn03=of_third)
    (name,) = run.results
    own = {"config.json", "vetra.trc", name}
    assert host.files() - before[host.name] == {f"site/vetra/{file}" for file in own}
    assert all(each.files() == before[each.name] for each in (second, third))


def test_a_peer_listed_twice_is_measured_twice_and_reported_once(pair):
    host, peer = pair
    run = host.measure(peer, peer)
    until_nothing_is_left(*pair)
    figures = rates(run, host, of_one_test(shown(host.config(peer, peer)), 2,
                                           2 * measured(peer.name), reported(peer.name)))
    assert figures[4:] == figures[:2], "the first record stays"
    assert json.loads(run.result) == records(zirn02=figures[:2])


def test_entries_of_other_clients_are_skipped_with_a_line_each(pair):
    host, peer = pair
    config = {"InternHosts": {"zirn01": "zirn02", "Zirn01": "zirn03", "zirn04": {"a": [1]},
                              "localhost": 7}, "Other": {"zirn01": "zirn04"}}
    skipped = ('Skip NetworkTest InternHosts item "Zirn01":""zirn03"" as client is Zirn01\n'
               'Skip NetworkTest InternHosts item "zirn04":"{"a":[1]}" as client is zirn04\n')
    run = host.vetra(config)
    rates(run, host, of_one_test(shown(config, skipped), 1, measured(peer.name),
                                 reported(peer.name)))
    assert list(json.loads(run.result)) == ["zirn02"]


def test_without_host_only_localhost_counts(pair):
    host, peer = pair
    config = {"InternHosts": {"zirn01": "zirn04", "localhost": "zirn02"}}
    run = host.vetra(config, environment={"HOST": ""})
    skipped = 'Skip NetworkTest InternHosts item "zirn01":""zirn04"" as client is zirn01\n'
    rates(run, host, of_one_test(shown(config, skipped, client=""), 1, measured(peer.name),
                                 reported(peer.name)))


@pytest.mark.parametrize("config", [
    {}, {"InternHosts": {}}, {"InternHosts": ["zirn02"]}, {"internhosts": {"zirn01": "zirn02"}}])
def test_without_peers_the_test_is_in_order_and_its_result_empty(alone, config):
    run = alone.vetra(config)
    assert rates(run, alone, of_one_test(shown(config), 0, "", "")) == []
    assert run.result == b"{}\n"


def test_a_configuration_that_cannot_be_parsed_is_said_and_has_no_peers(alone):
    run = alone.vetra(None)
    setting = ("Setting test configuration: \nConfiguring NetworkTest for host zirn01\n"
               "Failed to parse json size=0 , TestConfig=\n")
    assert rates(run, alone, of_one_test(setting, 0, "", "")) == []
    assert run.result == b"{}\n"


def test_the_servers_directory_can_be_another_one_on_the_peer(pair):
    host, peer = pair
    name = "else-where_2.0~1#x^y!"
    peer.files_of_bundle.rename(peer.files_of_bundle.parent / name)
    run = host.measure(peer, environment={"remote_base_dir": str(host.site / name)})
    in_order(run, host, peer)
    until_nothing_is_left(*pair)


def test_two_network_tests_in_one_run_measure_one_after_the_other(pair):
    host, peer = pair
    config = host.config(peer)
    run = host.vetra(config, config)
    text = of_one_test(shown(config), 1, measured(peer.name), reported(peer.name))
    assert len(rates(run, host, text, text)) == 8
    until_nothing_is_left(*pair)


def test_hosts_that_measure_each_other_at_the_same_time_get_good_results(pair):
    for _ in range(5):
        under_way = [host.start_vetra(host.config(peer)) for host, peer in (pair, pair[::-1])]
        runs = [finish(process) for host, process in zip(pair, under_way)]
        for run, host, peer in zip(runs, pair, pair[::-1]):
            in_order(run, host, peer)
        until_nothing_is_left(*pair)


def test_two_hosts_measure_a_third_at_the_same_time(trio):
    *hosts, peer = trio
    for _ in range(2):
        under_way = [host.start_vetra(host.config(peer)) for host in hosts]
        runs = [finish(process) for host, process in zip(hosts, under_way)]
        for run, host in zip(runs, hosts):
            in_order(run, host, peer)
        until_nothing_is_left(*trio)


def test_with_the_usual_port_taken_the_port_that_netstat_shows_is_measured(pair):
    host, peer = pair
    with Listening(peer.listener(), lambda connection: None):
        run = host.measure(peer)
    assert LISTENING.encode() not in run.stdout
    in_order(run, host, peer)
    until_nothing_is_left(*pair)


# The tool is killed.

def number_of_the_tool(host):
    return next((number for number, words in host.processes().items()
                 if words.startswith(f"{host.bundle}/vetra ")), None)


def is_starting_ssh(host, peer):
    return any(words.startswith("ssh ") for words in host.processes().values())


def has_started_the_server(host, peer):
    return peer.servers()


def waits_before_the_probe(host, peer):
    return peer.servers() and list(host.processes()) == [number_of_the_tool(host)]


@pytest.mark.parametrize("moment", [is_starting_ssh, has_started_the_server,
                                    waits_before_the_probe])
def test_the_tool_killed_at_any_moment_leaves_a_server_at_worst(pair, moment):
    host, peer = pair
    tool = host.start_vetra(host.config(peer))
    until(lambda: moment(host, peer), moment.__name__)
    host.kill(number_of_the_tool(host))
    run = finish(tool)
    assert (run.status, run.results) == (-signal.SIGKILL, {})
    until_nothing_is_left(host)
    until(lambda: len(peer.processes()) == len(peer.servers()) <= 1, "no process but the server")
    # What is left does not disturb the next run, which is one more user of it.
    left = peer.servers()
    run = host.measure(peer)
    in_order(run, host, peer)
    until(lambda: peer.servers() == left, "the server of before alone")


# The server by itself.

def stop(host, port=ASSUMED_PORT):
    with host.connect(host, port) as connection:
        assert ask(connection, "StopVNS", b"0") == (1, [])


def test_the_server_is_started_through_ssh_and_lets_it_return(pair):
    host, peer = pair
    base = peer.bundle
    run = host.ssh(peer, f"cd {base} && source {base}/envprofile.sh && {base}/lib/{SERVER} &")
    assert (run.status, run.stdout, run.stderr) == (0, LISTENING.encode(), b"")
    until(lambda: len(peer.processes()) == 1, "the server alone")
    (number,) = peer.servers()
    rows = host.ssh(peer, "netstat -tulpn | grep VNSNetServer ").stdout.decode()
    assert re.fullmatch(rf"tcp +0 +0 0\.0\.0\.0:{ASSUMED_PORT} +0\.0\.0\.0:\* +LISTEN +"
                        rf"{number}/VNSNetServer\w* *\n", rows), rows
    place = peer.proc / str(number)
    assert {os.readlink(place / "fd" / str(stream)) for stream in range(3)} == {"/dev/null"}
    assert os.readlink(place / "cwd") == "/"
    session = (place / "stat").read_text().rpartition(")")[2].split()[3]
    assert int(session) == number
    stop(peer)
    until_nothing_is_left(*pair)


def test_the_server_answers_its_six_requests(alone):
    alone.server()
    load = b"0" * LOAD
    with alone.connect(alone) as connection:
        assert ask(connection, "PrologueVNS", b"0") == (1, [])
        assert ask(connection, "CheckVNS", b"0") == (1, [])
        assert ask(connection, "MeasureVNS", load) == (LOAD, [])
        assert ask(connection, "BidiVNS", load) == (LOAD, [load])
        assert ask(connection, "DualVNS", b"%d" % (3 * LOAD)) == (6, [3 * load])
        assert ask(connection, "StopVNS", b"0") == (1, [])
    until_nothing_is_left(alone)


def test_what_breaks_the_protocol_is_dropped_and_the_others_are_served(alone):
    alone.server()
    with alone.connect(alone) as served:
        for noise in (b"GET / HTTP/1.1\r\n\r\n", b"\0" * 64, header("NoSuchVNS") + frame(2),
                      header("MeasureVNS") + frame(1, 0, 1 << 63),
                      header("MeasureVNS") + frame(1, 0, (1 << 64) - 1),
                      header("BidiVNS") + frame(3, 0, 1), header("DualVNS") + frame(1, 0, 1 << 40)):
            with alone.connect(alone) as connection:
                connection.sendall(noise)
                with contextlib.suppress(ConnectionError):
                    assert connection.recv(1) == b""
            assert ask(served, "BidiVNS", b"00") == (2, [b"00"])
    stop(alone)
    until_nothing_is_left(alone)


def test_help_and_version_start_nothing(alone):
    run = alone.server("--help")
    assert (run.status, run.stderr) == (0, b"")
    for option in ("--foreground", "--port", "--bind", "--idle-timeout"):
        assert option.encode() in run.stdout
    run = alone.server("--version")
    assert (run.status, run.stderr) == (0, b"")
    assert re.fullmatch(rb"VNSNetServerBidi-\d+\.\d+\.\d+ \(\d{4}-\d\d-\d\d\)\n", run.stdout)
    until_nothing_is_left(alone)


def test_bad_arguments_are_refused_with_one_line(alone):
    for words in (["other"], ["--port"], ["--port", ""], ["--port", "x"], ["--port", "65536"],
                  ["--port", "-1"], ["--port", "1 "], ["--port=1"], ["--bind", "localhost"],
                  ["--idle-timeout", "0"], ["--idle-timeout", "1s"], ["--foreground", "-p"]):
        run = alone.server(*words)
        assert (run.status, run.stdout) == (64, b""), words
        assert re.fullmatch(rb"VNSNetServerBidi: [^\n]+\n", run.stderr), words
    until_nothing_is_left(alone)


@pytest.mark.parametrize("words", [[], ["--foreground"]])
def test_an_explicit_port_that_is_busy_is_a_failure(alone, words):
    with Listening(alone.listener(5000), lambda connection: None):
        run = alone.server("--port", 5000, *words)
    assert (run.status, run.stdout) == (1, b"")
    assert re.fullmatch(rb"VNSNetServerBidi: [^\n]*5000[^\n]*\n", run.stderr), run
    until_nothing_is_left(alone)


def test_a_port_of_its_own_is_not_shared(alone):
    assert alone.server().stdout == LISTENING.encode()
    run = alone.server("--port", 0, "--bind", "127.0.0.1")
    port = int(re.fullmatch(rb"VNSNetServerBidi: listening on port (\d+)\n", run.stdout)[1])
    assert port != ASSUMED_PORT and len(alone.servers()) == 2
    rows = alone.run("netstat", "-tln").stdout.decode()
    assert f" 127.0.0.1:{port} " in rows and f" 0.0.0.0:{ASSUMED_PORT} " in rows
    for number in alone.servers():
        alone.kill(number, signal.SIGTERM)
    until_nothing_is_left(alone)


def test_a_second_start_joins_and_the_last_stop_ends_the_server(alone):
    for _ in range(2):
        assert alone.server().stdout == LISTENING.encode()
        assert alone.server().stdout == JOINED.encode()
        (number,) = alone.servers()
        stop(alone)
        assert alone.servers() == [number]
        assert alone.server().stdout == JOINED.encode()
        stop(alone)
        stop(alone)
        # Whoever starts the next one as soon as the last has confirmed gets the same port.
    until_nothing_is_left(alone)


def test_of_several_started_at_once_one_serves_and_the_others_join(alone):
    for _ in range(3):
        starts = [alone.popen(alone.bundle / "lib" / SERVER) for _ in range(4)]
        runs = [finish(start) for start in starts]
        assert [(run.status, run.stderr) for run in runs] == 4 * [(0, b"")]
        assert sorted(run.stdout.decode() for run in runs) == [LISTENING] + 3 * [JOINED]
        for _ in starts:
            assert len(alone.servers()) == 1
            stop(alone)
        until_nothing_is_left(alone)


def test_a_request_under_way_is_answered_though_the_last_user_has_gone(alone):
    alone.server()
    with alone.connect(alone) as connection:
        # More than the kernel keeps for both sides, so the server is in the midst of it.
        size = 64 << 20
        connection.sendall(header("MeasureVNS") + frame(1, 0, size) + bytes(size - 1))
        stop(alone)
        connection.sendall(b"0" + frame(2))
        assert take(connection, 16) == frame(3, 0, size)
    until_nothing_is_left(alone)


def test_connections_that_say_nothing_lock_nobody_out(alone):
    alone.server()
    with contextlib.ExitStack() as stack:
        for _ in range(300):
            stack.enter_context(alone.connect(alone))
        with alone.connect(alone) as connection:
            assert ask(connection, "PrologueVNS", b"0") == (1, [])
        stop(alone)
        until_nothing_is_left(alone)


def test_a_server_that_was_killed_is_not_joined(alone):
    alone.server()
    alone.kill(*alone.servers())
    until_nothing_is_left(alone)
    assert alone.server().stdout == LISTENING.encode()
    stop(alone)
    until_nothing_is_left(alone)


def test_without_a_request_the_server_ends_after_its_idle_time(alone):
    server = alone.popen(alone.bundle / "lib" / SERVER, "--foreground", "--idle-timeout", 1)
    with alone.connect_when_open():
        run = finish(server)
    assert (run.status, run.stdout, run.stderr) == (0, LISTENING.encode(), b"")
    alone.server("--idle-timeout", 1)
    until_nothing_is_left(alone)


@pytest.mark.parametrize("output", [">/dev/full", ">&-", ">&- <&-"])
@pytest.mark.parametrize("words", [[], ["--foreground"]])
def test_a_server_whose_line_nobody_can_read_does_not_stay(alone, words, output):
    words = [alone.bundle / "lib" / SERVER, *words, output]
    run = alone.run("sh", "-c", " ".join(map(str, words)))
    assert (run.status, run.stdout) == (1, b"")
    assert run.stderr == b"VNSNetServerBidi: cannot write to standard output\n"
    until_nothing_is_left(alone)


def test_who_cannot_say_where_the_server_listens_is_no_user_of_it(alone):
    assert alone.server().stdout == LISTENING.encode()
    run = alone.run("sh", "-c", f"{alone.bundle / 'lib' / SERVER} >/dev/full")
    assert (run.status, run.stderr) == (1, b"VNSNetServerBidi: cannot write to standard output\n")
    stop(alone)
    until_nothing_is_left(alone)


@pytest.mark.parametrize("words", ["", " --foreground"])
@pytest.mark.parametrize("limit", range(3, 9))
def test_with_too_few_descriptors_it_says_so_or_serves(alone, limit, words):
    program = alone.bundle / "lib" / SERVER
    if fakehost.is_sanitized(f"lib/{SERVER}"):
        pytest.skip("the sanitizer of undefined behaviour needs descriptors to look at objects")
    server = alone.popen("sh", "-c", f"ulimit -n {limit}; exec {program}{words}")
    line = server.stdout.readline()
    if line:
        assert line == LISTENING.encode()
        stop(alone)
    run = finish(server)
    assert run.stdout == b""
    assert (run.status == 0) == bool(line)
    assert line or re.fullmatch(rb"[^\n]+\n", run.stderr), run
    until_nothing_is_left(alone)


def test_a_server_in_the_foreground_says_whom_it_drops(alone):
    server = alone.popen(alone.bundle / "lib" / SERVER, "--foreground")
    assert server.stdout.readline() == LISTENING.encode()
    with alone.connect(alone) as connection:
        connection.sendall(b"GET / HTTP/1.1\r\n\r\n")
        with contextlib.suppress(ConnectionError):
            assert connection.recv(1) == b""
    alone.connect(alone).close()
    stop(alone)
    run = finish(server)
    assert (run.status, run.stdout) == (0, b"")
    assert re.fullmatch(rb"[^\n]+ warning JoltNet: connection dropped: [^\n]*"
                        rb"no header of a request from [\d.]+:\d+[^\n]*\n", run.stderr), run
    assert not list(alone.files_of_bundle.glob("*.trc"))


@pytest.mark.parametrize("words", [[], ["--foreground"]])
def test_sigterm_ends_the_server_in_good_order(alone, words):
    server = alone.popen(alone.bundle / "lib" / SERVER, *words)
    assert server.stdout.readline() == LISTENING.encode()
    (number,) = until(lambda: len(alone.servers()) == 1 and alone.servers(), "one process")
    with alone.connect(alone):
        alone.kill(number, signal.SIGTERM)
        run = finish(server)
        until_nothing_is_left(alone)
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
