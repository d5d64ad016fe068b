"""Fixtures of the campaigns, which use what the end-to-end tests know of the daemon. A file that has the fixture bench
names its CARDS and, if it likes, SETTINGS, ENVIRONMENT and another kind of BENCH; see bench.py."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "e2e"))

# Before their import: else a failing assertion in them shows no values.
pytest.register_assert_rewrite("bench", "harness", "sox_faults", "trunk")

from bench import ALL, Bench  # noqa: E402
from failure_log import pytest_runtest_makereport  # noqa: E402, F401  # a hook: pytest calls it


def pytest_configure(config):
    config.addinivalue_line("markers", "long: not in the short form")


def pytest_collection_modifyitems(config, items):
    """The short form leaves the long rows out, and says how many."""
    long = [] if ALL else [item for item in items if item.get_closest_marker("long")]
    config.hook.pytest_deselected(items=long)
    items[:] = [item for item in items if item not in long]


@pytest.fixture(scope="module")
def bench(request):
    """A running daemon for all rows of the file. One that is still there at the end must stop cleanly."""
    module = request.module
    bench = getattr(module, "BENCH", Bench)(
        module.CARDS,
        getattr(module, "SETTINGS", None),
        campaign=module.__name__.removeprefix("test_"),
        environment=getattr(module, "ENVIRONMENT", None),
    )
    module.DAEMON = bench.daemon
    if hasattr(module, "prepare"):
        module.prepare(bench)
    bench.start(**getattr(module, "START", {}))
    if hasattr(module, "after_start"):
        module.after_start(bench)
    yield bench
    bench.stop()
