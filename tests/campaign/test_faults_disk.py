"""The disk of the recordings: full, read-only, without inodes, slow."""

import subprocess
from contextlib import contextmanager

import pytest

from bench import RECORDINGS, Row, remoteid_of, rows_of
from harness import HEADER_BYTES, counting, wait_until

CARDS = "card ATP8 1001 8"
FILLER = RECORDINGS / "filler"


def prepare(_bench):
    """A disk of its own, small enough to be filled at once."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m,nr_inodes=200,mode=2770", "disk", RECORDINGS], check=True)


def fill():
    subprocess.run(["dd", "if=/dev/zero", f"of={FILLER}", "bs=4096"], stderr=subprocess.DEVNULL, check=False)


@contextmanager
def full(_bench):
    fill()
    try:
        yield
    finally:
        FILLER.unlink(missing_ok=True)


@contextmanager
def full_later(_bench):
    """The story fills the disk."""
    try:
        yield
    finally:
        FILLER.unlink(missing_ok=True)


@contextmanager
def read_only(_bench):
    subprocess.run(["mount", "-o", "remount,ro", RECORDINGS], check=True)
    try:
        yield
    finally:
        subprocess.run(["mount", "-o", "remount,rw", RECORDINGS], check=True)


@contextmanager
def without_inodes(_bench):
    made = []
    try:
        while True:
            path = RECORDINGS / f"inode_{len(made)}"
            path.touch()
            made.append(path)
    except OSError:
        pass
    try:
        yield
    finally:
        for path in made:
            path.unlink()


@contextmanager
def slow(bench):
    with bench.control.during(slow_write_us=100_000):
        yield


def fills_in_mid_call(bench):
    """The disk fills up while a call runs, and has room again before it ends: what was written before is right."""
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.wait_blocks(path)
    fill()
    bench.wait_report("C-api error at Write to recording file: No space left on device", mark)
    size = path.stat().st_size
    FILLER.unlink()
    wait_until("audio again", lambda: path.stat().st_size > size + 4096)
    bench.end()
    data = path.read_bytes()
    assert bench.cards.overruns() != bench.late or data[HEADER_BYTES:size] == counting(size - HEADER_BYTES)


def room_in_mid_call(bench):
    """A call that begins on a full disk has its header once there is room."""
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.wait_report("C-api error at Write to recording file: No space left on device", mark)
    FILLER.unlink()
    wait_until("audio", lambda: path.stat().st_size > 3 * 2048)
    bench.end()
    bench.daemon.finished_call(remoteid_of(path))
    bench.check_header(path, lost_blocks=bench.daemon.log_after(mark).count(WRITE_FULL))


OPEN_FULL = "C-api error at OpenAudioFile: No space left on device"
WRITE_FULL = "C-api error at Write to recording file: No space left on device"
HEADER_FULL = "C-api error at Write header of {path}: No space left on device"
LOST = "Recording lost: {path}"
ROWS = [
    Row("disk full from the start", full, [WRITE_FULL, HEADER_FULL]),
    Row("disk fills up in mid-call", full_later, [WRITE_FULL], story=fills_in_mid_call),
    Row(
        "disk full at the start, room in mid-call",
        full,
        [WRITE_FULL],
        story=room_in_mid_call,
    ),
    Row("disk read-only", read_only, ["C-api error at OpenAudioFile: Read-only file system", LOST]),
    Row("disk without inodes", without_inodes, [OPEN_FULL, LOST]),
    Row("disk slow, 100 ms a write", slow, may=["Event handling took: {text} s", "Periodic took: {text} s"]),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
