"""Who may include whom: reads the include lines of all rooms and fails on any other arrow.

A reader must be able to trust that a room can be understood with the rooms below it alone. The
linker does not see to that, since a header needs no library."""
import collections
import pathlib
import re
import sys

import tree

SUFFIXES = (".h", ".cpp", ".c")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

BASIS, SYSTEM, SYNCHRONIZATION = "services/Basis", "services/System", "services/Synchronization"
CONFIGURATION, JOLT_UTILS = "services/Configuration", "services/JoltUtils"
DIAGNOSE, FILE_ACCESS = "services/Diagnose", "services/FileAccess"
JOLT_TRACE, JOLT_NET, VERSION = "services/JoltTrace", "services/JoltNet", "services/Version"
SERVICES = {BASIS, SYSTEM, SYNCHRONIZATION, CONFIGURATION, JOLT_UTILS, DIAGNOSE, FILE_ACCESS,
            JOLT_TRACE, JOLT_NET, VERSION}
ROOT = "the root headers"
RECORDS = "vetraTests/VetraTestDefines.h"
FACTS, ENGINE = "vetraTests/LSInfo", "vetraTests/FSPerf"

# A room and those that it may include beside itself. The standard library is everybody's.
ARROWS = {
    BASIS: set(),
    VERSION: set(),
    SYSTEM: {BASIS},
    SYNCHRONIZATION: {BASIS},
    CONFIGURATION: {BASIS},
    JOLT_UTILS: {BASIS},
    DIAGNOSE: {BASIS, SYSTEM, SYNCHRONIZATION},
    FILE_ACCESS: {BASIS, SYSTEM, SYNCHRONIZATION, CONFIGURATION, DIAGNOSE},
    JOLT_TRACE: {BASIS, DIAGNOSE},
    JOLT_NET: {BASIS, SYSTEM, SYNCHRONIZATION, CONFIGURATION, DIAGNOSE, JOLT_UTILS, JOLT_TRACE},
    ROOT: {BASIS, DIAGNOSE},
    RECORDS: set(),
    FACTS: {BASIS, SYSTEM, JOLT_UTILS, ROOT},
    ENGINE: {BASIS, SYSTEM, CONFIGURATION, SYNCHRONIZATION, DIAGNOSE, FILE_ACCESS, RECORDS},
    "vetraTests": {FACTS, ENGINE, RECORDS, BASIS, SYSTEM, JOLT_UTILS, DIAGNOSE, FILE_ACCESS,
                   VERSION, ROOT},
    "impl/network": {BASIS, SYSTEM, CONFIGURATION, DIAGNOSE, JOLT_UTILS, JOLT_TRACE, JOLT_NET,
                     VERSION, ROOT},
    "impl": SERVICES | {ROOT, RECORDS, FACTS, ENGINE, "vetraTests", "impl/network"},
    "programs/fsperf": SERVICES | {ROOT, ENGINE},
    "programs/vetraApi": SERVICES | {ROOT, FACTS},
    "programs/scanhypervisorCheck": SERVICES | {ROOT},
    "programs/VNSNetServerBidi": SERVICES | {ROOT},
}
# These look into every room, and at every library.
FREE_ROOMS = {"tests", "bench", "fuzz"}

# The beginning of a foreign header's name, and the one room that may see it.
FOREIGN_OWNERS = {
    "libaio": FILE_ACCESS,
    "nlohmann/": JOLT_UTILS,
    "asio.hpp": JOLT_NET,
    "asio/": JOLT_NET,
    "spdlog/": DIAGNOSE,
    "fmt/": DIAGNOSE,
    "libunwind": DIAGNOSE,
}

# Headers of the C library, the kernel and the compiler. Those of C++ have no suffix.
SYSTEM_DIRECTORIES = ("sys/", "linux/", "net/", "netinet/", "arpa/", "asm/", "ext/")
SYSTEM_HEADERS = {name + ".h" for name in """
    aio assert cpuid ctype cxxabi dirent dlfcn elf errno execinfo fcntl fenv fnmatch ftw getopt glob
    grp ifaddrs immintrin inttypes langinfo libgen limits link locale malloc math mntent netdb nss poll
    pthread pwd regex resolv sched semaphore setjmp signal spawn stdarg stddef stdint stdio stdlib
    string strings syscall sysexits syslog termios time ucontext unistd utime wait wchar wordexp
    x86intrin
    """.split()}

# Headers that the build writes, and the room in whose folder it does.
GENERATED = {"VersionData.h": VERSION}


def room_of(path):
    """The room of a file; none for a folder that the table does not know."""
    if "/" not in path:
        return ROOT
    if path == RECORDS:
        return RECORDS
    folders = path.split("/")[:-1]
    while folders:
        room = "/".join(folders)
        if room in ARROWS or room in FREE_ROOMS:
            return room
        # An unknown service or program is no part of another room.
        folders.pop()
    return None


def system_header(name):
    return ("." not in name and "/" not in name) or name in SYSTEM_HEADERS or name.startswith(
        SYSTEM_DIRECTORIES)


def foreign_owner(name):
    for beginning, owner in FOREIGN_OWNERS.items():
        if name.startswith(beginning):
            return owner
    return None


class Checker:
    def __init__(self, root):
        self.root = pathlib.Path(root)
        self.files = [path for path in tree.files_of(root) if path.endswith(SUFFIXES)]
        self.known = set(self.files)

    def target_of(self, path, name, quoted):
        """The file of the tree that an include line means; none if it is not of the tree."""
        folder = path.rpartition("/")[0]
        beside = f"{folder}/{name}" if folder else name
        for candidate in ([beside] if quoted else []) + [name, f"services/{name}"]:
            if candidate in self.known:
                return candidate
        return None

    def complaint_about(self, room, path, name, quoted):
        """What is wrong with one include line; none if nothing is."""
        target = self.target_of(path, name, quoted)
        if target:
            other = room_of(target)
            allowed = other == room or other in ARROWS[room]
            return None if allowed else f"{room} may not include {other} ({name})"
        if name in GENERATED:
            allowed = GENERATED[name] == room
            return None if allowed else f"{name} belongs to {GENERATED[name]}"
        owner = foreign_owner(name)
        if owner:
            return None if owner == room else f"{name} is for {owner} alone"
        return None if system_header(name) else f"{name} is of no room and of no known library"

    def faults(self):
        found = []
        for path in self.files:
            room = room_of(path)
            if room in FREE_ROOMS:
                continue
            if room is None:
                found.append(f"{path}: this folder is not in the table of rooms")
                continue
            lines = (self.root / path).read_text(encoding="utf-8").splitlines()
            for number, line in enumerate(lines, 1):
                include = INCLUDE.match(line)
                complaint = include and self.complaint_about(
                    room, path, include[2], include[1] == '"')
                if complaint:
                    found.append(f"{path}:{number}: {complaint}")
        return found


def circles(arrows):
    """The rooms of the table that can reach themselves."""
    found = []
    for start in arrows:
        reached = collections.deque(arrows[start])
        seen = set()
        while reached:
            room = reached.popleft()
            if room not in seen:
                seen.add(room)
                reached.extend(arrows.get(room, ()))
        if start in seen:
            found.append(f"the table lets {start} include itself through others")
    return found


def main(root):
    return tree.report(circles(ARROWS) + Checker(root).faults())


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
