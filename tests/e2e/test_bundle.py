"""The static bundle, on hosts that have nothing and on kernels that know less; and what the
documents refer to that are delivered with it."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

import pytest

import bare_host
import mounts

PROGRAMS = ("vetra", "vetraApi", "fsperf", "scanhypervisorCheck", "lib/VNSNetServerBidi")
EVALOS = {"tests": [{"id": 1, "class": "EvalOS"}]}
NETWORK = {"tests": [{"id": 1, "class": "NetworkTest",
                      "config": {"InternHosts": {"zirn01": "zirn02"}}}]}


@pytest.fixture(scope="module")
def bundle():
    place = pathlib.Path(os.environ["VETRA_BUNDLE"])
    if not (place / "vetra").exists():
        pytest.skip("there is no bundle: scripts/bundle builds it")
    if mounts.refusal():
        pytest.skip("no private mount namespace: " + mounts.refusal())
    for tool in ("busybox", "ip", "ldd", "ssh", "strace"):
        if not shutil.which(tool):
            pytest.skip(f"{tool} is missing")
    return place


@pytest.fixture(scope="module")
def delivered():
    """What the install rules of the build under test deliver; needs no bundle."""
    build = pathlib.Path(os.environ["VETRA_BIN"]).resolve().parent
    with tempfile.TemporaryDirectory(prefix="vetra-e2e-") as place:
        subprocess.run(["cmake", "--install", build, "--prefix", place], check=True,
                       capture_output=True)
        yield pathlib.Path(place)


@pytest.fixture
def host(bundle, tmp_path):
    return bare_host.BareHost(tmp_path / "root", bundle)


def configure(host, config):
    (host.root / "vetra" / "config.json").write_text(json.dumps(
        {"output_dir": "/tmp/results", **config}))


def only_result(host):
    (path,) = (host.root / "tmp" / "results").iterdir()
    return json.loads(path.read_text())


def test_it_holds_what_an_operator_copies(bundle):
    assert sorted(path.name for path in bundle.iterdir()) == sorted(
        ["LICENSES", "README", "docs", "envprofile.sh", "examples", "fsperf", "lib",
         "scanhypervisorCheck", "vetra", "vetraApi"])
    assert [path.name for path in (bundle / "lib").iterdir()] == ["VNSNetServerBidi"]
    assert len(list((bundle / "examples").iterdir())) == 4
    for name in ("asio", "fmt", "gcc", "glibc", "libaio", "libunwind", "nlohmann-json", "spdlog"):
        assert (bundle / "LICENSES" / name).stat().st_size > 1000


@pytest.mark.parametrize("name", PROGRAMS)
def test_its_programs_need_no_loader_and_keep_their_symbols(bundle, name):
    shown = subprocess.run(["readelf", "--wide", "-l", "-S", "-d", bundle / name], text=True,
                           capture_output=True, check=True).stdout
    assert "INTERP" not in shown and "(NEEDED)" not in shown
    assert " .symtab " in shown and " .debug_info " not in shown
    assert "GNU_RELRO" in shown and re.search(r"GNU_STACK.* RW +0x", shown)


def run_all(host, prepare=None):
    """What each program says, run once for real."""
    configure(host, EVALOS)
    said = {}
    for words in (["./vetra", "-v"], ["./vetra", "-f", "config.json"], ["./vetraApi", "CHECK_THP"],
                  ["./scanhypervisorCheck"], ["./lib/VNSNetServerBidi", "--version"],
                  ["./fsperf", "-m", "all", "-b", "4K", "-f", "1M", "-o", "json", "-p", "all:prof",
                   "/tmp"]):
        said[" ".join(words)] = host.run(*words, prepare=prepare)
    return said


def assert_all_have_run(host, said):
    for words, run in said.items():
        allowed = range(4) if words.startswith("./vetraApi") else (0,)
        assert run.returncode in allowed, (words, run)
    assert said["./vetra -v"].stdout.startswith(b"vetra-")
    assert b"EvalOS run OK." in said["./vetra -f config.json"].stdout
    assert only_result(host)
    assert (host.root / "vetra" / "prof-cpu.dot").read_text().startswith("digraph ")
    assert b'"Latency":{' in said[next(w for w in said if w.startswith("./fsperf"))].stdout


def test_every_program_runs_where_there_is_nothing(host):
    assert_all_have_run(host, run_all(host))


def test_every_program_runs_on_a_kernel_that_knows_no_later_calls(host):
    def prepare():
        host.enter()
        bare_host.deny_later_calls()

    assert_all_have_run(host, run_all(host, prepare))


def test_the_calls_are_denied_indeed():
    attempt = ("import errno, os\ntry:\n    os.memfd_create('x')\n"
               "except OSError as error:\n    print(errno.errorcode[error.errno])\n")
    done = subprocess.run(["python3", "-c", attempt], text=True, capture_output=True,
                          preexec_fn=bare_host.deny_later_calls)
    assert done.stdout == "ENOSYS\n"


def test_ssh_is_started_with_nothing_else_there(host):
    host.put_with_libraries(shutil.which("ssh"))
    (host.root / "etc" / "passwd").write_text("root:x:0:0:root:/:/bin/sh\n")
    configure(host, NETWORK)
    run = host.run("./vetra", "-f", "config.json")
    assert run.returncode == 0
    assert b"ssh: Could not resolve hostname zirn02" in run.stderr
    assert b"VNSNetServer starting on remote host failed" in run.stdout


def test_a_peer_is_found_by_its_name_without_the_hosts_plug_ins(host, tmp_path):
    (host.root / "etc" / "nsswitch.conf").write_text("hosts: resolve myhostname mdns4 files\n")
    (host.root / "etc" / "hosts").write_text("127.0.0.1 zirn02\n")
    # Started once; what it listens on is not shown, so its usual port is assumed.
    host.script("ssh", 'case "$2" in *netstat*) ;; *) /vetra/lib/VNSNetServerBidi ;; esac')
    configure(host, NETWORK)
    # The calls are looked at from outside: a tracer cannot enter a root without its libraries.
    trace = tmp_path / "trace"
    inside = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "sh", "-c",
              "ip link set lo up; for t in proc sys dev; do mount --rbind /$t $0/$t; done; "
              'exec chroot $0 /bin/sh -c "cd /vetra && exec ./vetra -f config.json"', host.root]
    run = subprocess.run(["strace", "-f", "-qq", "-e", "trace=open,openat", "-o", trace, *inside],
                         capture_output=True, timeout=120,
                         env={**os.environ, "HOST": "zirn01", "PATH": os.environ["PATH"]})
    assert run.returncode == 0 and b"NetworkTest run OK." in run.stdout, run
    assert only_result(host)["zirn02"]["Throughput"] > 0
    opened = trace.read_text()
    assert "/etc/hosts" in opened and "libnss" not in opened


# In Markdown: [text](target), and headings, whose anchors are made of their letters.
LINK = re.compile(r"\]\(([^()\s]+)\)")
HEADING = re.compile(r"^#+ +(.*)$", re.MULTILINE)
# A file that is named without a link, as "man -l docs/man/vetra.8" does; from the top, as the
# reader stands in the operator's directory.
NAMED = re.compile(r"(?<![\w./-])(?:docs|examples|man)/[\w./-]*\w")


def anchors_of(text):
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
            for heading in HEADING.findall(text)}


def link_faults(place):
    """What is referred to in the documents of a directory, and is not there."""
    pages = [place / "README", *place.glob("docs/**/*.md")]
    for page in pages:
        for link in LINK.findall(page.read_text()):
            path, _, anchor = link.partition("#")
            target = page.parent / path if path else page
            if re.match(r"\w+:", link):
                continue
            if not target.exists():
                yield f"{page.relative_to(place)}: {link}"
            elif anchor and anchor not in anchors_of(target.read_text()):
                yield f"{page.relative_to(place)}: {link} (no such heading)"
    for page in [*pages, *place.glob("docs/man/*")]:
        # The path behind a link's text is that of the link.
        text = LINK.sub("]", page.read_text()).replace("\\-", "-")
        for name in NAMED.findall(text):
            if not (place / name).exists():
                yield f"{page.relative_to(place)}: {name}"


def test_what_the_delivered_documents_refer_to_is_delivered(delivered):
    assert list(link_faults(delivered)) == []
    documents = {str(path.relative_to(delivered)) for path in delivered.glob("docs/**/*.*")}
    assert {"docs/configuration.md", "docs/benchmarks.md", "docs/example-run/README.md",
            "docs/man/vetra.8"} <= documents


@pytest.mark.parametrize("page, text, fault", [
    ("README", "see [it](docs/lost.md)", "README: docs/lost.md"),
    ("README", "`man -l docs/man/lost.8`", "README: docs/man/lost.8"),
    ("README", "[`docs/lost.md`](docs/there.md)", "README: docs/lost.md"),
    ("README", "[a](docs/there.md#a-place) [b](docs/there.md#none)",
     "README: docs/there.md#none (no such heading)"),
    ("docs/there.md", "[up](../README.md)", "docs/there.md: ../README.md"),
    ("docs/there.md", "[down](example-run/)", "docs/there.md: example-run/"),
    ("docs/man/there.8", ".I examples/not\\-there.json",
     "docs/man/there.8: examples/not-there.json"),
])
def test_a_reference_that_leads_nowhere_is_found(tmp_path, page, text, fault):
    for name in ("README", "docs/there.md", "docs/man/there.8"):
        path = tmp_path / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("# A `place`\n[a](#a-place) https://host/docs/lost.md\n")
    with open(tmp_path / page, "a") as file:
        file.write(text + "\n")
    assert list(link_faults(tmp_path)) == [fault]
