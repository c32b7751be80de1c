"""Mounts of a private namespace, so that a program sees files that this machine does not have.

All is prepared as plain files before the fork; the child then issues nothing but mount calls and
starts the program. The namespace is private: no mount reaches the machine itself, and the kernel
drops them all when the last process inside has ended.
"""
import ctypes
import functools
import os
import pathlib
import shutil
import socket
import stat
import tempfile

CLONE_NEWNS = 0x00020000
MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
PR_CAPBSET_DROP = 24

_libc = ctypes.CDLL(None, use_errno=True)


def _check(result, what):
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{what}: {os.strerror(number)}")


def _mount(source, target, kind, flags, data=None):
    arguments = [None if text is None else os.fsencode(text) for text in (source, target, kind)]
    options = None if data is None else os.fsencode(data)
    _check(_libc.mount(*arguments, ctypes.c_ulong(flags), options), f"mount over {target}")


def _enter():
    _check(_libc.unshare(CLONE_NEWNS), "unshare")
    _mount("none", "/", None, MS_REC | MS_PRIVATE)


def enter_namespace():
    """Gives the calling process mounts of its own."""
    _enter()


def bind_tree(source, target):
    """Shows a tree, with what is mounted in it, at another place."""
    _mount(source, target, None, MS_BIND | MS_REC)


def _succeeds(action):
    """Runs action in a child of its own, as it may leave this process's namespace."""
    child = os.fork()
    if child == 0:
        try:
            action()
        except OSError:
            os._exit(1)
        os._exit(0)
    return os.waitpid(child, 0)[1] == 0


@functools.lru_cache(maxsize=None)
def refusal():
    """Why this machine gives no private mount namespace, or None if it does."""
    if os.geteuid() != 0:
        return "the user is not root"
    if not _succeeds(_enter):
        return "the kernel or the container refuses one"
    return None


@functools.lru_cache(maxsize=None)
def overlay_works():
    """Whether one directory can be laid over another of this machine by an overlay."""
    if os.environ.get("VETRA_E2E_OVERLAY") == "no":
        return False
    with tempfile.TemporaryDirectory(prefix="vetra-e2e-") as directory:
        os.mknod(f"{directory}/absent", stat.S_IFCHR)

        def attempt():
            _enter()
            _mount("overlay", "/usr", "overlay", 0, f"lowerdir={directory}:/usr")

        return _succeeds(attempt)


class Layer:
    """Files laid over one directory of the machine, and files of it that are hidden."""

    def __init__(self, target):
        self.target = pathlib.Path(target)
        self.files = {}
        self.hidden = set()

    def put(self, relative, source):
        self.files[str(relative)] = pathlib.Path(source)

    def hide(self, relative):
        if os.path.lexists(self.target / relative):
            self.hidden.add(str(relative))

    def prepare(self, workspace, overlay):
        """Returns the mount calls that bring the layer about."""
        if not self.files and not self.hidden:
            return []
        name = self.target.name
        prepared = workspace / f"layer-{name}"
        for relative, source in self.files.items():
            _copy(source, prepared / relative)
        if overlay:
            return self._overlay(prepared)
        return self._links(prepared, workspace / f"real-{name}", workspace / f"view-{name}")

    def _overlay(self, prepared):
        for relative in self.hidden:
            absent = prepared / relative
            absent.parent.mkdir(parents=True, exist_ok=True)
            os.mknod(absent, stat.S_IFCHR)  # how an overlay marks a name that is gone
        options = f"lowerdir={prepared}:{self.target}"
        return [("overlay", str(self.target), "overlay", MS_RDONLY, options)]

    def _links(self, prepared, real, view):
        """Without overlays: a directory of links into the real one, which moves aside."""
        real.mkdir()
        _link_farm(self.target, prepared, real, view, {self.target / name for name in self.hidden})
        return [(str(self.target), str(real), None, MS_BIND | MS_REC, None),
                (str(view), str(self.target), None, MS_BIND, None)]


def _copy(source, target):
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(source, target)


def _link_farm(target, prepared, real, view, hidden):
    view.mkdir(parents=True)
    names = {name for place in (target, prepared) if place.is_dir() for name in os.listdir(place)}
    for name in sorted(names):
        path = target / name
        if (prepared / name).is_dir() or any(path in gone.parents for gone in hidden):
            _link_farm(path, prepared / name, real / name, view / name, hidden)
        elif (prepared / name).exists():
            shutil.copy(prepared / name, view / name)
        elif path not in hidden:
            os.symlink(real / name, view / name)


class Mounts:
    """The mount calls of one run, in their order."""

    def __init__(self, workspace):
        self.workspace = pathlib.Path(workspace)
        self.workspace.mkdir(parents=True, exist_ok=True)
        self._steps = []
        self._trees = {}

    def bind(self, source, target):
        self._steps.append((str(source), str(target), None, MS_BIND, None))

    def read_only(self, path):
        """Nobody, not even root, opens the file for writing."""
        self.bind(path, path)
        self._steps.append((None, str(path), None, MS_BIND | MS_REMOUNT | MS_RDONLY, None))

    def block(self, target):
        """Makes opening the file fail; for places such as /proc, where nothing can be removed."""
        path = self.workspace / "nothing-to-open"
        if not path.exists():
            _socket_file(path)
        self.bind(path, target)

    def replace(self, directory, files):
        """The directory holds just these files (relative path to source), also if it is new."""
        place = pathlib.Path(directory)
        while not place.is_dir():
            place = place.parent
        tree = self._trees.get(place)
        if tree is None:
            tree = self._trees[place] = self.workspace / f"tree-{len(self._trees)}"
            tree.mkdir()
            self.bind(tree, place)
        inside = tree / pathlib.Path(directory).relative_to(place)
        for relative, source in files.items():
            _copy(source, inside / relative)

    def lay(self, layer):
        self._steps.extend(layer.prepare(self.workspace, overlay_works()))

    def enter(self):
        """For the forked child: leaves the machine's namespace and mounts."""
        _enter()
        for step in self._steps:
            _mount(*step)


def _socket_file(path):
    """A file that exists and that nobody can open: the kernel answers ENXIO, to root as well."""
    directory = os.open(path.parent, os.O_RDONLY)
    try:
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(f"/proc/self/fd/{directory}/{path.name}")
    finally:
        os.close(directory)


def give_up_capabilities():
    """For the forked child: the program meets file modes as any other user does."""
    with open("/proc/sys/kernel/cap_last_cap", encoding="ascii") as last:
        for capability in range(int(last.read()) + 1):
            _check(_libc.prctl(PR_CAPBSET_DROP, capability, 0, 0, 0), "prctl")
