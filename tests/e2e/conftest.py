"""Fixtures of the end-to-end tests. A test file names its CARDS and, if it likes, its SETTINGS; see harness.py."""

import pytest

# Before their import: else a failing assertion in them shows no values.
pytest.register_assert_rewrite("encoding", "harness", "station_sites", "trunk")

import station_sites  # noqa: E402
from harness import Daemon  # noqa: E402

LAST_LOG_LINES = 200


@pytest.fixture(scope="module")
def daemon(request):
    """A running daemon for all tests of the file. One that is still there at the end must stop cleanly."""
    daemon = Daemon(request.module.CARDS, getattr(request.module, "SETTINGS", None))
    request.module.DAEMON = daemon
    daemon.start()
    yield daemon
    if daemon.running:
        assert daemon.stop() == 0


@pytest.fixture(scope="module")
def days(daemon, request):
    """The DAYS of a file about telephones, by name of their scenarios, when all have passed: see station_sites.py."""
    return station_sites.run_days(daemon, *request.module.DAYS)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A failure shows what the daemon said last."""
    outcome = yield
    report = outcome.get_result()
    daemon = getattr(item.module, "DAEMON", None)
    if report.failed and daemon is not None:
        report.sections.append(("daemon log", "\n".join(daemon.log_after(0)[-LAST_LOG_LINES:])))
