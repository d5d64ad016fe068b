"""What the campaigns share: a daemon that misfortunes befall, and what must hold of it before, during and after.

A campaign is a table of rows. One daemon serves many rows, since it has to live through them:

    ROWS = [
        Row("recordings disk full", disk_full, report=["C-api error at OpenAudioFile: No space left on device"]),
    ]

    @pytest.mark.parametrize("row", rows_of(ROWS))
    def test_fault(bench, row):
        bench.run(row)

A row injects its fault, goes through its story, which is a call that must be whole unless the row has one of its own,
waits for its report, heals, and then makes a call that must be whole: its bytes are compared with what was played. What
the daemon reported meanwhile is the report and nothing else; descriptors and threads are as many as before; the process
is the same.
"""

import json
import mmap
import os
import re
import struct
import subprocess
import time
from contextlib import contextmanager
from dataclasses import dataclass, field
from pathlib import Path
from typing import Callable

import pytest

from day import CRYPT, TURN_BACK, Cards
from harness import (
    AUDIO_BYTES_PER_S,
    BLOCK_BYTES,
    BUILD,
    HEADER_BYTES,
    LIMIT_S,
    SOURCE,
    Daemon,
    counting,
    header,
    order,
    path_of,
    rows,
    sql,
    wait_until,
)

ALL = os.environ.get("MORVEX_CAMPAIGN") == "all"
FIGURES = BUILD / "campaign"
RECORDINGS = Path("/recordings")
COPY = Path("/tmp/clean_call.wav")  # the audio of a clean call as it was before its conversion
ENCRYPTED = 16  # of the flags of a row


@dataclass(frozen=True)
class Encoding:
    """What becomes of the recordings of a site: the code in their rows, their names' ending, and sox's options."""

    code: int
    suffix: str
    options: tuple = None  # None: they stay as recorded


ENCODINGS = {
    "alaw": Encoding(554, ".wav"),
    "gsm": Encoding(551, ".wav", ("-e", "gsm-full-rate")),
    "mp3": Encoding(801, ".mp3", ("-C", "16.4")),
}

# Whoever started this waits for it, in a function whose name any other kernel tells.
NAMELESS_KERNEL = Path(f"/proc/{os.getppid()}/wchan").read_text() == "0"
SLOW_CALLS = 5
LOG_BURST = 100  # messages of a kind that leave at once
LOG_PER_S = 100 / 60  # and then
GROWTH_KIB = 512  # in a flood; of 100,000 messages each may leave five bytes behind
SANITIZED = BUILD.name in ("asan", "tsan")  # these keep freed memory back

# Of the texts of levels 3 and 4 those that are no trouble, as a busy machine has them, too.
OF_A_BUSY_MACHINE = (
    "Event handling took: %.4f s",
    "Event handling took: %.4f s, the loop is %.4f s behind",
    "Periodic took: %.4f s",
    "Periodic took: %.4f s, the loop is %.4f s behind",
    "[%d] Audio of {%d} taken too late: %lld bytes may be overwritten",
)


def texts_of_trouble():
    """What the log says at levels 3 and 4, as the table of docs/behaviour.md has it. Places may stand behind a text."""
    table = (SOURCE / "docs" / "behaviour.md").read_text().split("## Log lines of level 3 and 4\n")[1]
    texts = []
    for cell in re.findall(r"^\| [34] \| (.*?) \| ", table, re.MULTILINE):
        texts += re.findall('"([^"]*)"', re.split(r'(?<=") with "|, then ', cell)[0])
    return [text.removesuffix(r"\n") for text in texts]


def begins_as(text):
    """A text as printf has it, as a regular expression for the beginning of a line."""
    kinds = {"%s": ".*", "%d": r"-?\d+", "%lld": r"-?\d+", "%lu": r"\d+"}
    return "".join(kinds[part] if part in kinds else re.escape(part) for part in re.split(r"(%s|%l?l?d|%lu)", text))


# A line of one of these that no row announces fails the row.
TROUBLE = re.compile("|".join(map(begins_as, sorted(set(texts_of_trouble()) - set(OF_A_BUSY_MACHINE)))))

# Parts of a report that differ from run to run.
PLACEHOLDERS = {
    "{path}": r"/\S+",
    "{n}": r"-?\d+",
    "{text}": r".*",
}


@dataclass
class Row:
    """One misfortune. `fault` is a context manager that takes the bench: entered it is there, left it is healed."""

    name: str
    fault: Callable
    report: list = field(default_factory=list)  # each must come, and no other trouble may
    may: list = field(default_factory=list)  # and these may come: the order of two events decides
    story: Callable = None  # takes the bench while the fault is there; else a clean call
    clean: bool = True  # a clean call can follow in this process
    long: bool = False  # not in the short form


def rows_of(table):
    params = []
    for row in table:
        marks = [pytest.mark.long] if row.long else []
        params.append(pytest.param(row, id=row.name.replace(" ", "_"), marks=marks))
    return params


def figure(campaign, name, **values):
    """Keeps measured values for script/faults to print."""
    FIGURES.mkdir(exist_ok=True)
    with (FIGURES / "figures.jsonl").open("a") as file:
        file.write(json.dumps({"campaign": campaign, "row": name, **values}) + "\n")


def pattern(line):
    """A report as a regular expression for the whole line."""
    parts = re.split(r"(\{\w+\})", line)
    return re.compile("".join(PLACEHOLDERS.get(part, re.escape(part)) for part in parts))


class Control:
    """The fields of preload.cpp, in its order."""

    FIELDS = (
        "clock_offset_s",
        "refuse_fork",
        "refuse_popen",
        "threads_left",
        "refuse_threads",
        "slow_write_us",
        "sleep_divisor",
    )
    COUNTS = ("refuse_fork", "refuse_popen", "refuse_threads")
    DEFAULTS = {"threads_left": -1, "sleep_divisor": 1}

    def __init__(self):
        size = 8 * 2 * len(self.FIELDS)  # all values, then how often each was applied
        with open("/tmp/campaign_control", "wb+") as file:
            file.truncate(size)
            self.memory = mmap.mmap(file.fileno(), size)
        self.reset()

    def reset(self):
        for name in self.FIELDS:
            self.set(name, self.DEFAULTS.get(name, 0))

    def set(self, name, value):
        struct.pack_into("=q", self.memory, 8 * self.FIELDS.index(name), value)

    def get(self, name):
        return struct.unpack_from("=q", self.memory, 8 * self.FIELDS.index(name))[0]

    def applied(self, name):
        """How often the daemon has met this field."""
        return struct.unpack_from("=q", self.memory, 8 * (len(self.FIELDS) + self.FIELDS.index(name)))[0]

    @contextmanager
    def during(self, **values):
        """Sets fields for a while, in which the daemon must meet each of them: a count, to its end."""
        before = {name: self.applied(name) for name in values}
        for name, value in values.items():
            self.set(name, value)
        try:
            yield
        finally:
            for name in values:
                self.set(name, self.DEFAULTS.get(name, 0))
        for name, value in values.items():
            self.check_met(name, value, self.applied(name) - before[name])

    def check_met(self, name, value, times):
        assert times == value if name in self.COUNTS else times > 0, f"{name}={value} was met {times} times"


# The daemon finds its tools here, so that one of them can be missing or broken.
TOOLS = Path("/tmp/tools")


def make_tools():
    TOOLS.mkdir()
    for folder in ("/usr/local/bin", "/usr/bin", "/bin", "/usr/sbin", "/sbin"):
        for program in Path(folder).iterdir() if Path(folder).is_dir() else ():
            if not os.path.lexists(TOOLS / program.name):
                os.symlink(program, TOOLS / program.name)


@contextmanager
def tool(name, script):
    """Puts a shell script in the place of a tool; None: the tool is missing."""
    place = TOOLS / name
    real = os.readlink(place)
    place.unlink()
    if script is not None:
        place.write_text(f"#!/bin/sh\n{script}\n")
        place.chmod(0o755)
    try:
        yield
    finally:
        place.unlink(missing_ok=True)
        os.symlink(real, place)


DAEMONS = "datname = 'morvex' AND application_name = ''"  # others say who they are: psql does


def backends():
    """The server's processes for the daemon."""
    return rows(f"SELECT pid FROM pg_stat_activity WHERE {DAEMONS}")


def waited_for(table):
    """How many seconds the daemon has been waiting for a table, as the server tells."""
    waiting = f"NOT granted AND relation = '{table}'::regclass AND {DAEMONS}"
    seconds = "coalesce(max(extract(epoch FROM clock_timestamp() - waitstart)), 0)"
    return rows(f"SELECT {seconds} AS it FROM pg_locks JOIN pg_stat_activity USING (pid) WHERE {waiting}")[0]["it"]


@contextmanager
def locked(table, seconds):
    """Another client holds a table until the daemon has waited for it so long."""
    held = f"SELECT 1 FROM pg_locks WHERE granted AND mode = 'AccessExclusiveLock' AND relation = '{table}'::regclass"
    with subprocess.Popen(["psql", "-Xq"], stdin=subprocess.PIPE, text=True) as client:  # ends with its input
        client.stdin.write(f"BEGIN; LOCK TABLE {table};\n")
        client.stdin.flush()
        wait_until("the lock", lambda: rows(held))
        yield
        wait_until(f"a wait of {seconds} s for {table}", lambda: waited_for(table) >= seconds)


def lasts(seconds, what, met):
    """Waits until a hang is met, and lets it last so long; at the end it must still be met."""
    wait_until(what, met)
    time.sleep(seconds)  # the length of the hang is what is measured, not waited for
    assert met(), f"no longer: {what}"


def install_encryption(_bench):
    """The appliance's encryption, which the machine has not."""
    program = Path("/tmp/morvex_crypt")
    program.write_text(CRYPT)
    program.chmod(0o755)
    os.symlink(program, TOOLS / program.name)


@contextmanager
def unchanged_environment(**changes):
    before = {name: os.environ.get(name) for name in changes}
    os.environ.update(changes)
    try:
        yield
    finally:
        for name, value in before.items():
            if value is None:
                del os.environ[name]
            else:
                os.environ[name] = value


class Bench:
    """A daemon with all that a campaign needs around it. Its calls are those of analogue lines."""

    carried = staticmethod(counting)  # the first bytes of a recording of its calls

    def __init__(self, cards, settings=None, campaign="", environment=None):
        self.campaign = campaign
        self.control = Control()
        if not TOOLS.exists():
            make_tools()
        self.environment = environment or {}
        self.late = 0  # bytes that the daemon had come too late for when the last call began
        self.talking = set()  # channels with a call that has begun and not ended
        self.cards = None  # a connection that stays, so that it is there when no descriptor is left
        self.encoding = ENCODINGS[(settings or {}).get("o", {}).get("RecEnc", "alaw")]
        self.daemon = Daemon(cards, settings)

    def launch(self, argument="debug", before=""):
        """Starts the process. `before` is a command that starts it in its turn."""
        asan = os.environ.get("ASAN_OPTIONS", "")
        preload = BUILD / "tests" / "libcampaign_preload.so"
        values = {
            "PATH": str(TOOLS),
            "LD_PRELOAD": str(preload),
            "ASAN_OPTIONS": asan + ":verify_asan_link_order=0",
            **self.environment,
        }
        words = " ".join(f"{name}={value}" for name, value in values.items())
        wrapper = f"{before} /usr/bin/env {words} {os.environ.get('MORVEX_WRAPPER', '')}"
        with unchanged_environment(MORVEX_WRAPPER=wrapper):
            self.daemon.launch(argument)
        return self

    def start(self, **how):
        self.control.set("sleep_divisor", 10)  # simulated cards need no time to power up
        self.launch(**how)
        self.daemon.wait_line("** STARTED **")
        self.control.set("sleep_divisor", 1)
        self.connect_cards()
        self.daemon.wait_line("Error connecting to socket")  # nobody has heard the message of the start
        self.daemon.wait_orders()
        assert order("warm up") == "E0: Unknown commmand\n"  # behind it nothing of the start is under way
        self.clean_call()  # what is opened once and for all is open
        return self

    def connect_cards(self):
        self.cards = Cards()

    def forget_cards(self):
        if self.cards is not None:
            self.cards.close()
        self.cards = None

    # -- what it holds -----------------------------------------------------------------------------------------------

    def held(self):
        """Descriptors and threads of the process."""
        process = Path(f"/proc/{self.daemon.pid}")
        names = []
        for link in (process / "fd").iterdir():
            try:
                names.append(re.sub(r"\[\d+\]", "", os.readlink(link)))
            except FileNotFoundError:
                pass  # closed meanwhile
        return {"descriptors": sorted(names), "threads": len(list((process / "task").iterdir()))}

    def wait_held(self, before):
        """Waits until nothing more and nothing less is held than before; shows what differs."""
        try:
            wait_until("as much held as before", lambda: self.held() == before, limit=15)
        except AssertionError:
            assert self.held() == before
            raise

    def waits_in(self, function):
        """Whether the main thread sleeps in a function of the kernel with this in its name; sleeps at all where the
        kernel keeps its names to itself."""
        process = Path(f"/proc/{self.daemon.pid}")
        if NAMELESS_KERNEL:
            return (process / "stat").read_text().rpartition(")")[2].split()[0] == "S"
        return function in (process / "wchan").read_text()

    def memory_kib(self):
        text = Path(f"/proc/{self.daemon.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s+(\d+)", text)[1])

    # -- calls -------------------------------------------------------------------------------------------------------

    def begin(self, channel=0):
        """Takes a channel off hook, with the counting pattern on it. Its line in the log begins at the mark."""
        mark = self.daemon.mark()
        self.late = self.cards.overruns()
        self.talking.add(channel)
        self.cards.do(*self.begins(channel))
        return mark

    @staticmethod
    def begins(channel):
        return [f"ch {channel} play counting", f"ch {channel} offhook"]

    def end(self, channel=0):
        self.cards.do(self.ends(channel))
        self.talking.discard(channel)

    @staticmethod
    def ends(channel):
        return f"ch {channel} onhook"

    def file_of(self, mark, channel=0):
        """The file that a call that began at the mark is recorded to, as the log tells it."""
        text = f"[{channel + 1}] Recording to file "
        return Path(self.daemon.wait_line(text, mark)[len(text) :])

    @staticmethod
    def wait_blocks(path, blocks=2):
        wait_until(f"{blocks} blocks in {path}", lambda: path.exists() and path.stat().st_size >= blocks * BLOCK_BYTES)

    def clean_call(self, channel=0, blocks=2):
        """A call that must be whole: row and bytes. Returns its row and the number of bytes compared.

        Where the cards say that the machine was too slow for a call, it is made again; a few times, not for ever.
        """
        for _ in range(SLOW_CALLS):
            late = self.cards.overruns()
            call = self.finished_call(channel, blocks)
            if self.cards.overruns() == late:
                break
        compared = is_whole(COPY.read_bytes(), blocks, carried=self.carried)
        self.compare_final(COPY, call)
        COPY.unlink()
        return call, compared

    def finished_call(self, channel, blocks):
        mark = self.begin(channel)
        path = self.file_of(mark, channel)
        remoteid = remoteid_of(path)
        self.wait_blocks(path, blocks)
        with path.open("rb") as running:  # stays open when a conversion has removed the name
            self.end(channel)
            call = self.daemon.finished_call(remoteid)
            COPY.write_bytes(running.read())
        return call

    def compare_final(self, original, call):
        """The row and the file that it names, against the bytes that were played or their conversion."""
        assert call["encoding"] == self.encoding.code
        assert call["filename"] == call["remoteid"] + self.encoding.suffix
        data = archived(call)
        if self.encoding.options is None:
            assert data == original.read_bytes()
            return
        expected = original.with_name("expected" + self.encoding.suffix)
        subprocess.run(["sox", original, *self.encoding.options, expected], check=True)
        assert data == expected.read_bytes()
        expected.unlink()

    @staticmethod
    def check_header(path, lost_blocks):
        """The header of a finished A-law recording tells of all its audio, also of blocks that could not be written."""
        data = path.read_bytes()
        assert lost_blocks > 0 and len(data) > HEADER_BYTES
        assert data[:HEADER_BYTES] == header(channels=1, length=len(data) - HEADER_BYTES + lost_blocks * BLOCK_BYTES)

    def check_whole(self, path, blocks=2):
        """As is_whole; the audio itself only where the cards say that the machine was fast enough for the last call."""
        self.check_whole_bytes(path.read_bytes(), blocks)

    def check_whole_bytes(self, data, blocks=2):
        is_whole(data, blocks, self.cards.overruns() == self.late, self.carried)

    def one_call(self, channel=0, blocks=2):
        """A call as far as the fault lets it come: blocks by the cards' count, not by a file."""
        mark = self.begin(channel)
        self.file_of(mark, channel)
        wait_until("audio", lambda: self.recorded(channel) >= blocks * BLOCK_BYTES)
        self.end(channel)
        self.daemon.wait_line(f"[{channel + 1}] Call stops", mark)
        return mark

    def row_without_audio(self):
        """A call whose file cannot be opened: its row names a recording, and there is none."""
        mark = self.one_call()
        path = self.file_of(mark)
        call = self.daemon.finished_call(remoteid_of(path))
        assert (path_of(call), call["encoding"]) == (path, 554)
        assert not path.exists()

    def recorded(self, channel=0):
        """Bytes that the card has recorded of a channel's call so far."""
        line = next(line for line in self.cards.do("status") if line.startswith(f"ch={channel} "))
        return int(re.search(r" recorded=(\d+)", line)[1])

    def count_bytes(self, name, channels, hang):
        """Calls with counted audio run on `channels` while `hang` does its worst: no byte of them is lost.

        The ring of a line holds half a second. Where the cards say that the machine was too slow for that, it is made
        again; a few times, not for ever.
        """
        for _ in range(SLOW_CALLS):
            late = self.cards.overruns()
            missing, repeated = self.count_once(name, channels, hang)
            if self.cards.overruns() == late:
                assert (sum(missing), repeated) == (0, 0)
                return
        raise AssertionError(f"the machine was too slow for the cards, {SLOW_CALLS} times")

    def count_once(self, name, channels, hang):
        """Missing bytes of each line, and repeated ones of all."""
        marks = {channel: self.begin(channel) for channel in channels}
        paths = [self.file_of(mark, channel) for channel, mark in marks.items()]
        for path in paths:
            self.wait_blocks(path)
        began = time.monotonic()
        hang()
        took = time.monotonic() - began
        for path in paths:
            self.wait_blocks(path, path.stat().st_size // BLOCK_BYTES + 4)
        ends = {}  # of each line: what the card has recorded before its end, and the seconds that this end took
        for channel, mark in marks.items():
            ending = time.monotonic()
            before = self.recorded(channel)
            self.end(channel)
            self.daemon.wait_line(f"[{channel + 1}] Recording stopped", mark)
            ends[channel] = before, time.monotonic() - ending
        until_end = time.monotonic() - began
        for path, end in zip(paths, ends.values()):
            self.check_length(path, *end)
        found = [heard(path.read_bytes()[HEADER_BYTES:], reach_s=until_end) for path in paths]
        missing = [one["missing"] for one in found]
        repeated = sum(one["repeated"] for one in found)
        figure(
            self.campaign,
            f"{name}: bytes",
            missing_most=max(missing),
            missing_all=sum(missing),
            repeated_all=repeated,
            played_all=sum(one["played"] for one in found),
            hang_s=round(took, 2),
        )
        return missing, repeated

    @staticmethod
    def check_length(path, before, end_s):
        """A recording is as long as its call, in header and file."""
        data = path.read_bytes()
        length = len(data) - HEADER_BYTES
        assert data[:HEADER_BYTES] == header(channels=1, length=length)
        most = before + end_s * AUDIO_BYTES_PER_S + BLOCK_BYTES  # the cards themselves may come that late
        assert before // BLOCK_BYTES * BLOCK_BYTES <= length <= most

    # -- floods ------------------------------------------------------------------------------------------------------

    def told_and_left_out(self, text, mark):
        """How many messages of a kind the log has, and how many it says were left out."""
        said = self.daemon.log_after(mark)
        counted = re.compile(r"(\d+) messages like this one left out: " + re.escape(text))
        return said.count(text), sum(int(found[1]) for found in map(counted.fullmatch, said) if found)

    def check_flood(self, text, count, mark, began):
        """So many messages of a kind have come since `began`: few are told, and told and counted are all of them."""

        def accounted():
            self.cards.do("ch 7 dtmf 1")  # what was left out is told before something else
            told, left_out = self.told_and_left_out(text, mark)
            return told + left_out == count and told

        told = wait_until(f"{count} times, told or counted: {text}", accounted)
        assert told <= LOG_BURST + (time.monotonic() - began) * LOG_PER_S + 1

    def own_kib(self):
        """Memory that no file backs."""
        text = Path(f"/proc/{self.daemon.pid}/status").read_text()
        return sum(int(re.search(rf"{name}:\s+(\d+)", text)[1]) for name in ("RssAnon", "VmSwap"))

    @contextmanager
    def flat_memory(self):
        before = self.own_kib()
        yield
        grown = self.own_kib() - before
        assert SANITIZED or grown <= GROWTH_KIB, f"{grown} KiB more"

    # -- a row -------------------------------------------------------------------------------------------------------

    def run(self, row):
        try:
            self.live_through(row)
        except BaseException:
            if self.daemon.running:
                self.clear()
            raise

    def clear(self):
        """Behind a row that has failed in the middle: its calls end, and what of them stays in the database goes."""
        for channel in sorted(self.talking):
            self.end(channel)
        self.cards.do("wait handled")
        try:
            self.settle(limit=15)
        except AssertionError:
            sql("DELETE FROM ActiveCalls")

    def live_through(self, row):
        daemon = self.daemon
        self.settle()
        before = self.held()
        mark = daemon.mark()
        began = time.monotonic()
        with row.fault(self):
            (row.story or Bench.clean_call)(self)
            for line in row.report:
                self.wait_report(line, mark)
        healed = time.monotonic()
        assert daemon.running, "the daemon has ended"
        compared = 0
        if row.clean:
            _, compared = self.clean_call()
            self.settle()
            self.wait_held(before)
        assert daemon.running, "the daemon has ended"
        self.check_trouble(row, mark)
        figure(
            self.campaign,
            row.name,
            report=row.report,
            seconds=round(healed - began, 1),
            compared=compared,
            descriptors=len(before["descriptors"]),
            threads=before["threads"],
            memory_kib=self.memory_kib(),
        )

    def wait_report(self, line, mark):
        whole = pattern(line)
        wait_until(f"in the log: {line}", lambda: any(whole.fullmatch(said) for said in self.daemon.log_after(mark)))

    def check_trouble(self, row, mark):
        """Nothing was reported but what the row announces."""
        announced = [pattern(line) for line in row.report + row.may]
        said = [line for line in self.daemon.log_after(mark) if TROUBLE.match(line)]
        assert [line for line in said if not any(one.fullmatch(line) for one in announced)] == []

    @staticmethod
    def settle(limit=LIMIT_S):
        """Waits until no call is left, neither running nor being finished."""
        wait_until("no active calls", lambda: rows("SELECT id FROM ActiveCalls") == [], limit)

    def stop(self):
        if self.daemon.running:
            self.control.reset()
            assert self.daemon.stop() == 0


def remoteid_of(path):
    """The id of the call that is recorded to a file."""
    return path.name.split(".")[0]


def archived(call, suffix=None):
    """The recording that a row names, as it was before its encryption. The archive may know it by another suffix."""
    path = path_of(call)
    data = (path.with_suffix(suffix) if suffix else path).read_bytes()
    return data.translate(TURN_BACK) if call["flags"] & ENCRYPTED else data


# -- bytes -----------------------------------------------------------------------------------------------------------


def is_whole(data, blocks=2, audio_too=True, carried=counting):
    """A finished A-law recording holds what was played, from its first byte to its last."""
    audio = data[HEADER_BYTES:]
    assert len(audio) >= blocks * BLOCK_BYTES and len(audio) % BLOCK_BYTES == 0
    assert data[:HEADER_BYTES] == header(channels=1, length=len(audio))
    assert not audio_too or audio == carried(len(audio))
    return len(audio)


WINDOW_BYTES = 512


def heard(audio, reach_s):
    """Holds a recording of the counting pattern against what was played: bytes of it that are missing or stand twice.

    A block that was read late holds what was played up to `reach_s` later. Within that reach a window of the pattern is
    like no other; so the place of each window tells which bytes it is.
    """
    source = counting(len(audio))
    reach = int(reach_s * AUDIO_BYTES_PER_S) + 4 * BLOCK_BYTES
    present = bytearray(len(source))
    for at in range(0, len(audio), WINDOW_BYTES):
        window = audio[at : at + WINDOW_BYTES]
        place = at
        if not source.startswith(window, at):
            place = source.find(window, max(0, at - reach), at + reach + WINDOW_BYTES)
        if place >= 0:
            for k in range(place, place + len(window)):
                present[k] += present[k] < 255
    missing = present.count(0)
    return {"played": len(audio), "missing": missing, "repeated": sum(present) - (len(present) - missing)}
