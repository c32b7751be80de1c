"""Faults of the network test: tools and servers killed, a link cut, peers that speak garbage."""
import contextlib
import os
import signal
import threading
import time

import network_hosts
from network_hosts import SERVER
from tally import LONGEST_SECONDS

ABORTED = -signal.SIGABRT
# A run takes about so long, most of it its pause before the probe.
LATEST_MOMENT = 1.6


class NetworkFaults:
    """Each method is one run between two hosts with one fault at a random moment."""

    def __init__(self, tally, random, hosts):
        self.tally, self.random = tally, random
        self.host, self.peer = hosts
        self.kinds = [self.server_killed, self.server_told_to_end, self.tool_killed,
                      self.tool_interrupted, self.link_cut, self.garbage_beside,
                      self.stranger_in_its_place]

    @contextlib.contextmanager
    def measuring(self, kind):
        tool = self.host.start_vetra(self.host.config(self.peer))
        moment = time.monotonic() + self.random.uniform(0, LATEST_MOMENT)
        self.run = None
        try:
            while tool.poll() is None and time.monotonic() < moment:
                time.sleep(0.005)
            yield tool
        finally:
            self.tally.runs[kind] += 1
            try:
                self.run = network_hosts.finish(tool, LONGEST_SECONDS)
            except AssertionError as hang:
                self.tally.hangs.append(f"{kind}: {hang}")

    def end(self, kind, allowed, may_leave_a_server=False):
        """Judges a run; what it may leave ends when it is told to."""
        if self.run:
            self.tally.ended(kind, self.run.status, allowed, self.run.stderr)
            if self.run.status == ABORTED:
                self.tally.must(kind, b"unexpected exception" in self.run.stderr, "no last words")
        servers = self.peer.servers()
        if may_leave_a_server:
            self.tally.must(kind, len(servers) <= 1, f"servers {servers}")
            self.kill_servers(signal.SIGTERM)
        for host in (self.host, self.peer):
            try:
                network_hosts.until_nothing_is_left(host)
            except AssertionError:
                self.tally.found(kind, host.processes().values())
                self.kill_servers(signal.SIGKILL)

    def kill_servers(self, number):
        """How many there were."""
        killed = 0
        for server in self.peer.servers():
            with contextlib.suppress(AssertionError):
                self.peer.kill(server, number)
                killed += 1
        return killed

    def server_killed(self, kind):
        with self.measuring(kind):
            self.tally.faults[kind] += self.kill_servers(signal.SIGKILL)
        self.end(kind, {0, ABORTED}, may_leave_a_server=True)

    def server_told_to_end(self, kind):
        with self.measuring(kind):
            self.tally.faults[kind] += self.kill_servers(signal.SIGTERM)
        self.end(kind, {0, ABORTED}, may_leave_a_server=True)

    def end_of_the_tool(self, kind, number):
        with self.measuring(kind) as tool:
            if tool.poll() is None:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(tool.pid, number)
                    self.tally.faults[kind] += 1
        self.end(kind, {-number, 0}, may_leave_a_server=True)

    def tool_killed(self, kind):
        self.end_of_the_tool(kind, signal.SIGKILL)

    def tool_interrupted(self, kind):
        self.end_of_the_tool(kind, signal.SIGINT)

    def link_cut(self, kind):
        """ssh has no time limit of its own here: the link comes back, and a tool that waits for
        its own exchange has given up by then."""
        with self.measuring(kind) as tool:
            if tool.poll() is None:
                self.peer.namespaces.must("ip", "link", "set", "eth0", "down")
                self.tally.faults[kind] += 1
                time.sleep(self.random.choice((0.2, 12)))
                self.peer.namespaces.must("ip", "link", "set", "eth0", "up")
        self.end(kind, {0, ABORTED}, may_leave_a_server=True)

    def garbage_beside(self, kind):
        """Strangers disturb the server, and not the run."""
        stop = threading.Event()

        def disturb():
            while not stop.is_set():
                with contextlib.suppress(OSError, AssertionError):
                    with self.host.connect(self.peer) as connection:
                        connection.sendall(os.urandom(self.random.randrange(1, 100000)))
                time.sleep(0.01)

        stranger = threading.Thread(target=disturb)
        stranger.start()
        try:
            with self.measuring(kind):
                self.tally.faults[kind] += 1
        finally:
            stop.set()
            stranger.join()
        self.end(kind, {0})
        self.tally.must(kind, self.run and b"NetworkTest run OK." in self.run.stdout,
                        "the run was disturbed")

    def stranger_in_its_place(self, kind):
        """Another program has the usual port, and netstat shows nothing."""
        noise = os.urandom(self.random.randrange(0, 4096))

        def talk(connection):
            connection.sendall(noise)
            network_hosts.take(connection, self.random.randrange(1, 200000))

        self.peer.command("netstat")
        try:
            with network_hosts.Listening(self.peer.listener(), talk):
                with self.measuring(kind):
                    self.tally.faults[kind] += 1
        finally:
            self.peer.command("netstat", f'exec {network_hosts.which("netstat")} "$@"')
        self.end(kind, {0, ABORTED}, may_leave_a_server=True)
        self.tally.must(kind, SERVER.encode() in self.run.stdout if self.run else True, "no server")
