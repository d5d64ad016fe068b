"""The database: stopped, killed, a backend killed, tables locked, its disk full."""

import subprocess
import time
from contextlib import contextmanager
from pathlib import Path

import pytest

from bench import Row, backends, locked, pattern, remoteid_of, rows_of
from harness import rows, server, sql, wait_until

CARDS = "card ATP8 1001 8"
SMALL_DISK = Path("/tmp/small")
FILLER = SMALL_DISK / "filler"
CALL_TABLES = ("ActiveCalls", "Calls")


@contextmanager
def nothing(_bench):
    yield


@contextmanager
def stopped(_bench):
    server("stop")
    try:
        yield
    finally:
        server("start")


@contextmanager
def started_in_the_end(_bench):
    """The story stops the server."""
    try:
        yield
    finally:
        if subprocess.run(["pg_isready", "-q"], check=False).returncode != 0:
            server("start")


def prepare(_bench):
    """Both tables of calls on a disk of their own, so that it can be filled."""
    SMALL_DISK.mkdir(exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m,mode=777", "small", SMALL_DISK], check=True)
    space = SMALL_DISK / "space"
    space.mkdir()
    subprocess.run(["chown", "postgres:postgres", space], check=True)
    sql(f"CREATE TABLESPACE small LOCATION '{space}'")
    for table in CALL_TABLES:
        sql(f"ALTER TABLE {table} SET TABLESPACE small")


@contextmanager
def server_disk_full(_bench):
    """No table can take another page, and none has room in a page that it has."""
    sql("TRUNCATE Calls, ActiveCalls")
    subprocess.run(["dd", "if=/dev/zero", f"of={FILLER}", "bs=4096"], stderr=subprocess.DEVNULL, check=False)
    try:
        yield
    finally:
        FILLER.unlink()


def kill_backend():
    sql("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = 'morvex' AND pid <> pg_backend_pid()")


def kill_server():
    """What the server had agreed to before is true afterwards: the sandbox's own does not wait for its disk."""
    sql("CHECKPOINT")
    server("kill")


# -- stories ---------------------------------------------------------------------------------------------------------


def call_without_row(bench):
    """A call that begins and ends without a database: its file is whole, and stays although no row names it."""
    mark = bench.one_call()
    path = bench.file_of(mark)
    bench.daemon.wait_line("[1] Recording stopped", mark)
    bench.check_whole(path)


def in_mid_call(disturb, heal):
    """The database fails while a call runs and is there again at its end: row and bytes are whole."""

    def story(bench):
        mark = bench.begin()
        path = bench.file_of(mark)
        remoteid = remoteid_of(path)
        bench.daemon.active_call(1)
        before = backends()
        disturb()
        bench.wait_blocks(path, 4)
        heal()
        bench.end()
        bench.daemon.finished_call(remoteid)
        assert backends() != before, "the connection is still the old one"
        bench.check_whole(path)

    return story


def gone_at_the_end(bench):
    """A call that began with a database and ends without: its file stays, its row in ActiveCalls too."""
    mark = bench.begin()
    path = bench.file_of(mark)
    remoteid = remoteid_of(path)
    active = bench.daemon.active_call(1)
    bench.wait_blocks(path)
    server("stop")
    bench.end()
    bench.daemon.wait_line("[1] Recording stopped", mark)
    bench.daemon.wait_line("Bg Act ", mark)
    handed_on = next(at for at, line in enumerate(bench.daemon.log_after(mark)) if line.startswith("Bg Act "))
    failed = pattern(NO_SERVER)
    wait_until(
        "the row was tried",
        lambda: len([line for line in bench.daemon.log_after(mark + handed_on) if failed.match(line)])
        >= STATEMENTS_OF_A_ROW,
    )
    server("start")
    bench.check_whole(path)
    assert rows(f"SELECT id FROM Calls WHERE remoteid = '{remoteid}'") == []
    assert [row["id"] for row in rows("SELECT id FROM ActiveCalls")] == [active["id"]]
    sql("DELETE FROM ActiveCalls")


STATEMENTS_OF_A_ROW = 3  # behind the worker: what the web side has written, the delete, the insert


def waits_for_lock(table, seconds):
    """All lines wait as long as a table is locked, and go on behind it."""

    def story(bench):
        with locked(table, seconds):
            mark = bench.begin()
        released = time.monotonic()
        bench.daemon.wait_line("Added ActiveCalls to database", mark)
        assert time.monotonic() - released < 2
        path = bench.file_of(mark)
        bench.wait_blocks(path, 4)
        bench.end()
        bench.daemon.finished_call(remoteid_of(path))

    return story


def call_with_full_server(bench):
    """Neither table takes a row: the file is whole and stays."""
    mark = bench.one_call()
    path = bench.file_of(mark)
    bench.daemon.wait_line("[1] Recording stopped", mark)
    bench.check_whole(path)


NO_SERVER = 'DB connect error {n} connection to server on socket "/var/run/postgresql/.s.PGSQL.5432" failed: {text}'
SLOW = "Event handling took: {n}.{n} s, the loop is {n}.{n} s behind"
ROWS = [
    Row("server stopped during a whole call", stopped, [NO_SERVER], story=call_without_row),
    Row(
        "server stopped and started in mid-call",
        started_in_the_end,
        [],
        may=[NO_SERVER],
        story=in_mid_call(lambda: server("stop"), lambda: server("start")),
    ),
    Row("server stopped before the end of a call", started_in_the_end, [NO_SERVER], story=gone_at_the_end),
    Row(
        "server killed and started in mid-call",
        started_in_the_end,
        [],
        may=[NO_SERVER, "DB error code {n} server closed the connection unexpectedly"],
        story=in_mid_call(kill_server, lambda: server("start")),
    ),
    Row("backend killed in mid-call", nothing, [], story=in_mid_call(kill_backend, lambda: None)),
    Row("ActiveCalls locked for a second", nothing, [SLOW], story=waits_for_lock("ActiveCalls", 1)),
    Row("Configs locked for a second", nothing, [SLOW], story=waits_for_lock("Configs", 1)),
    Row(
        "the server's disk is full",
        server_disk_full,
        ["DB error code {n} {text}could not extend file {text}: No space left on device"],
        story=call_with_full_server,
    ),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
