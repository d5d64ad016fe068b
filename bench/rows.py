"""The rows of the benchmark. Each is a function of the seconds that are asked for and the folder for recordings; it gives
the figures of one run. The daemon runs first, as the floor needs the configuration that it leaves.
"""

import json
import os
import resource
import select
import signal
import socket
import subprocess
import time
from contextlib import contextmanager
from pathlib import Path

from bench import ENCODINGS, backends, locked
from harness import AUDIO_BYTES_PER_S, counting, header, rows, sql
from machine import BENCH, MONO, PLAIN, RECORDINGS, STEREO, Daemon, Floor, Follower, Machine, Trouble, Watch
from machine import judged, rows_in
from names import BESIDE, BURSTS, HANG_UPS, HELD, LINES, LOUD_LINES, MONITORED_LINES, NAMES, PAIRS, RATES, STARTS, STOPS
from names import ENCODINGS as ENCODING_NAMES

SETTLE_S = 3
CALL_LINES = 300  # that calls come and go on
CALLS_AT_ONCE = 100
CALL_S = 2  # of calls that come at a rate
STALLED_LINES = 1000
SERVICE_TIMEOUT_S = 5  # so long does the daemon wait for the service with each message
STALL_S = 30
HELD_S = 600
HELD_KINDS = {"lines": PLAIN, "stereo": STEREO, "mono": MONO}
OTHER_LINES = 1 + STALL_S // SERVICE_TIMEOUT_S + 1  # one for a call, the rest for messages about them


# -- steady ----------------------------------------------------------------------------------------------------------


def expected_bytes(machine, seconds):
    return machine.channels * AUDIO_BYTES_PER_S * (seconds + 60)


@contextmanager
def recording(machine, seconds, lines=None):
    """A daemon that records the first of the machine's lines, or all of them, and a dict for the figures. Behind it all
    calls end, and what was written is judged."""
    daemon, figures = Daemon(machine), {}
    follower = Follower(machine, RECORDINGS, expected_bytes(machine, seconds))
    daemon.begin_gently(0, (lines or machine.lines) - 1)
    time.sleep(SETTLE_S)
    yield daemon, figures
    daemon.end_gently(0, (lines or machine.lines) - 1)
    daemon.wait_finished()
    figures.update(judged(machine, follower.finish(), daemon.due), late_s=daemon.late_s())
    daemon.stop()
    daemon.clear()


def daemon_steady(machine, seconds):
    with recording(machine, seconds) as (daemon, figures):
        figures.update(daemon.measure(seconds))
    return figures


def floor_steady(machine, seconds):
    floor = Floor(machine)
    follower = Follower(machine, floor.folder, expected_bytes(machine, seconds))
    time.sleep(SETTLE_S)
    figures = floor.measure(seconds)
    figures["late_s"] = floor.late_s()
    figures.update(floor.stop())
    found = follower.finish()
    figures.update(wrong_bytes=found["wrong_bytes"], files=found["files"])
    floor.clear()
    return figures


def steady(kind, lines, settings=None, of_channels=None):
    def run(seconds, disk):
        machine = Machine(kind, lines, settings, disk, of_channels)
        daemon = daemon_steady(machine, seconds)
        floor = floor_steady(machine, seconds)
        ratio = round(daemon["us_per_event"] / floor["us_per_event"], 3)
        return {"lines": lines, "ratio": ratio, "daemon": daemon, "floor": floor}

    return run


def held(kind, lines):
    def run(_seconds, disk):
        return {"lines": lines, "daemon": daemon_steady(Machine(kind, lines, disk=disk), HELD_S)}

    return run


# -- calls -----------------------------------------------------------------------------------------------------------


def log_statements(which):
    sql(f"ALTER SYSTEM SET log_statement = '{which}'")
    rows("SELECT pg_reload_conf()")
    time.sleep(0.5)  # the server tells nobody when it has read its settings


def statements_since(place):
    """What the daemon has asked, for bareloop: its connection alone, as psql waits meanwhile."""
    text = Path(os.environ["PGLOG"]).read_text()[place:]
    found = [part.rstrip("\n").replace("\n\t", "\n") for part in text.split("LOG:  statement: ")[1:]]
    own = [one.split("\nLOG:  ")[0] for one in found if "log_statement" not in one and "pg_reload_conf" not in one]
    return [with_id(one) for one in own]


def with_id(statement):
    """The id of the call, wherever a statement names the row of ActiveCalls."""
    table, where, _ = statement.partition("ActiveCalls WHERE id=")
    if where:
        return table + where + "{id}"
    head, where, _ = statement.partition(" WHERE id=")
    return head + where + "{id}" if head.startswith("UPDATE ActiveCalls") else statement


SPIN = "while True: pass"


@contextmanager
def awake():
    """Each processor has something to do, which gives way to all else. Who asks a question and waits for the answer lets
    his processor sleep; to wake it up would cost the bare loop more than the statements, and a busy daemon nothing."""
    spinners = []
    for _ in os.sched_getaffinity(0):
        spinners.append(subprocess.Popen(["/usr/bin/python3", "-c", SPIN]))
        os.sched_setscheduler(spinners[-1].pid, os.SCHED_IDLE, os.sched_param(0))
    yield
    for spinner in spinners:
        spinner.kill()
        spinner.wait()


class Statements:
    """Those of one call on a line, as the server has logged them: one call is made for it."""

    def __init__(self, daemon, line):
        log_statements("all")
        parts = []
        for act, text in ((daemon.begin, "] Recording to file "), (daemon.end, "Added Calls to database")):
            place = len(Path(os.environ["PGLOG"]).read_text())
            count = daemon.logged(text)
            act(line, line)
            daemon.wait_logged(text, count + 1)
            time.sleep(1)  # what follows the line is no more than a statement or two
            parts.append(statements_since(place))
        log_statements("none")
        self.files = []
        for name, statements in zip(("start", "end"), parts):
            file = Path(f"/tmp/bench_{name}.sql")
            file.write_bytes(b"\0".join(one.encode() for one in statements))
            self.files.append(file)
        self.counts = [len(part) for part in parts]

    def bare(self, calls, up):
        command = [BENCH / "bench_bareloop", str(calls), *self.files, str(up)]
        return json.loads(subprocess.run(command, check=True, capture_output=True).stdout)

    def bare_per_s(self, calls, up):
        seconds = self.bare(calls, up)
        return calls / (seconds["starts_s"] + seconds["ends_s"])


def closed_loop(daemon, first, seconds):
    """Calls come as fast as they go, some at once; how many went in time, and how many were up on average."""
    begun = ended = 0
    up = []
    recorded, added = daemon.logged("] Recording to file "), daemon.logged("Added Calls to database")

    def end_to(count):
        for number in range(ended, count):
            daemon.end(first + number % CALL_LINES, first + number % CALL_LINES)
        return count

    stop_at = time.monotonic() + seconds
    while time.monotonic() < stop_at:
        while begun - (daemon.logged("Added Calls to database") - added) < CALLS_AT_ONCE:
            daemon.begin(first + begun % CALL_LINES, first + begun % CALL_LINES)
            begun += 1
        ended = end_to(daemon.logged("] Recording to file ") - recorded)
        up.append(ended - (daemon.logged("Added Calls to database") - added))
        time.sleep(0.005)
    went = daemon.logged("Added Calls to database") - added
    daemon.wait_logged("] Recording to file ", recorded + begun)
    end_to(begun)
    return went, round(sum(up) / len(up))


def calls(beside):
    def run(seconds, disk):
        machine = Machine(PLAIN, beside + CALL_LINES, disk=disk)
        figures = {}
        daemon = Daemon(machine)
        follower = Follower(machine, RECORDINGS, expected_bytes(machine, seconds))
        daemon.begin_gently(beside, beside + CALL_LINES - 1)  # the first call of a line makes its contacts
        daemon.end_gently(beside, beside + CALL_LINES - 1)
        daemon.wait_finished()
        if beside:
            daemon.begin_gently(0, beside - 1)
        statements = Statements(daemon, beside)
        counts = []
        with awake():
            figures = daemon.measure(seconds, lambda: counts.extend(closed_loop(daemon, beside, seconds)))
        del figures["us_per_event"], figures["cards_us_per_event"]
        if beside:
            daemon.end_gently(0, beside - 1)
        daemon.wait_finished()
        figures.update(judged(machine, follower.finish(), daemon.due), late_s=daemon.late_s())
        went, up = counts
        figures.update(calls_per_s=round(went / seconds, 1), calls_up=up)
        daemon.stop()
        with awake():
            bare_per_s = statements.bare_per_s(max(50, went), max(1, beside + up))
            alone_per_s = statements.bare_per_s(max(50, went), 1)
        daemon.clear()
        return {
            "lines": beside,
            "statements_of_a_call": statements.counts,
            "ratio": round(figures["calls_per_s"] / bare_per_s, 3),
            "daemon": figures,
            "floor": {"calls_per_s": round(bare_per_s, 1), "alone_per_s": round(alone_per_s, 1)},
        }

    return run


def at_rate(daemon, first, lines, per_s, seconds):
    """So many calls begin each second, and last CALL_S."""
    began, begun, ended = time.monotonic(), 0, 0
    while ended < per_s * seconds:
        now = time.monotonic() - began
        while begun < min(now * per_s, per_s * seconds):
            daemon.begin(first + begun % lines, first + begun % lines)
            begun += 1
        while ended < min((now - CALL_S) * per_s, begun):
            daemon.end(first + ended % lines, first + ended % lines)
            ended += 1
        time.sleep(0.002)


def rate(per_s, beside):
    def run(seconds, disk):
        lines = 2 * CALL_S * per_s
        machine = Machine(PLAIN, beside + lines, disk=disk)
        daemon = Daemon(machine)
        daemon.begin_gently(beside, beside + lines - 1)  # the first call of a line makes its contacts
        daemon.end_gently(beside, beside + lines - 1)
        follower = Follower(machine, RECORDINGS, expected_bytes(machine, seconds))
        if beside:
            daemon.begin_gently(0, beside - 1)
        figures = daemon.measure(seconds, lambda: at_rate(daemon, beside, lines, per_s, seconds))
        del figures["us_per_event"], figures["cards_us_per_event"]
        if beside:
            daemon.end_gently(0, beside - 1)
        daemon.wait_finished()
        figures.update(judged(machine, follower.finish(), daemon.due), late_s=daemon.late_s())
        figures["rows"] = rows_in("Calls")
        daemon.stop()
        daemon.clear()
        return {"lines": beside, "daemon": figures}

    return run


def burst(count):
    """So many calls begin in the same instant beside as many recordings."""

    def run(seconds, disk):
        machine = Machine(PLAIN, 2 * count, disk=disk)
        with recording(machine, seconds, count) as (daemon, figures):
            took = []

            def all_begin():
                began = time.monotonic()
                daemon.begin(count, 2 * count - 1)
                daemon.wait_logged("] Recording to file ", 2 * count)
                took.append(round(time.monotonic() - began, 3))

            figures.update(daemon.measure(seconds, all_begin), last_start_s=took[0])
            del figures["us_per_event"], figures["cards_us_per_event"]
            daemon.end_gently(count, 2 * count - 1)
        return {"lines": 2 * count, "daemon": figures}

    return run


def hang_up(lines):
    """All calls end in the same instant; who waits for its end is still recorded."""

    def run(seconds, disk):
        machine = Machine(PLAIN, lines, disk=disk)
        daemon = Daemon(machine)
        follower = Follower(machine, RECORDINGS, expected_bytes(machine, seconds))
        daemon.begin_gently(0, lines - 1)
        time.sleep(SETTLE_S)
        took = []

        def all_end():
            daemon.note_recorded(0, lines - 1)
            began = time.monotonic()
            daemon.cards.do(daemon.ends(0, lines - 1))
            daemon.wait_logged("] Recording stopped", lines)
            took.append(round(time.monotonic() - began, 3))

        figures = daemon.measure(0, all_end)
        del figures["us_per_event"], figures["cards_us_per_event"]
        daemon.wait_finished()
        figures.update(judged(machine, follower.finish(), daemon.due), late_s=daemon.late_s(), last_end_s=took[0])
        daemon.stop()
        daemon.clear()
        return {"lines": lines, "daemon": figures}

    return run


# -- stalls ----------------------------------------------------------------------------------------------------------


def stop_backend(_machine, daemon, other, length):
    [backend] = backends()
    os.kill(backend["pid"], signal.SIGSTOP)
    try:
        daemon.begin(other, other)  # asks the database
        time.sleep(length)
    finally:
        os.kill(backend["pid"], signal.SIGCONT)


def lock_table(_machine, daemon, other, length):
    with locked("ActiveCalls", length):
        daemon.begin(other, other)


def stop_disk(machine, daemon, other, length):
    machine.watch.set(Watch.DISK_STOPPED, 1)
    try:
        daemon.begin(other, other)
        time.sleep(length)
    finally:
        machine.watch.set(Watch.DISK_STOPPED, 0)
    if machine.watch.get(Watch.WRITES_HELD) == 0:
        raise Trouble("the stopped disk was not met")


def hang_service(_machine, daemon, other, length):
    """Lines go offline, each of which the service is to hear; the messages wait for each other."""
    path = Path("/tmp/morvex")
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as service:
        service.bind(str(path))
        service.listen()  # nobody accepts or answers
        daemon.cards.do(f"ch {other + 1}..{other + OTHER_LINES - 1} state offline")
        daemon.begin(other, other)
        time.sleep(length)
        met = select.select([service], [], [], 0)[0]
    path.unlink()
    if not met:
        raise Trouble("the hanging service was not met")


def stall(hang, length):
    """Lines record while something hangs that a call on another line needs."""

    def run(seconds, disk):
        machine = Machine(PLAIN, STALLED_LINES + OTHER_LINES, disk=disk, of_channels={"CheckLineStatus": "1"})
        long = min(length, seconds)
        with recording(machine, seconds + length, STALLED_LINES) as (daemon, figures):
            def all_through():
                hang(machine, daemon, STALLED_LINES, long)
                daemon.wait_logged("] Recording to file ", STALLED_LINES + 1)
                time.sleep(SETTLE_S)

            figures.update(daemon.measure(0, all_through), stall_s=long)
            del figures["us_per_event"], figures["cards_us_per_event"]
            daemon.end_gently(STALLED_LINES, STALLED_LINES)
        return {"lines": STALLED_LINES, "daemon": figures}

    return run


# -- finishing, start and stop ---------------------------------------------------------------------------------------


def bare_sox(encoding, lengths):
    """The seconds that two sox at a time take for recordings of these lengths."""
    folder = RECORDINGS / "sox"
    folder.mkdir()
    names = []
    for number, length in enumerate(lengths):
        names.append(f"{folder}/{number}")
        Path(f"{names[-1]}.wav").write_bytes(header(channels=1, length=length) + counting(length))
    command = f'sox "$0.wav" {" ".join(encoding.options)} "$0.out{encoding.suffix}"'
    began = time.monotonic()
    subprocess.run(["xargs", "-P", "2", "-n", "1", "sh", "-c", command], input="\n".join(names).encode(), check=True)
    return time.monotonic() - began


def finish(name, lines=60, speed=10):
    """Calls of some length that all end at once: how long until the last is converted and a row."""

    def run(seconds, disk):
        encoding = ENCODINGS[name]
        machine = Machine(PLAIN, lines, {"o": {"RecEnc": name}}, disk)
        daemon = Daemon(machine)
        daemon.cards.do(f"speed {speed}")
        daemon.forget_lateness()
        daemon.begin_gently(0, lines - 1)
        time.sleep(seconds)
        daemon.note_recorded(0, lines - 1)
        recorded = [daemon.due[line][0] for line in range(lines)]
        began = time.monotonic()
        daemon.cards.do(daemon.ends(0, lines - 1))
        daemon.wait_finished()
        took = time.monotonic() - began
        figures = {
            "finish_s": round(took, 3),
            "recordings_per_minute": round(60 * lines / took, 1),
            "audio_s_each": round(sum(recorded) / lines / AUDIO_BYTES_PER_S, 1),
            "rows": rows_in("Calls"),
            "late_s": daemon.late_s(),
        }
        daemon.stop()
        result = {"lines": lines, "daemon": figures}
        if encoding.options is not None:
            bare_s = bare_sox(encoding, recorded)
            result.update(ratio=round(took / bare_s, 3), floor={"finish_s": round(bare_s, 3)})
        daemon.clear()
        return result

    return run


def start_and_stop(lines):
    """A daemon without calls: from its first moment to its taking of events, and from SIGTERM to its end."""

    def run(_seconds, disk):
        machine = Machine(PLAIN, lines, disk=disk)
        daemon = Daemon(machine)
        figures = {"start_s": round(daemon.start_s, 3), "stop_s": round(daemon.stop(), 3)}
        return {"lines": lines, "daemon": figures}

    return run


def stop_with(calls_up):
    """A stop with so many calls up, against what the statements of their ends take."""

    def run(seconds, disk):
        machine = Machine(PLAIN, calls_up + 1, disk=disk)
        daemon = Daemon(machine)
        daemon.begin_gently(0, calls_up)  # the first call of a line makes its contacts
        daemon.end_gently(0, calls_up)
        daemon.wait_finished()
        daemon.clear()
        follower = Follower(machine, RECORDINGS, expected_bytes(machine, seconds))
        statements = Statements(daemon, calls_up)
        daemon.begin_gently(0, calls_up - 1)
        time.sleep(SETTLE_S)
        daemon.note_recorded(0, calls_up - 1)
        with awake():
            took = daemon.stop()
        figures = {"stop_s": round(took, 3), "rows": rows_in("Calls"), "rows_left": rows_in("ActiveCalls")}
        figures.update(judged(machine, follower.finish(), daemon.due))
        with awake():
            bare = statements.bare(calls_up, calls_up)
        daemon.clear()
        return {
            "lines": calls_up,
            "ratio": round(took / bare["ends_s"], 3),
            "daemon": figures,
            "floor": {"ends_s": round(bare["ends_s"], 3)},
        }

    return run


# -- without cards ---------------------------------------------------------------------------------------------------

MIXED_SAMPLES = 8000 * 1200
SOX_TRIES = 3


def micro(_seconds, _disk):
    """The pure pieces, by Google Benchmark: nanoseconds an item, which is a sample, or a call."""
    program = [BENCH / "bench_micro", "--benchmark_format=json"]
    found = json.loads(subprocess.run(program, check=True, capture_output=True).stdout)["benchmarks"]
    return {"daemon": {f"{one['name']}_ns": round(1e9 / one["items_per_second"], 3) for one in found}}


def cpu_of_children():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def sox_mixing_ns(folder):
    """Nanoseconds a sample of `sox -m`, as a whole process: the least of some tries."""
    for name in ("one", "other"):
        Path(f"{folder}/{name}.wav").write_bytes(header(channels=1, length=MIXED_SAMPLES) + counting(MIXED_SAMPLES))
    spent = []
    for _ in range(SOX_TRIES):
        before = cpu_of_children()
        command = ["sox", "-m", f"{folder}/one.wav", f"{folder}/other.wav", f"{folder}/mixed.wav"]
        subprocess.run(command, check=True, stderr=subprocess.DEVNULL)  # it tells of clipping
        spent.append(cpu_of_children() - before)
    return 1e9 * min(spent) / MIXED_SAMPLES


def mixing(seconds, disk):
    Machine.use_disk(disk)
    sample_ns = micro(seconds, disk)["daemon"]["MixSamplesOfAPair_ns"]
    sox_ns = sox_mixing_ns(RECORDINGS)
    return {
        "ratio": round(sample_ns / sox_ns, 3),
        "daemon": {"ns_per_sample": sample_ns},
        "floor": {"ns_per_sample": round(sox_ns, 3)},
    }


# -- all of them -----------------------------------------------------------------------------------------------------

LOUD = {"LoudVoiceDetect": "1"}
MONITORED = {"o": {"Monitoring": "1"}}
STALLS = {
    "backend": stall(stop_backend, STALL_S),
    "table": stall(lock_table, STALL_S),
    "disk": stall(stop_disk, 10),
    "service": stall(hang_service, STALL_S),
}

ROWS = {
    **{f"lines-{lines}": steady(PLAIN, lines) for lines in LINES},
    **{f"stereo-{pairs}": steady(STEREO, pairs) for pairs in PAIRS},
    **{f"mono-{pairs}": steady(MONO, pairs) for pairs in PAIRS},
    **{f"loudness-{lines}": steady(PLAIN, lines, of_channels=LOUD) for lines in LOUD_LINES},
    **{f"monitoring-{lines}": steady(PLAIN, lines, MONITORED) for lines in MONITORED_LINES},
    **{f"held-{both}": held(HELD_KINDS[both.split("-")[0]], int(both.split("-")[1])) for both in HELD},
    **{f"calls-{beside}": calls(beside) for beside in BESIDE},
    **{f"rate-{both}": rate(*map(int, both.split("-"))) for both in RATES},
    **{f"burst-{count}": burst(count) for count in BURSTS},
    **{f"hangup-{lines}": hang_up(lines) for lines in HANG_UPS},
    **{f"stall-{name}": row for name, row in STALLS.items()},
    **{f"finish-{name}": finish(name) for name in ENCODING_NAMES},
    **{f"start-{lines}": start_and_stop(lines) for lines in STARTS},
    **{f"stop-{count}": stop_with(count) for count in STOPS},
    "mixing": mixing,
    "micro": micro,
}
assert list(ROWS) == NAMES

# Small sizes, which measure nothing: that all of it works.
SMOKE = {
    "mono-35": steady(MONO, 35),
    "calls-4": calls(4),
    "hangup-70": hang_up(70),
    "stall-service": STALLS["service"],
    "stop-5": stop_with(5),
}
