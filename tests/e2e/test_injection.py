"""Hostile texts on every way into the daemon: they stay texts. The telephone network writes caller ids and displays,
local programs write orders, and the web side names and settings; rows, files, log, commands and terminals take each as
it is, or as question marks.
"""

import os
import re
import subprocess
from pathlib import Path

import pytest

from harness import BUILD, RECORDINGS, control_client, order, quote, rows, sql, wait_until

CARDS = """
card ATP8 1001 16
card DST8 1002 16
"""
TELEPHONES = 16  # driver channel of the first, and lines before it
SETTINGS = {"o": {"RecEnc": "gsm"}, "crec": {"LineNameInFileName": "1", "Syn1002_PBXType": "NEC"}}
SENTINEL = Path("/tmp/injected")

# As the network delivers them: Latin-1. Longest first, since a caller id ends after a hundred bytes.
TEXTS = {
    "sql ends the statement": b"1'; DROP TABLE ActiveCalls; --",
    "sql behind a backslash": b"1\\'; DELETE FROM CallerIDs; --",
    "sql adds a row": b"1'), ('2', '3'); INSERT INTO Configs VALUES ('crec', '0', 's'); --",
    "a dollar quote": b"$$; DROP TABLE Calls; $$",
    "shell substitution": b"$(touch /tmp/injected)",
    "shell in backquotes": b"`touch /tmp/injected`",
    "shell behind a quote": b"1'; touch /tmp/injected; '",
    "shell in the background": b"1 & touch /tmp/injected & | tee /tmp/injected",
    "a path": b"../../../../../tmp/injected",
    "a format": b"%n%n%s%s%x%99999999d%1$s",
    "a log line": b"1\r\n[1] Recording stopped (99 s)",
    "an escape sequence": b"\x1b]0;owned\x07\x1b[2J1\x7f",
    "controls of Latin-1": b"\x9b2J\x90q\x9c1",
    "letters of Latin-1": b"Andr\xe9 M\xfcller \xff",
    "half a character of UTF-8": b"\xc3",
    "a record of callextra": b"silencing: 1\r\nto-keep: 1\r\n",
}


def escaped(text):
    """A text as a word of cardsim."""
    return "".join(f"\\x{byte:02x}" for byte in text)


def told(text):
    """How the log shows a text that the network delivered: as the harness decodes it, line by line."""
    return text.decode("utf-8", "backslashreplace").replace("\r\n", "\n").split("\n")


def act(*words):
    subprocess.run([BUILD / "sim" / "cardsim", *words], check=True)


def tables():
    found = rows("SELECT relname FROM pg_class WHERE relkind = 'r' AND relnamespace = 'public'::regnamespace")
    return sorted(row["relname"] for row in found)


def shown_by_ctl():
    """The output of the status for people, and that for scripts."""
    ctl = BUILD / "tools" / "morvex_ctl"
    return [subprocess.run([ctl, "status", *option], capture_output=True, check=True).stdout for option in ([], ["--json"])]


@pytest.fixture(scope="module", autouse=True)
def unharmed(daemon):
    """Before all tests, and once more behind them: the same tables and settings, no file of an injected command, and
    no word of trouble in the log."""
    daemon.wait_orders()
    before = tables(), rows("SELECT * FROM Configs ORDER BY param, value")
    places = {str(path) for path in Path("/tmp").iterdir()}
    yield
    assert (tables(), rows("SELECT * FROM Configs ORDER BY param, value")) == before
    assert not SENTINEL.exists()
    assert {str(path) for path in Path("/tmp").iterdir()} <= places
    files = [path.name for path in RECORDINGS.rglob("*") if not path.is_dir()]
    assert len(files) == 2 * len(TEXTS) + 5  # a byte alone is no caller id, and one call is of the orders
    assert [name for name in files if not re.match(r"\d{8}_\d{6}_\d{3}_\d\d_.*\.wav$", name)] == []
    assert children(daemon) == []
    trouble = re.compile(r"DB |C-api error|.*invalid byte|.*syntax error|Signal SIG")
    assert [line for line in daemon.log_after(0) if trouble.match(line)] == []
    assert daemon.running


def children(daemon):
    """What the daemon has started and not ended."""
    tasks = Path(f"/proc/{daemon.pid}/task").glob("*/children")
    return [pid for task in tasks for pid in task.read_text().split()]


def check_calls(daemon, lines, numbers):
    """Each line's call is recorded, converted and filed, with the number as it was delivered."""
    for line, text in zip(lines, numbers):
        call = wait_until(f"row of line {line}", lambda: rows(f"SELECT * FROM Calls WHERE linenr = {line}"))[0]
        number = text.decode("latin-1")
        assert (call["remote"], call["remotefull"], call["callextra"]) == (number, number, "chk: \r\n")
        contact = rows(f"SELECT * FROM CallerIDs WHERE callerid = {quote(number)}")[0]
        assert (call["remotecallerid"], call["remotecontact"]) == (contact["id"], contact["contactid"])
        assert re.fullmatch(rf"\d{{8}}_\d{{6}}_{line:03}_01_[\w.@-]*\.wav", call["filename"])
        assert (RECORDINGS / call["directory"] / call["filename"]).is_file()


def check_screens():
    """Neither table nor JSON holds a byte that a terminal obeys."""
    for output in shown_by_ctl():
        assert not re.search(rb"[\x00-\x09\x0b-\x1f\x7f]", output)
        assert not re.search("[\x80-\x9f]", output.decode())


def test_caller_ids(daemon):
    """Analogue lines: the caller id is the number. A known one has its contact already in the running call."""
    known = TEXTS["letters of Latin-1"].decode("latin-1")
    sql(f"INSERT INTO Contacts (name) VALUES ('known'); INSERT INTO CallerIDs (callerid, contactid)"
        f" VALUES ({quote(known)}, currval('contacts_id_seq'))")
    contact = rows(f"SELECT * FROM CallerIDs WHERE callerid = {quote(known)}")[0]
    lines = range(1, len(TEXTS) + 1)
    for line, text in zip(lines, TEXTS.values()):
        mark = daemon.mark()
        act("ch", str(line - 1), "callerid", escaped(text))
        if len(text) == 1:
            daemon.wait_line(f"[{line}] Analog caller ID: {told(text)[0]}", mark)
            continue
        daemon.wait_line(f"[{line}] Remote: {told(text)[0]}", mark)
        act("ch", str(line - 1), "offhook")
    numbers = [text if len(text) > 1 else b"" for text in TEXTS.values()]
    for line, number in zip(lines, numbers):
        if number:
            assert daemon.active_call(line)["remote"] == number.decode("latin-1")
    line = 1 + list(TEXTS).index("letters of Latin-1")
    active = daemon.active_call(line)
    assert (active["remotecallerid"], active["remotecontact"]) == (contact["id"], contact["contactid"])
    check_screens()
    daemon.cards(f"ch 0..{len(TEXTS) - 1} onhook")
    check_calls(daemon, *zip(*((line, number) for line, number in zip(lines, numbers) if number)))


def test_displays(daemon):
    """Telephones: who is talked to stands on the display, up to the end of its line."""
    lines = range(TELEPHONES + 1, TELEPHONES + len(TEXTS) + 1)
    parties = [text.split(b"\n")[0] for text in TEXTS.values()]
    daemon.cards(f"ch {TELEPHONES}..{TELEPHONES + len(TEXTS) - 1} offhook")
    for line, text in zip(lines, TEXTS.values()):
        daemon.active_call(line)
        mark = daemon.mark()
        act("ch", str(line - 1), "display", escaped(b"12:31\nTALKING TO " + text + b"\n"))
        daemon.wait_line(f"[{line}] Remote: ", mark)
    check_screens()
    numbers = [daemon.active_call(line)["remote"] for line in lines]
    assert numbers == [party.decode("latin-1") for party in parties]
    daemon.cards(f"ch {TELEPHONES}..{TELEPHONES + len(TEXTS) - 1} onhook")
    check_calls(daemon, lines, parties)


def test_orders(daemon):
    """The control socket: ids of calls, numbers, and words that are no order."""
    daemon.cards("ch 15 onhook", "ch 15 callerid 0301234567", "ch 15 offhook")
    wait_until("the call of the order", lambda: rows("SELECT id FROM ActiveCalls WHERE remote = '0301234567'"))
    for text in TEXTS.values():
        for word, reply in ((b"delete ", b"E2: unknown call\n"), (b"", b"E0: Unknown commmand\n")):
            with control_client() as client:
                client.sendall((word + text)[:100])
                assert client.recv(1000) == reply
    texts = [text for text in TEXTS.values() if b"|" not in text]
    for text in texts:
        mark = daemon.mark()
        with control_client() as client:
            client.sendall((b"change_local " + text + b"|0301234567|0")[:100])
            client.recv(1000)
        daemon.wait_line(f"[16] Local Number Changed: {told(text)[0]}", mark)
        number = text.decode("latin-1")
        wait_until("the new number", lambda: daemon.active_call(16)["local"] == number)
    check_screens()
    daemon.cards("ch 15 onhook")
    wait_until("the end of the call", lambda: rows("SELECT id FROM ActiveCalls WHERE linenr = 16") == [])


def test_settings(daemon):
    """The web side writes settings; those that may change while the daemon runs are read anew with each of these."""
    before = rows("SELECT * FROM Configs")
    keys = {"o": ["NumberFilters", "NumberFilterType", "RecMinDur", "RecNotOutg", "DelOnDmdType", "srWeekdays"], "s": ["DTMF1"]}
    for text in TEXTS.values():
        daemon.store_settings({part: {key: text.decode("latin-1") for key in keys[part]} for part in keys})
        mark = daemon.mark()
        assert order("reconfig") == "OK\n"
        daemon.wait_line("DelOnDmdType: ", mark)
    for part in keys:
        for key in keys[part]:
            sql(f"DELETE FROM Configs WHERE param = {quote(key)}")
    assert rows("SELECT * FROM Configs") == before
    mark = daemon.mark()
    assert order("reconfig") == "OK\n"
    daemon.wait_line("DelOnDmdType: 0", mark)


def test_names_of_lines_in_file_names(daemon):
    """The web side names a line; the name becomes a part of the file's, and so of the commands that convert it."""
    names = ["$(touch /tmp/injected)", "`touch /tmp/injected`", "'; touch /tmp/injected; '", "../../../tmp/injected", "-rf\n"]
    sql("DELETE FROM Calls")
    for line, name in enumerate(names, 1):
        sql(f"UPDATE Contacts SET name = {quote(name)} FROM Lines WHERE Contacts.id = Lines.contactid AND linenr = {line}")
    daemon.cards(f"ch 0..{len(names) - 1} offhook")
    for line in range(1, len(names) + 1):
        daemon.active_call(line)
    daemon.cards(f"ch 0..{len(names) - 1} onhook")
    for line, name in enumerate(names, 1):
        call = wait_until(f"row of line {line}", lambda: rows(f"SELECT * FROM Calls WHERE linenr = {line}"))[0]
        safe = re.sub(r"[^!-~]|[\"%&*/:<>?\\|]", "_", name)
        assert re.fullmatch(rf"\d{{8}}_\d{{6}}_{line:03}_\d\d_{re.escape(safe)}\.wav", call["filename"])
        recording = RECORDINGS / call["directory"] / call["filename"]
        assert recording.is_file() and os.stat(recording).st_size > 0
        assert call["encoding"] == 551
