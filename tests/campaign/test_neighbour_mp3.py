"""The hostile neighbour where recordings are converted: at the names that worker and tools use."""

from contextlib import contextmanager
from pathlib import Path

import pytest

from bench import ENCODINGS, Row, rows_of, tool
from harness import wait_until
from sox_faults import LOST
from test_neighbour import CARDS, SECRET, TREASURE, nothing, planted, prepare
from test_neighbour import swapped_source_goes, both_are_whole

__all__ = ["CARDS", "prepare"]
SETTINGS = {"o": {"RecEnc": "mp3"}}
SECURE_DELETE = Path("/var/morvex/conf/opt_secure_delete")
SHREDDED = Path("/tmp/shredded")
KINDS = (
    ("links", "link", SECRET),
    ("links to a file to come", "link", TREASURE / "new"),
    ("FIFOs", "fifo", "-"),
    ("folders", "folder", "-"),
)
FAILED = "Conversion to MP3 failed, fn: {path}"


def planted_for_a_failure(kind, target):
    """The names of the fallback, which is asked for since sox fails."""

    @contextmanager
    def fault(bench):
        with planted(kind, target, [".wav"])(bench), tool("sox", "exit 1"):
            bench.encoding = ENCODINGS["alaw"]  # so the recordings stay
            try:
                yield
            finally:
                bench.encoding = ENCODINGS["mp3"]

    return fault


@contextmanager
def secure_deletion(_bench):
    SECURE_DELETE.touch()
    try:
        with tool("shred", f'echo "$*" >>{SHREDDED}; exec /usr/bin/shred "$@"'):
            yield
    finally:
        SECURE_DELETE.unlink()


def only_sources_are_shredded(bench):
    """The source of another call is overwritten; the link in the place of one only goes."""
    swapped_source_goes(bench)
    source = bench.file_of(bench.one_call(channel=1), channel=1)
    wait_until("its source overwritten", lambda: SHREDDED.exists() and not source.exists())
    assert SHREDDED.read_text() == f"-u {source}\n"


ROWS = [
    Row(f"{what} at the names that sox writes", planted(kind, target, [".mp3"]), story=both_are_whole)
    for what, kind, target in KINDS
]
ROWS += [
    Row(f"{what} at the names of sources", planted(kind, target, [".mp3.g711"]), story=both_are_whole)
    for what, kind, target in KINDS
]
ROWS += [
    Row(
        f"{what} at the names of the fallback",
        planted_for_a_failure(kind, target),
        [FAILED],
        story=both_are_whole,
    )
    for what, kind, target in KINDS
]
ROWS += [
    Row("a link in the place of a running source", nothing, [LOST, FAILED], story=swapped_source_goes),
    Row("the same with secure deletion", secure_deletion, [LOST, FAILED], story=only_sources_are_shredded),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_neighbour(bench, row):
    bench.run(row)
