"""The disk of the recordings: full, read-only, without inodes, slow."""

import subprocess
from contextlib import contextmanager

import pytest

from bench import RECORDINGS, Bench, Row, remoteid_of, rows_of
from harness import BLOCK_BYTES, HEADER_BYTES, counting, header, path_of, wait_until

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


def no_room_at_all(bench):
    """The call has its row. Its file is there, and nothing came into it."""
    mark = bench.one_call()
    path = bench.file_of(mark)
    assert path_of(bench.daemon.finished_call(remoteid_of(path))) == path
    assert path.read_bytes() == b""


def slow_and_whole(bench):
    """Two seconds of audio, each write of which takes a while: no byte is lost."""
    bench.clean_call(blocks=8)


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
    assert path_of(bench.daemon.finished_call(remoteid_of(path))) == path
    data = path.read_bytes()
    assert bench.cards.overruns() != bench.late or data[HEADER_BYTES:size] == counting(size - HEADER_BYTES)
    assert len(data) > size + 2 * BLOCK_BYTES
    # The header counts what was lost, too.
    told = int.from_bytes(data[HEADER_BYTES - 4 : HEADER_BYTES], "little")
    assert data[:HEADER_BYTES] == header(channels=1, length=told)
    assert told % BLOCK_BYTES == 0 and told >= len(data) - HEADER_BYTES


def room_in_mid_call(bench):
    """A call that begins on a full disk has its header once there is room."""
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.wait_report("C-api error at Write to recording file: No space left on device", mark)
    FILLER.unlink()
    wait_until("audio", lambda: path.stat().st_size > 3 * 2048)
    bench.end()
    assert path_of(bench.daemon.finished_call(remoteid_of(path))) == path
    bench.check_header(path, lost_blocks=bench.daemon.log_after(mark).count(WRITE_FULL))


OPEN_FULL = "C-api error at OpenAudioFile: No space left on device"
WRITE_FULL = "C-api error at Write to recording file: No space left on device"
HEADER_FULL = "C-api error at Write header of {path}: No space left on device"
LOST = "Recording lost: {path}"
ROWS = [
    Row("disk full from the start", full, [WRITE_FULL, HEADER_FULL], story=no_room_at_all),
    Row("disk fills up in mid-call", full_later, [WRITE_FULL], story=fills_in_mid_call),
    Row(
        "disk full at the start, room in mid-call",
        full,
        [WRITE_FULL],
        story=room_in_mid_call,
    ),
    Row(
        "disk read-only",
        read_only,
        ["C-api error at OpenAudioFile: Read-only file system", LOST],
        story=Bench.row_without_audio,
    ),
    Row("disk without inodes", without_inodes, [OPEN_FULL, LOST], story=Bench.row_without_audio),
    Row("disk slow, 100 ms a write", slow, story=slow_and_whole),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
