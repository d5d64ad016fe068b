"""The whole daemon under test, seen as its users see it: process, log, cards, database rows and files.

Runs inside `script/sandbox --postgres` only (CTest does that), so all paths are the daemon's ordinary ones and belong
to this one test file. The daemon takes a while to come up, so the tests of a file share one daemon where they can:

    CARDS = "card ATP8 1001 8"                      # the simulated cards, see docs/simulator.md
    SETTINGS = {"s": {"RecMinDur": "2"}}            # rows of Configs by part, beside those every run needs

    def test_something(daemon):
        daemon.cards("ch 0 offhook")                # one cardsim action
        daemon.wait_line("[1] Call starts")
        ...

Waiting is always for a condition, with LIMIT_S as the time after which the test fails.
"""

import itertools
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
from contextlib import contextmanager
from pathlib import Path

# Also for the tests, which ask this module alone.
from appliance import BUILD, RECORDINGS, SOURCE, path_of, quote, rows, sql, store_settings  # noqa: F401

DRIVER = Path("/usr/local/lib/shcti")

# A sanitizer or valgrind slows the daemon down, and other tests run beside this one.
LIMIT_S = 60

AUDIO_BYTES_PER_S = 8000
HEADER_BYTES = 56
BLOCK_BYTES = 2048  # what the card reports at once

PLACE = re.compile(rb"\0(\d+)\0")  # what tells a place in the log; no text that the daemon logs holds a NUL


def wait_until(what, condition, limit=LIMIT_S):
    """The condition's first true result; fails the test with `what` when there is none in time."""
    deadline = time.monotonic() + limit
    while True:
        result = condition()
        if result:
            return result
        assert time.monotonic() < deadline, f"not within {limit} s: {what}"
        time.sleep(0.02)


# -- database --------------------------------------------------------------------------------------------------------


def server(action):
    """Stops, kills, starts or restarts PostgreSQL."""
    subprocess.run([SOURCE / "script/sandbox-pg", action], check=True)


def statements():
    """The statements that the server has seen from all clients so far, in order."""
    mark = "LOG:  statement: "
    return [line[len(mark) :] for line in Path(os.environ["PGLOG"]).read_text().splitlines() if line.startswith(mark)]


# -- files -----------------------------------------------------------------------------------------------------------


def header(channels, length, law_tag=6):
    """The 56 bytes before the audio of a recording: A-law (6) or mu-law (7), `length` audio bytes."""

    def number(value, size):
        return value.to_bytes(size, "little")

    return b"".join(
        [
            b"RIFF" + number(length + 48, 4) + b"WAVEfmt " + number(16, 4),
            number(law_tag, 2) + number(channels, 2) + number(8000, 4) + number(8000 * channels, 4),
            number(channels, 2) + number(8, 2),
            b"fact" + number(4, 4) + number(length, 4) + b"data" + number(length, 4),
        ]
    )


def counting(count):
    """The first bytes that a recording holds while its line carries the simulator's counting pattern."""
    return bytes(k * 2654435761 % 2**32 >> 24 for k in range(count))


def counted_audio(path, shortest=1):
    """The audio of a finished recording that holds the counting pattern from its first byte to its last, all checked."""
    data = path.read_bytes()
    audio = data[HEADER_BYTES:]
    assert len(audio) >= shortest and len(audio) % BLOCK_BYTES == 0
    assert data[:HEADER_BYTES] == header(channels=1, length=len(audio))
    assert audio == counting(len(audio))
    return audio


def soxi(path, option):
    """What sox says about a file: `-D` seconds, `-e` encoding, `-r` rate, `-c` channels, `-s` samples."""
    return subprocess.run(["soxi", option, path], check=True, capture_output=True, text=True).stdout.strip()


# -- the daemon ------------------------------------------------------------------------------------------------------


class Daemon:
    """One life of `morvex_crec debug` with its simulated cards."""

    def __init__(self, cards, settings=None):
        self.lines = []
        self.numbers = itertools.count()
        self.places = {}  # by their numbers, those that are not yet taken
        self.changed = threading.Condition()
        self.process = None
        self.reader = None
        self.ended = None  # whether the log has
        self.install_cards(cards)
        store_settings({"s": {"crec": "1"}})
        store_settings(settings or {})
        Path("/var/morvex/conf/serial").write_text("E2E1\n")

    @staticmethod
    def install_cards(cards):
        tools = DRIVER / "CurrentVersion" / "tools"
        tools.mkdir(parents=True, exist_ok=True)
        (DRIVER / "simcards.conf").write_text(cards)
        shutil.copy(BUILD / "sim" / "config", tools)

    store_settings = staticmethod(store_settings)

    # MORVEX_WRAPPER puts the daemon under valgrind or a profiler, which would load the library for itself.
    def launch(self, argument="debug", power_up=True):
        """Starts the process and does not wait for anything. Without power_up its cards are up at once."""
        wrapper = os.environ.get("MORVEX_WRAPPER", "").split()
        command = wrapper + [str(BUILD / "src" / "morvex_crec"), argument]
        if not power_up and not wrapper:
            command = ["/usr/bin/env", f"LD_PRELOAD={BUILD / 'tests' / 'libpower_up.so'}", *command]
        self.process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd="/"
        )
        self.ended = threading.Event()
        self.reader = threading.Thread(target=self._read, args=(self.process.stdout, self.ended), daemon=True)
        self.reader.start()
        return self

    def start(self, power_up=False):
        """Starts the process and waits until it takes events from the cards."""
        self.launch(power_up=power_up)
        self.wait_line("** STARTED **")
        return self

    def wait_orders(self):
        """Waits until the control socket takes orders. The log tells it a moment before; it has the try as a message."""
        self.wait_line("reactor started")
        wait_until("connection to the control socket", can_connect)

    def _read(self, log, ended):
        data = b""
        more = True
        while more:
            piece = os.read(log.fileno(), 1 << 16)
            more = piece != b""
            parts = PLACE.split(data + piece)
            data = b""
            with self.changed:
                for text, number in itertools.zip_longest(parts[::2], parts[1::2]):
                    *whole, data = (data + text).split(b"\n")
                    self.lines += [raw.decode("utf-8", "backslashreplace") for raw in whole]
                    if number is not None:
                        self.places[int(number)] = len(self.lines)
                if not more:
                    if data:
                        self.lines.append(data.decode("utf-8", "backslashreplace"))
                    ended.set()
                self.changed.notify_all()

    def _place(self):
        """The number of lines that are written by now. It goes through the pipe behind them, as others may follow all the
        time: there need be no moment at which nothing is left to read."""
        if self.reader is None:
            return len(self.lines)
        number, ended = next(self.numbers), self.ended
        if not ended.is_set():
            pipe = os.open(f"/proc/self/fd/{self.process.stdout.fileno()}", os.O_WRONLY)
            try:
                os.write(pipe, b"\0%d\0" % number)
            finally:
                os.close(pipe)
        with self.changed:
            told = self.changed.wait_for(lambda: number in self.places or ended.is_set(), LIMIT_S)
            assert told, f"the log is not read within {LIMIT_S} s"
            return self.places.pop(number, len(self.lines))

    @property
    def pid(self):
        return self.process.pid

    @property
    def running(self):
        return self.process is not None and self.process.poll() is None

    # -- log ---------------------------------------------------------------------------------------------------------

    def mark(self):
        """The place in the log that a later wait_line or log_after begins at: behind all that is written by now."""
        return self._place()

    def log_after(self, mark):
        """What has been written by now."""
        return self.lines[mark : self._place()]

    def wait_line(self, text, mark=0, limit=LIMIT_S):
        """The first log line after `mark` that begins with `text`."""
        deadline = time.monotonic() + limit
        with self.changed:
            while True:
                for line in self.lines[mark:]:
                    if line.startswith(text):
                        return line
                left = deadline - time.monotonic()
                assert left > 0, f"not in the log within {limit} s: {text}"
                assert self.reader.is_alive(), f"daemon ended without the line: {text}"
                self.changed.wait(min(left, 0.5))

    # -- cards -------------------------------------------------------------------------------------------------------

    def cards(self, *actions):
        """Carries out cardsim actions, one after the other; each is one line as in a scenario file."""
        for action in actions:
            subprocess.run([BUILD / "sim" / "cardsim", *action.split()], check=True)

    # -- rows --------------------------------------------------------------------------------------------------------

    def active_call(self, line):
        """Waits for the one row of ActiveCalls of this line."""
        return wait_until(
            f"row in ActiveCalls of line {line}", lambda: rows(f"SELECT * FROM ActiveCalls WHERE linenr = {line}")
        )[0]

    def finished_call(self, remoteid):
        """Waits until the call with this id has moved to Calls."""
        return wait_until(f"row in Calls of {remoteid}", lambda: rows(f"SELECT * FROM Calls WHERE remoteid = '{remoteid}'"))[
            0
        ]

    # -- end ---------------------------------------------------------------------------------------------------------

    def terminate(self):
        self.process.send_signal(signal.SIGTERM)

    def wait_exit(self, limit=LIMIT_S):
        """The exit status, negative for a signal, when the process has ended by itself and its log is read."""
        status = self.process.wait(limit)
        self.reader.join(limit)
        return status

    def stop(self):
        self.terminate()
        return self.wait_exit()

    def kill(self):
        self.process.kill()
        return self.wait_exit()


CONTROL_SOCKET = "/tmp/morvex_crec"


def can_connect():
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        return client.connect_ex(CONTROL_SOCKET) == 0


@contextmanager
def control_client(limit=LIMIT_S):
    """A connection to the control socket. With a time-out of Python's own, connecting would fail on a full backlog."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        for option in (socket.SO_RCVTIMEO, socket.SO_SNDTIMEO):
            client.setsockopt(socket.SOL_SOCKET, option, struct.pack("@qq", limit, 0))
        client.connect(CONTROL_SOCKET)
        yield client


def order(command):
    """The daemon's answer to one command on its control socket."""
    with control_client() as client:
        client.sendall(command.encode())
        return b"".join(iter(lambda: client.recv(4096), b"")).decode()
