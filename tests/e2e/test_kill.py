"""SIGKILL during a recording: what is on disk plays up to the last update of its header."""

from harness import counting, header, path_of, rows, soxi, wait_until, HEADER_BYTES, AUDIO_BYTES_PER_S

CARDS = "card ATP8 1001 8"
HEADER_UPDATE_S = 5


def header_length(path):
    return int.from_bytes(path.read_bytes()[52:56], "little")


def test_file_plays_up_to_the_last_header_update(daemon):
    daemon.cards("ch 0 play counting", "ch 0 offhook")
    active = daemon.active_call(1)
    path = path_of(active)
    wait_until("the first update of the header", lambda: header_length(path) >= (HEADER_UPDATE_S - 2) * AUDIO_BYTES_PER_S)
    first = header_length(path)
    wait_until("the next update of the header", lambda: header_length(path) > first)
    assert daemon.kill() == -9

    data = path.read_bytes()
    length = header_length(path)
    assert data[:HEADER_BYTES] == header(channels=1, length=length)
    assert data[HEADER_BYTES : HEADER_BYTES + length] == counting(length)
    assert soxi(path, "-e") == "A-law" and soxi(path, "-r") == "8000" and int(soxi(path, "-s")) == length
    # The row stays for whoever looks after the crash.
    assert [row["remoteid"] for row in rows("SELECT * FROM ActiveCalls")] == [active["remoteid"]]
