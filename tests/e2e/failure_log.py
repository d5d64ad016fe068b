"""What a failed test shows besides itself, in whatever file has a daemon named DAEMON."""

import pytest

LAST_LOG_LINES = 200


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A failure shows what the daemon said last."""
    outcome = yield
    report = outcome.get_result()
    daemon = getattr(item.module, "DAEMON", None)
    if report.failed and daemon is not None:
        report.sections.append(("daemon log", "\n".join(daemon.log_after(0)[-LAST_LOG_LINES:])))
