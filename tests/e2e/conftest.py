"""Fixtures of the end-to-end tests. A test file names its CARDS and, if it likes, its SETTINGS; see harness.py."""

import pytest

# Before their import: else a failing assertion in them shows no values.
pytest.register_assert_rewrite("encoding", "harness", "station_sites", "trunk")

import station_sites  # noqa: E402
from failure_log import pytest_runtest_makereport  # noqa: E402, F401  # a hook: pytest calls it
from harness import Daemon  # noqa: E402


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
