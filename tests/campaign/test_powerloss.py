"""Power loss at every step of finishing: what would a machine find on its disk if the power went now?

    POWERLOSS_PART     "2/6": the second sixth of all runs: modes, ends, with and without secure deletion; else a few
    POWERLOSS_ROUNDS   so many calls on each line (default 2); the stop of the daemon ends the last
    POWERLOSS_REPORT   a file that gets one JSON line a run

The recordings lie on the disk of forgetful.py, which tells after each operation of any program what its worst state is:
what no fsync has named is not there. A trigger on Calls puts a mark between these operations, at the moment when a row
is about to be committed. Held against each of these states:

    A step of finishing (conversion, encryption) has its result on disk, whole, before what it was made from is removed
    or overwritten, and from then on until the next step has.
    The recording is on disk as it goes into the archive before its row says so, and from then on.

Audio in /dev/shm does not outlast a power loss, so there the first rule begins with what encryption writes to the disk.

Where sox fails, the copy in its place is that step. Where the copy fails too, the recording is rescued: it moves as it
is, or stays where it is when the disk cannot move it, and is on disk before its row says anything.
"""

import json
import os
import subprocess
import sys
from contextlib import contextmanager
from dataclasses import replace
from pathlib import Path

import pytest

from bench import unchanged_environment
from day import CARDS, CLEAR, DISK, MEMORY, MODES, TOOLS, WORK_ROOTS, Cards, Mode, Service
from day import begin, end, install_tools, is_archived, recorded
from harness import AUDIO_BYTES_PER_S, BUILD, RECORDINGS, Daemon, rows, sql, wait_until

FORGET = Path("/forget")
JOURNAL = Path("/tmp/journal")
SECURE_DELETE = Path("/var/morvex/conf/opt_secure_delete")
LINES = (1, 9, 17)  # analogue, station, trunk
ROUNDS = int(os.environ.get("POWERLOSS_ROUNDS", "2"))

# How a recording is finished: as it should be, or with the tools that fail.
DONE, COPIED, RESCUED, STAYED = "done", "copied", "rescued", "stayed"
BROKEN = {DONE: [], COPIED: ["sox"], RESCUED: ["sox", "cp"], STAYED: ["sox", "cp"]}
HALF = '#!/bin/sh\nfor last; do :; done; echo x >"$last"; exit 1\n'  # a part of a file is what they leave
ROOTS = {CLEAR: "/disk", DISK: "/disk/rectmp", MEMORY: "/memory"}

SHORT = {
    ("alaw-clear", DONE, False),
    ("ulaw-stereo-memory", DONE, False),
    ("gsm-clear", DONE, True),
    ("mp3-disk", DONE, False),
    ("mp3-disk", COPIED, False),
    ("gsm-clear", RESCUED, True),
}


def can_end(mode, finish):
    """Whether there is such an end to a recording. Nothing is rescued where clear audio must not be left about."""
    return finish == DONE or (mode.converts and (finish == COPIED or mode.secrecy == CLEAR))


def chosen():
    every = [
        (mode, finish, secure_delete)
        for finish in BROKEN
        for mode in MODES
        for secure_delete in (False, True)
        if can_end(mode, finish)
    ]
    if part := os.environ.get("POWERLOSS_PART"):
        number, parts = (int(text) for text in part.split("/"))
        return every[number - 1 :: parts]
    return [(mode, *how) for mode, *how in every if (str(mode), *how) in SHORT]


# -- the disk --------------------------------------------------------------------------------------------------------


def mount():
    """The forgetful disk in the place of /recordings, and the memory beside it in that of /dev/shm/morvex."""
    FORGET.mkdir(exist_ok=True)
    if not Path("/dev/fuse").exists():
        os.mknod("/dev/fuse", 0o600 | 0o020000, os.makedev(10, 229))
    program = Path(__file__).with_name("forgetful.py")
    disk = subprocess.Popen([sys.executable, "-B", program, FORGET, JOURNAL])
    wait_until("the disk", lambda: (FORGET / "disk").is_dir())
    WORK_ROOTS["memory"].mkdir(exist_ok=True)
    subprocess.run(["mount", "--bind", FORGET / "disk", RECORDINGS], check=True)
    subprocess.run(["mount", "--bind", FORGET / "memory", WORK_ROOTS["memory"]], check=True)
    return disk


def unmount(disk):
    for place in (WORK_ROOTS["memory"], RECORDINGS, FORGET):
        subprocess.run(["umount", "--lazy", place], check=True)
    disk.terminate()
    disk.wait(60)


@pytest.fixture
def disk():
    disk = mount()
    sql(
        "CREATE OR REPLACE FUNCTION mark() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
        f"EXECUTE format('COPY (SELECT 1) TO %L', '{FORGET}/marks/' || NEW.filename); RETURN NEW; END $$"
    )
    sql("CREATE OR REPLACE TRIGGER mark BEFORE INSERT ON Calls FOR EACH ROW EXECUTE FUNCTION mark()")
    yield disk
    unmount(disk)


@pytest.fixture
def service():
    install_tools()
    service = Service()
    yield
    service.stop()


@contextmanager
def broken(tools):
    for name in tools:
        (TOOLS / name).write_text(HALF)
        (TOOLS / name).chmod(0o755)
    yield
    for name in tools:
        (TOOLS / name).unlink()


# -- the journal -----------------------------------------------------------------------------------------------------


class Recording:
    """One recording's way through its files: as written, converted, encrypted; and what the disk owes it."""

    def __init__(self, call, mode, finish):
        wanted = call["remoteid"] + mode.extension
        name = wanted if finish == DONE else call["remoteid"] + ".wav"
        assert call["filename"] == name
        work = f"{ROOTS[mode.secrecy]}/{call['directory']}"
        self.stages = [f"{work}/{wanted}.g711"] if mode.converts else []
        if finish == RESCUED:
            self.stages.append(f"/disk/rescued/{wanted}.g711")
        elif finish != STAYED:
            self.stages.append(f"{work}/{name}")
            if mode.secrecy != CLEAR:
                self.stages.append(f"/disk/{call['directory']}/{wanted}")
        self.name = name
        self.complete = {}  # the digest of each file when it had all its content
        self.gone = -1  # the last stage that is destroyed
        self.in_row = False

    @property
    def final(self):
        """Where it is in the end."""
        return RECORDINGS / self.stages[-1].removeprefix("/disk/")

    # A file is complete as it was before somebody removed or shredded it, or at the end.
    def learn(self, lines):
        for line in lines:
            path = line["path"].split(" ")[-1]  # of a rename the new one
            if path in self.stages and line["now"] and line["by"] != "shred":
                self.complete[path] = line["now"]

    # A rescue is no destruction: the same file is at its next stage.
    def destroys(self, line):
        if line["op"] == "rename" and line["path"].split(" ")[1] in self.stages:
            return False
        return line["by"] == "shred" or line["op"] in ("unlink", "rename")

    def follow(self, line):
        path = line["path"].split(" ")[0]
        if path in self.stages and self.destroys(line):
            self.gone = max(self.gone, self.stages.index(path))
        if line["path"] == f"/marks/{self.name}":
            self.in_row = True

    def is_owed(self, disk):
        """Why this state of the disk may not be; None when it may."""
        if self.in_row and disk.get(self.stages[-1]) != self.complete[self.stages[-1]]:
            return "the row says so, and the recording is not on disk"
        later = self.stages[self.gone + 1 :]
        if self.gone < 0 or (later and later[0].startswith("/memory")):
            return None
        if not any(disk.get(path) == self.complete[path] for path in later):
            return f"{self.stages[self.gone]} is gone, and what was made of it is not on disk"
        return None


def check_journal(recordings):
    """Every state of the disk, for every recording. How many states there were."""
    lines = [json.loads(text) for text in JOURNAL.read_text().splitlines()]
    for recording in recordings:
        recording.learn(lines)
    disk = {}
    owed = []
    for line in lines:
        for path, value in line["disk"].items():
            if value is None:
                del disk[path]
            else:
                disk[path] = value
        for recording in recordings:
            recording.follow(line)
            if why := recording.is_owed(disk):
                owed.append(f"state {line['seq']}, after {line['op']} {line['path']} by {line['by']}: {why}")
    assert all(recording.in_row for recording in recordings)
    assert not owed, f"{len(owed)} times in {len(lines)} states:\n" + "\n".join(owed[:5])
    return len(lines)


# -- the calls -------------------------------------------------------------------------------------------------------


def record(daemon, cards, rounds):
    """Calls on each line, side by side. All but those of the last round are ended on the line."""
    for left in reversed(range(rounds)):
        for line in LINES:
            cards.do(*begin(line, f"03012{line:05}"))
        for line in LINES:
            cards.do(f"wait recording {line - 1}")
            active = daemon.active_call(line)
            wait_until("2 s of audio", lambda: recorded(cards, line) > 2 * AUDIO_BYTES_PER_S)
            if left:
                cards.do(*end(line))
                daemon.finished_call(active["remoteid"])


def named(value):
    return ("unlink", "shred")[value] if isinstance(value, bool) else str(value)


def started(mode, finish):
    """A daemon that finds the tools as this end has them, and for a rescue a disk that can move them."""
    wrapper = os.environ.get("MORVEX_WRAPPER", "")
    if finish == RESCUED:
        libraries = ":".join(str(BUILD / "tests" / name) for name in ("libpower_up.so", "libcampaign_rename.so"))
        wrapper += f" /usr/bin/env LD_PRELOAD={libraries}"
    with unchanged_environment(MORVEX_WRAPPER=wrapper):
        return Daemon(CARDS, mode.settings).start()


@pytest.mark.parametrize(("mode", "finish", "secure_delete"), chosen(), ids=named)
def test_every_state_of_the_disk(disk, service, mode: Mode, finish, secure_delete):
    sql("TRUNCATE Calls, ActiveCalls")
    SECURE_DELETE.unlink(missing_ok=True)
    if secure_delete:
        SECURE_DELETE.touch()
    with broken(BROKEN[finish]):
        daemon = started(mode, finish)
        try:
            daemon.wait_orders()
            cards = Cards()
            record(daemon, cards, ROUNDS)
            assert daemon.stop() == 0
        finally:
            if daemon.running:
                daemon.kill()

    calls = rows("SELECT * FROM Calls")
    assert len(calls) == ROUNDS * len(LINES)
    recordings = [Recording(call, mode, finish) for call in calls]
    held = replace(mode, late=cards.late, encoding=mode.encoding if finish == DONE else "alaw")
    for recording in recordings:
        assert is_archived(recording.final.read_bytes(), recording.name, held)
    rescued = {f"Recording rescued: {recording.final}" for recording in recordings if finish in (RESCUED, STAYED)}
    assert {line for line in daemon.lines if line.startswith("Recording rescued: ")} == rescued
    states = check_journal(recordings)
    if report := os.environ.get("POWERLOSS_REPORT"):
        told = {"mode": str(mode), "finish": finish, "shred": secure_delete, "states": states, "recordings": len(calls)}
        with open(report, "a") as lines:
            lines.write(json.dumps(told) + "\n")
