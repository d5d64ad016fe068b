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


def over_the_change(year, month, day, hour_utc):
    """A call that begins two seconds before a change of the hour and ends behind it."""

    def story(bench):
        change = datetime(year, month, day, hour_utc, tzinfo=timezone.utc).timestamp()
        offset = int(change - time.time()) - 2
        with bench.control.during(clock_offset_s=offset):
            mark = bench.begin()
            path = bench.file_of(mark)
            wait_until("the change", lambda: time.time() + offset > change + 1)
            bench.end()
            call = bench.daemon.finished_call(remoteid_of(path))
            assert 1 <= call["duration"] <= 6
            bench.check_whole(path_of(call), 8)
            _, _ = bench.clean_call()

    return story


ROWS = [
    Row("clock an hour back during a call", nothing, story=jump_in_mid_call(-HOUR_S)),
    Row("clock a day forward during a call", nothing, story=jump_in_mid_call(DAY_S)),
    Row("call with the clock an hour back", moved(-HOUR_S)),
    Row("call with the clock a day ahead", moved(DAY_S)),
    Row("summer time begins during a call", nothing, story=over_the_change(2027, 3, 28, 1)),
    Row("summer time ends during a call", nothing, story=over_the_change(2027, 10, 31, 1)),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
