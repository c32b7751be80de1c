"""Hosts of a small cluster on one machine: each has a network of its own, an sshd, and its own
bundle of the programs where the others have theirs.

A host is a set of namespaces (network, mounts, processes) that lives as long as its first process,
which ends as soon as the test process does, however that comes about; with it go all processes,
mounts and interfaces of the host. The namespaces have no names, so nothing can collide or stay.
"""
import contextlib
import ctypes
import functools
import json
import os
import pathlib
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time

import pytest

import fakehost
import mounts
from result import Run

# More names than there are hosts; each has its address.
NAMES = tuple(f"zirn{number:02}" for number in range(1, 60))
SERVER = "VNSNetServerBidi"
ASSUMED_PORT = 4464
# Every failure but ssh's own connect time-out ends the tool within this time.
ENDS_WITHIN_SECONDS = 15
WAIT_SECONDS = 20
PAUSE_SECONDS = 0.005
TOOL_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
PROGRAMS = ("ip", "netstat", "nsenter", "pkill", "prlimit", "ssh", "ssh-keygen", "sshd",
            "unshare")
# What the shell of an ssh command finds.
SHELL_TOOLS = ("dirname", "grep", "netstat")
# Children that nobody waits for vanish by themselves, as under the init of a machine.
FIRST_PROCESS = ("import signal, sys\n"
                 "signal.signal(signal.SIGCHLD, signal.SIG_IGN)\n"
                 "print(flush=True)\n"
                 "sys.stdin.read()\n")
CLONE_NEWNET = 0x40000000

_libc = ctypes.CDLL(None, use_errno=True)


def which(name):
    return shutil.which(name, path=TOOL_PATH)


@functools.lru_cache(maxsize=None)
def refusal():
    """What this machine lacks for hosts of a cluster, or None."""
    absent = [name for name in PROGRAMS if not which(name)]
    if absent:
        return "not installed: " + " ".join(absent)
    tried = subprocess.run(
        [which("unshare"), "--net", "--pid", "--fork", "--mount-proc", "/bin/sh", "-c",
         "ip link add br0 type bridge && ip link add left type veth peer name right"],
        env={"PATH": TOOL_PATH}, capture_output=True, text=True, check=False)
    return tried.stderr.strip() or "no reason given" if tried.returncode else None


def until(condition, what):
    """Waits for a condition and returns what it gave."""
    end = time.monotonic() + WAIT_SECONDS
    while not (found := condition()):
        assert time.monotonic() < end, f"never seen: {what}"
        time.sleep(PAUSE_SECONDS)
    return found


def until_nothing_is_left(*hosts):
    """Waits until everything that was started on the hosts has gone."""
    end = time.monotonic() + WAIT_SECONDS
    while left := {host.name: host.processes() for host in hosts if host.processes()}:
        assert time.monotonic() < end, f"left: {left}"
        time.sleep(PAUSE_SECONDS)


class _Namespaces:
    """A network, and with a plan of mounts also mounts and processes, kept by a first process."""

    def __init__(self, plan=None):
        private = ["--pid", "--fork", "--kill-child", "--mount-proc"] if plan else []
        self._first = subprocess.Popen(
            [which("unshare"), "--net", *private, sys.executable, "-c", FIRST_PROCESS],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True,
            preexec_fn=plan.enter if plan else None)
        self.pid = self._first.pid
        # The first process is the child that all later ones share their numbers with.
        self._enter = [which("nsenter"), f"--net=/proc/{self.pid}/ns/net"]
        if plan:
            self._enter += [f"--mount=/proc/{self.pid}/ns/mnt",
                            f"--pid=/proc/{self.pid}/ns/pid_for_children"]

    def wait(self):
        assert self._first.stdout.read(1) == b"\n", "the namespaces could not be made"

    def command(self, *words):
        return [*self._enter, *map(str, words)]

    def must(self, *words, text=None):
        done = subprocess.run(self.command(*words), input=text, text=True, timeout=WAIT_SECONDS,
                              env={"PATH": TOOL_PATH}, capture_output=True, check=False)
        assert done.returncode == 0, f"{words}: {done.stdout}{done.stderr}"
        return done.stdout

    def close(self):
        self._first.stdin.close()
        try:
            self._first.wait(timeout=WAIT_SECONDS)
        finally:
            self._first.kill()
            self._first.stdout.close()


class Host:
    """One host. Its own files lie in `place`, seen from the test; `site`, `home` and `bundle` are
    where its programs see theirs."""

    def __init__(self, network, name, address):
        self.network, self.name, self.address = network, name, address
        self.site, self.home = network.place / "site", network.place / "home"
        self.bundle = self.site / "vetra"
        self.place = network.place / name
        self.files_of_bundle = self.place / "site" / "vetra"
        self._lay_files()
        self.namespaces = _Namespaces(self._plan())

    # What it has.

    def _lay_files(self):
        built = fakehost.program("vetra").parent
        (self.files_of_bundle / "lib").mkdir(parents=True)
        for name in ("vetra", "envprofile.sh", f"lib/{SERVER}"):
            shutil.copy(built / name, self.files_of_bundle / name)
        (self.place / "run" / "sshd").mkdir(parents=True)
        shutil.copytree(self.network.place / "keys", self.place / "home" / ".ssh")
        (self.place / "commands").mkdir()
        for tool in SHELL_TOOLS:
            (self.place / "commands" / tool).symlink_to(which(tool))
        (self.place / "sshd_config").write_text(self._sshd_config())

    def _sshd_config(self):
        keys = self.home / ".ssh"
        return (f"ListenAddress 0.0.0.0\nMaxStartups 100\nPidFile {self.place}/sshd.pid\n"
                f"StrictModes no\nUsePAM no\nUseDNS no\nHostKey {keys}/host_key\n"
                f"AuthorizedKeysFile {keys}/user_key.pub\n"
                "PermitRootLogin prohibit-password\nPasswordAuthentication no\n"
                f"KbdInteractiveAuthentication no\nSetEnv PATH={self.place}/commands\n")

    def _plan(self):
        plan = mounts.Mounts(self.place / "mounts")
        etc = mounts.Layer("/etc")
        for file in (self.network.place / "etc").iterdir():
            etc.put(file.name, file)
        plan.lay(etc)
        plan.bind(self.place / "run", "/run")
        plan.bind(self.place / "site", self.site)
        plan.bind(self.place / "home", self.home)
        return plan

    def command(self, name, *lines):
        """Gives the shell of ssh commands a command of its own; without lines it has none."""
        path = self.place / "commands" / name
        path.unlink(missing_ok=True)
        if lines:
            _script(path, *lines)

    def server_script(self, *lines):
        """Puts a script in the place of the server."""
        path = self.files_of_bundle / "lib" / SERVER
        path.unlink()
        if lines:
            _script(path, *lines)

    def files(self):
        """All files that the host has."""
        return {str(path.relative_to(self.place)) for path in self.place.rglob("*")}

    # Its network.

    def start_sshd(self):
        self.namespaces.must(which("sshd"), "-f", self.place / "sshd_config", "-E",
                             self.place / "sshd.log")
        until(self._sshd, "an sshd that listens")

    def stop_sshd(self):
        listener = self._sshd()
        self.kill(listener)
        until(lambda: listener not in self._all_processes(), "the end of sshd")

    def _sshd(self):
        """The number of sshd, which writes it once it listens."""
        file = self.place / "sshd.pid"
        return int(file.read_text().strip() or 0) if file.exists() else 0

    def also_known_as(self, name):
        """Gives the host one more name and address; returns the address."""
        address = self.network.addresses[name]
        self.namespaces.must("ip", "addr", "add", f"{address}/24", "dev", "eth0")
        return address

    def socket(self):
        """A TCP socket of this host in the hands of the test."""
        own = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        theirs = os.open(f"/proc/{self.namespaces.pid}/ns/net", os.O_RDONLY | os.O_CLOEXEC)
        try:
            _enter_network(theirs)
            try:
                return socket.socket()
            finally:
                _enter_network(own)
        finally:
            os.close(own)
            os.close(theirs)

    def server_port(self):
        """The port of the server that was started on the host; nothing is assumed about it."""
        lines = self.namespaces.must("netstat", "-tlpn").splitlines()
        (row,) = [line.split() for line in lines if "VNSNetServer" in line]
        return int(row[3].rpartition(":")[2])

    def listener(self, port=ASSUMED_PORT, address="0.0.0.0"):
        listener = self.socket()
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind((address, port))
        listener.listen()
        return listener

    def connect(self, host, port=ASSUMED_PORT):
        connection = self.socket()
        connection.settimeout(WAIT_SECONDS)
        try:
            connection.connect((host.address, port))
        except BaseException:
            connection.close()
            raise
        return connection

    def connect_when_open(self, port=ASSUMED_PORT):
        """A connection to this host itself, once somebody listens."""
        def attempt():
            with contextlib.suppress(ConnectionRefusedError):
                return self.connect(self, port)
        return until(attempt, f"a listener at {port}")

    # Its processes.

    @property
    def proc(self):
        return pathlib.Path(f"/proc/{self.namespaces.pid}/root/proc")

    def _all_processes(self):
        """Number to name and arguments of all that run and are not just a name in the table."""
        found = {}
        for entry in self.proc.glob("[0-9]*"):
            with contextlib.suppress(OSError):
                words = (entry / "cmdline").read_bytes()
                if words:
                    found[int(entry.name)] = words.rstrip(b"\0").replace(b"\0", b" ").decode()
        return found

    def processes(self):
        """Those that came after the host was there: number to command line."""
        own = {1, self._sshd()}
        return {number: words for number, words in self._all_processes().items()
                if number not in own}

    def servers(self):
        return [number for number, words in self.processes().items()
                if words.split()[0].endswith(f"/{SERVER}")]

    def kill(self, number, signal_number=signal.SIGKILL):
        self.namespaces.must("/bin/kill", f"-{int(signal_number)}", number)

    # Running programs on it.

    def popen(self, *words, environment=(), directory="vetra"):
        """Starts a program as the operator of this host does, in a directory of the site."""
        variables = {"PATH": TOOL_PATH, "HOME": str(self.home), "HOST": self.name,
                     **fakehost.sanitizer_options(), **dict(environment)}
        process = subprocess.Popen(
            self.namespaces.command(which("prlimit"), "--core=0", which("env"), "-C",
                                    self.site / directory, *words),
            env=variables, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, start_new_session=True)
        process.directory = self.place / "site" / directory
        return process

    def run(self, *words, timeout=WAIT_SECONDS, **options):
        return finish(self.popen(*words, **options), timeout)

    def start_vetra(self, *configs, directory="vetra", environment=(), **options):
        """The tool with a network test for each configuration; None is a test without one. In a
        directory other than the bundle it is told where the peers have theirs."""
        tests = [{"id": number, "class": "NetworkTest",
                  **({} if config is None else {"config": config})}
                 for number, config in enumerate(configs, 1)]
        place = self.place / "site" / directory
        place.mkdir(exist_ok=True)
        for old in (*place.glob("test_*"), place / "vetra.trc"):
            old.unlink(missing_ok=True)
        (place / "config.json").write_text(json.dumps({"tests": tests}))
        base = {} if directory == "vetra" else {"remote_base_dir": str(self.bundle)}
        return self.popen(self.bundle / "vetra", "-f", "config.json", directory=directory,
                          environment={**base, **dict(environment)}, **options)

    def vetra(self, *configs, timeout=WAIT_SECONDS, **options):
        return finish(self.start_vetra(*configs, **options), timeout)

    def measure(self, *peers, **options):
        """The tool with these peers, of which there can be two."""
        return self.vetra(self.config(*peers), **options)

    def config(self, *peers):
        """The configuration by which this host measures these peers in their order."""
        names = [peer if isinstance(peer, str) else peer.name for peer in peers]
        return {"InternHosts": dict(zip(("localhost", self.name), names))}

    def ssh(self, host, command, **options):
        return self.run("ssh", host.name, command, **options)

    def server(self, *arguments, **options):
        """The server as one who sits at this host starts it."""
        return self.run(self.bundle / "lib" / SERVER, *arguments, **options)


def finish(process, timeout=WAIT_SECONDS):
    """Waits until a program started on a host has ended and all have closed its output."""
    before = time.time()
    try:
        stdout, stderr = process.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        kill_all_of(process)
        stdout, stderr = process.communicate()
        raise AssertionError(f"{process.args} took more than {timeout} s; it had printed "
                             f"{stdout!r} and on standard error {stderr!r}") from None
    return Run(process.returncode, stdout, stderr, process.directory, (before, time.time()))


def kill_all_of(process):
    """Ends a started program and its children, without a chance to do anything about it."""
    os.killpg(process.pid, signal.SIGKILL)


def _script(path, *lines):
    path.write_text("\n".join(["#!/bin/sh", *lines]) + "\n")
    path.chmod(0o755)


def _enter_network(descriptor):
    if _libc.setns(descriptor, CLONE_NEWNET) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"setns: {os.strerror(number)}")


class Network:
    """Hosts that reach each other by their names, without a way out of the machine."""

    def __init__(self, place, count):
        self.place = pathlib.Path(place).resolve()
        self.addresses = {name: f"10.77.0.{number}" for number, name in enumerate(NAMES, 1)}
        for directory in ("keys", "etc", "site", "home"):
            (self.place / directory).mkdir()
        self._make_keys()
        self._make_etc()
        with contextlib.ExitStack() as stack:
            self._switch = _Namespaces()
            stack.callback(self._switch.close)
            self.hosts = []
            for name in NAMES[:count]:
                host = Host(self, name, self.addresses[name])
                stack.callback(host.namespaces.close)
                self.hosts.append(host)
            self._join()
            self._parts = stack.pop_all()

    def close(self):
        self._parts.close()

    def _make_keys(self):
        keys = self.place / "keys"
        for name in ("host_key", "user_key"):
            subprocess.run([which("ssh-keygen"), "-q", "-t", "ed25519", "-N", "", "-C", "", "-f",
                            keys / name], check=True, capture_output=True)
        public = (keys / "host_key.pub").read_text()
        (keys / "known_hosts").write_text(f"zirn* {public}")
        own = self.place / "home" / ".ssh"
        (keys / "config").write_text(
            "Host *\n    BatchMode yes\n    ConnectTimeout 3\n    StrictHostKeyChecking yes\n"
            f"    UpdateHostKeys no\n    IdentityFile {own}/user_key\n"
            f"    UserKnownHostsFile {own}/known_hosts\n"
            "    KexAlgorithms curve25519-sha256\n")  # the quickest

    def _make_etc(self):
        etc = self.place / "etc"
        lines = ["127.0.0.1 localhost"] + [f"{to} {name}" for name, to in self.addresses.items()]
        (etc / "hosts").write_text("\n".join(lines) + "\n")
        (etc / "nsswitch.conf").write_text(
            "passwd: files\ngroup: files\nshadow: files\nhosts: files\n")
        (etc / "passwd").write_text(f"root:x:0:0:root:{self.place}/home:/bin/bash\n"
                                    "sshd:x:65533:65534::/run/sshd:/usr/sbin/nologin\n"
                                    "nobody:x:65534:65534::/nonexistent:/usr/sbin/nologin\n")
        (etc / "shadow").write_text("root:*:19000:0:99999:7:::\n")

    def _join(self):
        self._switch.wait()
        lines = ["link add br0 type bridge", "link set br0 up"]
        for host in self.hosts:
            host.namespaces.wait()
            port = f"to-{host.name}"
            lines += [f"link add {port} type veth peer name eth0 netns {host.namespaces.pid}",
                      f"link set {port} master br0 up"]
        self._switch.must("ip", "-batch", "-", text="\n".join(lines) + "\n")
        for host in self.hosts:
            host.namespaces.must("ip", "-batch", "-", text="link set lo up\nlink set eth0 up\n"
                                 f"addr add {host.address}/24 dev eth0\n")
            host.start_sshd()


@contextlib.contextmanager
def joined_hosts(place, count):
    """So many hosts in a network, for a test that is skipped where there can be none."""
    reason = refusal()
    if reason:
        pytest.skip("no hosts of a cluster: " + reason)
    with contextlib.closing(Network(place, count)) as network:
        yield network.hosts


# What travels between the tool and the server.

STRING, END, RECEIPT = 1, 2, 3
PIECE = 1 << 16


def frame(kind, count=0, value=0):
    return struct.pack(">IIQ", kind, count, value)


def header(name):
    return struct.pack(">IBBBB", 0x4a4f4c54, 1, 0, len(name), 0) + name.encode()


def request(name, *strings):
    sent = b"".join(frame(STRING, 0, len(text)) + text for text in strings)
    return header(name) + sent + frame(END)


def answer(received, *strings):
    sent = b"".join(frame(STRING, 0, len(text)) + text for text in strings)
    return frame(RECEIPT, len(strings), received) + sent


def take(connection, length):
    """So many bytes, which must come."""
    taken = bytearray()
    while len(taken) < length:
        taken += _some(connection, min(length - len(taken), PIECE))
    return bytes(taken)


def _some(connection, most):
    piece = connection.recv(most)
    if not piece:
        raise EOFError("the other side has gone")
    return piece


def take_request(connection):
    """The name and the number of bytes of the next request."""
    length = take(connection, 8)[6]
    name, received = take(connection, length).decode(), 0
    while True:
        kind, _, value = struct.unpack(">IIQ", take(connection, 16))
        if kind == END:
            return name, received
        take(connection, value)
        received += value


def ask(connection, name, *strings):
    """Sends a request; what the server has received of it, and the strings that it returns."""
    connection.sendall(request(name, *strings))
    kind, count, received = struct.unpack(">IIQ", take(connection, 16))
    assert kind == RECEIPT
    lengths = (struct.unpack(">IIQ", take(connection, 16))[2] for _ in range(count))
    return received, [take(connection, length) for length in lengths]


class Listening:
    """Somebody else at a port: talk is called with each connection, one after the other. What it
    raises because the other side has gone is no concern."""

    def __init__(self, listener, talk):
        self._listener, self._talk = listener, talk
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self.failures = []

    def _serve(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return  # shut down
            with connection:
                connection.settimeout(WAIT_SECONDS)
                try:
                    self._talk(connection)
                except TimeoutError as failure:
                    self.failures.append(failure)
                except (OSError, EOFError):
                    pass
                except Exception as failure:
                    self.failures.append(failure)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, kind, *reason):
        self._listener.shutdown(socket.SHUT_RDWR)
        self._thread.join(timeout=WAIT_SECONDS)
        self._listener.close()
        assert kind or not self.failures, self.failures


def passing_on(host, most_bytes):
    """For Listening: passes everything on to the server of the host and back, until so many bytes
    were sent; then the server is killed, and the connection goes with it."""
    def talk(client):
        left = most_bytes
        with host.connect(host, host.server_port()) as server:
            while left:
                ready = select.select([client, server], [], [], WAIT_SECONDS)[0]
                if server in ready:
                    client.sendall(_some(server, PIECE))
                if client in ready:
                    piece = _some(client, min(left, PIECE))
                    server.sendall(piece)
                    left -= len(piece)
            (number,) = host.servers()
            host.kill(number)
            until(lambda: not host.servers(), "the end of the killed server")
    return talk
