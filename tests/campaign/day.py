"""A busy day: lines of every kind whose calls begin and end all the time, each carrying a sound that is known byte by
byte, and tools for conversion and encryption that keep what a check needs. And the checks: is this file that recording,
whole?

A mode is what the daemon reads at its start: encoding, stereo, and where clear audio lies while it is being encrypted.
"""

import hashlib
import os
import random
import socket
import socketserver
import subprocess
import threading
import time
from dataclasses import dataclass
from pathlib import Path

from harness import HEADER_BYTES, RECORDINGS, header
from trunk import mixing_table

CARDS = """
card ATP8 1001 8
card DST-8 2001 8
card DTP-60 3001 60
"""
ANALOGUE_LINES = range(1, 9)
STATION_LINES = range(9, 17)
TRUNK_LINES = range(17, 47)
PARTNER = 30  # further than the driver channel that a circuit's line is named after

# -- tools -----------------------------------------------------------------------------------------------------------

TOOLS = Path("/tmp/tools")
ORIGINALS = Path("/tmp/originals")  # what the conversions were made from

SOX = f"""#!/bin/sh
cp -- "$1" "{ORIGINALS}/" && sleep 0.2 && exec /usr/bin/sox "$@"
"""
# Turns each byte by one, in two steps, so that an encryption can be met half done.
CRYPT = """#!/bin/sh
turn() { tr '\\000-\\377' '\\001-\\377\\000'; }
half=$(($(stat -c %s -- "$3") / 2))
{ head -c "$half" -- "$3" | turn; sleep 0.2; tail -c "+$((half + 1))" -- "$3" | turn; } >"$5"
"""
TURN_BACK = bytes([255, *range(255)])


def install_tools():
    """Puts the tools before all others for the daemons that are started from here."""
    for folder in (TOOLS, ORIGINALS):
        folder.mkdir(exist_ok=True)
    for name, text in (("sox", SOX), ("morvex_crypt", CRYPT)):
        (TOOLS / name).write_text(text)
        (TOOLS / name).chmod(0o755)
    if str(TOOLS) not in os.environ["PATH"].split(":"):
        os.environ["PATH"] = f"{TOOLS}:{os.environ['PATH']}"


class Service(socketserver.UnixStreamServer):
    """The appliance's service, which agrees to every message."""

    class Reply(socketserver.StreamRequestHandler):
        def handle(self):
            self.request.recv(4096)
            self.request.sendall(b"OK\r\n")

    def __init__(self):
        super().__init__("/tmp/morvex", self.Reply)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def stop(self):
        self.shutdown()
        self.server_close()
        Path("/tmp/morvex").unlink()


# -- modes -----------------------------------------------------------------------------------------------------------

CLEAR, DISK, MEMORY = "clear", "disk", "memory"
WORK_ROOTS = {CLEAR: RECORDINGS, DISK: RECORDINGS / "rectmp", MEMORY: Path("/dev/shm/morvex")}


@dataclass(frozen=True)
class Mode:
    encoding: str  # alaw, ulaw, gsm, mp3
    stereo: bool
    secrecy: str  # CLEAR, or where audio waits for its encryption
    late: bool = False  # the machine was too slow for its cards: there is no telling what audio the files should hold

    def __str__(self):
        return f"{self.encoding}{'-stereo' if self.stereo else ''}-{self.secrecy}"

    @property
    def settings(self):
        return {
            "s": {"crec": "1"},
            "crec": {"Syn2001_PBXType": "Siemens HiPath"},
            "o": {
                "RecEnc": self.encoding,
                "RecStereo": str(int(self.stereo)),
                "ALE": str(int(self.secrecy != CLEAR)),
                "AleDisk": str(int(self.secrecy == DISK)),
                "CalcChecksum": "md5",
                "RecLocal": "1",
            },
        }

    @property
    def law_tag(self):
        return 7 if self.encoding == "ulaw" else 6

    @property
    def converts(self):
        return self.encoding in ("gsm", "mp3")

    @property
    def extension(self):
        return ".mp3" if self.encoding == "mp3" else ".wav"


# sox makes no GSM of two channels, and the model of mixing here knows A-law alone.
MODES = [
    Mode(encoding, stereo, secrecy)
    for encoding in ("alaw", "ulaw", "gsm", "mp3")
    for stereo in (False, True)
    for secrecy in (CLEAR, DISK, MEMORY)
    if (encoding, stereo) not in (("gsm", True), ("ulaw", False))
]

# -- the sound of a line ---------------------------------------------------------------------------------------------

_counting = bytearray()


def counting(count):
    while len(_counting) < count:
        start = len(_counting)
        _counting.extend((k * 2654435761 % 2**32) >> 24 for k in range(start, start + 65536))
    return bytes(_counting[:count])


_mixed = []


def mixed_with_itself(audio):
    """What becomes of A-law audio that comes from both directions at once."""
    if not _mixed:
        table = mixing_table()
        _mixed.append(bytes(table[257 * byte] for byte in range(256)))
    return audio.translate(_mixed[0])


def expected_audio(line, mode, count):
    """The first bytes of a recording of this line."""
    if line not in TRUNK_LINES:
        return counting(count)
    if mode.stereo:
        sides = bytearray(count)
        for side in (0, 1):
            sides[side::2] = counting(len(sides[side::2]))
        return bytes(sides)
    return mixed_with_itself(counting(count))


def channels_of(line, mode):
    return 2 if mode.stereo and line in TRUNK_LINES else 1


def line_of(path):
    """The line whose recording this file is: the third part of its name."""
    return int(Path(path).name.split("_")[2])


# -- checks of one recording -----------------------------------------------------------------------------------------


def is_whole(data, line, mode):
    """Whether these bytes are a finished recording of G.711: header and all audio, each byte as the line carried it."""
    audio = data[HEADER_BYTES:]
    if data[:HEADER_BYTES] != header(channels_of(line, mode), len(audio), mode.law_tag):
        return False
    return mode.late or (len(audio) > 0 and audio == expected_audio(line, mode, len(audio)))


def converted(original, mode, line):
    """What sox makes of a recording, by itself."""
    target = Path("/tmp/expected" + mode.extension)
    kbit = "32.4" if channels_of(line, mode) == 2 else "16.4"
    options = ["-e", "gsm-full-rate"] if mode.encoding == "gsm" else ["-C", kbit]
    subprocess.run(["/usr/bin/sox", original, *options, target], check=True)
    return target.read_bytes()


def is_final(data, name, mode):
    """Whether these bytes are the recording of this name as it goes into the archive, before any encryption."""
    line = line_of(name)
    if not mode.converts:
        return is_whole(data, line, mode)
    original = ORIGINALS / f"{name}.g711"
    if not original.exists() or not is_whole(original.read_bytes(), line, mode):
        return False
    return data == converted(original, mode, line)


def is_archived(data, name, mode):
    return is_final(data.translate(TURN_BACK) if mode.secrecy != CLEAR else data, name, mode)


def md5(data):
    return hashlib.md5(data).hexdigest()


# -- the day ---------------------------------------------------------------------------------------------------------


class Cards:
    """A connection to the simulated cards that stays open."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(60)
        self.socket.connect("/tmp/cardsim")
        self.replies = self.socket.makefile("r")
        self.late = False  # whether the daemon had come too late for audio, when last asked

    def do(self, *actions):
        """The answers to the last of these actions."""
        for action in actions:
            self.socket.sendall(f"{action}\n".encode())
            answers = []
            while (reply := self.replies.readline()).startswith("= "):
                answers.append(reply[2:].rstrip("\n"))
            assert reply == "OK\n", f"{action}: {reply}"
        return answers

    def overruns(self):
        """Bytes that the daemon came too late for."""
        return int(self.do("overruns")[0])

    def close(self):
        self.replies.close()
        self.socket.close()


def recorded(cards, line):
    """The bytes that a line's recording has brought so far."""
    status = cards.do("status")
    cards.late = "overruns=0" not in status[0].split()
    channel = next(text for text in status if text.startswith(f"ch={line - 1} "))
    return int(channel.split("recorded=")[1].split()[0])


def begin(line, number):
    """The actions that begin a call on a line, by which its recording begins."""
    channel = line - 1
    if line in TRUNK_LINES:
        circuit = line - TRUNK_LINES.start
        return [
            f"ch {channel} play counting",
            f"ch {channel + PARTNER} play counting",
            f"cic {circuit} talk in caller {number} callee 200",
        ]
    if line in STATION_LINES:
        return [f"ch {channel} play counting", f"ch {channel} offhook", f"ch {channel} display {number}"]
    return [f"ch {channel} play counting", f"ch {channel} callerid {number}", f"ch {channel} offhook"]


def end(line):
    return [f"cic {line - TRUNK_LINES.start} idle" if line in TRUNK_LINES else f"ch {line - 1} onhook"]


class BusyDay:
    """Calls on some lines of each kind: short ones all the time, and on every third line ones that outlast the day."""

    LINES = [*ANALOGUE_LINES[:4], *STATION_LINES[:3], *TRUNK_LINES[:3]]

    def __init__(self, rng: random.Random, cards: Cards):
        self.rng, self.cards = rng, cards
        self.busy = set()
        now = time.monotonic()
        self.due = {line: now + rng.uniform(0, 2) for line in self.LINES}
        self.calls = 0

    def run(self, seconds):
        stop = time.monotonic() + seconds
        while (now := time.monotonic()) < stop:
            line = min(self.due, key=self.due.get)
            if self.due[line] > now:
                time.sleep(min(self.due[line], stop) - now)
                continue
            if line in self.busy:
                self.cards.do(*end(line))
                self.busy.remove(line)
                self.due[line] = now + self.rng.uniform(0.05, 1)
            else:
                self.cards.do(*begin(line, f"03012{line:05}"))
                self.busy.add(line)
                self.calls += 1
                is_long = self.LINES.index(line) % 3 == 2
                self.due[line] = now + (self.rng.uniform(6, 20) if is_long else self.rng.uniform(1.2, 5))
