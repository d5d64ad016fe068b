"""A hostile neighbour: user nobody puts links, FIFOs and folders at every name that the daemon is about to open.

/recordings is what a careless installation makes of it: everybody may write. A treasure lies outside, root's own;
whatever becomes of a recording, the treasure is as it was after each row, no line goes deaf, and the next call is whole.
"""

import os
import stat
import subprocess
import time
from contextlib import contextmanager
from datetime import datetime, timedelta
from pathlib import Path

import pytest

from bench import RECORDINGS, Row, is_whole, remoteid_of, rows_of
from harness import order, wait_until
from sox_faults import LOST

CARDS = "card ATP8 1001 8"
SETTINGS = {"o": {"Monitoring": "1"}}
TREASURE = Path("/var/treasure")
SECRET = TREASURE / "secret"
SHARED = TREASURE / "shared"  # what nobody may write, he may also link to
TREASURES = [TREASURE]
ORIGINAL = Path("/tmp/original.wav")  # the audio of line 1 as it was before its conversion
NOBODY = ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"]
SECONDS_AHEAD = 20
TRACE_FILES = ("trace.wav", "trace.bit", "dch.log", "dmsg.log")
SCRIPT = """
import os, sys
kind, target = sys.argv[1:3]
for name in sys.stdin.read().split("\\n"):
    try:
        if kind == "link": os.symlink(target, name)
        elif kind == "hardlink": os.link(target, name)
        elif kind == "fifo": os.mkfifo(name)
        elif kind == "folder": os.makedirs(name + "/in")
    except OSError as error:
        print(name, error, file=sys.stderr)
"""


def prepare(_bench):
    TREASURE.mkdir(mode=0o711)
    SECRET.write_text("nobody shall read this\n")
    SECRET.chmod(0o600)
    SHARED.write_text("everybody's\n")
    SHARED.chmod(0o666)
    RECORDINGS.chmod(0o777)
    (RECORDINGS / "log").mkdir()
    (RECORDINGS / "log").chmod(0o777)


def treasure():
    """All that a neighbour could want to change: names, owners, modes, contents."""
    found = []
    for path in sorted(path for treasure in TREASURES for path in (treasure, *treasure.rglob("*"))):
        status = path.lstat()
        content = path.read_bytes() if path.is_file() else b""
        found.append((str(path), status.st_mode, status.st_uid, content))
    return found


def as_nobody(kind, target, names):
    """User nobody makes these names; those that he may not make are his loss."""
    command = [*NOBODY, "/usr/bin/python3", "-c", SCRIPT, kind, str(target)]
    subprocess.run(command, input="\n".join(map(str, names)), text=True, check=True, stderr=subprocess.DEVNULL)


def names_to_come(bench, suffixes, root=RECORDINGS):
    """The names of the recordings of line 1 that can begin within the next seconds, below a root."""
    now = int(time.time())
    found = []
    for second in range(now, now + SECONDS_AHEAD):
        moment = datetime.fromtimestamp(second)
        folder = root / moment.strftime("%Y/%m/%d/%H")
        for count in range(bench.calls_of_line_1 + 1, bench.calls_of_line_1 + 3):
            name = f"{moment:%Y%m%d_%H%M%S}_001_{count % 100:02}"
            found += [folder / (name + suffix) for suffix in suffixes]
    return found


def planted(kind, target, suffixes, root=RECORDINGS):
    """The neighbour is there first."""

    @contextmanager
    def fault(bench):
        before = treasure()
        bench.calls_of_line_1 = int(calls_of_line_1(bench)[-1].split("_")[3])
        names = names_to_come(bench, suffixes, root)
        as_nobody(kind, target, names)
        made = [name for name in names if os.path.lexists(name)]
        mark = bench.daemon.mark()
        try:
            yield
            assert treasure() == before
            recorded = calls_of_line_1(bench, mark)
            met = [name for name in made if name.name.split(".")[0] in recorded]
            assert met, "no name of his was met"
            assert any(made_way(name) for name in met), "the daemon opened none of his names"
        finally:
            for name in names:
                if name.is_dir() and not name.is_symlink():
                    subprocess.run(["rm", "-rf", name], check=True)
                else:
                    name.unlink(missing_ok=True)

    return fault


def made_way(name):
    """Whether what the neighbour put there is gone, or a plain file of one name has its place."""
    if not os.path.lexists(name):
        return True
    status = name.lstat()
    return stat.S_ISREG(status.st_mode) and status.st_nlink == 1


def calls_of_line_1(bench, mark=0):
    text = "[1] Recording to file "
    return [remoteid_of(Path(line[len(text) :])) for line in bench.daemon.log_after(mark) if line.startswith(text)]


@contextmanager
def made_a_folder(place):
    """What is a link of the neighbour's into the treasure becomes a folder; the link is put aside."""
    try:
        yield
        wait_until("a folder", lambda: place.is_dir() and not place.is_symlink())
        aside = [path for path in place.parent.glob("aside_*") if path.is_symlink()]
        assert [os.readlink(path) for path in aside] == [str(TREASURE)]
    finally:
        subprocess.run(["rm", "-rf", place, *place.parent.glob("aside_*")], check=True)


@contextmanager
def folder_is_a_link(_bench, root=RECORDINGS):
    """The folder of the hour is a link into the treasure."""
    before = treasure()
    wait_until("an hour that lasts", lambda: datetime.now().hour == (datetime.now() + timedelta(seconds=10)).hour)
    folder = root / datetime.now().strftime("%Y/%m/%d/%H")
    aside = root / "aside"
    was_there = folder.exists()  # not when an hour has just begun
    script = f"ln -s {TREASURE} {folder}"
    subprocess.run([*NOBODY, "sh", "-c", f"mv {folder} {aside} && {script}" if was_there else script], check=True)
    try:
        with made_a_folder(folder):
            yield
        assert treasure() == before
    finally:
        if was_there:
            aside.rename(folder)


def swapped_in_mid_call(bench):
    """A running recording is renamed, and a link to the secret put in its place. The result is its name, when the call
    is finished."""
    before = treasure()
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.wait_blocks(path)
    script = f"mv {path} {path}.mine; ln -s {SECRET} {path}"
    subprocess.run([*NOBODY, "sh", "-c", script], check=True)
    assert path.is_symlink()
    bench.end()
    bench.settle()
    assert treasure() == before
    return path


def swapped_source_goes(bench):
    """The link has the name of what is to be converted or encrypted, and goes."""
    path = swapped_in_mid_call(bench)
    wait_until("the link has gone", lambda: not os.path.lexists(path))


def link_stays(bench):
    swapped_in_mid_call(bench).unlink()


def taken_away(whole_folder):
    """A running recording is renamed, or the folder of its hour is: there is a row, the audio is elsewhere, and told."""

    def story(bench):
        mark = bench.begin()
        path = bench.file_of(mark)
        bench.wait_blocks(path)
        taken = path.parent if whole_folder else path
        elsewhere = RECORDINGS / "elsewhere"
        subprocess.run([*NOBODY, "mv", "-T", taken, elsewhere], check=True)
        bench.end()
        bench.daemon.finished_call(remoteid_of(path))
        bench.wait_report(f"Recording lost: {path}", mark)
        assert not path.exists()
        bench.check_whole(elsewhere / path.name if whole_folder else elsewhere)
        subprocess.run(["rm", "-rf", elsewhere], check=True)

    return story


def both_are_whole(bench):
    """What the neighbour left makes way: line 1 is recorded whole, and line 2 beside it. He stays until the recordings
    are filed: he would take them along."""
    late = bench.cards.overruns()
    mark = bench.begin()
    path = bench.file_of(mark)
    bench.clean_call(channel=1)
    bench.wait_blocks(path)
    with path.open("rb") as running:  # stays open when a conversion has removed the name
        bench.end()
        call = bench.daemon.finished_call(remoteid_of(path))
        ORIGINAL.write_bytes(running.read())
    is_whole(ORIGINAL.read_bytes(), 2, bench.cards.overruns() == late, bench.carried)
    bench.compare_final(ORIGINAL, call)


def whole_until_finished(bench):
    bench.clean_call()
    bench.settle()


def planted_for_a_trace(kind, target):
    @contextmanager
    def fault(_bench):
        before = treasure()
        names = [RECORDINGS / "log" / name for name in TRACE_FILES]
        for name in names:
            name.unlink(missing_ok=True)
        as_nobody(kind, target, names)
        assert all(os.path.lexists(name) for name in names)
        try:
            yield
            assert treasure() == before
            # A folder with something in it may stay, and is told of: see the reports of the rows.
            left = [] if kind == "folder" else [name for name in names if not made_way(name)]
            assert left == [], "a trace opens none of these"
        finally:
            for name in names:
                subprocess.run(["rm", "-rf", name], check=True)

    return fault


def trace(bench):
    mark = bench.daemon.mark()
    assert order("bittrace_start 0") == "OK\n"
    bench.daemon.wait_line("Starting bit stream tracing", mark)
    assert order("bittrace_stop") == "OK\n"
    bench.daemon.wait_line("Stopped bit stream tracing", mark)


@contextmanager
def nothing(_bench):
    yield


UNSYNCED = "C-api error at Sync of recording file: Operation not permitted"  # no file that can be synced has the name
FULL_FOLDERS = [f"C-api error at Remove {RECORDINGS}/log/{name}: Is a directory" for name in TRACE_FILES]
COPIES = [".wav.raw", ".wav.info"]
ROWS = [
    Row(f"{what} at the names of recordings", planted(kind, target, [".wav"]), story=both_are_whole)
    for what, kind, target in (
        ("links", "link", SECRET),
        ("links to a file to come", "link", TREASURE / "new"),
        ("hard links", "hardlink", SHARED),
        ("FIFOs", "fifo", "-"),
        ("folders", "folder", "-"),
    )
]
ROWS += [
    Row(f"{what} at the names of live copies", planted(kind, target, COPIES), story=both_are_whole)
    for what, kind, target in (("links", "link", SECRET), ("FIFOs", "fifo", "-"), ("folders", "folder", "-"))
]
ROWS += [
    Row("the folder of the hour is a link", folder_is_a_link, story=whole_until_finished),
    Row("a link in the place of a running recording", nothing, [UNSYNCED], story=link_stays),
    Row("running recording renamed away", nothing, [LOST], story=taken_away(whole_folder=False)),
    Row("folder of a running recording renamed away", nothing, [LOST], story=taken_away(whole_folder=True)),
]
ROWS += [
    Row(f"{what} at the names of a trace", planted_for_a_trace(kind, target), report, story=trace)
    for what, kind, target, report in (
        ("links", "link", SECRET, []),
        ("FIFOs", "fifo", "-", []),
        ("folders", "folder", "-", FULL_FOLDERS),
    )
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_neighbour(bench, row):
    bench.run(row)
