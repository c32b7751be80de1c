"""The fake hosts: directories with one server's files, on which the real programs are run.

A host is copied before it is used, so that a test may change one thing of it and judge the rest by
the same model. What a run sees of the machine itself is the kernel, the libraries and the shell.
"""
import functools
import json
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import tempfile
import time

import mounts
from result import Run

HOSTS = pathlib.Path(__file__).parent / "hosts"
PASSING_HOST = "suse12sp1-e7v3-2socket-passes"
TIMEOUT_SECONDS = 60
TOOL_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"

PROC_FILES = ("proc/cpuinfo", "proc/meminfo", "proc/cmdline")
RELEASE_FILES = ("SuSE-release", "redhat-release")
SYS_DIRECTORIES = {
    "sys/devices/system/clocksource/clocksource0": ("current_clocksource",),
    "sys/kernel/mm/transparent_hugepage": ("enabled",),
    "sys/devices/system/cpu/cpu0": ("cpufreq/scaling_max_freq", "cpufreq/scaling_driver",
                                    "cpufreq/scaling_governor"),
}
# What a command's arguments select, and the file of the host that holds the answer.
ANSWERS = {
    "rpm": {"-qa": "rpm.txt", "-q -a": "rpm.txt"},
    "numactl": {"--hardware": "numactl.txt"},
    "dmidecode": {"": "dmidecode.txt", "--type 17": "dmidecode.type17.txt",
                  "-s processor-frequency": "dmidecode.frequency.txt"},
}
SHELL_TOOLS = ("grep", "head")
# Programs that nothing has a reason to start; a watched run would show them.
BYSTANDERS = ("uname", "cat", "hostname", "lscpu", "date", "sh", "awk", "sed", "test")


class Dimm:
    """One memory module as dmidecode lists it; size None is an empty slot."""

    def __init__(self, size, speed="2133 MHz", configured="1866 MHz"):
        self.size, self.speed, self.configured = size, speed, configured

    def text(self, number):
        lines = [f"Handle 0x{0x1100 + number:04X}, DMI type 17, 40 bytes", "Memory Device",
                 "\tTotal Width: 72 bits", "\tData Width: 64 bits",
                 f"\tSize: {self.size or 'No Module Installed'}", "\tForm Factor: DIMM",
                 f"\tLocator: DIMM {number + 1}", "\tType: DDR4",
                 f"\tSpeed: {self.speed if self.size else 'Unknown'}"]
        if self.configured:
            lines.append(f"\tConfigured Clock Speed: {self.configured if self.size else 'Unknown'}")
        return "\n".join(lines) + "\n\n"


def memory_devices(dimms):
    """The output of dmidecode --type 17 for these modules."""
    head = "# dmidecode 2.12\nSMBIOS 2.8 present.\n\n"
    return head + "".join(dimm.text(number) for number, dimm in enumerate(dimms))


def _bytes(content):
    return content.encode() if isinstance(content, str) else content


def host_names():
    return sorted(path.name for path in HOSTS.iterdir() if path.is_dir())


class Host:
    """One server, to be changed by a test and to run programs on."""

    def __init__(self, name, workspace):
        self.workspace = pathlib.Path(workspace).resolve()
        self.directory = self.workspace / "host"
        shutil.copytree(HOSTS / name if isinstance(name, str) else name, self.directory)
        self._runs = self._places = 0

    # What the server has.

    def write(self, path, content):
        """Gives the host a file, by its absolute path."""
        target = self.directory / "root" / path.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(_bytes(content))

    def remove(self, path):
        (self.directory / "root" / path.lstrip("/")).unlink()

    def command(self, name, text):
        """Sets what a command prints ("rpm", "numactl", "dmidecode.type17", ...); None takes the
        answer away, and with its last answer the command itself."""
        target = self.directory / "commands" / f"{name}.txt"
        if text is None:
            target.unlink(missing_ok=True)
        else:
            target.parent.mkdir(exist_ok=True)
            target.write_bytes(_bytes(text))

    def dmidecode(self, memory=None, product=None, frequency=None):
        if memory is not None:
            self.command("dmidecode.type17", memory_devices(memory))
        if product is not None:
            self.command("dmidecode", b"System Information\n\tProduct Name: "
                         + _bytes(product) + b"\n")
        if frequency is not None:
            self.command("dmidecode.frequency", frequency)

    def without_dmidecode(self):
        for name in ("dmidecode", "dmidecode.type17", "dmidecode.frequency"):
            self.command(name, None)

    def scanner(self, text):
        """Sets what the scanner prints; None takes it away."""
        path = self.directory / "scanner.txt"
        if text is None:
            path.unlink(missing_ok=True)
        else:
            path.write_bytes(_bytes(text))

    @property
    def facts(self):
        return json.loads((self.directory / "host.json").read_text())

    def env(self, **variables):
        """Sets variables of the run's environment; None unsets one."""
        facts = self.facts
        facts["environment"].update(variables)
        facts["environment"] = {name: value for name, value in facts["environment"].items()
                                if value is not None}
        (self.directory / "host.json").write_text(json.dumps(facts))

    def uname(self, **fields):
        (self.directory / "host.json").write_text(json.dumps({**self.facts, **fields}))

    def has_command(self, name):
        files = ANSWERS[name].values()
        return any((self.directory / "commands" / file).exists() for file in files)

    # Running on it.

    def working_directory(self):
        """A fresh directory for one run, or for several that share what they leave."""
        self._runs += 1
        path = self.workspace / f"run-{self._runs}"
        path.mkdir()
        return path

    def new_place(self, cwd):
        """A directory beside a run's own for what the run needs; cwd may serve several runs."""
        self._places += 1
        return self.workspace / f"{cwd.name}.stage-{self._places}"

    def vetra(self, config=None, arguments=None, **options):
        """Runs the tool: with a configuration (bytes, or an object to be written as JSON) in
        "config.json", or with the given arguments."""
        files = dict(options.pop("files", {}))
        if config is not None:
            text = config if isinstance(config, bytes) else json.dumps(config).encode()
            files["config.json"] = text
        if arguments is None:
            arguments = ["-f", "config.json"]
        return self.run(program("vetra"), arguments, files=files, **options)

    def evaluate(self, **options):
        """A run with one EvalOS test of id 1."""
        return self.vetra({"tests": [{"id": 1, "class": "EvalOS"}]}, **options)

    def api(self, *arguments, **options):
        """Runs the front end for single checks."""
        return self.run(program("vetraApi"), arguments, **options)

    def run(self, command, arguments, cwd=None, files=(), prepare=None, watched=False,
            path=None, tools=(), limited=False, limits=(), scanner_mode=0o755,
            scanner_read_only=False, umask=0o022, environment=(), timeout=TIMEOUT_SECONDS):
        """Runs a program on this host and returns what it left.

        cwd:         a directory of working_directory(), else a fresh one.
        files:       name to bytes, put there first; prepare is then called with the directory.
        watched:     grep, head and bystanders are counted, too.
        path, tools: one more directory for PATH; further commands of the machine.
        limited:     without root's capabilities.
        limits:      pairs for setrlimit.
        environment: further variables."""
        cwd = cwd or self.working_directory()
        stage = _Stage(self, cwd, watched, tools)
        stage.lay_scanner(scanner_mode, scanner_read_only)
        for name, content in dict(files).items():
            (cwd / name).write_bytes(_bytes(content))
        if prepare:
            prepare(cwd)
        search = f"{stage.commands}:{path}" if path else str(stage.commands)
        variables = {**self._environment(search), **dict(environment)}
        child = _Child(stage.mounts, umask, limited, limits)
        run = _execute([str(command), *map(str, arguments)], cwd, variables, child, timeout)
        run.commands = stage.started()
        return run

    def _environment(self, search):
        facts = self.facts
        variables = {"PATH": search, **facts["environment"]}
        variables["LD_PRELOAD"] = os.environ["VETRA_UNAME_SHIM"]
        variables["VETRA_FAKE_MACHINE"] = facts["machine"]
        variables["VETRA_FAKE_RELEASE"] = facts["release"]
        return {**variables, **sanitizer_options()}


def sanitizer_options():
    """The address sanitizer must not insist on being the first library; others keep theirs."""
    names = ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS")
    options = {name: os.environ[name] for name in names if name in os.environ}
    known = [options["ASAN_OPTIONS"]] if options.get("ASAN_OPTIONS") else []
    options["ASAN_OPTIONS"] = ":".join([*known, "verify_asan_link_order=0"])
    return options


def program(name):
    """The path of one of the programs under test."""
    return pathlib.Path(os.environ["VETRA_BIN"]).resolve() / name


@functools.lru_cache(maxsize=None)
def is_sanitized(name):
    """Whether a program carries a sanitizer, which needs memory of its own."""
    content = program(name).read_bytes()
    return any(mark in content for mark in (b"__asan_init", b"__tsan_init", b"__msan_init"))


def run_here(command, arguments, cwd, pinned=(), environment=()):
    """Runs a program on this very machine; pinned: pairs of a file and what is bound over it, for
    files whose content changes from one moment to the next."""
    with tempfile.TemporaryDirectory(prefix="vetra-e2e-") as place:
        plan = mounts.Mounts(place)
        for target, source in pinned:
            plan.bind(source, target)
        variables = {"PATH": TOOL_PATH, **dict(environment), **sanitizer_options()}
        return _execute([str(command), *map(str, arguments)], cwd, variables,
                        _Child(plan, 0o022, False, ()), TIMEOUT_SECONDS)


class _Stage:
    """What a run needs beside its working directory: fake commands and the mounts."""

    def __init__(self, host, cwd, watched, tools):
        self.host, self.cwd = host, cwd
        self.place = host.new_place(cwd)
        self.commands = self.place / "bin"
        self.commands.mkdir(parents=True)
        self.log = self.place / "started"
        self.unexpected = self.place / "unexpected"
        self.mounts = mounts.Mounts(self.place / "mounts")
        self._lay_commands(watched, tools)
        self._lay_files()

    def _lay_commands(self, watched, tools):
        for name in {*SHELL_TOOLS, *tools, *(BYSTANDERS if watched else ())}:
            real = shutil.which(name, path=TOOL_PATH)
            if watched:
                _script(self.commands / name, self._note(name), f'exec {real} "$@"')
            else:
                (self.commands / name).symlink_to(real)
        for name in ("rpm", "numactl"):
            if self.host.has_command(name):
                self._fake(name, self.commands / name)

    def _note(self, name):
        """Shell line that adds one line, name and arguments, to the list of started commands."""
        return f"printf '%s\\n' \"{name}${{*:+ }}$*\" >>{self.log}"

    def _fake(self, name, target):
        cases = [f'"{arguments}") file={self.host.directory}/commands/{file} ;;'
                 for arguments, file in ANSWERS[name].items()]
        other = f"*) echo \"{name} $*\" >>{self.unexpected}; exit 64 ;;"
        _script(target, self._note(name), 'case "$*" in', *cases, other, "esac",
                'if [ -e "$file" ]; then exec /bin/cat "$file"; fi')

    def _lay_files(self):
        root = self.host.directory / "root"
        for name in PROC_FILES:
            if (root / name).exists():
                self.mounts.bind(root / name, f"/{name}")
            else:
                self.mounts.block(f"/{name}")
        for directory, names in SYS_DIRECTORIES.items():
            present = [name for name in names if (root / directory / name).exists()]
            self.mounts.replace(f"/{directory}", {name: root / directory / name
                                                  for name in present})
        self._lay_etc(root)
        self._lay_usr(root)

    def _lay_etc(self, root):
        layer = mounts.Layer("/etc")
        for name in RELEASE_FILES:
            source = root / "etc" / name
            layer.put(name, source) if source.exists() else layer.hide(name)
        self.mounts.lay(layer)

    def _lay_usr(self, root):
        layer = mounts.Layer("/usr")
        if self.host.has_command("dmidecode"):
            fake = self.place / "dmidecode"
            self._fake("dmidecode", fake)
            layer.put("sbin/dmidecode", fake)
        else:
            layer.hide("sbin/dmidecode")
        dumps = [path for path in (root / "usr/kor").rglob("*") if path.is_file()]
        if not dumps:
            layer.hide("kor")
        for path in dumps:
            layer.put(path.relative_to(root / "usr"), path)
        self.mounts.lay(layer)

    def lay_scanner(self, mode, read_only):
        text = self.host.directory / "scanner.txt"
        if not text.exists():
            return
        scanner = self.cwd / "scanhypervisorCheck"
        _script(scanner, self._note("./scanhypervisorCheck"), f"exec /bin/cat {text}")
        scanner.chmod(mode)
        if read_only:
            self.mounts.read_only(scanner)

    def started(self):
        """The external commands of the run, each with its arguments."""
        if self.unexpected.exists():
            raise AssertionError("started with unknown arguments: " + self.unexpected.read_text())
        return self.log.read_text().splitlines() if self.log.exists() else []


def _script(path, *lines):
    path.write_text("\n".join(["#!/bin/sh", *lines]) + "\n")
    path.chmod(0o755)


class _Child:
    """What the forked child does before it becomes the program."""

    def __init__(self, plan, umask, limited, limits):
        self.plan, self.umask, self.limited, self.limits = plan, umask, limited, limits

    def __call__(self):
        try:
            self.plan.enter()
            if self.limited:
                mounts.give_up_capabilities()
            for which, soft_and_hard in self.limits:
                resource.setrlimit(which, soft_and_hard)
        except OSError as error:
            os.write(2, f"fake host: {error}\n".encode())
            os._exit(125)
        os.umask(self.umask)


def _execute(command, cwd, variables, child, timeout):
    before = time.time()
    process = subprocess.Popen(command, cwd=cwd, env=variables, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                               preexec_fn=child, start_new_session=True)
    try:
        stdout, stderr = process.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        stdout, stderr = process.communicate()
        raise AssertionError(f"{command} hung; it had printed {stdout[-2000:]!r} and on standard "
                             f"error {stderr[-2000:]!r}") from None
    if process.returncode == 125 and stderr.startswith(b"fake host: "):
        raise RuntimeError(stderr.decode())
    return Run(process.returncode, stdout, stderr, cwd, (before, time.time()))
