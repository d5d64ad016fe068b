"""What hangs while eight lines carry counted audio: no byte of it is lost."""

import os
import re
import signal
from contextlib import contextmanager
from pathlib import Path

import pytest

from bench import Row, backends, lasts, locked, rows_of, tool
from harness import rows, sql, wait_until

CARDS = """card ATP8 1001 8
card ATP8 1002 8
"""
SETTINGS = {"o": {"CalcChecksum": "md5"}}
CARRIERS = range(1, 9)  # channels whose audio is counted
OTHER = 9  # the channel whose call meets what hangs
AT_ONCE = range(OTHER, OTHER + 7)
COMMIT_MS = 10
SLEEPER = Path("/tmp/sleeper.pid")
SLOW_COMMITS = {
    "fsync": "on",
    "synchronous_commit": "on",
    "commit_delay": COMMIT_MS * 1000,
    "commit_siblings": 0,
    "log_statement": "none",  # else the text of a statement does not stand beside its duration
    "log_min_duration_statement": 0,
}


@contextmanager
def nothing(_bench):
    yield


def measured(name, hang):
    """The story of a row: eight calls run while one call meets the hang."""
    return lambda bench: bench.count_bytes(name, CARRIERS, lambda: hang(bench))


def call_beside(begins=nothing, ends=nothing):
    """A call on another line, which asks the database for everything that a call asks. It begins and ends in hangs."""

    def story(bench):
        with begins(bench):
            mark = bench.begin(OTHER)
        bench.file_of(mark, OTHER)
        with ends(bench):
            bench.end(OTHER)
        bench.daemon.wait_line(f"[{OTHER + 1}] Recording stopped", mark)

    return story


def is_stopped(pid):
    return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] == "T"


def backend_stopped(seconds):
    """The daemon waits so long for the answer of a backend that is stopped."""

    @contextmanager
    def hang(bench):
        [backend] = backends()
        pid = backend["pid"]
        os.kill(pid, signal.SIGSTOP)
        try:
            yield
            # Nothing but its connection to the server is what the main thread polls.
            lasts(seconds, "the daemon waits for it", lambda: is_stopped(pid) and bench.waits_in("poll"))
        finally:
            os.kill(pid, signal.SIGCONT)

    return hang


def insert_times(log):
    """How many milliseconds the server took to insert and commit each row, by its log."""
    took = re.findall(r"^LOG:  duration: ([0-9.]+) ms  statement: INSERT INTO (?:Active)?Calls\b", log, re.MULTILINE)
    return [float(ms) for ms in took]


def calls_begun(bench, mark):
    return len([line for line in bench.daemon.log_after(mark) if "] Recording to file " in line])


@contextmanager
def slow_commits(bench):
    """The server waits for its disk, and COMMIT_MS more, at each commit."""
    log = Path(os.environ["PGLOG"])
    before = len(log.read_text())
    for name, value in SLOW_COMMITS.items():
        sql(f"ALTER SYSTEM SET {name} = '{value}'")
    sql("SELECT pg_reload_conf()")
    delay = str(COMMIT_MS * 1000)
    mark = bench.daemon.mark()
    wait_until("the settings", lambda: rows("SELECT current_setting('commit_delay') AS it")[0]["it"] == delay)
    try:
        yield
        # Each call has a row in ActiveCalls, then one in Calls.
        inserts = 2 * calls_begun(bench, mark)
        assert inserts >= 2 * (len(CARRIERS) + len(AT_ONCE))
        wait_until(f"{inserts} inserts", lambda: len(insert_times(log.read_text()[before:])) == inserts)
        times = insert_times(log.read_text()[before:])
        # Another process of the server may have flushed the log meanwhile: such a commit has nothing left to wait for.
        assert 2 * len([ms for ms in times if ms >= COMMIT_MS]) >= inserts, times
    finally:
        sql("ALTER SYSTEM RESET ALL")
        sql("SELECT pg_reload_conf()")


def calls_at_once(bench):
    """Seven calls begin in one moment, and end in one."""
    marks = {channel: bench.begin(channel) for channel in AT_ONCE}
    for channel, mark in marks.items():
        bench.file_of(mark, channel)
    for channel in AT_ONCE:
        bench.end(channel)
    for channel, mark in marks.items():
        bench.daemon.wait_line(f"[{channel + 1}] Recording stopped", mark)


def tool_sleeps(seconds):
    """The tool that a call asks for at its end sleeps so long, and then does its work."""

    @contextmanager
    def hang(bench):
        SLEEPER.unlink(missing_ok=True)
        mark = bench.daemon.mark()
        with tool("md5sum", f'sleep 3600 & echo $! >{SLEEPER}; wait; exec /usr/bin/md5sum "$@"'):
            yield
            pid = int(wait_until("the tool runs", lambda: SLEEPER.exists() and SLEEPER.read_text()))
            lasts(seconds, "the tool sleeps", lambda: Path(f"/proc/{pid}/comm").read_text() == "sleep\n")
            os.kill(pid, signal.SIGTERM)
            bench.daemon.wait_line("Added Calls to database", mark)

    return hang


def lock_row(table, seconds, when="begins", long=False):
    name = f"{table} locked for {seconds} s"
    story = measured(name, call_beside(**{when: lambda _bench: locked(table, seconds)}))
    return Row(name, nothing, story=story, long=long)


def stop_row(seconds, long=False):
    name = f"backend stopped for {seconds} s"
    return Row(name, nothing, story=measured(name, call_beside(begins=backend_stopped(seconds))), long=long)


ROWS = [
    Row("nothing hangs", nothing, story=measured("nothing hangs", call_beside())),
    lock_row("ActiveCalls", 0.2),
    lock_row("ActiveCalls", 1),
    lock_row("Calls", 2, when="ends"),
    lock_row("ActiveCalls", 10, long=True),
    stop_row(1),
    stop_row(10, long=True),
    Row("commits of 10 ms", slow_commits, story=measured("commits of 10 ms", calls_at_once)),
    Row("a tool that sleeps", nothing, story=measured("a tool that sleeps", call_beside(ends=tool_sleeps(2)))),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_hang(bench, row):
    bench.run(row)
