"""What is measured: the daemon or the floor on simulated cards, inside `script/sandbox --postgres`.

A Machine has the cards and a folder for recordings on the disk that is asked for. One program runs on it at a time: a
Daemon as it is installed, or the Floor. Both carry bench_watch, which sees from inside how late audio is taken and
written, and both have every byte that they write compared by bench_follow, which runs at the lowest priority beside them.
"""

import itertools
import json
import mmap
import os
import re
import resource
import select
import shutil
import signal
import struct
import subprocess
import tempfile
import time
from collections import defaultdict
from pathlib import Path

from appliance import BUILD, RECORDINGS, rows, sql, store_settings
from day import Cards
from harness import AUDIO_BYTES_PER_S, BLOCK_BYTES, Daemon as Harness

BENCH = BUILD / "bench"
LOG = Path("/tmp/bench_daemon.log")
WATCH = Path("/tmp/bench_watch")
LIMIT_S = 900  # a start of 20,000 calls takes minutes
POLL_S = 0.02
CHUNK = 25  # lines that begin or end together where nothing is to be shown by it
BLOCK_CIRCUITS = 30
BLOCK_CHANNELS = 2 * BLOCK_CIRCUITS
CARD_CHANNELS = 480  # at most; whole blocks, so that circuits go on from card to card as within one
FIRST_SERIAL = 1001
CARDS_GO_ON = "slip off\n"  # as real ones do, however busy the machine
LIBRARY_THREADS = "simcards"

PLAIN, STEREO, MONO = "plain", "stereo", "mono"


class Trouble(Exception):
    """A row cannot be measured here; the text says why."""


def wait_until(what, condition):
    deadline = time.monotonic() + LIMIT_S
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise Trouble(f"not within {LIMIT_S} s: {what}")
        time.sleep(POLL_S)


# -- delays ----------------------------------------------------------------------------------------------------------


class Watch:
    """The shared file of watch.cpp."""

    STEPS, STEP_BITS, BINS = 32, 5, 1024
    KINDS = ("taken", "written")
    DISK_STOPPED, WRITES_HELD = 0, 1
    HISTOGRAMS = 2

    def __init__(self):
        size = 8 * (self.HISTOGRAMS + len(self.KINDS) * (1 + self.BINS))
        with WATCH.open("wb+") as file:
            file.truncate(size)
            self.memory = mmap.mmap(file.fileno(), size)

    def get(self, field):
        return struct.unpack_from("=q", self.memory, 8 * field)[0]

    def set(self, field, value):
        struct.pack_into("=q", self.memory, 8 * field, value)

    def clear(self):
        start = 8 * self.HISTOGRAMS
        self.memory[start:] = bytes(len(self.memory) - start)

    def histogram(self, kind):
        start = self.HISTOGRAMS + self.KINDS.index(kind) * (1 + self.BINS)
        values = struct.unpack_from(f"={1 + self.BINS}q", self.memory, 8 * start)
        return values[0], values[1:]

    @classmethod
    def end_of_bin_us(cls, number):
        if number < cls.STEPS:
            return number + 1
        octave = number // cls.STEPS - 1
        return (cls.STEPS + number % cls.STEPS + 1) << octave

    def delays(self):
        """Milliseconds, by kind; a kind that has none is left out: these cards do not say when audio is due."""
        found = {}
        for kind in self.KINDS:
            longest_ns, bins = self.histogram(kind)
            count = sum(bins)
            if count == 0:
                continue
            found[kind] = {
                "pieces": count,
                "p50_ms": self.quantile_ms(bins, count, 0.5),
                "p99_9_ms": self.quantile_ms(bins, count, 0.999),
                "max_ms": round(longest_ns / 1e6, 3),
            }
        return found

    @classmethod
    def quantile_ms(cls, bins, count, part):
        seen = 0
        for number, pieces in enumerate(bins):
            seen += pieces
            if seen >= part * count:
                return round(cls.end_of_bin_us(number) / 1000, 3)
        return None


# -- processes -------------------------------------------------------------------------------------------------------


def cpu_by_thread(pid):
    """Seconds of processor time that each kind of thread has had. The cards' own threads are one kind."""
    seconds = {}
    for task in Path(f"/proc/{pid}/task").iterdir():
        try:
            name = (task / "comm").read_text().strip()
            spent = int((task / "schedstat").read_text().split()[0]) / 1e9
        except (FileNotFoundError, ProcessLookupError):
            continue  # ended meanwhile
        if name.startswith(LIBRARY_THREADS):
            name = "cards"
        elif task.name == str(pid):
            name = "main"
        elif name == "morvex_crec":
            name = "others"
        seconds[name] = seconds.get(name, 0) + spent
    return seconds


def difference(after, before):
    return {name: after[name] - before.get(name, 0) for name in after}


class Machine:
    """The cards, and where recordings lie. kind: PLAIN lines, or circuits whose pairs are recorded STEREO or MONO.
    of_channels: settings of the cards that each channel has for itself, and all alike."""

    def __init__(self, kind, lines, settings=None, disk=None, of_channels=None):
        self.kind, self.lines = kind, lines
        self.pairs = kind != PLAIN
        self.disk = disk
        self.watch = Watch()
        self.raise_descriptors(lines * (2 if (settings or {}).get("o", {}).get("Monitoring") else 1))
        if disk is not None:
            self.use_disk(disk)
        self.install(settings or {})
        store_settings({"crec": self.by_card(of_channels or {})})

    @staticmethod
    def raise_descriptors(wanted):
        most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
        if wanted + CHUNK > most:
            raise Trouble(f"{wanted} files at once, and this machine allows a process {most}")

    @classmethod
    def use_disk(cls, disk):
        place = Path(disk) / "now"
        place.mkdir(parents=True, exist_ok=True)
        cls.put_aside(place)
        subprocess.run(["mount", "--bind", place, RECORDINGS], check=True)

    @staticmethod
    def put_aside(place):
        """Empties a folder and deletes nothing: for minutes a file system looks at each file that has gone, whenever
        another is made, and of thousands a run would measure that."""
        for file in place.rglob("*"):
            if file.is_file():
                os.truncate(file, 0)
        old = Path(tempfile.mkdtemp(prefix="old.", dir=place.parent))
        for entry in place.iterdir():
            entry.rename(old / entry.name)

    def clear(self):
        """Nothing is left of recordings."""
        if self.disk is not None:
            self.put_aside(Path(self.disk) / "now")
            return
        for entry in RECORDINGS.iterdir():
            shutil.rmtree(entry) if entry.is_dir() else entry.unlink()

    def install(self, settings):
        model = "DTP-60" if self.pairs else "ATP24"
        cards = [f"card {model} {serial} {channels}\n" for serial, channels in self.cards()]
        Harness.install_cards("".join(cards) + CARDS_GO_ON)
        self.forget_runs_before()
        sql("ALTER SYSTEM SET log_statement = 'none'")
        rows("SELECT pg_reload_conf()")
        store_settings({"s": {"crec": "1"}, "o": {"RecStereo": str(int(self.kind == STEREO))}})
        store_settings(settings)
        Path("/var/morvex/conf/serial").write_text("E2E1\n")

    def cards(self):
        """Serial number and channels of each."""
        starts = range(0, self.last_channel() + 1, CARD_CHANNELS)
        return [
            (FIRST_SERIAL + number, min(CARD_CHANNELS, self.last_channel() + 1 - start))
            for number, start in enumerate(starts)
        ]

    def by_card(self, of_channels):
        """A card has its own list, with an item for each channel."""
        return {
            f"Syn{serial}_{name}": ",".join([value] * channels)
            for serial, channels in self.cards()
            for name, value in of_channels.items()
        }

    @staticmethod
    def forget_runs_before():
        """Their cards would keep their line numbers, and their lines the contacts."""
        tables = [row["tablename"] for row in rows("SELECT tablename FROM pg_tables WHERE schemaname = 'public'")]
        sql(f"TRUNCATE {', '.join(tables)} RESTART IDENTITY")

    @property
    def channels(self):
        return 2 * self.lines if self.pairs else self.lines

    def events_per_s(self):
        return self.channels * AUDIO_BYTES_PER_S / BLOCK_BYTES

    def driver_channels(self, line):
        """Those of a line, both counted from 0."""
        if not self.pairs:
            return [line]
        first = line // BLOCK_CIRCUITS * BLOCK_CHANNELS + line % BLOCK_CIRCUITS
        return [first, first + BLOCK_CIRCUITS]

    def play(self, cards):
        last = max(self.driver_channels(self.lines - 1))
        cards.do(f"ch 0..{min(last, self.last_channel())} play counting")

    def last_channel(self):
        if not self.pairs:
            return self.lines - 1
        return -(-self.lines // BLOCK_CIRCUITS) * BLOCK_CHANNELS - 1

    def environment(self, *preloads):
        values = {**os.environ, "BENCH_WATCH": str(WATCH), "LD_PRELOAD": ":".join(map(str, preloads))}
        if self.pairs:
            values["BENCH_PAIRS"] = "1"
        return values


class Follower:
    """Compares what is written below a folder with what the lines carry."""

    def __init__(self, machine, folder, expected_bytes):
        folder.mkdir(parents=True, exist_ok=True)
        free = shutil.disk_usage(folder).free
        punch = ["punch"] if expected_bytes > free / 3 else []
        self.process = subprocess.Popen(
            [BENCH / "bench_follow", folder, machine.kind, *punch], stdout=subprocess.PIPE, preexec_fn=lambda: os.nice(19)
        )

    def finish(self):
        self.process.send_signal(signal.SIGTERM)
        return json.loads(self.process.communicate()[0])


class Program:
    """What daemon and floor have in common once they run: self.process, self.cards, self.machine."""

    def measure(self, seconds, during=None):
        """CPU and delays of so many seconds, or of what `during` does."""
        self.machine.watch.clear()
        before, taking, began = cpu_by_thread(self.process.pid), self.taking_s(), time.monotonic()
        if during is not None:
            during()
        time.sleep(max(0, began + seconds - time.monotonic()))
        took = time.monotonic() - began
        delays = self.machine.watch.delays()
        cpu = difference(cpu_by_thread(self.process.pid), before)
        taking = max(0, self.taking_s() - taking)  # an estimate from samples, which can shrink
        events = took * self.machine.events_per_s()
        own = sum(spent for name, spent in cpu.items() if name != "cards") - taking
        return {
            "seconds": round(took, 2),
            "cpu_percent": {name: round(100 * spent / took, 2) for name, spent in cpu.items()},
            "us_per_event": round(1e6 * own / events, 3),
            "cards_us_per_event": round(1e6 * taking / events, 3),
            "delays": delays,
            "overruns": self.cards.overruns(),
        }

    def taking_s(self):
        """Seconds of CPU that the cards have had on the program's own threads."""
        return float(re.search(r"taking=([0-9.]+)", self.cards.do("cost")[0])[1])

    def forget_lateness(self):
        """Of the cards, from before anything was recorded."""
        self.late_before_s = 0
        self.late_before_s = self.late_s()

    def late_s(self):
        """The seconds of audio for which the cards themselves came too late."""
        return round(float(re.search(r"late=([0-9.]+)", self.cards.do("status")[0])[1]) - self.late_before_s, 3)


class Floor(Program):
    """bench_floor, on the configuration that a daemon has written for its cards before."""

    def __init__(self, machine):
        self.machine = machine
        self.folder = RECORDINGS / "floor"
        self.folder.mkdir()
        self.process = subprocess.Popen(
            [BENCH / "bench_floor", self.folder, machine.kind, str(machine.lines)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            env=machine.environment(BENCH / "libbench_watch.so"),
        )
        self.hear("started")
        self.cards = Cards()
        self.cards.socket.settimeout(LIMIT_S)
        machine.play(self.cards)
        self.forget_lateness()
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        self.hear("recording")

    def hear(self, word):
        if self.process.stdout.readline() != f"{word}\n":
            raise Trouble(f"the floor did not say: {word}")

    def stop(self):
        self.cards.close()
        self.process.send_signal(signal.SIGTERM)
        return json.loads(self.process.communicate(timeout=LIMIT_S)[0])

    def clear(self):
        self.machine.clear()


class Daemon(Program):
    """morvex_crec, whose log goes into a file."""

    def __init__(self, machine):
        self.machine = machine
        self.begun = 0  # calls
        self.due = defaultdict(list)  # by line, of each call whose recording is on disk: bytes reported before its end
        self.read_to, self.counted = 0, {}
        began = time.monotonic()
        with LOG.open("wb") as log:
            self.process = subprocess.Popen(
                [BUILD / "src" / "morvex_crec", "debug"],
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=subprocess.STDOUT,
                cwd="/",
                env=machine.environment(BENCH / "libbench_watch.so", BUILD / "tests" / "libpower_up.so"),
            )
        self.wait_logged("** STARTED **", 1)
        self.start_s = time.monotonic() - began
        self.cards = Cards()
        self.cards.socket.settimeout(LIMIT_S)
        machine.play(self.cards)
        self.forget_lateness()

    # -- log ---------------------------------------------------------------------------------------------------------

    TEXTS = ("** STARTED **", "] Recording to file ", "] Recording stopped", "Added Calls to database")

    def logged(self, text):
        """How many lines hold this text, one of TEXTS."""
        with LOG.open("rb") as file:
            file.seek(self.read_to)
            data = file.read()
        whole = data[: data.rfind(b"\n") + 1]
        self.read_to += len(whole)
        for one in self.TEXTS:
            self.counted[one] = self.counted.get(one, 0) + whole.count(one.encode())
        return self.counted[text]

    def wait_logged(self, text, count):
        def met():
            if self.process.poll() is not None:
                raise Trouble(f"the daemon has ended: {LOG.read_text(errors='replace')[-500:]}")
            return self.logged(text) >= count

        wait_until(f"{count} times in the log: {text}", met)

    # -- calls -------------------------------------------------------------------------------------------------------

    def begins(self, first, last):
        if self.machine.pairs:
            return f"cic {first}..{last} talk in caller 0301234567 callee 200"
        return f"ch {first}..{last} offhook"

    def ends(self, first, last):
        return f"cic {first}..{last} idle" if self.machine.pairs else f"ch {first}..{last} onhook"

    def begin(self, first, last):
        """Calls on these lines at once."""
        self.cards.do(self.begins(first, last))
        self.begun += last - first + 1

    def begin_gently(self, first, last):
        for start in range(first, last + 1, CHUNK):
            self.begin(start, min(start + CHUNK - 1, last))
            self.wait_logged("] Recording to file ", self.begun)

    def note_recorded(self, first, last):
        """What the cards have reported of these lines is due to be in the recordings of their calls, which end now."""
        channels = [self.machine.driver_channels(line) for line in range(first, last + 1)]
        start = min(map(min, channels))
        recorded = [int(text) for text in self.cards.do(f"recorded {start}..{max(map(max, channels))}")]
        for line, own in enumerate(channels, first):
            self.due[line].append(min(recorded[channel - start] for channel in own) // BLOCK_BYTES * BLOCK_BYTES)

    def end(self, first, last):
        self.note_recorded(first, last)
        self.cards.do(self.ends(first, last))

    def end_gently(self, first, last):
        for start in range(first, last + 1, CHUNK):
            stopped = self.logged("] Recording stopped")
            end = min(start + CHUNK - 1, last)
            self.end(start, end)
            self.wait_logged("] Recording stopped", stopped + end - start + 1)

    def wait_finished(self):
        """All calls are rows of Calls."""
        self.wait_logged("Added Calls to database", self.begun)

    def stop(self):
        """The seconds until a stop is through."""
        if self.cards is not None:
            self.cards.close()
            self.cards = None
        end = os.pidfd_open(self.process.pid)
        began = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        select.select([end], [], [], LIMIT_S)  # to wait with a limit is to look each twentieth of a second
        took = time.monotonic() - began
        os.close(end)
        if self.process.wait(1) != 0:
            raise Trouble("the daemon did not stop cleanly")
        return took

    def clear(self):
        """Nothing is left of the calls."""
        self.machine.clear()
        sql("DELETE FROM Calls; DELETE FROM ActiveCalls")
        self.due.clear()


def by_call(lengths):
    """Lengths of recordings by line, in the order of their calls. Names tell second, line, and number modulo 100."""
    found = defaultdict(list)
    for name, length in lengths.items():
        day, second, line, number = name.removesuffix(".wav").split("_")
        found[int(line) - 1].append((day + second, int(number), length))
    return {line: [length for _, _, length in in_order(calls)] for line, calls in found.items()}


def in_order(calls):
    """By second and number, where the numbers of a second may come round to 0."""
    numbers = defaultdict(set)
    for second, number, _ in calls:
        numbers[second].add(number)

    def place(call):
        second, number, _ = call
        round_again = number < 50 and max(numbers[second]) - number > 50
        return second, number + (100 if round_again else 0)

    return sorted(calls, key=place)


def judged(machine, found, due):
    """What the follower found, how many calls have no recording, and how many bytes the recordings lack of what the
    cards had reported of their calls."""
    shares = 2 if machine.kind == STEREO else 1
    lengths = by_call(found.pop("lengths"))
    missing = files = 0
    for line, calls in due.items():
        written = lengths.get(line, [])
        files += max(0, len(calls) - len(written))
        for reported, length in itertools.zip_longest(calls, written, fillvalue=0):
            missing += max(0, shares * reported - length)
    return {**found, "missing_bytes": missing, "missing_files": files}


def rows_in(table):
    return rows(f"SELECT count(*) FROM {table}")[0]["count"]
