"""One plain call on an analogue line, from its first ring to its row in Calls; and one that outlives the database."""

import time

from harness import counted_audio, header, path_of, rows, server, statements, wait_until, HEADER_BYTES

CARDS = "card ATP8 1001 8"
SETTINGS = {}


def local_stamp(seconds, form):
    return time.strftime(form, time.localtime(seconds))


def audio_of(call):
    return path_of(call).read_bytes()[HEADER_BYTES:]


def wait_for_audio(call, seconds):
    """Waits until so much audio has reached the file, header or not."""
    wait_until(f"{seconds} s in {call['filename']}", lambda: len(audio_of(call)) >= seconds * 8000)


def test_incoming_call_is_recorded_and_filed(daemon):
    mark = daemon.mark()
    daemon.cards("ch 0 play counting", "ch 0 ring on")
    daemon.wait_line("[1] Analog channel state: 2", mark)
    daemon.cards("ch 0 callerid 0301234567", "ch 0 offhook")
    active = daemon.active_call(1)

    started = active["startdate"]
    assert abs(started - time.time()) < 5
    remoteid = local_stamp(started, "%Y%m%d_%H%M%S_001_01")
    recorder = rows("SELECT * FROM recorders")
    assert recorder == [{"id": 1, "recid": "E2E1", "name": "MorvexE2E1", "rectype": 50, "options": ""}]
    line = rows("SELECT * FROM Lines WHERE linenr = 1")[0]
    assert rows(f"SELECT name FROM Contacts WHERE id = {line['contactid']}") == [{"name": "1@E2E1"}]
    expected = {
        "id": active["id"],
        "recorderid": 1,
        "lineid": line["id"],
        "linenr": 1,
        "direction": 0,
        "startdate": started,
        "duration": 0,
        "waittime": active["waittime"],
        "local": "",
        "localfull": "",
        "localcallerid": 0,
        "localcontact": line["contactid"],
        "remote": "0301234567",
        "remotefull": "0301234567",
        "remotecallerid": None,
        "remotecontact": None,
        "connected": "",
        "connectedcallerid": None,
        "connectedcontact": None,
        "remoteid": remoteid,
        "directory": local_stamp(started, "%Y/%m/%d/%H"),
        "filename": remoteid + ".wav",
        "encoding": 554,
        "encryption": 0,
        "isarchived": 1,
        "isconnected": 1,
        "processingstate": 0,
        "flags": 0,
        "source": 1,
        "category": 0,
        "notes": None,
        "notes2": None,
        "notes3": None,
        "notes4": None,
        "notes5": None,
        "callextra": "",
    }
    assert active == expected
    assert active["waittime"] in (0, 1, 2)

    wait_for_audio(active, seconds=3)
    daemon.cards("ch 0 onhook")
    call = daemon.finished_call(remoteid)
    assert rows("SELECT * FROM ActiveCalls") == []

    number = rows("SELECT * FROM CallerIDs WHERE callerid = '0301234567'")[0]
    expected.update(
        id=1,
        duration=call["duration"],
        remotecallerid=number["id"],
        remotecontact=number["contactid"],
        callextra="chk: \r\n",
        notes="",
        notes2="",
        notes3="",
        notes4="",
        notes5="",
    )
    assert call == expected
    assert 3 <= call["duration"] <= time.time() - started
    counted_audio(path_of(call), shortest=3 * 8000)
    assert path_of(call).stat().st_mode & 0o777 == 0o777


def test_call_without_number_by_dialled_digits_is_outgoing(daemon):
    mark = daemon.mark()
    daemon.cards("ch 1 play counting", "ch 1 offhook", "ch 1 dtmf 042")
    daemon.wait_line("[2] Digits: 042", mark)
    active = daemon.active_call(2)
    assert (active["direction"], active["remote"], active["waittime"]) == (1, "", -1)
    wait_for_audio(active, seconds=1)
    daemon.cards("ch 1 onhook")
    call = daemon.finished_call(active["remoteid"])
    assert (call["direction"], call["remote"], call["waittime"]) == (1, "042", -1)
    counted_audio(path_of(call), shortest=8000)


def test_call_outlives_a_restart_of_the_database(daemon):
    mark = daemon.mark()
    daemon.cards("ch 2 play counting", "ch 2 offhook")
    active = daemon.active_call(3)
    server("stop")
    # The number that arrives meanwhile reaches the file of the call, but not its row.
    daemon.cards("ch 2 callerid 0405550199")
    daemon.wait_line("DB connect error", mark)
    wait_for_audio(active, seconds=2)
    server("start")
    before = len(statements())
    daemon.cards("ch 2 onhook")
    call = daemon.finished_call(active["remoteid"])
    assert (call["remote"], call["startdate"]) == ("0405550199", active["startdate"])
    assert rows("SELECT * FROM ActiveCalls") == []
    counted_audio(path_of(call), shortest=2 * 8000)
    # The row left ActiveCalls before it came into Calls.
    moved = [s.split(" ")[0] for s in statements()[before:] if s.startswith(("DELETE FROM ActiveCalls", "INSERT INTO Calls"))]
    assert moved == ["DELETE", "INSERT"]


def test_call_that_begins_without_database_leaves_its_file_only(daemon):
    mark = daemon.mark()
    server("stop")
    daemon.cards("ch 3 play counting", "ch 3 offhook")
    path = daemon.wait_line("[4] Recording to file ", mark).split(" ", 4)[4]
    daemon.wait_line("DB connect error", mark)
    stamp, name = path.rsplit("/", 2)[1:]
    call = {"directory": path[len("/recordings/") : -len(name) - 1], "filename": name}
    wait_for_audio(call, seconds=1)
    server("start")
    daemon.cards("ch 3 onhook")
    daemon.wait_line("[4] Recording stopped", mark)
    wait_until("the header", lambda: path_of(call).read_bytes()[:HEADER_BYTES] == header(1, len(audio_of(call))))
    counted_audio(path_of(call), shortest=8000)
    assert rows("SELECT * FROM ActiveCalls UNION ALL SELECT * FROM Calls WHERE linenr = 4") == []
