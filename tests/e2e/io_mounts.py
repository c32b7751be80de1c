"""File systems made for one test, in a mount namespace that nothing else on the machine sees.

The namespace is that of the test process. What is mounted in it goes when the process ends, however
that comes about, and loop devices go with the mounts that use them.
"""
import contextlib
import ctypes
import os
import pathlib
import subprocess
import tempfile

import mounts

# Without a journal ext4 stays writable when its device fails.
MAKERS = {"ext4": ("mkfs.ext4", "-q", "-F", "-O", "^has_journal"),
          "xfs": ("mkfs.xfs", "-q", "-f"),
          "btrfs": ("mkfs.btrfs", "-q", "-f")}
TOOL_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"

_libc = ctypes.CDLL(None, use_errno=True)


class Unavailable(Exception):
    """What the machine lacks for a file system."""


def _call(*arguments):
    return subprocess.run([*map(str, arguments)], capture_output=True, timeout=60, text=True,
                          env={**os.environ, "PATH": TOOL_PATH})


def _must(*arguments):
    done = _call(*arguments)
    if done.returncode != 0:
        raise Unavailable(f"{' '.join(map(str, arguments))}: {done.stderr.strip()}")
    return done.stdout


@contextlib.contextmanager
def private():
    """Inside, this process mounts without anyone noticing."""
    before = os.open("/proc/self/ns/mnt", os.O_RDONLY | os.O_CLOEXEC)
    directory = os.getcwd()
    try:
        with tempfile.TemporaryDirectory(prefix="vetra-e2e-") as nothing:
            mounts.Mounts(nothing).enter()
            yield
    finally:
        # A namespace is entered at its root.
        if _libc.setns(before, 0) != 0:
            number = ctypes.get_errno()
            raise OSError(number, f"setns: {os.strerror(number)}")
        os.chdir(directory)
        os.close(before)


@contextlib.contextmanager
def mounted(kind, directory, source="none", options="defaults"):
    """The directory, new, with a file system on it."""
    place = pathlib.Path(directory)
    place.mkdir()
    _must("mount", "-t", kind, "-o", options, source, place)
    try:
        yield place
    finally:
        # Whoever still holds a file there must not keep the test from cleaning up.
        if _call("umount", place).returncode != 0:
            _must("umount", "-l", place)


def memory(directory, size):
    """A file system in memory that may hold `size` bytes; it takes none before they are used."""
    return mounted("tmpfs", directory, options=f"size={size}")


def remount(place, options):
    _must("mount", "-o", f"remount,{options}", place)


def leave_no_space(place):
    """Shrinks a file system in memory to what it holds, which must not be nothing."""
    status = os.statvfs(place)
    used = (status.f_blocks - status.f_bfree) * status.f_frsize
    assert used > 0, "a size of 0 would mean that there is no limit"
    remount(place, f"size={used}")


def loop_devices_of(image):
    return _must("losetup", "-j", image).split()


@contextlib.contextmanager
def on_image(kind, directory, image, size):
    """The directory with a fresh file system on a sparse file. Its loop device is told to go as
    soon as it is unmounted."""
    with open(image, "wb") as file:
        file.truncate(size)
    _must(*MAKERS[kind], image)
    with mounted(kind, directory, source=image, options="loop") as place:
        yield place
