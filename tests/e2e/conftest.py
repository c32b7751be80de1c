"""Fixtures of the end-to-end tests: fake hosts, and what to do where there can be none."""
import contextlib
import os
import shutil
import sys
import tempfile

import pytest

sys.dont_write_bytecode = True

import fakehost  # noqa: E402
import mounts  # noqa: E402

NO_NAMESPACE = "no private mount namespace: "
SKIPPED_FILE = 77


def pytest_configure(config):
    config.addinivalue_line("markers", "host(name): the fake host that the host fixture copies")


def _memory_for_files():
    """A directory in memory, since runs make and drop thousands of small files; None if there is
    too little of it or if programs cannot be started there."""
    try:
        shared = os.statvfs("/dev/shm")
    except OSError:
        return None
    too_small = shared.f_bavail * shared.f_frsize < 512 << 20
    return None if too_small or shared.f_flag & os.ST_NOEXEC else "/dev/shm"


@contextlib.contextmanager
def _workspace():
    path = tempfile.mkdtemp(prefix="vetra-e2e-", dir=os.environ.get("TMPDIR", _memory_for_files()))
    try:
        yield path
    finally:
        if not os.environ.get("VETRA_E2E_KEEP"):
            shutil.rmtree(path)


@pytest.fixture(scope="session")
def namespaces():
    """Skips what needs mounts of its own on a machine that grants none."""
    reason = mounts.refusal()
    if reason:
        pytest.skip(NO_NAMESPACE + reason)


@pytest.fixture(scope="session")
def new_host(namespaces):
    """Copies fake hosts by name or directory; they live until the session ends."""
    with contextlib.ExitStack() as stack:
        yield lambda name: fakehost.Host(name, stack.enter_context(_workspace()))


@pytest.fixture
def host(request, namespaces):
    """A fake host to be changed at will: the one that passes, or that of the "host" mark."""
    mark = request.node.get_closest_marker("host")
    with _workspace() as path:
        yield fakehost.Host(mark.args[0] if mark else fakehost.PASSING_HOST, path)


@pytest.fixture
def scratch():
    """An empty directory for a test that needs no fake host."""
    with _workspace() as path:
        yield path


def pytest_terminal_summary(terminalreporter):
    if any(NO_NAMESPACE in str(report.longrepr)
           for report in terminalreporter.stats.get("skipped", [])):
        terminalreporter.write_line("skipped for want of root or of mount namespaces")


@pytest.hookimpl(trylast=True)
def pytest_sessionfinish(session, exitstatus):
    """A file of which nothing could run counts as skipped, not as passed."""
    reporter = session.config.pluginmanager.get_plugin("terminalreporter")
    skipped = reporter.stats.get("skipped", []) if reporter else []
    others = [outcome for outcome in ("passed", "failed", "error") if reporter
              and reporter.stats.get(outcome)]
    if exitstatus == 0 and skipped and not others:
        session.exitstatus = SKIPPED_FILE
