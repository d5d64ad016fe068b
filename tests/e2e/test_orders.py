"""Orders during real recordings, by the control socket and by DTMF, and what they leave behind: rows, files and bytes."""

import json
import subprocess
import time

import pytest

from harness import BLOCK_BYTES as BLOCK
from harness import BUILD, HEADER_BYTES, RECORDINGS, counted_audio, counting, header, order, path_of, rows, sql, wait_until

CARDS = "card ATP8 1001 8"
DTMF_ACTIONS = ["email", "email2", "keep", "silence", "sound", "start", "stop", "delete"]
SETTINGS = {
    "o": {"SilOnDemand": "1", "DelOnDmdType": "1"},
    "s": {
        **{f"DTMF{i}": f"*{i}" for i in range(1, 9)},
        **{f"DTMFact{i}": action for i, action in enumerate(DTMF_ACTIONS, 1)},
    },
    # Lines 5 to 8 record on demand.
    "crec": {"Syn1001_RecOnDmd": "0,0,0,0,1,1,1,1"},
}
SILENCE = 0xD5  # of A-law
OK = "OK\n"
REFUSED_START = "E3: option RecOnDmd is off\n"
OUTSIDE = "0301234567"


@pytest.fixture(autouse=True)
def no_calls_before(daemon):
    """Each test begins without calls and rows."""
    yield
    daemon.cards("ch 0..7 onhook")
    wait_until("all calls finished", lambda: rows("SELECT id FROM ActiveCalls") == [])
    sql("DELETE FROM Calls")


def press(daemon, line, action):
    """The caller dials the code of an action."""
    mark = daemon.mark()
    daemon.cards(f"ch {line - 1} dtmf *{DTMF_ACTIONS.index(action) + 1}")
    daemon.wait_line(f"[{line}] Action to perform: {action}", mark)


def begin(daemon, line, number=None):
    mark = daemon.mark()
    daemon.cards(f"ch {line - 1} play counting")
    if number:
        daemon.cards(f"ch {line - 1} ring on", f"ch {line - 1} callerid {number}")
        daemon.wait_line(f"[{line}] Remote: {number}", mark)
    daemon.cards(f"ch {line - 1} offhook")
    return daemon.active_call(line)


def hang_up(daemon, line):
    mark = daemon.mark()
    daemon.cards(f"ch {line - 1} onhook")
    daemon.wait_line(f"[{line}] Call stops", mark)


def audio_of(call):
    return path_of(call).read_bytes()[HEADER_BYTES:]


def grow(call, blocks=3):
    """Waits until so many blocks have come to the file after this moment; its length then."""
    length = len(audio_of(call)) + blocks * BLOCK
    wait_until(f"{length} bytes", lambda: len(audio_of(call)) >= length)
    return len(audio_of(call))


def next_part(line, before):
    """Waits for the row that follows this one; rows of parts before may still be there until they are finished."""
    query = f"SELECT * FROM ActiveCalls WHERE linenr = {line} AND id > {before['id']}"
    return wait_until("the next part", lambda: rows(query))[0]


def row_is_gone(call):
    return rows(f"SELECT id FROM ActiveCalls WHERE id = {call['id']}") == []


def spoken(channel):
    """How many bytes the card has heard of the recording on a driver channel."""
    status = subprocess.run([BUILD / "sim" / "cardsim", "status", "--json"], check=True, stdout=subprocess.PIPE)
    return int(json.loads(status.stdout)["ch"][channel]["recorded"])


def check_silenced(call, begin_between, end_between):
    """The counting pattern, with silence over one stretch only; where it begins and ends is known up to what was spoken
    while the order was on its way."""
    data = path_of(call).read_bytes()
    audio = data[HEADER_BYTES:]
    pattern = counting(len(audio))
    assert data[:HEADER_BYTES] == header(channels=1, length=len(audio))
    other = [at for at, byte in enumerate(audio) if byte != pattern[at]]
    begin, end = other[0], other[-1] + 1
    assert audio[begin:end] == bytes([SILENCE]) * (end - begin)
    assert begin_between[0] <= begin <= begin_between[1]
    assert end_between[0] <= end <= end_between[1]


# -- silence and sound -----------------------------------------------------------------------------------------------


def give_order(daemon, call, word):
    assert order(f"{word} {call['remoteid']}") == OK


def give_dtmf(daemon, call, word):
    press(daemon, call["linenr"], word)


@pytest.mark.parametrize("give", [give_order, give_dtmf])
def test_silence_covers_its_stretch_and_keeps_the_length(daemon, give):
    call = begin(daemon, 1)
    started = time.monotonic()
    grow(call)

    def switch(word):
        before = spoken(0)
        give(daemon, call, word)
        # The cards of a busy machine deliver up to a block late, and the daemon goes by what they have delivered.
        return before - BLOCK, spoken(0) + BLOCK

    silent_from = switch("silence")
    assert rows("SELECT callextra FROM ActiveCalls") == [{"callextra": "silencing: 1\r\n"}]
    grow(call)
    silent_until = switch("sound")
    assert rows("SELECT callextra FROM ActiveCalls") == [{"callextra": "silencing: 0\r\n"}]
    grow(call)
    hang_up(daemon, 1)
    lasted = time.monotonic() - started
    finished = daemon.finished_call(call["remoteid"])
    assert finished["callextra"] == "chk: \r\nsilencing: 0\r\n"
    check_silenced(finished, silent_from, silent_until)
    assert len(audio_of(finished)) / 8000 == pytest.approx(lasted, abs=1.5)


def test_silence_ends_with_its_recording(daemon):
    call = begin(daemon, 1)
    assert order(f"silence {call['remoteid']}") == OK
    grow(call)
    hang_up(daemon, 1)
    finished = daemon.finished_call(call["remoteid"])
    assert finished["callextra"] == "chk: \r\nsilencing: 1\r\n"
    assert audio_of(finished)[-2 * BLOCK :] == bytes([SILENCE]) * 2 * BLOCK  # the order came within the third
    call = begin(daemon, 1)
    grow(call)
    hang_up(daemon, 1)
    counted_audio(path_of(daemon.finished_call(call["remoteid"])))


def test_silence_for_one_line_leaves_the_others_alone(daemon):
    call = begin(daemon, 1)
    other = begin(daemon, 2)
    assert order(f"silence {call['remoteid']}") == OK
    grow(other)
    hang_up(daemon, 2)
    counted_audio(path_of(daemon.finished_call(other["remoteid"])), 3 * BLOCK)


# -- start and stop on demand ----------------------------------------------------------------------------------------


@pytest.mark.parametrize("give", [give_order, give_dtmf])
def test_each_demanded_part_is_a_row_and_a_file_of_its_own(daemon, give):
    files = set(RECORDINGS.rglob("*.wav"))
    waiting = begin(daemon, 5, OUTSIDE)
    assert (waiting["encoding"], waiting["callextra"]) == (0, "")
    parts = []
    for _ in range(2):
        give(daemon, waiting, "start")
        part = next_part(5, waiting)
        assert row_is_gone(waiting)
        assert (part["encoding"], part["remote"], part["linenr"]) == (554, OUTSIDE, 5)
        assert part["filename"] == part["remoteid"] + ".wav"
        parts.append((part, grow(part)))
        give(daemon, part, "stop")
        waiting = next_part(5, part)
        assert (waiting["encoding"], waiting["callextra"]) == (0, "")
        assert waiting["filename"] == part["filename"]  # that of the last recording, until the next one begins
    hang_up(daemon, 5)
    wait_until("no row is left", lambda: rows("SELECT id FROM ActiveCalls") == [])
    for part, length in parts:
        counted_audio(path_of(daemon.finished_call(part["remoteid"])), length)
    finished = rows("SELECT remoteid, remote, linenr, direction, callextra FROM Calls ORDER BY id")
    assert finished == [
        {"remoteid": part["remoteid"], "remote": OUTSIDE, "linenr": 5, "direction": 0, "callextra": "chk: \r\n"}
        for part, _ in parts
    ]
    assert set(RECORDINGS.rglob("*.wav")) - files == {path_of(part) for part, _ in parts}


def test_demand_that_holds_already_changes_nothing(daemon):
    waiting = begin(daemon, 6)
    assert order(f"stop {waiting['remoteid']}") == OK
    assert rows("SELECT * FROM ActiveCalls") == [waiting]
    assert order(f"start {waiting['remoteid']}") == OK
    part = next_part(6, waiting)
    assert order(f"start {part['remoteid']}") == OK
    assert rows("SELECT * FROM ActiveCalls") == [part]
    # The part before has gone with its id.
    assert order(f"stop {waiting['remoteid']}") == "E2: unknown call\n"
    grow(part)
    hang_up(daemon, 6)
    counted_audio(path_of(daemon.finished_call(part["remoteid"])), 3 * BLOCK)


def test_call_that_nobody_demanded_leaves_nothing(daemon):
    begin(daemon, 7)
    hang_up(daemon, 7)
    wait_until("the row is gone", lambda: rows("SELECT id FROM ActiveCalls") == [])
    assert rows("SELECT id FROM Calls") == []


@pytest.mark.parametrize("word", ["start", "stop"])
def test_line_without_the_option_is_left_alone(daemon, word):
    call = begin(daemon, 1)
    assert order(f"{word} {call['remoteid']}") == REFUSED_START
    mark = daemon.mark()
    press(daemon, 1, word)
    daemon.wait_line("[1] RecOnDmd not done, the option is off", mark)
    length = grow(call)
    hang_up(daemon, 1)
    counted_audio(path_of(daemon.finished_call(call["remoteid"])), length)


# -- delete ----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("give", [give_order, give_dtmf])
def test_deleted_call_is_gone_and_not_recorded_again(daemon, give):
    call = begin(daemon, 1, OUTSIDE)
    grow(call)
    mark = daemon.mark()
    give(daemon, call, "delete")
    wait_until("file deleted", lambda: not path_of(call).exists())
    wait_until("row deleted", lambda: row_is_gone(call))
    # The call goes on, but nothing starts a recording of it.
    daemon.cards("ch 0 callerid 0405550199")
    daemon.wait_line("[1] Remote: 0405550199", mark)
    hang_up(daemon, 1)
    assert rows("SELECT id FROM ActiveCalls UNION ALL SELECT id FROM Calls") == []
    assert not [line for line in daemon.log_after(mark) if line.startswith("[1] Starting recording")]
    call = begin(daemon, 1)
    length = grow(call)
    hang_up(daemon, 1)
    counted_audio(path_of(daemon.finished_call(call["remoteid"])), length)


# -- reconfig --------------------------------------------------------------------------------------------------------


def reconfigure(daemon, **options):
    mark = daemon.mark()
    daemon.store_settings({"o": options})
    assert order("reconfig") == OK
    daemon.wait_line("RecOnDmdType: ", mark)


def test_changed_number_filter_holds_from_the_next_call(daemon):
    running = begin(daemon, 1, OUTSIDE)
    reconfigure(daemon, NumberFilterType="2", NumberFilters=f"110, {OUTSIDE} ")
    try:
        length = grow(running)
        mark = daemon.mark()
        daemon.cards("ch 1 ring on", f"ch 1 callerid {OUTSIDE}")
        daemon.wait_line(f"[2] Remote: {OUTSIDE}", mark)
        daemon.cards("ch 1 offhook")
        daemon.wait_line("[2] Not recording because in number filter", mark)
        hang_up(daemon, 2)
        other = begin(daemon, 3, "0405550199")
        hang_up(daemon, 3)
        hang_up(daemon, 1)
        counted_audio(path_of(daemon.finished_call(running["remoteid"])), length)
        daemon.finished_call(other["remoteid"])
    finally:
        reconfigure(daemon, NumberFilterType="0", NumberFilters="")
    assert [row["linenr"] for row in rows("SELECT linenr FROM Calls ORDER BY linenr")] == [1, 3]


def test_changed_delete_list_holds_for_running_calls(daemon):
    listed = begin(daemon, 1, OUTSIDE)
    by_line = begin(daemon, 2, "0405550199")
    unlisted = begin(daemon, 3, "0405550200")
    reconfigure(daemon, DelOnDmdType="2", DelOnDmdList=f"{OUTSIDE}, #2")
    try:
        mark = daemon.mark()
        assert order(f"delete {unlisted['remoteid']}") == "E3: option DelOnDmd is off\n"
        daemon.wait_line("[3] not in delete on demand list", mark)
        assert order(f"delete {listed['remoteid']}") == OK
        assert order(f"delete {by_line['remoteid']}") == OK
    finally:
        reconfigure(daemon, DelOnDmdType="1", DelOnDmdList="")
    assert [row["linenr"] for row in rows("SELECT linenr FROM ActiveCalls")] == [3]


# -- change_local ----------------------------------------------------------------------------------------------------


def change_local(local, remote, flag):
    order("silence x")  # the reply below is that of the command before: unknown call
    assert order(f"change_local {local}|{remote}|{flag}") == "E2: unknown call\n"


def test_local_number_changes_within_the_recording(daemon):
    call = begin(daemon, 1, OUTSIDE)
    mark = daemon.mark()
    change_local("22", OUTSIDE, "0")
    daemon.wait_line(f"[1] Channel found for RemoteNumber: {OUTSIDE}", mark)
    daemon.wait_line("[1] Local Number Changed: 22.", mark)
    active = daemon.active_call(1)
    expected = {**call, "local": "22", "localfull": "22", "localcallerid": None, "localcontact": None}
    assert active == expected
    length = grow(call)
    hang_up(daemon, 1)
    finished = daemon.finished_call(call["remoteid"])
    assert (finished["local"], finished["remote"]) == ("22", OUTSIDE)
    contact = rows(f"SELECT contactid FROM CallerIDs WHERE id = {finished['localcallerid']} AND callerid = '22'")
    assert contact == [{"contactid": finished["localcontact"]}]
    counted_audio(path_of(finished), length)


def test_transfer_begins_a_recording_of_its_own(daemon):
    first = begin(daemon, 2, OUTSIDE)
    length = grow(first)
    mark = daemon.mark()
    change_local("23", OUTSIDE, "1")
    second = next_part(2, first)
    lines = [line for line in daemon.log_after(mark) if "LocalNumberChanged" in line]
    assert lines == [
        f"[2] LocalNumberChanged. Change: {first['local']} to: 23.",
        "[2] LocalNumberChanged: STOP",
        "[2] LocalNumberChanged: Transfer to monitored phone",
        "[2] LocalNumberChanged: START",
    ]
    assert (second["local"], second["remote"], second["encoding"]) == ("23", OUTSIDE, 554)
    finished = daemon.finished_call(first["remoteid"])
    assert (finished["local"], finished["remote"]) == ("", OUTSIDE)
    counted_audio(path_of(finished), length)
    # The same number again is no transfer.
    change_local("23", OUTSIDE, "1")
    assert daemon.active_call(2) == second
    length = grow(second)
    # To a phone that is not monitored.
    change_local("", OUTSIDE, "1")
    third = next_part(2, second)
    counted_audio(path_of(daemon.finished_call(second["remoteid"])), length)
    hang_up(daemon, 2)
    assert daemon.finished_call(third["remoteid"])["remote"] == OUTSIDE
    daemon.wait_line("[2] LocalNumberChanged: Transfer to non-monitored phone", mark)
    assert len(rows("SELECT id FROM Calls")) == 3


def test_remote_number_may_have_the_international_prefix(daemon):
    begin(daemon, 3, "49123")
    change_local("24", "0049123", "0")
    assert daemon.active_call(3)["local"] == "24"


def test_change_local_of_a_number_that_nobody_speaks_with(daemon):
    call = begin(daemon, 4, OUTSIDE)
    change_local("25", "0309999999", "1")
    assert rows("SELECT * FROM ActiveCalls") == [call]


# -- orders without a call -------------------------------------------------------------------------------------------


def no_recording_after(daemon, mark):
    assert [line for line in daemon.log_after(mark) if "Starting recording" in line or "Call starts" in line] == []
    assert rows("SELECT id FROM ActiveCalls") == []


def test_order_for_a_call_that_is_over_reaches_no_other(daemon):
    for line in (1, 5):
        over = begin(daemon, line, OUTSIDE)
        hang_up(daemon, line)
        wait_until("all calls finished", lambda: rows("SELECT id FROM ActiveCalls") == [])
        mark = daemon.mark()
        for word in ("delete", "start", "stop", "silence", "sound"):
            assert order(f"{word} {over['remoteid']}") == "E2: unknown call\n"
        no_recording_after(daemon, mark)
    call = begin(daemon, 1)
    grow(call)
    hang_up(daemon, 1)
    counted_audio(path_of(daemon.finished_call(call["remoteid"])), 3 * BLOCK)
    assert begin(daemon, 5)["encoding"] == 0  # waits for a demand of its own


def test_order_that_finds_no_call_leaves_nothing_behind(daemon):
    mark = daemon.mark()
    for word in ("delete", "silence"):
        assert order(f"{word} ") == OK  # the first line without a call
    for flag in "01":
        change_local("200", "", flag)
        daemon.wait_line("[1] No active call for this channel", mark)
    no_recording_after(daemon, mark)
    call = begin(daemon, 1, OUTSIDE)
    assert call["local"] != "200"
    grow(call)
    for line in (2, 3, 4):
        begin(daemon, line)
    mark = daemon.mark()
    assert order("start ") == OK  # line 5, on which calls wait for a demand
    daemon.wait_line("[5] No active call for this channel", mark)
    assert begin(daemon, 5)["encoding"] == 0
    hang_up(daemon, 1)
    counted_audio(path_of(daemon.finished_call(call["remoteid"])), 3 * BLOCK)


# -- DTMF actions ----------------------------------------------------------------------------------------------------


def test_keep_marks_the_row(daemon):
    daemon.store_settings({"o": {"RecOnDemand": "1"}})
    try:
        call = begin(daemon, 1)
        press(daemon, 1, "keep")
        assert daemon.active_call(1)["callextra"] == "to-keep: 1\r\n"
        hang_up(daemon, 1)
        daemon.wait_line("[1] Store on demand: keeping")
        assert daemon.finished_call(call["remoteid"])["callextra"] == "chk: \r\nto-keep: 1\r\n"
    finally:
        sql("DELETE FROM Configs WHERE param = 'RecOnDemand'")


def test_code_within_more_digits(daemon):
    call = begin(daemon, 2)
    mark = daemon.mark()
    daemon.cards("ch 1 dtmf 12*3*")
    daemon.wait_line("[2] Digits: 12*3*", mark)
    actions = [line for line in daemon.log_after(mark) if "Action to perform" in line]
    assert actions == ["[2] Action to perform: keep"]
    assert daemon.active_call(2)["remoteid"] == call["remoteid"]


def test_action_without_call_does_nothing(daemon):
    mark = daemon.mark()
    daemon.cards("ch 3 dtmf *8")
    daemon.wait_line("[4] No active call for this channel", mark)
