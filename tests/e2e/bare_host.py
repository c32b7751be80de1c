"""Hosts that offer a program less than this machine does: no files but those that were put there,
or an older kernel's system calls."""
import ctypes
import os
import pathlib
import re
import shutil
import struct
import subprocess

import mounts

CLONE_NEWNET = 0x40000000
PR_SET_SECCOMP, PR_SET_NO_NEW_PRIVS = 22, 38
SECCOMP_MODE_FILTER = 2
LOAD_NUMBER, JUMP_IF_EQUAL, RETURN = 0x20, 0x15, 0x06
ALLOW, FAIL_WITH_ENOSYS = 0x7FFF0000, 0x00050000 | 38
KERNEL_TREES = ("proc", "sys", "dev")

# Calls of x86-64 that came after kernel 3.10, and io_uring, by their numbers.
LATER_CALLS = {
    "renameat2": 316, "getrandom": 318, "memfd_create": 319, "execveat": 322, "userfaultfd": 323,
    "membarrier": 324, "mlock2": 325, "copy_file_range": 326, "preadv2": 327, "pwritev2": 328,
    "statx": 332, "io_pgetevents": 333, "rseq": 334, "pidfd_send_signal": 424,
    "io_uring_setup": 425, "io_uring_enter": 426, "io_uring_register": 427, "pidfd_open": 434,
    "clone3": 435, "close_range": 436, "openat2": 437, "pidfd_getfd": 438, "faccessat2": 439,
    "epoll_pwait2": 441, "mount_setattr": 442, "futex_waitv": 449, "cachestat": 451,
    "fchmodat2": 452, "futex_wake": 454, "futex_wait": 455, "futex_requeue": 456}

_libc = ctypes.CDLL(None, use_errno=True)


def deny_later_calls():
    """From now on, here and in all that is started from here, later calls fail with ENOSYS."""
    steps = [(LOAD_NUMBER, 0, 0, 0)]
    count = len(LATER_CALLS)
    steps += [(JUMP_IF_EQUAL, count - place, 0, number)
              for place, number in enumerate(LATER_CALLS.values())]
    steps += [(RETURN, 0, 0, ALLOW), (RETURN, 0, 0, FAIL_WITH_ENOSYS)]
    code = ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in steps))
    program = ctypes.create_string_buffer(struct.pack("HxxxxxxP", len(steps),
                                                      ctypes.addressof(code)))
    for arguments in ((PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0),
                      (PR_SET_SECCOMP, SECCOMP_MODE_FILTER, ctypes.addressof(program), 0, 0)):
        if _libc.prctl(*map(ctypes.c_ulong, arguments)) != 0:
            number = ctypes.get_errno()
            raise OSError(number, f"prctl: {os.strerror(number)}")


class BareHost:
    """A root directory that holds a bundle in /vetra, a static shell, what the kernel shows, and
    what is put there; with a network of its own."""

    def __init__(self, place, bundle):
        self.root = pathlib.Path(place)
        for name in (*KERNEL_TREES, "bin", "tmp", "etc"):
            (self.root / name).mkdir(parents=True)
        shutil.copytree(bundle, self.root / "vetra")
        shutil.copy("/bin/busybox", self.root / "bin" / "busybox")
        (self.root / "bin" / "sh").symlink_to("busybox")

    def put_with_libraries(self, program):
        """A dynamic program of this machine with all that it is linked with."""
        self._put(program)
        listed = subprocess.run(["ldd", program], capture_output=True, text=True, check=True)
        for library in re.findall(r"(/\S+) \(0x", listed.stdout):
            self._put(library)

    def _put(self, path):
        target = self.root / path.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, target)

    def script(self, name, *lines):
        path = self.root / "bin" / name
        path.write_text("\n".join(["#!/bin/sh", *lines]) + "\n")
        path.chmod(0o755)

    def enter(self):
        mounts.enter_namespace()
        if _libc.unshare(CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), "unshare: network")
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        for name in KERNEL_TREES:
            mounts.bind_tree(f"/{name}", self.root / name)
        os.chroot(self.root)
        os.chdir("/vetra")

    def run(self, *command, under=(), prepare=None, **variables):
        """Runs a command inside; under: the words of a program of this machine that starts it."""
        environment = {"PATH": "/bin:/usr/bin", "HOST": "zirn01", "HOME": "/", **variables}
        return subprocess.run([*map(str, [*under, *command])], capture_output=True, timeout=120,
                              env=environment, preexec_fn=prepare or self.enter)
