"""Each system call of one call fails once, each way; and the process is killed in each of them.

    CAMPAIGN_SHARE    "3/40": the third of forty shares of all cases, dealt by the seed; default "1/500", of starts
                      "1/1400"
    CAMPAIGN_CALLS    "rename fsync": these system calls only; default: all
    CAMPAIGN_SEED     default 1
    CAMPAIGN_REPORT   a file that gets one JSON line a case

A whole daemon runs in a sandbox, with real files and a real database. strace counts what the main thread, and what the
threads behind it (service messages and workers), ask of the kernel during one call; then, call by call, it refuses the
n-th such request of one thread with one of ERRORS, or kills the process in it. Left alone are the thread that takes
orders, which a call has nothing to do with, and those of the simulated cards. After each refusal

    the daemon runs, and the next call on that line is whole, row and bytes;
    the call itself is whole, or the log or err_crec.dat says that something went wrong;
    every file of it that holds audio in the clear can be played.

A start is met in the same ways, from its loader to its last line. Then the driver's configuration is the old one or the
new one, whole; and the daemon passes a call that is whole, or has said why not. The start after it is clean.

Two requests are refused less. close: by kills alone, as Linux closes the descriptor also when it reports an error, and
strace does not. sendto: with what a live connection can answer, as after any other error the database's library waits
for what the server has to say, and strace's server knows of nothing; script/faults ends real connections.
After a kill the rules of test_crash.py hold: for the call that it met and, where that call does not have to make its
folders, for the one before. The next start is clean, keeps what was finished, and the next call is whole.
"""

import contextlib
import json
import os
import random
import re
import shutil
import signal
import subprocess
import zlib
from collections import Counter
from dataclasses import dataclass, replace
from pathlib import Path

import pytest

from bench import TROUBLE
from day import CARDS, CLEAR, MODES, ORIGINALS, TURN_BACK, WORK_ROOTS, Cards, Service
from day import begin, end, install_tools, is_archived, is_final, is_whole, md5, recorded
from harness import BUILD, HEADER_BYTES, RECORDINGS, Daemon, path_of, rows, wait_until
from test_crash import DRIVER_INI, ERROR_FILE, TUNED, check_left, check_settled, children_of

SHARE = os.environ.get("CAMPAIGN_SHARE", "1/500")
ONLY_CALLS = os.environ.get("CAMPAIGN_CALLS", "").split()
SEED = os.environ.get("CAMPAIGN_SEED", "1")
REPORT = os.environ.get("CAMPAIGN_REPORT")

# Every call asks for each of these.
CALLS = "openat mkdirat write pwrite64 close fchmod unlinkat fsync pipe2 clone3 sendto".split()
ERRORS = ["ENOSPC", "EIO", "EMFILE", "EINTR", "EAGAIN"]
KILL = "KILL"
FOLDER_CALLS = ["openat", "mkdirat", "close"]  # of which a call has more when it makes its folders
ERRORS_OF = {"close": [], "sendto": ["EINTR", "EAGAIN"]}
THREADS = {"main": slice(0, 1), "behind": slice(1, 4)}  # of the process, in the order in which they began
AUDIO_BYTES = 4096

# Line kinds and modes, so that each kind, encoding and way of secrecy comes once.
PAIRS = {
    "analogue": (1, "gsm-clear"),
    "station": (9, "mp3-disk"),
    "trunk": (17, "alaw-stereo-clear"),
    "secret": (1, "ulaw-stereo-memory"),
}

# A start, from its loader to its last line, in a mode that makes a folder then. It asks for each of these calls.
START = "station"
START_SHARE = os.environ.get("CAMPAIGN_SHARE", "1/1400")
START_CALLS = "openat mkdir write ftruncate close unlink unlinkat rename fsync clone3 sendto".split()
STARTED = ("** STARTED **", "reactor started")  # the second when the first is what was refused
IDLE = "waiting for exit"
START_LIMIT_S = 300  # a start that finds no cards tries for minutes
NO_CARD_THREAD = "terminate called after throwing an instance of 'std::system_error'"  # only the card library's throw
NOT_LOADED = "error while loading shared libraries"
QUICK_LIBRARY = BUILD / "tests" / "libfailing.so"


# -- strace ----------------------------------------------------------------------------------------------------------


class Trace:
    """strace on some threads of a daemon, until it is closed."""

    OUTPUT = Path("/tmp/strace")

    def __init__(self, daemon, threads, *expressions):
        tids = sorted(int(task.name) for task in Path(f"/proc/{daemon.pid}/task").iterdir())[THREADS[threads]]
        places = [word for tid in tids for word in ("-p", str(tid))]
        options = [word for expression in expressions for word in ("-e", expression)]
        self.OUTPUT.unlink(missing_ok=True)
        command = ["strace", "-o", self.OUTPUT, *options, *places]
        self.process = subprocess.Popen(command, stderr=subprocess.PIPE, text=True)
        for _ in tids:
            line = self.process.stderr.readline()
            assert "attached" in line, line

    def close(self):
        """What it has written."""
        self.process.send_signal(signal.SIGTERM)
        self.process.communicate()
        return self.OUTPUT.read_text()


# -- one call --------------------------------------------------------------------------------------------------------


def pass_call(daemon, cards, line, limit=60):
    """A call with some audio in it, from begin to end. Waits for the rows no longer than `limit`."""
    last = last_id()
    cards.do(*begin(line, "0301234567"), f"wait recording {line - 1} timeout 20")
    wait_until("some audio", lambda: not daemon.running or recorded(cards, line) >= AUDIO_BYTES)
    cards.do(*end(line), "wait handled", f"wait stopped {line - 1} timeout 20")
    try:
        wait_until("row", lambda: rows(f"SELECT id FROM Calls WHERE id > {last}"), limit)
    except AssertionError:
        if limit > 10:
            raise


class Late(Exception):
    """The machine was too slow for the cards, so there is no telling what a file should hold."""


def not_late(cards):
    if cards.overruns():
        raise Late


def no_children(daemon):
    wait_until("end of the children", lambda: not children_of(daemon.pid))


def last_id():
    return rows("SELECT coalesce(max(id), 0) AS id FROM Calls")[0]["id"]


def files():
    return {path for root in {RECORDINGS, *WORK_ROOTS.values()} for path in root.rglob("*") if path.is_file()}


def is_in_order(call, mode):
    """Whether the recording of a row is whole, encrypted where the mode says so. One that could not be converted may
    hold what was written."""
    path = path_of(call)
    if not path.exists():
        return False
    data = path.read_bytes()
    if mode.secrecy != CLEAR:
        data = data.translate(TURN_BACK)
    return is_final(data, call["filename"], mode) or (mode.converts and is_whole(data, call["linenr"], mode))


def clean_call(daemon, cards, line, mode):
    """A call that nothing befalls: one row, one file in the archive as the mode has it, and nothing else. By its id."""
    last, known, active = before_call()
    pass_call(daemon, cards, line)
    no_children(daemon)
    not_late(cards)
    calls = rows(f"SELECT * FROM Calls WHERE id > {last}")
    assert len(calls) == 1, f"{len(calls)} rows"
    path = path_of(calls[0])
    assert files() - known == {path}, f"{sorted(map(str, files() - known))} of {path}"
    data = path.read_bytes()
    assert is_archived(data, calls[0]["filename"], mode), f"{path} is not whole"
    assert rows("SELECT id FROM ActiveCalls") == active
    return {calls[0]["remoteid"]: (calls[0], md5(data))}


def check_plays(path, mode):
    """A file in the clear that holds audio has a header by which it plays."""
    data = path.read_bytes()
    in_clear = path.suffix == ".g711" or (path.suffix == ".wav" and mode.secrecy == CLEAR)
    if in_clear and len(data) > HEADER_BYTES:
        assert subprocess.run(["/usr/bin/soxi", path], capture_output=True).returncode == 0, f"{path} does not play"


# -- cases -----------------------------------------------------------------------------------------------------------


@dataclass(frozen=True)
class Case:
    threads: str
    call: str
    number: int
    fault: str

    def __str__(self):
        return f"{self.threads} {self.call} {self.number} {self.fault}"

    @property
    def expressions(self):
        how = f"signal={KILL}" if self.fault == KILL else f"error={self.fault}"
        return f"trace={self.call}", f"inject={self.call}:{how}:when={self.number}"


def count_calls(daemon, cards, line, threads):
    """How often each thread asks for each system call during one call that makes its folders, at most."""
    forget_files()
    trace = Trace(daemon, threads, f"trace={','.join(CALLS)}")
    pass_call(daemon, cards, line)
    no_children(daemon)
    counts = {}
    for text in trace.close().splitlines():
        if found := re.match(r"(\d+)? *(\w+)\(", text):
            counts.setdefault(found[2], {}).setdefault(found[1], []).append(text)
    return {call: max(len(lines) for lines in by_thread.values()) for call, by_thread in counts.items()}


def all_cases(daemon, cards, line, kills):
    counts = {threads: count_calls(daemon, cards, line, threads) for threads in THREADS}
    unmet = set(CALLS).difference(*counts.values())
    assert not unmet, f"nothing asks for {unmet}"
    forget_files()
    return [
        Case(threads, call, number, fault)
        for threads, calls in counts.items()
        for call, count in calls.items()
        if call in (ONLY_CALLS or CALLS)
        for number in range(1, count + 1)
        for fault in ([KILL] if kills else ERRORS_OF.get(call, ERRORS))
    ]


def share_of(cases, share, seed):
    """The cases of this share, in an order of its own. Which share a case belongs to does not depend on the others."""
    number, shares = (int(text) for text in share.split("/"))
    mine = [case for case in cases if zlib.crc32(f"{seed} {case}".encode()) % shares == number - 1]
    random.Random(seed).shuffle(mine)
    return mine


def before_call():
    """What a call is held against: the last row, the files, the active calls."""
    return last_id(), files(), rows("SELECT id FROM ActiveCalls")


def is_told(daemon, mark):
    """Whether anything was reported, at level 3 or 4."""
    lines = daemon.log_after(mark)
    return ERROR_FILE.exists() or any(TROUBLE.match(text) for text in lines)


def wait_for_end(daemon, mark, before):
    """A busy machine takes its time, also for a call that nothing has met."""

    def is_over():
        return not daemon.running or is_told(daemon, mark) or rows(f"SELECT id FROM Calls WHERE id > {before[0]}")

    with contextlib.suppress(AssertionError):
        wait_until("row or report", is_over)


def check_refused(daemon, cards, line, mode, before, mark, met, told):
    """What a call leaves of which something was refused since `mark`, and that the next one is whole."""
    last, known, active = before
    wait_for_end(daemon, mark, before)
    no_children(daemon)
    assert daemon.running, "the daemon has gone"
    calls = rows(f"SELECT * FROM Calls WHERE id > {last}")
    new_files = files() - known
    told["whole"] = len(calls) == 1 and len(new_files) == 1 and is_in_order(calls[0], mode)
    told["whole"] = told["whole"] and rows("SELECT id FROM ActiveCalls") == active
    told["told"] = is_told(daemon, mark)
    not_late(cards)
    what = f"{len(calls)} rows, {sorted(map(str, new_files))}"
    assert told["whole"] or told["told"], f"nothing tells of {met}: {what}"
    for path in new_files:
        check_plays(path, mode)

    try:
        clean_call(daemon, cards, line, mode)
    except AssertionError as error:
        raise AssertionError(f"the next call: {error}; this one: {what}") from None


def refuse(daemon, cards, line, mode, case, told):
    """One case."""
    before = before_call()
    ERROR_FILE.unlink(missing_ok=True)
    mark = daemon.mark()
    trace = Trace(daemon, case.threads, *case.expressions)
    try:
        pass_call(daemon, cards, line, limit=3)
        wait_for_end(daemon, mark, before)
    finally:
        output = trace.close()
    met = [text for text in output.splitlines() if "(INJECTED)" in text]
    told["met"] = bool(met)
    check_refused(daemon, cards, line, mode, before, mark, met, told)


def forget_files():
    """With their folders, so that the next call makes its own."""
    for path in files() | set(ORIGINALS.iterdir()):
        path.unlink()
    for root in WORK_ROOTS.values():
        for year in root.glob("[0-9]*"):
            shutil.rmtree(year)


def report(told):
    if REPORT:
        with open(REPORT, "a") as lines:
            lines.write(json.dumps(told) + "\n")


@pytest.fixture(scope="module", autouse=True)
def appliance():
    install_tools()
    service = Service()
    yield
    service.stop()


@pytest.fixture
def quick_start(monkeypatch):
    """Half seconds pass quickly, where the build has the library for it: the sanitizers' builds do not."""
    if QUICK_LIBRARY.exists():
        monkeypatch.setenv("MORVEX_WRAPPER", f"env LD_PRELOAD={QUICK_LIBRARY}")


def start(mode):
    ERROR_FILE.unlink(missing_ok=True)
    daemon = Daemon(CARDS, mode.settings)
    try:
        daemon.start()
        daemon.wait_orders()
        assert not ERROR_FILE.exists(), ERROR_FILE.read_text()
        return daemon, Cards()
    except BaseException:
        daemon.kill()
        raise


def start_again(line, mode, settled):
    """The start after a death is clean, what was finished is as it was, and a call is whole. It is settled then."""
    daemon, cards = start(mode)
    try:
        check_settled(settled)
        forget_files()
        settled.clear()
        settled.update(clean_call(daemon, cards, line, mode))
        assert not ERROR_FILE.exists(), ERROR_FILE.read_text()
    except BaseException:
        daemon.kill()
        raise
    return daemon, cards


def mode_of(kind):
    line, name = PAIRS[kind]
    return line, next(mode for mode in MODES if str(mode) == name)


def check_death(daemon, cards, mode, mark, settled, told):
    """What a call leaves whose daemon has died since `mark`, and what was settled before it."""
    no_children(daemon)
    check_left(daemon.log_after(mark), replace(mode, late=cards.late), settled, told)


def kill_in(daemon, cards, line, mode, case, settled, told):
    """One life that ends in a system call."""
    mark = daemon.mark()
    trace = Trace(daemon, case.threads, *case.expressions)
    try:
        pass_call(daemon, cards, line, limit=3)
    except (OSError, AssertionError):
        wait_until("death", lambda: not daemon.running)
    trace.close()
    told["met"] = not daemon.running
    if daemon.running:  # this call has asked for less
        daemon.kill()
    check_death(daemon, cards, mode, mark, settled, told)


@pytest.mark.parametrize("kind", PAIRS)
def test_kills(kind, quick_start):
    line, mode = mode_of(kind)
    daemon, cards = start(mode)
    wrong = []
    settled = {}
    for case in share_of(all_cases(daemon, cards, line, kills=True), SHARE, f"{SEED} {kind}"):
        told = {"kind": kind, "case": str(case)}
        if case.call in FOLDER_CALLS:
            forget_files()
            settled.clear()
        try:
            kill_in(daemon, cards, line, mode, case, settled, told)
            daemon, cards = start_again(line, mode, settled)
        except Late:
            told["late"] = True
        except (OSError, AssertionError) as error:
            told["wrong"] = str(error).split("\n")[0]
            wrong.append(f"{case}: {told['wrong']}")
            daemon.kill()
        report(told)
        if not daemon.running:
            forget_files()
            settled.clear()
            daemon, cards = start(mode)
    forget_files()
    assert daemon.stop() == 0
    assert not wrong, "\n".join(wrong)


@pytest.mark.parametrize("kind", PAIRS)
def test_refusals(kind, quick_start):
    line, mode = mode_of(kind)
    daemon, cards = start(mode)
    wrong = []
    for case in share_of(all_cases(daemon, cards, line, kills=False), SHARE, f"{SEED} {kind}"):
        told = {"kind": kind, "case": str(case)}
        try:
            refuse(daemon, cards, line, mode, case, told)
        except Late:
            told["late"] = True
            daemon.kill()
        except AssertionError as error:
            told["wrong"] = str(error).split("\n")[0]
            wrong.append(f"{case}: {told['wrong']}")
            daemon.kill()
        report(told)
        if not daemon.running:  # what went wrong once says nothing of the next case
            daemon, cards = start(mode)
        forget_files()
    cards.close()
    assert daemon.stop() == 0
    assert not wrong, "\n".join(wrong)


# -- starts ----------------------------------------------------------------------------------------------------------


class TracedStart:
    """A start whose main thread strace watches from its first instruction on, until it is let go."""

    def __init__(self, mode, *expressions):
        preload = ["-E", f"LD_PRELOAD={QUICK_LIBRARY}"] if QUICK_LIBRARY.exists() else []
        options = [word for expression in expressions for word in ("-e", expression)]
        # -D: the process that was started becomes the daemon, not strace. -I2: SIGTERM lets it go.
        words = ["strace", "-D", "-I2", "-o", str(Trace.OUTPUT), *preload, *options]
        Trace.OUTPUT.unlink(missing_ok=True)
        ERROR_FILE.unlink(missing_ok=True)
        self.daemon = Daemon(CARDS, mode.settings)
        with pytest.MonkeyPatch.context() as patch:
            patch.setenv("MORVEX_WRAPPER", " ".join(words))
            self.daemon.launch()

    def wait(self):
        """Until it has come up, or has given up, or has ended. Whether it has come up."""
        wait_until("start or end", lambda: self.said(*STARTED, IDLE) or not self.daemon.running, START_LIMIT_S)
        return self.daemon.running and self.said(*STARTED)

    def said(self, *texts):
        return any(line.startswith(texts) for line in self.daemon.log_after(0))

    def let_go(self):
        """What strace has written up to the end of the start."""
        if tracer := self.tracer():
            os.kill(tracer, signal.SIGTERM)
            wait_until("end of strace", lambda: not self.tracer())
        text = Trace.OUTPUT.read_text()
        return text[: text.find(STARTED[0])] if STARTED[0] in text else text

    def tracer(self):
        with contextlib.suppress(OSError):
            return int(re.search(r"TracerPid:\s+(\d+)", Path(f"/proc/{self.daemon.pid}/status").read_text())[1])
        return 0


def start_cases(mode):
    start = TracedStart(mode, f"trace={','.join(START_CALLS)}")
    assert start.wait()
    counts = Counter(re.findall(r"^(\w+)\(", start.let_go(), re.MULTILINE))
    assert start.daemon.stop() == 0
    unmet = set(START_CALLS).difference(counts)
    assert not unmet, f"nothing asks for {unmet}"
    return [
        Case("main", call, number, fault)
        for call, count in counts.items()
        if call in (ONLY_CALLS or START_CALLS)
        for number in range(1, count + 1)
        for fault in [*ERRORS_OF.get(call, ERRORS), KILL]
    ]


def driver_files(mode):
    """The driver's configuration as an earlier start and a technician have left it, and as a start makes it of that."""
    texts = []
    for log_api in ("1", "0"):
        daemon = Daemon(CARDS, {**mode.settings, "o": {**mode.settings["o"], "TdmLogApi": log_api}}).start()
        assert daemon.stop() == 0
        if log_api == "1":
            with DRIVER_INI.open("a") as ini:
                ini.write(TUNED)
        texts.append(DRIVER_INI.read_bytes())
    assert texts[0] != texts[1] and all(TUNED.encode() in text for text in texts)
    return texts


def misfortune_at_start(line, mode, case, told):
    """One start. Whether it served a call, or has said why not."""
    start = TracedStart(mode, *case.expressions)
    daemon = start.daemon
    try:
        told["up"] = start.wait()
        told["met"] = "(INJECTED)" in start.let_go() or not daemon.running
        if case.fault == KILL and not told["up"]:
            assert daemon.wait_exit() == -signal.SIGKILL
            return
        told["whole"] = False
        if told["up"]:
            try:
                clean_call(daemon, Cards(), line, mode)
                told["whole"] = True
            except (OSError, AssertionError) as error:
                told["call"] = str(error).split("\n")[0]
        told["told"] = is_told(daemon, 0) or NOT_LOADED in "\n".join(daemon.log_after(0))
        if daemon.running:
            daemon.terminate()
        told["status"] = daemon.wait_exit()
        assert told["status"] >= 0 or start.said(NO_CARD_THREAD), f"ended by {told['status']}"
        assert told["whole"] or told["told"], f"no call, and nothing tells why: {told.get('call', '')}"
    finally:
        if daemon.running:
            daemon.kill()


def test_starts(quick_start):
    line, mode = mode_of(START)
    old, new = driver_files(mode)
    wrong = []
    for case in share_of(start_cases(mode), START_SHARE, f"{SEED} start"):
        told = {"kind": "start", "case": str(case)}
        DRIVER_INI.write_bytes(old)
        shutil.rmtree(WORK_ROOTS[mode.secrecy], ignore_errors=True)  # for the start to make
        try:
            misfortune_at_start(line, mode, case, told)
            assert DRIVER_INI.read_bytes() in (old, new), f"neither the old nor the new {DRIVER_INI.name}"
            told["new"] = DRIVER_INI.read_bytes() == new
            if not told.get("whole"):
                daemon, _ = start_again(line, mode, {})
                assert daemon.stop() == 0
                assert DRIVER_INI.read_bytes() == new
                assert list(DRIVER_INI.parent.glob("*.tmp")) == []
        except Late:
            told["late"] = True
        except (OSError, AssertionError) as error:
            told["wrong"] = str(error).split("\n")[0]
            wrong.append(f"{case}: {told['wrong']}")
        report(told)
        forget_files()
    assert not wrong, "\n".join(wrong)
