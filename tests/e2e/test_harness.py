"""What the tests themselves stand on: places in a log."""

import struct
from pathlib import Path

import pytest

from harness import Daemon, wait_until

CHATTERBOX = Path("/tmp/chatterbox.py")
TOLD = Path("/tmp/told")
LINE = 79 * "x"
AT_ONCE = 1000  # lines, more than a pipe holds
# Its log is never read to the end, and it tells how many lines it has written so far.
PROGRAM = f"""
import os, struct
told = os.open("{TOLD}", os.O_WRONLY)
text = b"{LINE}\\n" * {AT_ONCE}
lines = 0
while os.write(1, text) == len(text):
    lines += {AT_ONCE}
    os.pwrite(told, struct.pack("=q", lines), 0)
"""


def told():
    return struct.unpack("=q", TOLD.read_bytes())[0]


@pytest.fixture
def chatterbox(monkeypatch):
    CHATTERBOX.write_text(PROGRAM)
    TOLD.write_bytes(bytes(8))
    monkeypatch.setenv("MORVEX_WRAPPER", f"/usr/bin/python3 {CHATTERBOX}")
    daemon = Daemon("").launch()
    wait_until("its first lines", told)
    yield daemon
    if daemon.running:
        daemon.kill()


def test_a_place_in_a_log_without_a_pause_is_behind_what_was_written_and_before_what_comes(chatterbox):
    for _ in range(20):
        before = told()
        place = chatterbox.mark()
        assert before <= place <= told() + AT_ONCE
        assert set(chatterbox.log_after(before)) == {LINE}
    chatterbox.kill()
    assert told() <= chatterbox.mark() == len(chatterbox.lines)
