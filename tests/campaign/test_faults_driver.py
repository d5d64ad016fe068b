"""Each operation of the card driver refused in turn, on the kinds of lines that use it."""

import time
from contextlib import contextmanager

import pytest

from bench import RECORDINGS, Row, remoteid_of, rows_of
from harness import order, path_of, rows, sql, wait_until

CARDS = """card ATP8 1001 8
card DST8 1002 8
"""
STATION = 8  # the first channel of the second card


def prepare(_bench):
    (RECORDINGS / "log").mkdir()


@contextmanager
def nothing(_bench):
    yield


def refused(operation, times=1, result=-1):
    """At least one call of the operation must come, and is refused."""

    @contextmanager
    def fault(bench):
        bench.cards.do(f"fail {operation} {times} result {result}")
        try:
            yield
            assert f"fail={operation} times={times}" not in bench.cards.do("status"), f"{operation} was not called"
        finally:
            bench.cards.do(f"fail {operation} 0")

    return fault


def call_without_audio(bench):
    """The card refuses to record: the call goes on without audio, and has its row."""
    mark = bench.begin()
    active = bench.daemon.active_call(1)
    bench.wait_report("Error in SsmRecToMem: {text}", mark)
    bench.end()
    bench.daemon.finished_call(active["remoteid"])


def call_that_the_card_goes_on_with(bench):
    """The card refuses to stop: the file stays undecided and the row goes. The line's next call finds the card still
    recording and has no audio; the one after it is whole."""
    mark = bench.one_call()
    path = bench.file_of(mark)
    bench.wait_report("Error in SsmStopRecMem: simulated failure", mark)
    wait_until("no row", lambda: rows("SELECT id FROM ActiveCalls") == [])
    assert path.exists()
    call_without_audio(bench)


def incoming(bench):
    """A call with a caller id and digits, which asks the card for both. It is whole."""
    bench.cards.do("ch 0 ring on", "ch 0 callerid 0301234567")
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.cards.do("ch 0 dtmf 12")
    bench.wait_blocks(path)
    bench.end()
    bench.check_whole(path_of(bench.daemon.finished_call(remoteid_of(path))))
    sql("DELETE FROM CallerIDs WHERE callerid = '0301234567'")


def until_the_next_second(bench):
    """A call that goes on until the state of its line is asked for."""
    mark = bench.begin()
    path = bench.file_of(mark)
    wait_until("the question", lambda: "fail=SsmGetLineVoltage times=3" not in bench.cards.do("status"))
    bench.end()
    bench.daemon.finished_call(remoteid_of(path))


def at_the_telephone(bench):
    """A call at a digital station, with digits."""
    mark = bench.daemon.mark()
    bench.cards.do(f"ch {STATION} offhook", f"ch {STATION} dtmf 12", f"ch {STATION} onhook")
    bench.daemon.wait_line(f"[{STATION + 1}] On hook", mark)


def trace(bench):
    """A bit-stream trace of the station, from its order to its end."""
    mark = bench.daemon.mark()
    assert order(f"bittrace_start {STATION}") == "OK\n"
    bench.daemon.wait_line("Starting bit stream tracing", mark)
    assert order("bittrace_stop") == "OK\n"
    bench.daemon.wait_line("Stopped bit stream tracing", mark)


def trace_twice(bench):
    """What the card was not told to end at the first trace ends with the second."""
    trace(bench)
    trace(bench)


def flood_of_refusals(bench):
    """As many errors as the main loop has passes. They are counted, and leave nothing behind."""
    began = time.monotonic()
    mark = bench.daemon.mark()
    with bench.flat_memory():
        bench.cards.do(f"fail SsmWaitForEventA {REFUSALS} result -2")  # -1 says that there was no event
        wait_until("all are refused", lambda: not any("fail=" in line for line in bench.cards.do("status")))
        bench.check_flood(NO_EVENT, REFUSALS, mark, began)


REFUSALS = 100_000
NO_EVENT = "Error in SsmWaitForEventA: simulated failure"
ROWS = [
    Row(
        "SsmRecToMem refused",
        refused("SsmRecToMem"),
        ["Error in SsmRecToMem: simulated failure"],
        story=call_without_audio,
    ),
    Row(
        "SsmStopRecToMem refused",
        refused("SsmStopRecToMem"),
        [
            "Error in SsmStopRecMem: simulated failure",
            "Error in SsmRecToMem: SsmRecToMem: channel 0 is being recorded",
        ],
        story=call_that_the_card_goes_on_with,
    ),
    Row(
        "SsmWaitForEventA refused a hundred thousand times",
        nothing,
        [NO_EVENT, "{n} messages like this one left out: " + NO_EVENT],
        story=flood_of_refusals,
    ),
    Row("SsmClearCallerId refused", refused("SsmClearCallerId", 3), story=incoming),
    Row("SsmGetCallerIdA refused", refused("SsmGetCallerIdA"), story=incoming),
    Row("SsmClearRxDtmfBuf refused", refused("SsmClearRxDtmfBuf", 3), story=incoming),
    Row("SsmClearRxDtmfBuf refused at a station", refused("SsmClearRxDtmfBuf", 3), story=at_the_telephone),
    Row("SsmGetLineVoltage refused", refused("SsmGetLineVoltage", 3), story=until_the_next_second),
    Row("SsmClearR2callToneBuf refused", refused("SsmClearR2callToneBuf", 3), story=incoming),
    Row("SsmStartRecBitFlow refused", refused("SsmStartRecBitFlow"), story=trace),
    Row("SsmRecToFile refused", refused("SsmRecToFile"), story=trace),
    Row("DTRSendRawData2A3 refused", refused("DTRSendRawData2A3", 2), story=trace),
    Row("SsmStopRecBitFlow refused", refused("SsmStopRecBitFlow"), story=trace_twice),
    Row("SsmStopRecToFile refused", refused("SsmStopRecToFile"), story=trace_twice),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
