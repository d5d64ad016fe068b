"""Trunk circuits in mono: how channels are numbered, both directions in one file, availability of the cards."""

from harness import counting, header, path_of, rows, wait_until, HEADER_BYTES
from trunk import CARDS, STORED_LIST, find_noise, mixing_table, noise_from, play_noise, wait_for_audio

__all__ = ["CARDS"]
SETTINGS = {"crec": {**STORED_LIST, "Syn3002_SwapSides": "1"}, "o": {"RecLocal": "1"}}


def check_mixed(call):
    """The file holds the counting pattern of one direction and the noise of the other, added byte by byte."""
    data = path_of(call).read_bytes()
    audio = data[HEADER_BYTES:]
    assert len(audio) % 2048 == 0
    assert data[:HEADER_BYTES] == header(channels=1, length=len(audio))
    table = mixing_table()

    def mixed(noise):
        return bytes(table[256 * one + other] for one, other in zip(counting(len(noise)), noise))

    place = find_noise(audio, mixed)
    assert place is not None
    assert audio == mixed(noise_from(place, len(audio)))


def card_line(board):
    return [row["value"] for row in rows(f"SELECT value FROM Configs WHERE param = '{board}_Line' AND part = 'crec_line'")]


def test_each_channel_has_its_number(daemon):
    wanted = [f"Channel [{i + 1}] {{{i}}} <0,{i}> Type: 12" for i in range(32)]
    # Lines 33 to 48 are kept for the card that is away. Of 60 driver channels the first 30 are lines.
    for first_drv, first_line, board, count in ((32, 49, 1, 60), (92, 79, 2, 120)):
        for i in range(count):
            line = first_line + i // 60 * 30 + i % 60 if i % 60 < 30 else -1
            wanted.append(f"Channel [{line}] {{{first_drv + i}}} <{board},{i}> Type: 7")
    log = daemon.log_after(0)
    assert [line for line in log if line.startswith("Channel [")] == wanted
    assert "New CardList: Syn2001,Syn2999,Syn3001,Syn3002" in log
    assert "Total Drv. Max. Ch.: 212" in log


def test_incoming_call_mixes_both_directions(daemon):
    play_noise(daemon, 62, "al")
    mark = daemon.mark()
    daemon.cards("ch 32 play counting", "cic 0 ring in caller 0301234567 callee 200")
    daemon.wait_line("[49] RING Callee: 200 Caller: 0301234567", mark)
    daemon.cards("cic 0 talk connected 201")
    active = daemon.active_call(49)
    wait_for_audio(active, 16384)
    daemon.cards("ch 62 dtmf 7", "ch 32 dtmf 8")
    daemon.wait_line("{32} PRI DTMF detected: 8 linked to {-1}", mark)
    daemon.cards("cic 0 idle")
    call = daemon.finished_call(active["remoteid"])
    assert (call["source"], call["direction"], call["linenr"]) == (6, 0, 49)
    assert (call["remote"], call["local"], call["connected"]) == ("0301234567", "200", "201")
    assert call["waittime"] >= 0
    check_mixed(call)
    log = daemon.log_after(mark)
    assert "{62} PRI DTMF detected: 7 linked to {32}" in log
    assert [line for line in log if line.startswith("[49] Digits:")] == ["[49] Digits: 7"]


def test_outgoing_call_on_the_last_circuit_of_a_block(daemon):
    play_noise(daemon, 91, "al")
    daemon.cards("ch 61 play counting", "cic 29 talk out caller 200 callee 0405550199")
    active = daemon.active_call(78)
    wait_for_audio(active, 8192)
    daemon.cards("cic 29 idle")
    call = daemon.finished_call(active["remoteid"])
    assert (call["direction"], call["waittime"]) == (1, -1)
    assert (call["remote"], call["local"], call["connected"]) == ("0405550199", "200", "")
    check_mixed(call)


def test_swapped_card_turns_the_direction_and_hears_digits_on_the_other_side(daemon):
    play_noise(daemon, 211, "al")
    mark = daemon.mark()
    daemon.cards("ch 181 play counting", "cic 89 talk in caller 200 callee 0405550199")
    active = daemon.active_call(138)
    wait_for_audio(active, 8192)
    daemon.cards("ch 211 dtmf 7", "ch 181 dtmf 8")
    daemon.wait_line("[138] Digits:", mark)
    daemon.cards("cic 89 idle")
    call = daemon.finished_call(active["remoteid"])
    assert (call["direction"], call["remote"], call["local"]) == (1, "0405550199", "200")
    check_mixed(call)
    assert [line for line in daemon.log_after(mark) if line.startswith("[138] Digits:")] == ["[138] Digits: 8"]


def test_circuit_that_goes_in_a_call_ends_it_and_the_card_is_told_away(daemon):
    mark = daemon.mark()
    play_noise(daemon, 122, "al")
    daemon.cards("ch 92 play counting", "cic 30 talk in caller 200 callee 0405550199")
    daemon.wait_line("PRI-line of card Syn3002 is available", mark)
    assert card_line("Syn3002") == ["1"]
    active = daemon.active_call(79)
    wait_for_audio(active, 8192)
    daemon.cards("cic 30 unavailable")
    check_mixed(daemon.finished_call(active["remoteid"]))
    assert "PRI-line of card Syn3002 is unavailable" in daemon.log_after(mark)
    assert card_line("Syn3002") == ["0"]

    # The first circuit alone speaks for a card.
    daemon.cards("cic 60 unavailable", "cic 60 idle", "cic 31 idle", "wait handled")
    assert card_line("Syn3002") == ["0"]
    daemon.cards("cic 30 idle")
    wait_until("card back", lambda: card_line("Syn3002") == ["1"])
