"""SIGTERM on lines that are one endless call: whatever part of a second it comes in, their calls end and none begins."""

from harness import RECORDINGS, path_of, rows, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"crec": {"Syn1001_Trigger": "4,4,4,4,4,4,4,4"}}


def test_stop_leaves_no_row_and_no_file_of_its_own(daemon):
    active = wait_until(
        "eight calls", lambda: len(found := rows("SELECT * FROM ActiveCalls ORDER BY linenr")) == 8 and found
    )
    assert daemon.stop() == 0
    assert rows("SELECT id FROM ActiveCalls") == []
    calls = rows("SELECT * FROM Calls ORDER BY linenr")
    assert [call["remoteid"] for call in calls] == [call["remoteid"] for call in active]
    assert set(RECORDINGS.rglob("*.wav")) == {path_of(call) for call in calls}
