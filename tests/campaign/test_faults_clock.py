"""The clock of the machine: set back, set forward, and the two changes of a year. Only the daemon's clock is moved."""

import time
from contextlib import contextmanager
from datetime import datetime, timezone

import pytest

from bench import Row, remoteid_of, rows_of
from harness import path_of, wait_until

CARDS = "card ATP8 1001 8"
ENVIRONMENT = {"TZ": "CET-1CEST,M3.5.0,M10.5.0/3"}
MINUTE_S = 60
HOUR_S = 3600
DAY_S = 24 * HOUR_S
BEFORE_S = 5  # how long before a change its call begins


def moved(seconds):
    """The clock jumps, and jumps back in the end."""
    return lambda bench: bench.control.during(clock_offset_s=seconds)


@contextmanager
def nothing(_bench):
    yield


def jump_in_mid_call(seconds):
    """The clock jumps while a call runs: its file is whole, and the row has it."""

    def story(bench):
        mark = bench.begin()
        path = bench.file_of(mark)
        bench.wait_blocks(path)
        with bench.control.during(clock_offset_s=seconds):
            size = path.stat().st_size
            bench.wait_blocks(path, size // 2048 + 3)
            bench.end()
            call = bench.daemon.finished_call(remoteid_of(path))
        assert seconds <= call["duration"] < seconds + MINUTE_S
        bench.check_whole(path_of(call), 4)

    return story


def with_another_clock(bench):
    """The call is whole, and its row tells how long it was."""
    call, _ = bench.clean_call()
    assert 0 <= call["duration"] < MINUTE_S


def over_the_change(change, minute_before, hour_behind):
    """A call that begins before a change of the hour and ends behind it, and one behind it: both named by local time."""

    def story(bench):
        offset = int(change.timestamp() - time.time()) - BEFORE_S
        with bench.control.during(clock_offset_s=offset):
            mark = bench.begin()
            path = bench.file_of(mark)
            wait_until("the change", lambda: time.time() + offset > change.timestamp() + 1)
            bench.end()
            call = bench.daemon.finished_call(remoteid_of(path))
            assert BEFORE_S <= call["duration"] <= BEFORE_S + 5
            assert call["filename"].startswith(minute_before)
            bench.check_whole(path_of(call), 8)
            behind, _ = bench.clean_call()
            assert behind["filename"].startswith(hour_behind)

    return story


SPRING = datetime(2027, 3, 28, 1, tzinfo=timezone.utc)
AUTUMN = datetime(2027, 10, 31, 1, tzinfo=timezone.utc)
ROWS = [
    Row("clock an hour back during a call", nothing, story=jump_in_mid_call(-HOUR_S)),
    Row("clock a day forward during a call", nothing, story=jump_in_mid_call(DAY_S)),
    Row("call with the clock an hour back", moved(-HOUR_S), story=with_another_clock),
    Row("call with the clock a day ahead", moved(DAY_S), story=with_another_clock),
    Row("summer time begins during a call", nothing, story=over_the_change(SPRING, "20270328_0159", "20270328_03")),
    Row("summer time ends during a call", nothing, story=over_the_change(AUTUMN, "20271031_0259", "20271031_02")),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
