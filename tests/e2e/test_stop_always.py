"""SIGTERM on lines that are one endless call: whatever part of a second it comes in, their calls end and none begins.

The turn of the second is when such a line would begin a call. A stop comes shortly before it; or it is still ending the
calls then, since the database lets it wait.
"""

import subprocess
import time
from contextlib import contextmanager

import pytest

from harness import RECORDINGS, Daemon, path_of, rows, sql, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"crec": {"Syn1001_Trigger": "4,4,4,4,4,4,4,4"}}
WINDOW_S = 0.04  # a look at the clock comes every 20 ms


@pytest.fixture
def eight_calls(request):
    """A daemon, and the rows of its calls."""
    sql("TRUNCATE Calls, ActiveCalls")
    for path in RECORDINGS.rglob("*.wav"):
        path.unlink()
    daemon = request.module.DAEMON = Daemon(CARDS, SETTINGS).start()
    active = wait_until(
        "eight calls", lambda: len(found := rows("SELECT * FROM ActiveCalls ORDER BY linenr")) == 8 and found
    )
    yield daemon, active
    if daemon.running:
        daemon.kill()


def check_stopped(daemon, active):
    assert daemon.wait_exit() == 0
    assert rows("SELECT id FROM ActiveCalls") == []
    calls = rows("SELECT * FROM Calls ORDER BY linenr")
    assert [call["remoteid"] for call in calls] == [call["remoteid"] for call in active]
    assert set(RECORDINGS.rglob("*.wav")) == {path_of(call) for call in calls}


@pytest.mark.parametrize("part", [0.85, 0.9, 0.95])
def test_stop_leaves_no_row_and_no_file_of_its_own(eight_calls, part):
    daemon, active = eight_calls
    wait_until(f"{part} of a second", lambda: part <= time.time() % 1 < part + WINDOW_S)
    daemon.terminate()
    check_stopped(daemon, active)


@contextmanager
def locked(table):
    """Nobody else gets at the table."""
    with subprocess.Popen(["psql", "-Xq"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as client:
        client.stdin.write(f"BEGIN; LOCK TABLE {table};\n\\echo locked\n")
        client.stdin.flush()
        assert client.stdout.readline() == "locked\n"
        yield
        client.stdin.close()  # and with its input it ends


def waiting_for(table):
    return rows(f"SELECT 1 FROM pg_locks WHERE NOT granted AND relation = '{table}'::regclass")


def test_stop_that_lasts_into_a_new_second(eight_calls):
    daemon, active = eight_calls
    with locked("ActiveCalls"):
        daemon.terminate()
        wait_until("the stop in the database", lambda: waiting_for("ActiveCalls"))
        second = int(time.time())
        wait_until("a new second", lambda: int(time.time()) > second)
    check_stopped(daemon, active)
