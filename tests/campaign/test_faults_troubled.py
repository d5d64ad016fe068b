"""A disk of recordings that turns read-only, or hangs, while calls run."""

import os
import re
import subprocess
import sys
import time
from contextlib import contextmanager
from pathlib import Path

import pytest

from bench import RECORDINGS, Row, remoteid_of, rows_of
from harness import HEADER_BYTES, wait_until
from troubled import HANGS, HELD, READ_ONLY

CARDS = "card ATP8 1001 8"
DISK = Path("/tmp/troubled")
HANG_S = 2


def prepare(_bench):
    DISK.mkdir()
    if not Path("/dev/fuse").exists():
        os.mknod("/dev/fuse", 0o600 | 0o020000, os.makedev(10, 229))
    program = Path(__file__).with_name("troubled.py")
    subprocess.Popen([sys.executable, "-B", program, DISK, "/tmp/troubled.json"])
    wait_until("the disk", (DISK / "disk").is_dir)
    subprocess.run(["mount", "--bind", DISK / "disk", RECORDINGS], check=True)


@contextmanager
def while_there(mark):
    mark.touch()
    try:
        yield
    finally:
        mark.unlink(missing_ok=True)


@contextmanager
def healed_in_the_end(_bench):
    """The story puts the disk in trouble."""
    try:
        yield
    finally:
        for mark in (HANGS, READ_ONLY):
            mark.unlink(missing_ok=True)


def begun_call(bench):
    """A call whose first blocks are in its file: the place in the log, the file and its audio so far."""
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.wait_blocks(path)
    audio = path.read_bytes()[HEADER_BYTES:]
    assert bench.cards.overruns() != bench.late or audio == bench.carried(len(audio))
    return mark, path, audio


def audio_of(path):
    return path.read_bytes()[HEADER_BYTES:]


def read_only_in_mid_call(bench):
    """What was written before is right, and the call has its row; the disk can be written again before it ends."""
    mark, path, audio = begun_call(bench)
    with while_there(READ_ONLY):
        bench.wait_report(WRITE_REFUSED, mark)
        size = path.stat().st_size
    wait_until("audio again", lambda: path.stat().st_size > size + 4096)
    bench.end()
    bench.daemon.finished_call(remoteid_of(path))
    assert audio_of(path).startswith(audio)
    bench.check_header(path, lost_blocks=bench.daemon.log_after(mark).count(WRITE_REFUSED))


def read_only_to_the_end(bench):
    """The call ends on a disk that cannot be written: it has its row, and the file what was written before."""
    mark, path, audio = begun_call(bench)
    with while_there(READ_ONLY):
        bench.wait_report(WRITE_REFUSED, mark)
        bench.end()
        bench.daemon.finished_call(remoteid_of(path))
        assert audio_of(path).startswith(audio)


def slow_handlers(bench, mark):
    """How many seconds the handling of an event, or a second's turn, took, where that was long."""
    log = "\n".join(bench.daemon.log_after(mark))
    return re.findall(r"^(?:Event handling|Periodic) took: ([\d.]+) s, ", log, re.MULTILINE)


def hangs_in_mid_call(bench):
    """A write of the daemon, of audio or of the header, hangs with the disk. All lines wait as long, and go on behind it.
    No file loses what it had."""
    mark, path, audio = begun_call(bench)
    who = f"{bench.daemon.pid} {path.name}"
    with while_there(HANGS):
        wait_until("a write hangs", lambda: HELD.exists() and HELD.read_text() == who)
        time.sleep(HANG_S)  # the length of the hang
    wait_until("its report", lambda: any(float(one) >= HANG_S for one in slow_handlers(bench, mark)))
    [hung, seconds] = HELD.read_text().rsplit(" ", 1)
    assert hung == who and float(seconds) >= HANG_S
    wait_until("audio again", lambda: path.stat().st_size > HEADER_BYTES + 2 * len(audio))
    bench.end()
    bench.daemon.finished_call(remoteid_of(path))
    assert audio_of(path).startswith(audio)


WRITE_REFUSED = "C-api error at Write to recording file: Read-only file system"
ROWS = [
    Row("disk turns read-only in mid-call", healed_in_the_end, [WRITE_REFUSED], story=read_only_in_mid_call),
    Row(
        "disk turns read-only and stays so to the end of the call",
        healed_in_the_end,
        [WRITE_REFUSED],
        may=["C-api error at {text}: Read-only file system"],
        story=read_only_to_the_end,
    ),
    Row("disk hangs in mid-call", healed_in_the_end, story=hangs_in_mid_call),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
