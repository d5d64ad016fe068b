"""The control socket: each command with each of its replies, and clients that mean no good."""

import os
import socket
import subprocess
import threading
import time
from contextlib import contextmanager
from pathlib import Path

import pytest

from harness import control_client, order, rows, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"o": {"SilOnDemand": "1", "DelOnDmdType": "1"}}  # recording on demand stays off
SOCKET = "/tmp/morvex_crec"
OK = "OK\n"
UNKNOWN_COMMAND = "E0: Unknown commmand\n"
UNKNOWN_CALL = "E2: unknown call\n"
TIME_OUT = "E4: time-out\n"
NO_CALL = "20240131_142305_007_42"


@pytest.fixture(scope="module", autouse=True)
def started(daemon):
    """The main thread has done what was queued at the start: an order behind that would wait longer than it may, and its
    late completion would answer the next one. Nobody waits for "reconfig", so it leaves no completion behind."""
    daemon.wait_orders()
    daemon.wait_line("signal => sysinfo")

    def is_answered_in_time():
        mark = daemon.mark()
        order("reconfig")
        daemon.wait_line("RecOnDmd item", mark)  # the last line of the settings it loads
        mark = daemon.mark()
        reply = order(f"silence {NO_CALL}")
        daemon.wait_line("reactor reply: E", mark)  # the log of the first test begins behind it
        return reply == UNKNOWN_CALL

    wait_until("an order is answered in time", is_answered_in_time)


def send(data):
    """The whole reply to one write of these bytes. A daemon that closes with bytes unread gives a reset after it."""
    with control_client() as peer:
        peer.sendall(data)
        return read_reply(peer)


def read_reply(peer):
    reply = b""
    try:
        while piece := peer.recv(4096):
            reply += piece
    except ConnectionResetError:
        pass
    return reply.decode()


@pytest.fixture
def call(daemon):
    """A call on line 1 that is being recorded."""
    mark = daemon.mark()
    daemon.cards("ch 0 offhook")
    active = daemon.active_call(1)
    yield active
    daemon.cards("ch 0 onhook")
    daemon.wait_line("[1] Call stops", mark)
    wait_until("the call is finished", lambda: rows("SELECT * FROM ActiveCalls") == [])


class TableLock:
    """A session that locks ActiveCalls, so that the daemon's main thread stays in its next statement on it."""

    def __init__(self):
        self.psql = subprocess.Popen(["psql", "-Xq"], stdin=subprocess.PIPE, text=True, bufsize=1)
        self.psql.stdin.write("BEGIN; LOCK TABLE ActiveCalls;\n")

    def release(self):
        self.psql.stdin.write("COMMIT;\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.psql.stdin.close()  # ends its transaction too
        assert self.psql.wait(60) == 0


def wait_locks(granted, waiting):
    state = [{"granted": granted, "waiting": waiting}]
    query = (
        "SELECT count(*) FILTER (WHERE l.granted) AS granted, count(*) FILTER (WHERE NOT l.granted) AS waiting"
        " FROM pg_locks l JOIN pg_class c ON c.oid = l.relation WHERE c.relname = 'activecalls'"
    )
    wait_until(f"{granted} locks granted and {waiting} waiting", lambda: rows(query) == state)


@contextmanager
def busy_main_thread(daemon):
    """Calls on lines 7 and 8 begin while ActiveCalls is locked, so that their first statement holds the main thread."""
    mark = daemon.mark()
    with TableLock() as lock:
        wait_locks(1, 0)
        daemon.cards("ch 6..7 offhook")
        wait_locks(1, 1)
        yield lock
    daemon.cards("ch 6..7 onhook")
    for line in (7, 8):
        daemon.wait_line(f"[{line}] Call stops", mark)
    wait_until("their rows are gone", lambda: rows("SELECT id FROM ActiveCalls WHERE linenr > 6") == [])


# -- commands ----------------------------------------------------------------------------------------------------------


def test_socket_is_open_to_all(daemon):
    assert Path(SOCKET).stat().st_mode & 0o777 == 0o766


def test_command_reply_and_log(daemon):
    mark = daemon.mark()
    assert order(f"silence {NO_CALL}") == UNKNOWN_CALL
    daemon.wait_line("reactor reply: E2", mark)
    # Workers log beside the reactor.
    assert [line for line in daemon.log_after(mark) if line.startswith(("Msg received", "Command:", "reactor"))] == [
        f"Msg received: silence {NO_CALL}",
        f"Command: 'silence' Param: '{NO_CALL}'",
        "reactor reply: E2: unknown call",
    ]


@pytest.mark.parametrize("command", ["sound", "silence", "start", "stop", "delete"])
def test_call_command_without_its_call(daemon, command):
    assert order(f"{command} {NO_CALL}") == UNKNOWN_CALL


@pytest.mark.parametrize(
    "command, reply",
    [
        ("silence", OK),
        ("sound", OK),
        ("start", "E3: option RecOnDmd is off\n"),
        ("stop", "E3: option RecOnDmd is off\n"),
        ("delete", OK),
    ],
)
def test_call_command_with_its_call(daemon, call, command, reply):
    assert order(f"{command} {call['remoteid']}") == reply


@pytest.mark.parametrize("parameter", ["{} ", " {}", "{}\n", "{}x", "{}|"])
def test_call_id_is_compared_whole(daemon, call, parameter):
    assert order("silence " + parameter.format(call["remoteid"])) == UNKNOWN_CALL


def test_call_command_without_id_means_the_first_line_without_call(daemon, call):
    mark = daemon.mark()
    assert order("silence ") == OK
    daemon.wait_line("[2] Silencing set to 1", mark)
    assert order("sound") == OK
    daemon.wait_line("[2] Silencing set to 0", mark)


def set_delete_on_demand(daemon, value):
    mark = daemon.mark()
    daemon.store_settings({"o": {"DelOnDmdType": value}})
    assert order("reconfig") == OK
    daemon.wait_line(f"DelOnDmdType: {value}", mark)


def test_delete_is_refused_while_its_option_is_off(daemon, call):
    set_delete_on_demand(daemon, "0")
    try:
        assert order(f"delete {call['remoteid']}") == "E3: option DelOnDmd is off\n"
    finally:
        set_delete_on_demand(daemon, "1")


def test_state_of_a_line(daemon):
    path = Path("/var/morvex/data/chstate_2.dat")
    path.unlink(missing_ok=True)
    assert order("chst 2") == OK
    assert path.read_bytes().startswith(b"Voltage: 48\r\n")  # written before the reply


@pytest.mark.parametrize(
    "number", ["0", "9", "-1", "99999999999999999999", "-99999999999999999999", "2147483648", "two", "", " ", "0x1"]
)
def test_state_of_a_line_that_does_not_exist_is_ok(daemon, number):
    files = sorted(Path("/var/morvex/data").glob("chstate_*"))
    assert order(f"chst {number}") == OK
    assert sorted(Path("/var/morvex/data").glob("chstate_*")) == files


def test_trace_that_does_not_run_cannot_be_stopped(daemon):
    assert order("bittrace_stop") == "ERR: already stopped\n"
    assert order("bittrace_stop 5") == "ERR: already stopped\n"


def test_reconfig_takes_any_parameter(daemon):
    mark = daemon.mark()
    assert order("reconfig") == OK
    daemon.wait_line("DelOnDmdType: 1", mark)
    mark = daemon.mark()
    assert order("reconfig now and then") == OK
    daemon.wait_line("DelOnDmdType: 1", mark)


def in_time(message):
    """The reply to an order that changes nothing when it is repeated. What workers have finished of the calls before
    may stand in front of it for longer than it waits."""
    replies = (order(message) for _ in range(10))
    return next((reply for reply in replies if reply != TIME_OUT), TIME_OUT)


@pytest.mark.parametrize(
    "before, reply",
    [("silence {}", OK), (f"silence {NO_CALL}", UNKNOWN_CALL), ("start {}", ""), ("delete {}", OK)],
    ids=["done", "unknown", "refused", "deleted"],
)
@pytest.mark.parametrize("parameter", ["", "22", "22|0301234567", "22|0301234567|0", "22|0301234567|1|more"])
def test_change_local_replies_by_the_command_before(daemon, call, before, reply, parameter):
    order(before.format(call["remoteid"]))
    assert in_time("chst 1") == OK  # changes nothing about it
    assert in_time("change_local " + parameter) == reply


@pytest.mark.parametrize(
    "message",
    [
        b"",
        b"reconfig\n",
        b"chst\n1",
        b" reconfig",
        b"RECONFIG",
        b"silenc x",
        b"silences x",
        b"reconfig\t",
        b"\0reconfig",
        bytes(range(128, 228)),
        b"%s%n%s%n",
        b"'; DROP TABLE Calls; --",
    ],
)
def test_what_is_no_command(daemon, message):
    if message:
        assert send(message) == UNKNOWN_COMMAND
    else:
        with control_client() as peer:
            peer.shutdown(socket.SHUT_WR)
            assert read_reply(peer) == UNKNOWN_COMMAND


def test_bytes_after_nul_do_not_count(daemon):
    assert send(b"reconfig\0 and what not") == OK


# -- a busy main thread ----------------------------------------------------------------------------------------------


WAITING_COMMANDS = ["sound x", "silence x", "start x", "stop x", "delete x", "chst 1", "change_local 1|2|0"]


def test_busy_main_thread_shows_as_time_out(daemon):
    with busy_main_thread(daemon):
        for command in WAITING_COMMANDS:
            started = time.monotonic()
            assert order(command) == TIME_OUT
            assert 0.35 <= time.monotonic() - started < 5
        # These are not waited for.
        assert order("reconfig") == OK
        assert order("bittrace_stop") == "ERR: already stopped\n"
        assert order("what") == UNKNOWN_COMMAND
    wait_until("served again", lambda: order(f"silence {NO_CALL}") == UNKNOWN_CALL)


def test_command_that_timed_out_takes_effect_later(daemon, call):
    mark = daemon.mark()
    with busy_main_thread(daemon):
        assert order(f"silence {call['remoteid']}") == TIME_OUT
        assert not [line for line in daemon.log_after(mark) if "Silencing" in line]
    daemon.wait_line("[1] Silencing set to 1", mark)
    silenced = f"SELECT callextra FROM ActiveCalls WHERE id = {call['id']}"
    wait_until("its row tells", lambda: rows(silenced) == [{"callextra": "silencing: 1\r\n"}])


def test_late_completion_answers_the_command_behind_it(daemon, call):
    """A pass of the main loop handles one event and then one action. So the late "start" runs behind the event of line
    7, and the event of line 8 holds the main thread again before it comes to "delete", whose client gets the result of
    "start": refused, in the words of "delete"."""
    mark = daemon.mark()
    with busy_main_thread(daemon) as first:
        with TableLock() as second:
            wait_locks(1, 2)  # behind the main thread, before its next statement
            assert order(f"start {call['remoteid']}") == TIME_OUT
            with control_client() as peer:
                peer.sendall(b"delete " + NO_CALL.encode())
                daemon.wait_line("Command: 'delete'", mark)
                first.release()
                assert read_reply(peer) == "E3: option DelOnDmd is off\n"
    daemon.wait_line("[1] RecOnDmd not done, the option is off", mark)
    assert order(f"stop {NO_CALL}") == UNKNOWN_CALL


# -- clients ---------------------------------------------------------------------------------------------------------


def test_message_is_cut_at_hundred_bytes(daemon):
    mark = daemon.mark()
    assert send(b"silence " + b"1" * 92 + b"2" * 900) == UNKNOWN_CALL
    daemon.wait_line("Command: 'silence' Param: '" + "1" * 92 + "'", mark)


def test_first_piece_of_a_split_command_is_the_command(daemon):
    with control_client() as peer:
        peer.sendall(b"recon")
        time.sleep(0.5)  # the daemon takes what is there
        try:
            peer.sendall(b"fig")
        except (BrokenPipeError, ConnectionResetError):
            pass
        assert read_reply(peer) == UNKNOWN_COMMAND
    assert order("reconfig") == OK


def test_client_that_goes_away_at_once(daemon):
    mark = daemon.mark()
    for _ in range(20):
        with control_client():
            pass
    assert order("reconfig") == OK

    def replies():
        return [line for line in daemon.log_after(mark) if line.startswith("reactor reply")]

    # The log reaches the test behind the reply, so it may begin with that of the test before.
    wait_until("the log of all replies", lambda: len(replies()) > 20 and replies()[-1] == "reactor reply: OK")
    assert replies()[-21:] == ["reactor reply: E0: Unknown commmand"] * 20 + ["reactor reply: OK"]


def test_client_that_does_not_wait_for_its_reply(daemon):
    for command in [b"reconfig", b"silence x", b"nonsense"]:
        for _ in range(20):
            with control_client() as peer:
                peer.sendall(command)
    assert order("reconfig") == OK


def test_client_that_never_reads(daemon):
    with control_client() as peer:
        peer.sendall(b"reconfig")
        assert order("reconfig") == OK  # served while the other one keeps its reply unread
        assert read_reply(peer) == OK


def test_silent_client_is_left_after_its_time(daemon):
    with control_client() as silent:
        started = time.monotonic()
        assert order("reconfig") == OK
        assert 4 < time.monotonic() - started < 30
        assert read_reply(silent) == UNKNOWN_COMMAND


def descriptors(daemon):
    return len(os.listdir(f"/proc/{daemon.pid}/fd"))


def test_thousand_clients_in_a_row(daemon):
    assert order("reconfig") == OK
    before = descriptors(daemon)
    for i in range(1000):
        assert send(b"nothing %d" % i) == UNKNOWN_COMMAND
    wait_until("connections closed", lambda: descriptors(daemon) <= before)


def test_many_clients_at_once_get_their_own_replies(daemon):
    # None of these waits for the main thread, which would tell some of so many clients to be out of time.
    stopped = "ERR: already stopped\n"
    commands = {"bittrace_stop": stopped, "bittrace_stop 7": stopped, "hello": UNKNOWN_COMMAND, "sounds": UNKNOWN_COMMAND}
    replies = []
    threads = [threading.Thread(target=lambda c=command: replies.append((c, order(c)))) for command in [*commands] * 8]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert sorted(replies) == sorted([*commands.items()] * 8)


# -- the end ---------------------------------------------------------------------------------------------------------


def test_silent_client_does_not_hold_up_the_stop(daemon):
    """Last: it ends the daemon."""
    with control_client():
        time.sleep(0.3)  # it is the one that the reactor listens to
        mark = daemon.mark()
        started = time.monotonic()
        assert daemon.stop() == 0
        assert time.monotonic() - started < 30
    assert "reactor exit" in daemon.log_after(mark)
    assert Path(SOCKET).exists()  # the next start removes it
