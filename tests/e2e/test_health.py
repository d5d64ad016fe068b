"""Line health from the cards to the outside: log, linestatus.dat, chstate files, and messages to the service socket."""

import os
import socket
import threading
import time
from pathlib import Path

import pytest

from harness import order, rows, sql, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {
    # Line 1 is watched, line 7 has loud voices found out.
    "crec": {
        "Syn1001_CheckLineStatus": "1",
        "Syn1001_LoudVoiceDetect": "0,0,0,0,0,0,1",
        "Syn1001_LoudnessThr": "0,0,0,0,0,0,55",
        "Syn1001_LoudnessLen": "0,0,0,0,0,0,1",
    },
    "s": {"DTMF1": "*1", "DTMFact1": "email"},
}
DATA = Path("/var/morvex/data")
LINE_STATUS = DATA / "linestatus.dat"
SERVICE = "/tmp/morvex"
TRIES = 5


class Service:
    """A server at the service socket that keeps each message, and answers it with `reply`; None: not at all."""

    def __init__(self, reply=b"OK\r\n"):
        self.reply = reply
        self.messages = []
        self.held = []
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        Path(SERVICE).unlink(missing_ok=True)
        self.listener.bind(SERVICE)
        self.listener.listen(5)
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while True:
            try:
                peer = self.listener.accept()[0]
            except OSError:
                return
            message = peer.recv(4096)
            if self.reply is None:
                self.held.append(peer)
            else:
                peer.sendall(self.reply)
                peer.close()
            self.messages.append(message)

    def wait(self, *messages):
        """Waits until exactly these messages have come, in this order."""
        wait_until(f"messages {messages}", lambda: len(self.messages) >= len(messages))
        assert self.messages == list(messages)

    def close(self):
        Path(SERVICE).unlink()
        self.listener.shutdown(socket.SHUT_RDWR)
        self.thread.join()
        self.listener.close()
        for peer in self.held:
            peer.close()


@pytest.fixture(scope="module", autouse=True)
def users(daemon):
    """Two users share the telephone of line 8. The message of the start has found no service when the tests begin."""
    daemon.wait_line("Error connecting to socket")
    contact = rows("SELECT contactid FROM Lines WHERE linenr = 8")[0]["contactid"]
    for account in (31, 32):
        sql(f"INSERT INTO Users (accid) VALUES ({account}); INSERT INTO UserPhones VALUES ({account}, {contact})")


@pytest.fixture
def service(daemon):
    service = Service()
    yield service
    service.close()


def status(**lines):
    """The text of linestatus.dat, with the lines that are not ok by their number: status(l1="offline")."""
    return "".join(f"Line_{line}: {lines.get(f'l{line}', 'ok')}\n" for line in range(1, 9))


def wait_status(**lines):
    """Waits for this text of the file; the report in the log comes just before it is written."""
    wait_until(f"linestatus.dat with {lines}", lambda: LINE_STATUS.read_text() == status(**lines))


def health(daemon, line, state, expected):
    """Sets a state of a line and waits for the health that it gives; the log before it."""
    mark = daemon.mark()
    daemon.cards(f"ch {line - 1} state {state}")
    daemon.wait_line(f"[{line}] Line health: {expected}", mark)
    return mark


def healths(daemon, line, mark):
    """All reports of the line since."""
    start = f"[{line}] Line health: "
    return [text[len(start) :] for text in daemon.log_after(mark) if text.startswith(start)]


# -- scores ----------------------------------------------------------------------------------------------------------


def test_all_lines_are_ok_at_first(daemon):
    wait_status()
    assert not [line for line in daemon.log_after(0) if "Line health" in line]


def test_line_is_offline_at_once_and_back_when_it_returns(daemon):
    mark = health(daemon, 2, "offline", "offline")
    wait_status(l2="offline")
    health(daemon, 2, "standby", "ok")
    wait_status()
    health(daemon, 3, "unavailable", "offline")
    wait_status(l3="offline")
    health(daemon, 3, "standby", "ok")
    wait_status()
    assert healths(daemon, 2, mark) == ["offline", "ok"]
    assert not LINE_STATUS.with_name("linestatus.dat.new").exists()


def test_line_that_drops_out_thrice_stays_offline_for_half_a_minute(daemon):
    """Each drop scores 60, each second takes one off: from 180 it is thirty seconds to 150, less those that passed
    between the drops. At the same time a lasting error: 60 at once and each second, over 150 after two seconds, and
    fifty seconds back from the ceiling."""
    mark = daemon.mark()
    for _ in range(3):
        daemon.cards("ch 3 state offline", "ch 3 state standby")
    dropped = time.monotonic()
    daemon.cards("ch 4 state signalerror")
    started = time.monotonic()
    daemon.wait_line("[5] Line health: error", mark)
    assert 0.5 < time.monotonic() - started < 6
    wait_status(l4="offline", l5="error")
    time.sleep(2.5)  # two seconds more: it stands at the ceiling
    daemon.cards("ch 4 state standby")
    cleared = time.monotonic()

    wait_until("line 4 is back", lambda: len(healths(daemon, 4, mark)) == 6)
    assert 25 < time.monotonic() - dropped < 36
    wait_status(l5="error")
    daemon.wait_line("[5] Line health: ok", mark)
    assert 47 < time.monotonic() - cleared < 56
    wait_status()
    # The score kept line 4 offline through its third return.
    assert healths(daemon, 4, mark) == ["offline", "ok", "offline", "ok", "offline", "ok"]
    assert healths(daemon, 5, mark) == ["error", "ok"]


def test_single_error_is_no_fault(daemon):
    mark = daemon.mark()
    daemon.cards("ch 5 state frameerror", "ch 5 state standby", "ch 5 state 7")
    daemon.wait_line("[6] Analog channel state: 7", mark)
    assert healths(daemon, 6, mark) == []
    # A second and a third within its score: error, and then offline without an "ok" in between.
    daemon.cards("ch 5 state frameerror", "ch 5 state standby", "ch 5 state signalerror", "ch 5 state standby")
    daemon.wait_line("[6] Line health: error", mark)
    daemon.cards("ch 5 state offline")
    daemon.wait_line("[6] Line health: offline", mark)
    daemon.cards("ch 5 state standby")
    daemon.wait_line("[6] Analog channel state: 8 offline", mark)
    wait_until("reports", lambda: len(healths(daemon, 6, mark)) == 3)
    assert healths(daemon, 6, mark) == ["error", "offline", "error"]
    wait_status(l6="error")


# -- messages --------------------------------------------------------------------------------------------------------


def test_watched_line_asks_for_a_check_when_it_gets_worse(daemon, service):
    health(daemon, 1, "offline", "offline")
    service.wait(b"sysinfo")
    mark = daemon.mark()
    health(daemon, 1, "standby", "ok")
    # A line that recovers does not, nor one that is not watched; what a message behind them proves.
    health(daemon, 2, "offline", "offline")
    health(daemon, 2, "standby", "ok")
    health(daemon, 1, "offline", "offline")
    service.wait(b"sysinfo", b"sysinfo")
    health(daemon, 1, "standby", "ok")
    assert len([line for line in daemon.log_after(mark) if line == "signal => sysinfo"]) == 1


def test_change_of_the_setting_holds_at_once(daemon, service):
    daemon.store_settings({"crec": {"Syn1001_CheckLineStatus": "0,1"}})
    try:
        mark = daemon.mark()
        health(daemon, 1, "offline", "offline")
        health(daemon, 2, "offline", "offline")
        service.wait(b"sysinfo")
        daemon.wait_line("signal =>", mark)
        assert [line for line in daemon.log_after(mark) if line.startswith("signal")] == ["signal => sysinfo"]
    finally:
        daemon.store_settings({"crec": {"Syn1001_CheckLineStatus": "1"}})
        health(daemon, 1, "standby", "ok")
        health(daemon, 2, "standby", "ok")


def test_loud_voice_raises_the_alarm_once(daemon, service):
    mark = daemon.mark()
    daemon.cards("ch 6 play tone 440 -3", "ch 6 offhook")
    call = daemon.active_call(7)
    daemon.wait_line("[7] Loud audio detected", mark)
    service.wait(b"email -loud " + call["remoteid"].encode())
    wait_until("its category", lambda: daemon.active_call(7)["category"] == 1)
    time.sleep(2.5)  # time enough for a second alarm
    daemon.cards("ch 6 onhook")
    assert daemon.finished_call(call["remoteid"])["category"] == 1
    service.wait(b"email -loud " + call["remoteid"].encode())


def test_quiet_voice_and_call_progress_tones_do_not(daemon, service):
    mark = daemon.mark()
    daemon.cards("ch 6 play tone 440 -45", "ch 6 offhook")
    time.sleep(2.5)
    daemon.cards("ch 6 tone busy", "ch 6 play tone 440 -3")
    time.sleep(2.5)
    daemon.cards("ch 6 tone none", "ch 6 onhook")
    daemon.wait_line("[7] Recording stopped", mark)
    assert service.messages == []


def call_to_mail(daemon, line):
    """A call of which a mail is asked for: its row."""
    mark = daemon.mark()
    daemon.cards(f"ch {line - 1} offhook", f"ch {line - 1} dtmf *1")
    daemon.wait_line(f"[{line}] Action to perform: email", mark)
    call = daemon.active_call(line)
    daemon.cards(f"ch {line - 1} onhook")
    return daemon.finished_call(call["remoteid"])


def test_recording_is_mailed_to_the_user_of_the_line(daemon, service):
    finished = call_to_mail(daemon, 8)
    service.wait(b"email -recid %d 31" % finished["id"])


def test_recording_of_a_line_without_user_is_not_mailed(daemon, service):
    call_to_mail(daemon, 4)
    # Messages keep their order: a mail of that call would come before the one of this.
    finished = call_to_mail(daemon, 8)
    service.wait(b"email -recid %d 31" % finished["id"])


# -- a service that does not work --------------------------------------------------------------------------------------


def pass_call(daemon):
    """A call and an order, through all that the daemon does with them."""
    daemon.cards("ch 1 offhook")
    call = daemon.active_call(2)
    assert order("chst 2") == "OK\n"
    daemon.cards("ch 1 onhook")
    daemon.finished_call(call["remoteid"])


def alarm(daemon):
    """A message to the service is on its way: the mail for a call on line 8; the log before it."""
    mark = daemon.mark()
    daemon.cards("ch 7 offhook", "ch 7 dtmf *1")
    daemon.wait_line("[8] Action to perform: email", mark)
    daemon.cards("ch 7 onhook")
    daemon.wait_line("Signal: email -recid ", mark)
    return mark


def check_undelayed(daemon, complaint):
    """A call begins and ends while a message waits, until the daemon gives it up with `complaint`. On a busy machine it
    may be given up before; a daemon that waits with it never does all else first."""

    def call_ends_first():
        mark = alarm(daemon)
        pass_call(daemon)
        first = complaint not in daemon.log_after(mark)
        daemon.wait_line(complaint, mark)
        return first

    assert any(call_ends_first() for _ in range(TRIES))


def test_absent_service_costs_one_line_of_log(daemon):
    mark = alarm(daemon)
    daemon.wait_line("Error connecting to socket", mark)
    pass_call(daemon)
    assert daemon.log_after(mark).count("Error connecting to socket") == 1


def test_service_that_does_not_reply_delays_nothing(daemon):
    service = Service(reply=None)
    check_undelayed(daemon, "Error reading reply from socket")
    service.close()


@pytest.mark.parametrize("reply, complaint", [(b"NO\r\n", "NO"), (b"OK\n", "OK"), (b"", "")])
def test_service_that_replies_otherwise_is_logged(daemon, reply, complaint):
    service = Service(reply=reply)
    mark = alarm(daemon)
    assert daemon.wait_line("Error socket reply: ", mark) == "Error socket reply: " + complaint
    service.close()


# -- state files -----------------------------------------------------------------------------------------------------


def chstate(line):
    path = DATA / f"chstate_{line}.dat"
    path.unlink(missing_ok=True)
    assert order(f"chst {line}") == "OK\n"
    return path.read_bytes()


def test_state_file_of_an_idle_line(daemon):
    assert chstate(5) == b"Voltage: 48\r\n"
    daemon.cards("ch 4 voltage -7")
    wait_until("read anew", lambda: chstate(5) == b"Voltage: -7\r\n")
    daemon.cards("ch 4 voltage 48")


def test_state_file_tells_the_level_during_a_call(daemon):
    """0 dB is full scale in the simulator; the daemon's scale is its own, and a tone of 20 dB less shows as 20 less."""
    daemon.cards("ch 6 play tone 440 -10", "ch 6 offhook")

    def level():
        lines = chstate(7).split(b"\r\n")
        assert lines[0] == b"Voltage: 8" or lines[0] == b"Voltage: 48"
        assert lines[-1] == b"" and len(lines) <= 3
        return int(lines[1].split(b"AudioLevel: ")[1]) if len(lines) == 3 else None

    loud = wait_until("a level", level)
    daemon.cards("ch 6 play tone 440 -30")
    wait_until("a level 20 dB lower", lambda: abs(level() - (loud - 20)) <= 1)
    assert chstate(7).startswith(b"Voltage: 8\r\nAudioLevel: ")
    daemon.cards("ch 6 onhook")
    wait_until("the call is finished", lambda: rows("SELECT id FROM ActiveCalls") == [])
    assert chstate(7) in (b"Voltage: 8\r\n", b"Voltage: 48\r\n")


# -- the end ---------------------------------------------------------------------------------------------------------


def test_hanging_service_delays_nothing_not_even_the_stop(daemon):
    """Last: it ends the daemon. A service that listens and accepts nobody, with its backlog full."""
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    Path(SERVICE).unlink(missing_ok=True)
    listener.bind(SERVICE)
    listener.listen(0)
    waiting = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    waiting.connect(SERVICE)
    check_undelayed(daemon, "Error connecting to socket")
    alarm(daemon)
    assert daemon.stop() == 0
    assert daemon.log_after(0)[-1] == "MORVEX-CREC exit"
    assert not LINE_STATUS.exists()
    waiting.close()
    listener.close()
    assert os.path.exists(SERVICE)
