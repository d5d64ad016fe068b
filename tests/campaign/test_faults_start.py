"""What can go wrong while the daemon starts: each row is a start of its own, with short waits for the cards."""

import ctypes
import os
import re
import signal
import struct
import subprocess
import threading
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable

import pytest

from bench import Bench, pattern, rows_of

from harness import LIMIT_S, can_connect, order, server, sql, wait_until
from test_neighbour import NOBODY

CARD = "card ATP8 1001 8\n"
STATION_CARD = "card DST8 1001 8\n"
DATA = Path("/var/morvex/data")
CONTROL_SOCKET = Path("/tmp/morvex_crec")
HAPPENINGS = {0x2: "written", 0x100: "made", 0x200: "removed", 0x40: "renamed from", 0x80: "renamed to"}
SECRET = Path("/var/secret")
QUICK = {"sleep_divisor": 10}
NO_SERVER = 'DB connect error {n} connection to server on socket "/var/run/postgresql/.s.PGSQL.5432" failed: {text}'
NO_SERVICE = "Error connecting to socket"  # no row has one


@dataclass
class Start:
    """A start with a misfortune. What it reports, whether it records then, and what else is looked at."""

    name: str
    cards: str = CARD
    settings: dict = field(default_factory=dict)
    control: dict = field(default_factory=dict)
    before: str = ""
    fault: Callable = None
    report: list = field(default_factory=list)
    may: list = field(default_factory=lambda: [NO_SERVICE])
    records: bool = True
    story: Callable = None
    exit_status: int = 0
    stop_s: int = LIMIT_S
    long: bool = False


@contextmanager
def nothing(_bench):
    yield


@contextmanager
def late_server(bench):
    """The database comes up when the daemon has asked for it in vain."""
    server("stop")
    asked = pattern(NO_SERVER)

    def come():
        wait_until("a first try", lambda: any(asked.fullmatch(line) for line in bench.daemon.log_after(0)))
        server("start")

    thread = threading.Thread(target=come, daemon=True)
    thread.start()
    yield
    thread.join()


def watched(folder):
    """From now on the kernel tells what happens to the names of a folder; the result gives all of that, in order."""
    libc = ctypes.CDLL(None, use_errno=True)
    inotify = libc.inotify_init1(os.O_CLOEXEC)
    assert libc.inotify_add_watch(inotify, bytes(folder), sum(HAPPENINGS)) >= 0, os.strerror(ctypes.get_errno())

    def happenings():
        data = os.read(inotify, 1 << 20)
        os.close(inotify)
        found = []
        while data:
            _, what, _, length = struct.unpack_from("iIII", data)
            found.append((data[16 : 16 + length].rstrip(b"\0").decode(), HAPPENINGS[what]))
            data = data[16 + length :]
        return found

    return happenings


@contextmanager
def full_data_disk(_bench):
    """/var/morvex/data has no room, and the driver's configuration of the last start is there."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k,mode=755", "data", DATA], check=True)
    tuned = DATA / "ShConfig.ini"
    tuned.write_text("[Tuned]\n" + "".join(f"ByHand{k}=1\n" for k in range(900)))
    subprocess.run(["dd", "if=/dev/zero", f"of={DATA}/filler", "bs=4096"], stderr=subprocess.DEVNULL, check=False)
    before = tuned.read_bytes()
    happenings = watched(DATA)
    try:
        yield
        assert os.statvfs(DATA).f_bavail == 0
        # A new one was begun, nothing came into it, and it went.
        found = [what for what in happenings() if what[0].startswith(tuned.name)]
        assert found == [(f"{tuned.name}.tmp", "made"), (f"{tuned.name}.tmp", "removed")]
        assert tuned.read_bytes() == before
    finally:
        subprocess.run(["umount", "-l", DATA], check=True)


@contextmanager
def taken_socket(_bench):
    """Somebody has made a folder where the control socket is to be."""
    subprocess.run(["rm", "-rf", CONTROL_SOCKET], check=True)
    CONTROL_SOCKET.mkdir()
    try:
        yield
    finally:
        CONTROL_SOCKET.rmdir()


def neighbour_at_the_socket(command):
    """User nobody was first under the name of the control socket. It makes way, and nothing that it leads to changes."""

    @contextmanager
    def fault(_bench):
        subprocess.run(["rm", "-rf", CONTROL_SOCKET, SECRET], check=True)
        SECRET.write_text("nobody shall read this\n")
        SECRET.chmod(0o600)
        subprocess.run([*NOBODY, *command, CONTROL_SOCKET], check=True)
        before = SECRET.stat()
        yield
        assert (SECRET.read_text(), SECRET.stat()[:4]) == ("nobody shall read this\n", before[:4])

    return fault


def takes_orders(bench):
    bench.daemon.wait_orders()
    assert order("warm up") == "E0: Unknown commmand\n"


def no_orders(_bench):
    assert not can_connect()


def refused(operation, report=(), **other):
    cards = other.pop("cards", CARD) + f"fail {operation} 1\n"
    story = None if report else was_called
    return Start(f"{operation} refused at the start", cards=cards, report=list(report), story=story, **other)


def two_tries_failed(bench):
    tries = [line for line in bench.daemon.log_after(0) if line.startswith("Could not (yet) start: ")]
    assert tries == ["Could not (yet) start: SsmStartCti: Board 0 is not ready"] * 2


def hears_of_children_again(bench):
    """The command that became the daemon had SIGCHLD ignored, and tells so; the daemon has not."""
    assert "CHLD       (17): IGNORE" in bench.daemon.log_after(0)
    status = Path(f"/proc/{bench.daemon.pid}/status").read_text()
    ignored = int(re.search(r"SigIgn:\s+(\w+)", status)[1], 16)
    assert not ignored >> (signal.SIGCHLD - 1) & 1


def was_called(bench):
    """What was to be refused has been: nothing is left of that order."""
    assert not [line for line in bench.cards.do("status") if line.startswith("fail=")]


ROWS = [
    Start(
        "SIGCHLD ignored at the start",
        before="/usr/bin/env --ignore-signal=CHLD /usr/bin/env --list-signal-handling",
        settings={"o": {"RecEnc": "mp3"}},
        story=hears_of_children_again,
    ),
    Start("database late", fault=late_server, report=[NO_SERVER]),
    Start("driver ready at the third try", cards="start_failures 2\n" + CARD, story=two_tries_failed),
    Start(
        "driver never ready",
        cards="start_failures 9999\n" + CARD,
        report=["Error in SsmStartCti: SsmStartCti: Board 0 is not ready"],
        records=False,
        exit_status=1,
        long=True,  # it is tried for 20 seconds
    ),
    refused("SsmSetLogAttribute", settings={"o": {"TdmLogApi": "1"}}),
    refused("SsmGetMaxCh"),
    refused("SsmGetChType"),
    refused("SsmGetChHdInfo"),
    refused("SsmGetDllVersion"),
    refused("SsmGetMaxUsableBoard"),
    refused("SsmSetRecVolume"),
    refused("SsmSetRecAGC"),
    refused("SsmSetEvent", ["Error in SsmSetEvent: simulated failure"], records=False),
    refused("DTRSetMixerVolume", ["Error in DTRSetMixerVolume: simulated failure"], cards=STATION_CARD),
    refused("SsmSetBargeInSens", cards=STATION_CARD),
    refused("SsmGetChState"),
    Start("no thread for the service", control={"threads_left": 0, "refuse_threads": 1}),
    Start("no thread for one worker", control={"threads_left": 1, "refuse_threads": 1}),
    Start("no thread for both workers", control={"threads_left": 1, "refuse_threads": 2}),
    Start(
        "no thread for the orders",
        control={"threads_left": 5, "refuse_threads": 1},  # service, two workers, two of the card library
        report=["Socket communication error: thread: Resource temporarily unavailable"],
        story=no_orders,
    ),
    Start(
        "control socket's name taken",
        fault=taken_socket,
        report=[
            "Socket communication error: bind: Address already in use",
            "Socket communication error: Failure, could not start listening.",
        ],
        story=no_orders,
    ),
    Start(
        "a neighbour's link at the control socket's name",
        fault=neighbour_at_the_socket(["ln", "-s", SECRET]),
        story=takes_orders,
    ),
    Start(
        "a neighbour's FIFO at the control socket's name",
        fault=neighbour_at_the_socket(["mkfifo"]),
        story=takes_orders,
    ),
    Start(
        "no room for the driver's configuration",
        fault=full_data_disk,
        report=[
            "C-api error at Update of /var/morvex/data/ShConfig.ini: No space left on device",
            "Error in SsmStartCti: SsmStartCti: [SystemConfig] lacks TotalBoards",  # the one that is there
        ],
        records=False,
        exit_status=1,
        long=True,  # it is tried for 20 seconds
    ),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_start(request, row):
    sql("DELETE FROM Configs; DELETE FROM ActiveCalls; DELETE FROM Calls")
    bench = Bench(row.cards, row.settings, campaign="faults_start")
    request.module.DAEMON = bench.daemon
    for name, value in {**QUICK, **row.control}.items():
        bench.control.set(name, value)
    try:
        with (row.fault or nothing)(bench):
            bench.launch(before=row.before)
            if row.records or row.story:
                bench.daemon.wait_line("** STARTED **")
                bench.connect_cards()
            for line in row.report:
                bench.wait_report(line, 0)
            if row.story:
                row.story(bench)
            if row.records:
                bench.clean_call()
                bench.settle()
            else:
                wait_until("an end or a wait", lambda: not bench.daemon.running or row.story or idle(bench))
        bench.check_trouble(row, 0)
        for name, value in row.control.items():
            bench.control.check_met(name, value, bench.control.applied(name))
        bench.control.reset()
        bench.daemon.terminate()
        assert bench.daemon.wait_exit(row.stop_s) == row.exit_status
    finally:
        if bench.daemon.running:
            bench.daemon.kill()
        bench.forget_cards()


def idle(bench):
    return any(line == "waiting for exit" for line in bench.daemon.log_after(0))
