"""Two ends of a link for the measuring scripts of the network engine: loopback, or two network
namespaces joined by veth. The ends are on different processors."""
import contextlib
import os
import subprocess
import time

WAIT_SECONDS = 10


class Link:
    """Two ends of a link, and how to run something at each."""

    def __init__(self, name, address, near=(), far=()):
        self.name, self.address = name, address
        processors = sorted(os.sched_getaffinity(0))
        self.near = [*near, "taskset", "-c", str(processors[0])]
        self.far = [*far, "taskset", "-c", str(processors[-1])]

    def at_near(self, *command):
        """Runs something to its end; what it printed."""
        words = [*self.near, *map(str, command)]
        return subprocess.run(words, capture_output=True, text=True, check=True, timeout=600).stdout

    @contextlib.contextmanager
    def company(self, *command):
        """Something at the near end that prints a line when it is there, and ends with its input."""
        words = [*self.near, *map(str, command)]
        with subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True) as process:
            if not process.stdout.readline():
                raise RuntimeError(f"{words} did not begin")
            yield process

    @contextlib.contextmanager
    def serving(self, port, *command):
        """A server at the far end, as soon as it listens."""
        words = [*self.far, *map(str, command)]
        server = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self._wait_for(port)
            yield server
        finally:
            server.terminate()
            server.wait(WAIT_SECONDS)

    def _wait_for(self, port):
        deadline = time.monotonic() + WAIT_SECONDS
        listening = [word for word in self.far if word not in ("taskset", "-c")][:-1]
        while time.monotonic() < deadline:
            shown = subprocess.run([*listening, "ss", "-Hltn", f"sport = :{port}"],
                                   capture_output=True, text=True, check=True).stdout
            if shown.strip():
                return
            time.sleep(0.05)
        raise RuntimeError(f"nobody listens on port {port}")


def run_quietly(*command):
    subprocess.run(command, check=True, capture_output=True)


@contextlib.contextmanager
def veth():
    mark = os.getpid()
    names = [f"vetra-near-{mark}", f"vetra-far-{mark}"]
    for name in names:
        run_quietly("ip", "netns", "add", name)
    try:
        run_quietly("ip", "link", "add", "veth0", "netns", names[0], "type", "veth",
                    "peer", "name", "veth0", "netns", names[1])
        for number, name in enumerate(names, 1):
            run_quietly("ip", "-n", name, "addr", "add", f"10.99.0.{number}/24", "dev", "veth0")
            run_quietly("ip", "-n", name, "link", "set", "veth0", "up")
        yield Link("veth", "10.99.0.2", *(["ip", "netns", "exec", name] for name in names))
    finally:
        for name in names:
            run_quietly("ip", "netns", "delete", name)
