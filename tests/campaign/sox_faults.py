"""A conversion whose tool is missing, fails, hangs or is killed: the tables for both encodings that sox makes, in the
clear and encrypted."""

import os
from contextlib import contextmanager
from pathlib import Path

from bench import Row, archived, remoteid_of, tool
from harness import path_of, wait_until

CARDS = "card ATP8 1001 8"
PROCESS_ID = Path("/tmp/sox.pid")
HALF = 'for last; do :; done; echo x >"$last"; exit 1'
LOST = "Recording lost: {path}"
HANGS = f"echo $$ >{PROCESS_ID}; exec sleep 3600"


def with_tool(name, script):
    @contextmanager
    def fault(_bench):
        with tool(name, script):
            yield

    return fault


@contextmanager
def no_popen(bench):
    with bench.control.during(refuse_popen=1):
        yield


def keeps_the_audio(code, extension):
    """The call is filed with the audio as it was recorded, under the name that its row tells."""

    def story(bench):
        mark = bench.one_call()
        running = bench.file_of(mark)
        call = bench.daemon.finished_call(remoteid_of(running))
        assert call["encoding"] == code
        assert call["filename"] == call["remoteid"] + extension
        bench.check_whole(path_of(call))
        assert not running.exists()

    return story


def hangs(then, code, extension):
    """While one tool hangs, other calls are recorded and finished; when it ends, its own call is finished too."""

    def story(bench):
        PROCESS_ID.unlink(missing_ok=True)
        mark = bench.one_call()
        running = bench.file_of(mark)
        wait_until("the tool runs", lambda: PROCESS_ID.exists() and PROCESS_ID.read_text())
        os.kill(int(PROCESS_ID.read_text()), then)
        call = bench.daemon.finished_call(remoteid_of(running))
        assert call["encoding"] == code
        assert call["filename"] == call["remoteid"] + extension
        bench.check_whole(path_of(call))

    return story


def others_go_on(bench):
    """The tool hangs for one call; with the tool as it should be, the call after it is whole meanwhile."""
    PROCESS_ID.unlink(missing_ok=True)
    with tool("sox", HANGS):
        mark = bench.one_call()
        running = bench.file_of(mark)
        wait_until("the tool runs", lambda: PROCESS_ID.exists() and PROCESS_ID.read_text())
    try:
        bench.clean_call(channel=1)
    finally:
        os.kill(int(PROCESS_ID.read_text()), 9)
    bench.daemon.finished_call(remoteid_of(running))


@contextmanager
def nothing(_bench):
    yield


def table(code, extension, report):
    kept = keeps_the_audio(code, extension)
    return [
        Row("sox is missing", with_tool("sox", None), report, story=kept),
        Row("sox fails", with_tool("sox", "exit 2"), report, story=kept),
        Row("sox fails with half a file", with_tool("sox", HALF), report, story=kept),
        Row("sox is killed", with_tool("sox", "kill -KILL $$"), report, story=kept),
        Row("sox hangs, then is ended", with_tool("sox", HANGS), report, story=hangs(15, code, extension)),
        Row("sox hangs and other calls go on", nothing, report, story=others_go_on),
        Row("popen refused to a conversion", no_popen, report, story=kept),
    ]


# -- with encryption -------------------------------------------------------------------------------------------------

WORK = Path("/dev/shm/morvex")  # clear audio until it is encrypted


@contextmanager
def nothing_left_in_the_clear(inner, bench):
    mark = bench.daemon.mark()
    text = "] Recording to file "
    with inner(bench):
        yield
        clear = [Path(line.split(text)[1]) for line in bench.daemon.log_after(mark) if text in line]
        assert clear and all(WORK in path.parents and path.parent.is_dir() for path in clear)
        assert [path for path in WORK.rglob("*") if path.is_file()] == []


def guarded(fault):
    return lambda bench: nothing_left_in_the_clear(fault, bench)


def encrypts_the_audio(code, suffix):
    """The call is filed, encrypted, with the audio as it was recorded. The archive keeps the name that it was to have."""

    def story(bench):
        mark = bench.one_call()
        call = bench.daemon.finished_call(remoteid_of(bench.file_of(mark)))
        assert call["encoding"] == code
        bench.check_whole_bytes(archived(call, suffix))

    return story


def loses_the_audio(suffix):
    """There is a row, and no recording that anybody could read."""

    def story(bench):
        mark = bench.one_call()
        call = bench.daemon.finished_call(remoteid_of(bench.file_of(mark)))
        archive = path_of(call).with_suffix(suffix)
        bench.wait_report(f"Recording lost: {archive}", mark)
        assert not archive.exists()

    return story


def encryption_hangs(bench):
    """While the encryption hangs, other calls are recorded; it is ended, and they are finished."""
    PROCESS_ID.unlink(missing_ok=True)
    with tool("morvex_crypt", HANGS):
        mark = bench.one_call()
        wait_until("the tool runs", lambda: PROCESS_ID.exists() and PROCESS_ID.read_text())
    try:
        bench.clean_call(channel=1)
    finally:
        os.kill(int(PROCESS_ID.read_text()), 15)
    bench.daemon.finished_call(remoteid_of(bench.file_of(mark)))


def both(one, other):
    @contextmanager
    def fault(bench):
        with one(bench), other(bench):
            yield

    return fault


def encrypted_table(code, suffix, report):
    encrypted, lost = encrypts_the_audio(code, suffix), loses_the_audio(suffix)
    no_sox, no_cp = with_tool("sox", "exit 2"), with_tool("cp", "exit 1")
    rows = [
        Row("sox is missing", with_tool("sox", None), report, story=encrypted),
        Row("sox fails", no_sox, report, story=encrypted),
        Row("sox fails with half a file", with_tool("sox", HALF), report, story=encrypted),
        Row("sox is killed", with_tool("sox", "kill -KILL $$"), report, story=encrypted),
        Row("popen refused to a conversion", no_popen, report, story=encrypted),
        Row("sox and the copy in its place fail", both(no_sox, no_cp), [*report, LOST], story=lost),
        Row("encryption is missing", with_tool("morvex_crypt", None), [LOST], story=lost),
        Row("encryption fails", with_tool("morvex_crypt", "exit 1"), [LOST], story=lost),
        Row("encryption is killed", with_tool("morvex_crypt", "kill -KILL $$"), [LOST], story=lost),
        Row("encryption fails behind sox", both(no_sox, with_tool("morvex_crypt", "exit 1")), [*report, LOST], story=lost),
        Row("encryption hangs and is ended", nothing, [LOST], story=encryption_hangs),
    ]
    for row in rows:
        row.fault = guarded(row.fault)
    return rows
