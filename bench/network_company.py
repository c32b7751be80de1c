"""Company for a measuring server: connections that say nothing, or writers of what it must refuse.

    network_company.py silent|garbage HOST PORT

Prints a line once it is there, goes on until its standard input ends, and prints what it did."""
import os
import random
import select
import socket
import struct
import sys
import time

SILENT = 200
WRITERS = 50
CONNECTS_A_SECOND = 100
PIECE = 65536


def has_input():
    return bool(select.select([sys.stdin], [], [], 0)[0])


def connected(peer):
    connection = socket.create_connection(peer, timeout=10)
    connection.setblocking(False)
    return connection


def stay_silent(peer):
    connections = [connected(peer) for _ in range(SILENT)]
    print(f"{len(connections)} silent", flush=True)
    sys.stdin.read()
    print(f"{sum(is_open(one) for one in connections)} of {SILENT} still open", flush=True)


def is_open(connection):
    try:
        return connection.recv(1) != b""
    except BlockingIOError:
        return True
    except OSError:
        return False


def header(name):
    # The magic number is learned from nobody: a peer may know the protocol and abuse it.
    return struct.pack(">IBBBB", 0x4A4F4C54, 1, 0, len(name), 0) + name.encode()


def noise():
    announced = random.choice([1 << 63, (1 << 64) - 1, 1 << 40])
    return random.choice([
        os.urandom(PIECE),
        header("MeasureVNS") + struct.pack(">IIQ", 1, 0, announced) + bytes(PIECE),
        header("BidiVNS") + struct.pack(">IIQ", 1, 0, announced) + bytes(PIECE),
        header("DualVNS") + struct.pack(">IIQ", 1, 0, 20) + b"9" * 20,
        header("NoSuchVNS") + bytes(PIECE),
        b"GET / HTTP/1.1\r\n" * 4096])


class Writer:
    """Connects, writes until it is dropped, and begins again."""

    def __init__(self, peer):
        self.peer, self.socket, self.left = peer, None, b""

    def begin(self):
        self.socket, self.left = connected(self.peer), noise()

    def write(self):
        """False once it has been dropped."""
        try:
            self.left = self.left[self.socket.send(self.left):] or os.urandom(PIECE)
            return True
        except BlockingIOError:
            return True
        except OSError:
            self.socket.close()
            self.socket = None
            return False


def write_garbage(peer):
    writers = [Writer(peer) for _ in range(WRITERS)]
    begun = dropped = 0
    start = time.monotonic()
    print(f"{WRITERS} writers", flush=True)
    while not has_input():
        for writer in writers:
            if not writer.socket and begun < CONNECTS_A_SECOND * (time.monotonic() - start):
                writer.begin()
                begun += 1
        busy = {writer.socket: writer for writer in writers if writer.socket}
        for one in select.select([], list(busy), [], 0.01)[1]:
            dropped += not busy[one].write()
    for writer in writers:
        if writer.socket:
            writer.socket.close()
    print(f"{begun} connections, {dropped} dropped while writing", flush=True)


if __name__ == "__main__":
    {"silent": stay_silent, "garbage": write_garbage}[sys.argv[1]]((sys.argv[2], int(sys.argv[3])))
