"""Calls that are not recorded, or not kept: what the log says, and that neither row nor file is left."""

import re
from pathlib import Path

import pytest

from harness import order, path_of, rows, sql, wait_until

CARDS = "card ATP8 1001 8"
LINE = 1
OUTSIDE = "0301234567"
COLLEAGUE = "22"

# Read anew for each call.
LIVE_SETTINGS = ["RecMinDur", "srWeekdays", "NotRecEmptyNum", "RecLocal", "RecNotOutg", "RecNotInc", "RecOnDemand"]


def set_filter(daemon, filter_type, numbers):
    """The number filter is read at start and by "reconfig"; a row that is gone would leave its last value."""
    mark = daemon.mark()
    daemon.store_settings({"o": {"NumberFilterType": str(filter_type), "NumberFilters": numbers}})
    assert order("reconfig") == "OK\n"
    daemon.wait_line(f"NumberFilterType: {filter_type}", mark)


@pytest.fixture
def settings(daemon):
    """Sets live settings for one test, and takes them back after it."""
    yield lambda **values: daemon.store_settings({"o": values})
    names = ", ".join(f"'{name}'" for name in LIVE_SETTINGS)
    sql(f"DELETE FROM Configs WHERE param IN ({names})")


@pytest.fixture
def number_filter(daemon):
    """Sets the number filter for one test, and takes it back after it."""
    yield lambda filter_type, numbers: set_filter(daemon, filter_type, numbers)
    set_filter(daemon, 0, "")


@pytest.fixture(autouse=True)
def no_calls_before():
    """Tests compare all rows, so each begins without any."""
    sql("DELETE FROM Calls; DELETE FROM ActiveCalls")


def told(daemon, mark):
    """What the line said about its calls, without the news from the card; seconds that passed meanwhile as N."""
    lines = [line for line in daemon.log_after(mark) if line.startswith(f"[{LINE}] ")]
    lines = [line[len(f"[{LINE}] ") :] for line in lines if not line.startswith(f"[{LINE}] Analog ")]
    return [re.sub(r"(stopped \(|too short \(|last ring: )\d+", r"\1N", line) for line in lines]


def incoming(daemon, number):
    mark = daemon.mark()
    daemon.cards("ch 0 ring on")
    if number:
        daemon.cards(f"ch 0 callerid {number}")
        daemon.wait_line(f"[{LINE}] Remote: {number}", mark)
    daemon.cards("ch 0 offhook")
    daemon.wait_line(f"[{LINE}] Incoming, last ring: ", mark)  # the card ends the ring before it tells of the pick-up
    return mark


def outgoing(daemon):
    mark = daemon.mark()
    daemon.cards("ch 0 offhook")
    daemon.wait_line(f"[{LINE}] Outgoing call", mark)
    return mark


def hang_up(daemon, mark):
    daemon.cards("ch 0 onhook")
    daemon.wait_line(f"[{LINE}] Call stops", mark)


def began(number):
    """The log of an incoming call up to the decision whether to record it."""
    remote = [f"Remote: {number}"] if number else []
    return remote + ["Call starts", "Incoming, last ring: N s. ago"]


def check_not_kept(daemon, mark, start, end):
    """A recorded call that the last line of its log refuses: the whole log, and that nothing else is left of it."""
    active = daemon.active_call(LINE)
    path = path_of(active)
    assert path.exists()
    hang_up(daemon, mark)
    wait_until("file removed", lambda: not path.exists())
    wait_until("row removed", lambda: rows("SELECT id FROM ActiveCalls") == [])
    assert rows("SELECT id FROM Calls") == []
    recorded = ["Starting recording", f"Recording to file {path}", "Call stops", "Recording stopped (N s)"]
    assert told(daemon, mark) == start + recorded + [end]


def check_not_recorded(daemon, number, refusal):
    """An incoming call that is refused at once: no row while it lasts, and no file."""
    files = recordings()
    mark = incoming(daemon, number)
    daemon.wait_line(f"[{LINE}] {refusal}", mark)
    assert rows("SELECT id FROM ActiveCalls") == []
    hang_up(daemon, mark)
    assert told(daemon, mark) == began(number) + [refusal, "Call stops"]
    assert rows("SELECT id FROM ActiveCalls UNION ALL SELECT id FROM Calls") == []
    assert recordings() == files


def recordings():
    return sorted(Path("/recordings").rglob("*.wav"))


# -- before the recording --------------------------------------------------------------------------------------------


def test_listed_number_is_not_recorded(daemon, number_filter):
    number_filter(2, f"{COLLEAGUE},{OUTSIDE}")
    check_not_recorded(daemon, OUTSIDE, "Not recording because in number filter")


def test_number_that_is_not_listed_is_not_recorded(daemon, number_filter):
    number_filter(1, COLLEAGUE)
    check_not_recorded(daemon, OUTSIDE, "Not recording because not in number filter")


def test_call_outside_the_schedule_is_not_recorded(daemon, settings):
    settings(srWeekdays="0")  # no day of the week
    check_not_recorded(daemon, OUTSIDE, "Recording not scheduled")


# -- after the recording ---------------------------------------------------------------------------------------------


def test_call_without_number_is_not_kept(daemon, settings):
    settings(NotRecEmptyNum="1")
    mark = incoming(daemon, "")
    check_not_kept(daemon, mark, began(""), "Empty remote number: not keeping")


def test_call_from_a_colleague_is_not_kept(daemon, settings):
    settings(RecLocal="0")
    sql(
        "INSERT INTO Contacts (name, extra, parentcontact) VALUES ('colleague', '', 0);"
        f"INSERT INTO CallerIDs (callerid, callerid2, islocal, contactid)"
        f" SELECT '{COLLEAGUE}', '', 1, max(id) FROM Contacts"
    )
    mark = incoming(daemon, COLLEAGUE)
    check_not_kept(daemon, mark, began(COLLEAGUE), "Internal call: not keeping")


def test_outgoing_call_is_not_kept(daemon, settings):
    settings(RecNotOutg="1")
    mark = outgoing(daemon)
    check_not_kept(daemon, mark, ["Call starts", "Outgoing call"], "Outgoing call: not keeping")


def test_incoming_call_is_not_kept(daemon, settings):
    settings(RecNotInc="1")
    mark = incoming(daemon, OUTSIDE)
    check_not_kept(daemon, mark, began(OUTSIDE), "Incoming call: not keeping")


# An empty number is one like any other here.
@pytest.mark.parametrize(
    "setting, number, refusal",
    [
        ("RecOnDemand", "0305550197", "Store on demand: not keeping"),
        ("NotRecEmptyNum", "", "Empty remote number: not keeping"),
        ("RecNotInc", "0305550199", "Incoming call: not keeping"),
    ],
)
def test_number_of_a_call_that_is_not_kept_stays_known(daemon, settings, setting, number, refusal):
    settings(**{setting: "1"})
    select = f"SELECT contactid FROM CallerIDs WHERE callerid = '{number}'"
    sql(f"DELETE FROM CallerIDs WHERE callerid = '{number}'")
    mark = incoming(daemon, number)
    daemon.active_call(LINE)
    assert rows(select) == []  # not before it is refused
    check_not_kept(daemon, mark, began(number), refusal)
    known = rows(select)
    assert len(known) == 1
    assert len(rows(f"SELECT id FROM Contacts WHERE id = {known[0]['contactid']}")) == 1


def test_call_that_nobody_marked_is_not_kept(daemon, settings):
    settings(RecOnDemand="1")
    mark = incoming(daemon, OUTSIDE)
    check_not_kept(daemon, mark, began(OUTSIDE), "Store on demand: not keeping")


def test_call_that_someone_marked_is_kept(daemon, settings):
    settings(RecOnDemand="1")
    mark = incoming(daemon, OUTSIDE)
    active = daemon.active_call(LINE)
    sql(f"UPDATE ActiveCalls SET callextra = E'to-keep: 1\\r\\n' WHERE id = {active['id']}")
    hang_up(daemon, mark)
    call = daemon.finished_call(active["remoteid"])
    assert rows("SELECT id FROM ActiveCalls") == []
    assert path_of(call).exists()
    assert told(daemon, mark)[-2:] == ["Recording stopped (N s)", "Store on demand: keeping"]


# Last, as its number stays with the line and becomes that of a call within the next seconds.
def test_short_call_is_not_kept(daemon, settings):
    settings(RecMinDur="3600")
    mark = incoming(daemon, OUTSIDE)
    check_not_kept(daemon, mark, began(OUTSIDE), "Duration too short (N < 3600)")
