"""A conversion whose tool is missing, fails, hangs or is killed: the table for both encodings that sox makes."""

import os
from contextlib import contextmanager
from pathlib import Path

from bench import Row, remoteid_of, tool
from harness import path_of, wait_until

CARDS = "card ATP8 1001 8"
PROCESS_ID = Path("/tmp/sox.pid")
HALF = 'for last; do :; done; echo x >"$last"; exit 1'
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
