"""Hundreds of lines record while much happens at once, or while something hangs: every byte of all recordings is
compared. A line hears on while its call waits for its start or its end. Nothing is timed: see script/bench for figures."""

import sys

import pytest

from harness import SOURCE

sys.path.insert(0, str(SOURCE / "bench"))

import rows as benchmark  # noqa: E402

SECONDS = 5
FEW_LINES = 100
SHORT_STALL_S = 3
PLAIN_LOOP = "MORVEX_CREC_PLAIN_LOOP"

SHORT = {
    "burst of 300 beside 300": benchmark.burst(300),
    "hang-up of 300": benchmark.hang_up(300),
}
LONG = {
    "burst of 1000 beside 1000": benchmark.burst(1000),
    "hang-up of 4000": benchmark.hang_up(4000),
    "hang-up of 8000": benchmark.hang_up(8000),
    "hang-up of 10000": benchmark.hang_up(10000),
    "rate of 150 beside 300": benchmark.rate(150, 300),
    "rate of 200": benchmark.rate(200, 0),
}


@pytest.fixture(autouse=True)
def cards_that_wait_for_a_busy_machine(monkeypatch):
    """So what is lost, the daemon has lost."""
    monkeypatch.setattr("machine.CARDS_GO_ON", "")


def lost(daemon):
    kinds = ("overruns", "wrong_bytes", "wrong_headers", "missing_bytes", "missing_files")
    return {kind: daemon[kind] for kind in kinds if daemon[kind] != 0}


def rows_of(short, long):
    for name, row in short.items():
        yield pytest.param(row, id=name)
    for name, row in long.items():
        yield pytest.param(row, id=name, marks=pytest.mark.long)


@pytest.mark.parametrize("row", rows_of(SHORT, LONG))
def test_nothing_is_lost_when_much_happens_at_once(row):
    figures = row(SECONDS, None)
    assert lost(figures["daemon"]) == {}
    assert figures["daemon"]["files"] >= figures["lines"]


def test_nothing_is_lost_while_a_table_is_locked(monkeypatch):
    monkeypatch.setattr(benchmark, "STALLED_LINES", FEW_LINES)
    figures = benchmark.STALLS["table"](SHORT_STALL_S, None)
    assert lost(figures["daemon"]) == {}
    assert figures["daemon"]["files"] > FEW_LINES


@pytest.mark.long
@pytest.mark.parametrize("hang", benchmark.STALLS)
def test_nothing_is_lost_on_a_thousand_lines(hang):
    figures = benchmark.STALLS[hang](benchmark.STALL_S, None)
    assert lost(figures["daemon"]) == {}
    assert figures["daemon"]["files"] > benchmark.STALLED_LINES


def test_plain_loop_loses_what_the_taker_keeps(monkeypatch):
    """What sees no loss with the taker sees this one."""
    monkeypatch.setenv(PLAIN_LOOP, "1")
    monkeypatch.setattr(benchmark, "STALLED_LINES", FEW_LINES)
    daemon = benchmark.STALLS["table"](SHORT_STALL_S, None)["daemon"]
    assert daemon["overruns"] > 0
    assert daemon["wrong_bytes"] > 0
