"""SIGTERM during eight recordings: all of them are finished before the exit."""

import hashlib
from pathlib import Path

from harness import counted_audio, path_of, rows, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"o": {"CalcChecksum": "md5"}}


def test_stop_finishes_eight_recordings(daemon):
    for channel in range(8):
        daemon.cards(f"ch {channel} play counting", f"ch {channel} offhook")
    active = [daemon.active_call(line) for line in range(1, 9)]
    for call in active:
        wait_until(f"audio in {call['filename']}", lambda: path_of(call).stat().st_size > 8000)
    daemon.cards("ch 0 onhook")  # the first is in the workers' hands already, or waits for them
    mark = daemon.mark()
    assert daemon.stop() == 0

    assert rows("SELECT * FROM ActiveCalls") == []
    calls = rows("SELECT * FROM Calls ORDER BY linenr")
    assert [call["remoteid"] for call in calls] == [call["remoteid"] for call in active]
    for call in calls:
        counted_audio(path_of(call))
        assert call["callextra"] == f"chk: {hashlib.md5(path_of(call).read_bytes()).hexdigest()}\r\nchktype: md5\r\n"
    assert daemon.log_after(mark)[-2:] == ["Closing extra threads", "MORVEX-CREC exit"]
    assert not Path("/var/morvex/data/linestatus.dat").exists()
