"""The hostile neighbour where recordings are encrypted: in the memory where they lie before, and at the archive's names."""

import subprocess
from contextlib import contextmanager
from functools import partial
from pathlib import Path

import pytest

from bench import Row, install_encryption, rows_of
from test_neighbour import CARDS, NOBODY, SECRET, SHARED, TREASURE, TREASURES
from test_neighbour import folder_is_a_link, made_a_folder, planted, treasure
from test_neighbour import nothing, swapped_source_goes, both_are_whole
from test_neighbour import prepare as prepare_recordings

__all__ = ["CARDS"]
SETTINGS = {"o": {"ALE": "1"}}
WORK = Path("/dev/shm/morvex")
SHARED_IN_MEMORY = Path("/dev/shm/treasure/shared")  # for second names, which stay on one file system


def prepare(bench):
    """The neighbour is there before the daemon: the folder in the memory is his."""
    prepare_recordings(bench)
    install_encryption(bench)
    subprocess.run([*NOBODY, "mkdir", "-m", "777", WORK], check=True)
    SHARED_IN_MEMORY.parent.mkdir()
    SHARED_IN_MEMORY.write_text("everybody's\n")
    SHARED_IN_MEMORY.chmod(0o666)
    TREASURES.append(SHARED_IN_MEMORY.parent)


def kinds(shared):
    return (
        ("links", "link", SECRET),
        ("links to a file to come", "link", TREASURE / "new"),
        ("hard links", "hardlink", shared),
        ("FIFOs", "fifo", "-"),
        ("folders", "folder", "-"),
    )


@contextmanager
def root_is_a_link(_bench):
    """The neighbour has put a link in the place of the folder in the memory, which is his."""
    before = treasure()
    aside = WORK.with_name("aside")
    subprocess.run([*NOBODY, "sh", "-c", f"mv {WORK} {aside} && ln -s {TREASURE} {WORK}"], check=True)
    try:
        with made_a_folder(WORK):
            yield
        assert treasure() == before
    finally:
        aside.rename(WORK)


LOST = "Recording lost: {path}"
ROWS = [
    Row(f"{what} at names in the memory", planted(kind, target, [".wav"], WORK), story=both_are_whole)
    for what, kind, target in kinds(SHARED_IN_MEMORY)
]
ROWS += [
    Row(f"{what} at names in the archive", planted(kind, target, [".wav"]), story=both_are_whole)
    for what, kind, target in kinds(SHARED)
]
ROWS += [
    Row("the folder of the hour in the memory is a link", partial(folder_is_a_link, root=WORK)),
    Row("the folder of the hour in the archive is a link", folder_is_a_link),
    Row("the folder in the memory is a link", root_is_a_link),
    Row("a link in the place of a running recording", nothing, [LOST], story=swapped_source_goes),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_neighbour(bench, row):
    bench.run(row)
