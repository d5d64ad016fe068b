"""Store on demand with the delay option, which is read at start: an unmarked call waits for a decision."""

from harness import path_of, rows, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"o": {"RecOnDemand": "1", "StoreOnDemandDelay": "3600"}}
UNDECIDED = 128  # bit of processingstate


def test_unmarked_call_is_finished_but_stays_active(daemon):
    mark = daemon.mark()
    daemon.cards("ch 0 offhook")
    active = daemon.active_call(1)
    assert active["processingstate"] == 0
    daemon.cards("ch 0 onhook")
    daemon.wait_line("[1] Store on demand: delay", mark)

    query = f"SELECT * FROM ActiveCalls WHERE processingstate = {UNDECIDED}"
    row = wait_until("row awaits its decision", lambda: rows(query))[0]
    assert (row["id"], row["remoteid"], row["filename"]) == (active["id"], active["remoteid"], active["filename"])
    assert (row["isarchived"], row["callextra"]) == (1, "chk: \r\n")
    assert path_of(row).exists()
    assert rows("SELECT id FROM Calls") == []
