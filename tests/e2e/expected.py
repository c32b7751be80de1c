"""The texts that the driver puts around the tests, composed piece by piece."""
import re
import subprocess

USAGE = (b"Usage: ./vetra -f testconfig.json for hardware validation test\n"
         b"       or ./vetra -h or --help for usage info\n"
         b"       or ./vetra -v or --version for version\n"
         b"\n")
VERSION = re.compile(rb"vetra-\d+\.\d+\.\d+ \(\d{4}-\d\d-\d\d\)\n")

CHECKS_OF_THE_BANNER = (
    "validateDistribution", "validateLinuxKernelVersion", "validateRuntime", "validateHTT",
    "validateTHP", "validateCPU", "validateCoreMemoryRatio", "validateMemory",
    "validateMemoryDistribution", "validateCPUgovernor", "validateHypervisor",
    "validateClocksource", "validateApplianceSystemType")
RULES_OF_THE_REPORT = (
    "validateDistribution", "validateLinuxKernelVersion", "validateClocksource", "validateCPU",
    "validateHypervisor", "validateHTT", "validateApplianceSystemType", "validateTHP",
    "validateRuntime", "validateMemory", "validateMemoryDistribution", "validateCoreMemoryRatio",
    "validateCPUgovernor")
ACTIONS = (
    "CHECK_APPLIANCETYPE", "CHECK_CLOCKSOURCE", "CHECK_COREMEMORYRATIO", "CHECK_CPU",
    "CHECK_CPUGOVERNOR", "CHECK_DISTRIBUTION", "CHECK_HTT", "CHECK_HYPERVISOR", "CHECK_MEMORY",
    "CHECK_MEMORYDISTRIBUTION", "CHECK_THP")
UNKNOWN_ACTION = b'Please check the usage of vetraApi using "./vetraApi -h"'

# Code, symbolic name and message of the three errors that a run can end with.
ERRORS = {4: b"ERR_INVALID_FILEDESCRIPTOR: Invalid file descriptor",
          5: b"ERR_INVALID_JSON: Invalid json",
          6: b"ERR_INVALID_USER_CONFIG: Invalid user config"}
SOURCES = {4: b"VetraHelper", 5: b"UserConfig", 6: b"UserConfig"}


def _banner():
    frame = "*" * 79
    texts = ["", " This test can be executed on following platforms:",
             "          Linux x86(SUSE and Redhat)", "                      and Linux PPC.", ""]
    lines = [frame,
             "**  This test evaluates, landscape of the system for following parameters:   **",
             frame,
             *(f"*{check:>28}{'':49}*" for check in CHECKS_OF_THE_BANNER),
             *(f"*{text:77}*" for text in texts),
             frame]
    return "".join(line + "\n" for line in lines).encode()


BANNER = _banner()


def message(cwd, tests=(), output_dir=None, blades=(), use_zdb=False):
    """The message on the configuration; tests: (id as shown, class) in the order of running."""
    lines = ["", "Tests will be running with following configurations:",
             f"useZdb: {int(use_zdb)}",
             "blades: " + "".join(f"{blade} " for blade in blades),
             f"output directory: {cwd if output_dir is None else output_dir}", "",
             "Configured tests:",
             *(f"{shown} {test}" for shown, test in tests)]
    return ("\n".join(lines) + "\n").encode()


def configuration(*arguments, **named):
    """What standard output shows of the configuration before the first test."""
    return message(*arguments, **named) + b"\n"


def unregistered(test):
    return test.encode() + b" is not registered.\n"


def evalos(noise=b"", report=None, config=b""):
    """What one EvalOS test puts on standard output; without report it has failed."""
    end = b"EvalOSrun failed\n" if report is None else b"EvalOS run OK.\n" + report + b"\n"
    return (b"Creating Test instance EvalOS...\n"
            b"Test usage:\n" + BANNER + b"\n"
            b"Setting test configuration: " + config + b"\n"
            b"Estimated testDuration:\n80ms\n"
            b"Start running test:\n EvalOS\n" + noise + end)


def writing(directory, *names):
    """The lines about the result files of the given names."""
    return b"".join(f"Writing output to {directory}/{name}\n".encode() for name in names)


def is_error(text, code, argument):
    """Whether text is the line for an error, to the letter but for the source line's number."""
    line = (b"Error while running VETRA:%d %s: %s (%s.cpp:" %
            (code, ERRORS[code], argument, SOURCES[code]))
    return re.fullmatch(re.escape(line) + rb"\d+\)\n", text) is not None


def shell_complaints(host):
    """Standard error of gathering the facts of a host: what the shell says, stage by stage, of
    first stages that it does not find."""
    dmidecode = [] if host.has_command("dmidecode") else [_complaint("/usr/sbin/dmidecode")]
    rpm = [] if host.has_command("rpm") else [_complaint("rpm")]
    numactl = [] if host.has_command("numactl") else [_complaint("numactl")]
    return b"".join(dmidecode + rpm * 3 + dmidecode * 3 + numactl + dmidecode)


def _complaint(command):
    absent = "/nonexistent/command" if "/" in command else "nonexistent-command"
    asked = subprocess.run(["sh", "-c", f"{absent} | :"], executable="/bin/sh",
                           env={"PATH": "/nonexistent"}, stderr=subprocess.PIPE, check=False)
    return asked.stderr.replace(absent.encode(), command.encode())
