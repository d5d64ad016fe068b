"""What hangs while eight lines carry counted audio, and how much of it is lost: figures, and a bound for each.

The ring of a line holds half a second; an absence of the main thread beyond that loses audio on every line. The bound
is the time from the beginning of the hang to the end of the calls, since a busy machine adds an absence of its own.
"""

import os
import signal
import subprocess
import time
from contextlib import contextmanager

import pytest

from bench import Row, figure, heard, rows_of, tool
from harness import AUDIO_BYTES_PER_S, HEADER_BYTES, rows, sql, wait_until

CARDS = """card ATP8 1001 8
card ATP8 1002 8
"""
SETTINGS = {"o": {"CalcChecksum": "md5"}}
CARRIERS = range(1, 9)  # channels whose audio is counted
OTHER = 9  # the channel whose call meets what hangs
RING_BYTES = 4096
FSYNC = {"fsync": "on", "synchronous_commit": "on", "commit_delay": "10000", "commit_siblings": "0"}


@contextmanager
def nothing(_bench):
    yield


def measured(name, hang):
    """Eight calls run, one call meets the hang, and the eight files are held against what was played."""

    def story(bench):
        marks = {channel: bench.begin(channel) for channel in CARRIERS}
        paths = {channel: bench.file_of(mark, channel) for channel, mark in marks.items()}
        for path in paths.values():
            bench.wait_blocks(path)
        began = time.monotonic()
        hang(bench)
        took = time.monotonic() - began
        for path in paths.values():
            bench.wait_blocks(path, path.stat().st_size // 2048 + 3)
        for channel in CARRIERS:
            bench.end(channel)
            bench.daemon.wait_line(f"[{channel + 1}] Recording stopped", marks[channel])
        until_end = time.monotonic() - began
        found = [heard(path.read_bytes()[HEADER_BYTES:], reach_s=until_end) for path in paths.values()]
        missing = [one["missing"] for one in found]
        figure(
            bench.campaign,
            f"{name}: bytes",
            missing_most=max(missing),
            missing_all=sum(missing),
            repeated_all=sum(one["repeated"] for one in found),
            played_all=sum(one["played"] for one in found),
            hang_s=round(took, 2),
        )
        assert max(missing) <= int(until_end * AUDIO_BYTES_PER_S) + RING_BYTES

    return story


def call_beside(bench):
    """A call on another line, which asks the database for everything that a call asks."""
    mark = bench.begin(OTHER)
    bench.file_of(mark, OTHER)
    bench.end(OTHER)
    bench.daemon.wait_line(f"[{OTHER + 1}] Recording stopped", mark)


def locked(table, seconds):
    def hang(bench):
        statement = f"BEGIN; LOCK TABLE {table}; SELECT pg_sleep({seconds}); COMMIT"
        client = subprocess.Popen(["psql", "-Xq", "-c", statement], stdout=subprocess.DEVNULL)
        held = (
            "SELECT 1 FROM pg_locks WHERE granted AND mode = 'AccessExclusiveLock'"
            f" AND relation = '{table}'::regclass"
        )
        wait_until("the lock", lambda: rows(held))
        call_beside(bench)
        assert client.wait() == 0

    return hang


def backend_stopped(seconds):
    def hang(bench):
        backends = rows(
            "SELECT pid FROM pg_stat_activity WHERE datname = 'morvex' AND pid <> pg_backend_pid()"
            " AND backend_type = 'client backend'"
        )
        assert backends
        mark = bench.daemon.mark()
        for row in backends:
            os.kill(row["pid"], signal.SIGSTOP)
        try:
            bench.begin(OTHER)
            bench.daemon.wait_line(f"[{OTHER + 1}] Call starts", mark)
            time.sleep(seconds)  # the length of the hang is what is measured, not waited for
        finally:
            for row in backends:
                os.kill(row["pid"], signal.SIGCONT)
        bench.file_of(mark, OTHER)
        bench.end(OTHER)
        bench.daemon.wait_line(f"[{OTHER + 1}] Recording stopped", mark)

    return hang


@contextmanager
def slow_commits(_bench):
    """The server waits for its disk, and 10 ms more, at each commit."""
    for name, value in FSYNC.items():
        sql(f"ALTER SYSTEM SET {name} = '{value}'")
    sql("SELECT pg_reload_conf()")
    wait_until("the settings", lambda: rows("SELECT current_setting('commit_delay') AS it")[0]["it"] == "10000")
    try:
        yield
    finally:
        sql("ALTER SYSTEM RESET ALL")
        sql("SELECT pg_reload_conf()")


def calls_at_once(bench):
    """Seven calls begin in one moment, and end in one."""
    others = range(OTHER, OTHER + 7)
    marks = {channel: bench.begin(channel) for channel in others}
    for channel, mark in marks.items():
        bench.file_of(mark, channel)
    for channel in others:
        bench.end(channel)
    for channel, mark in marks.items():
        bench.daemon.wait_line(f"[{channel + 1}] Recording stopped", mark)


def tool_sleeps(bench):
    with tool("md5sum", 'sleep 2; exec /usr/bin/md5sum "$@"'):
        mark = bench.begin(OTHER)
        bench.file_of(mark, OTHER)
        bench.end(OTHER)
        bench.daemon.wait_line("Command: md5sum", mark)
        bench.daemon.wait_line("Added Calls to database", mark)


SLOW = ["Event handling took: {text} s", "Periodic took: {text} s"]


def lock_row(table, seconds, long=False):
    name = f"{table} locked for {seconds} s"
    return Row(name, nothing, may=SLOW, story=measured(name, locked(table, seconds)), long=long)


def stop_row(seconds, long=False):
    name = f"backend stopped for {seconds} s"
    return Row(name, nothing, may=SLOW, story=measured(name, backend_stopped(seconds)), long=long)


ROWS = [
    Row("nothing hangs", nothing, story=measured("nothing hangs", call_beside)),
    lock_row("ActiveCalls", 0.2),
    lock_row("ActiveCalls", 1),
    lock_row("Calls", 2),
    lock_row("ActiveCalls", 10, long=True),
    stop_row(1),
    stop_row(10, long=True),
    Row("commits of 10 ms", slow_commits, may=SLOW, story=measured("commits of 10 ms", calls_at_once)),
    Row("a tool that sleeps", nothing, story=measured("a tool that sleeps", tool_sleeps)),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_hang(bench, row):
    bench.run(row)
