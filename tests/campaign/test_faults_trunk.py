"""Each operation of the card driver that a call on a trunk circuit uses, refused in turn."""

import pytest

from bench import Bench, Row, rows_of
from day import counting, mixed_with_itself
from harness import BLOCK_BYTES, path_of, wait_until
from test_faults_driver import call_that_the_card_goes_on_with, call_without_audio, refused

CARDS = "card DTP-60 3001 60"
SETTINGS = {"o": {"RecLocal": "1"}}
PARTNER = 30  # the other direction's channel, that much further
REMOTE, LOCAL = "0301234567", "200"


class BENCH(Bench):
    """Calls that come in on circuits, with the same sound in both directions."""

    @staticmethod
    def carried(count):
        return mixed_with_itself(counting(count))

    @staticmethod
    def begins(channel):
        return [
            f"ch {channel} play counting",
            f"ch {channel + PARTNER} play counting",
            f"cic {channel} talk in caller {REMOTE} callee {LOCAL}",
        ]

    @staticmethod
    def ends(channel):
        return f"cic {channel} idle"


def one_call(bench, blocks=2):
    """A call as far as the fault lets it come, and its row."""
    mark = bench.begin()
    active = bench.daemon.active_call(1)
    wait_until("audio", lambda: max(bench.recorded(0), bench.recorded(PARTNER)) >= blocks * BLOCK_BYTES)
    bench.end()
    bench.daemon.wait_line("[1] Call stops", mark)
    return bench.daemon.finished_call(active["remoteid"])


def direction_that_the_card_goes_on_with(bench):
    """The card refuses to stop the other direction: this call is whole. The next one finds that direction still being
    recorded; the one after it is whole again."""
    bench.check_whole(path_of(one_call(bench)))
    one_call(bench)


def call_with(**columns):
    """A call whose row tells what the card has told."""

    def story(bench):
        call = one_call(bench)
        assert {name: call[name] for name in columns} == columns

    return story


def digits(bench):
    """Digits in both directions, which are taken from one."""
    mark = bench.begin()
    bench.file_of(mark)
    bench.cards.do(f"ch {PARTNER} dtmf 7", "ch 0 dtmf 8", "wait handled")
    bench.end()
    bench.daemon.wait_line("[1] Call stops", mark)
    assert "[1] Digits: 7" in bench.daemon.log_after(mark)


STOP_REFUSED = "Error in SsmStopRecMem: simulated failure"
STILL_RECORDED = "Error in SsmRecToMem: SsmRecToMem: channel {n} is being recorded"
ROWS = [
    Row(
        "SsmRecToMem refused to a circuit",
        refused("SsmRecToMem"),
        ["Error in SsmRecToMem: simulated failure"],
        story=call_without_audio,
    ),
    Row(
        "SsmStopRecToMem refused to one direction",
        refused("SsmStopRecToMem"),
        [STOP_REFUSED, STILL_RECORDED],
        story=direction_that_the_card_goes_on_with,
    ),
    Row(
        "SsmStopRecToMem refused to both directions",
        refused("SsmStopRecToMem", 2),
        [STOP_REFUSED, STILL_RECORDED],
        story=call_that_the_card_goes_on_with,
    ),
    Row("SpyGetCallInCh refused", refused("SpyGetCallInCh"), story=one_call),
    Row("SpyGetCallOutCh refused", refused("SpyGetCallOutCh"), story=one_call),
    # No number at all is one of this site since a call came in that was connected to none: so the parties change places.
    Row("SpyGetCallerId refused", refused("SpyGetCallerId"), story=call_with(localfull="", remotefull=LOCAL, direction=2)),
    Row("SpyGetCalleeId refused", refused("SpyGetCalleeId"), story=call_with(localfull="", remotefull=REMOTE)),
    Row("SpyGetConId refused", refused("SpyGetConId"), story=call_with(localfull=LOCAL, remotefull=REMOTE, connected="")),
    Row("SsmClearRxDtmfBuf refused on a circuit", refused("SsmClearRxDtmfBuf", 2), story=digits),
    Row(
        "SsmWaitForEventA refused a hundred times on a trunk",
        refused("SsmWaitForEventA", 100, -2),  # -1 says that there was no event
        ["Error in SsmWaitForEventA: simulated failure"],
    ),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
