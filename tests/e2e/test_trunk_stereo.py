"""Trunk circuits in stereo and mu-law: each direction on its channel of the file."""

from harness import counting, header, path_of, HEADER_BYTES
from trunk import CARDS, STORED_LIST, find_noise, noise_from, play_noise, wait_for_audio

__all__ = ["CARDS"]
SETTINGS = {"crec": {**STORED_LIST, "Syn3002_SwapSides": "1"}, "o": {"RecEnc": "ulaw", "RecStereo": "1", "RecLocal": "1"}}


def check_stereo(call):
    """The channel that follows the circuit comes first, its partner second, whichever way the call goes."""
    data = path_of(call).read_bytes()
    audio = data[HEADER_BYTES:]
    assert len(audio) % 4096 == 0
    assert data[:HEADER_BYTES] == header(channels=2, length=len(audio), law_tag=7)
    assert audio[0::2] == counting(len(audio) // 2)
    place = find_noise(audio[1::2], lambda noise: noise)
    assert place is not None
    assert audio[1::2] == noise_from(place, len(audio) // 2)


def record(daemon, base, partner, line, talk):
    play_noise(daemon, partner, "ul")
    circuit = talk.split()[1]
    daemon.cards(f"ch {base} play counting", talk)
    active = daemon.active_call(line)
    wait_for_audio(active, 16384)
    daemon.cards(f"cic {circuit} idle")
    call = daemon.finished_call(active["remoteid"])
    check_stereo(call)
    return call


def test_incoming_call(daemon):
    call = record(daemon, 32, 62, 49, "cic 0 talk in caller 0301234567 callee 200")
    assert (call["direction"], call["remote"], call["local"], call["encoding"]) == (0, "0301234567", "200", 555)


def test_outgoing_call(daemon):
    call = record(daemon, 121, 151, 108, "cic 59 talk in caller 200 callee 0405550199")
    assert (call["direction"], call["remote"], call["local"]) == (1, "0405550199", "200")  # this card is swapped


def test_second_call_of_a_circuit_keeps_the_sides(daemon):
    record(daemon, 33, 63, 50, "cic 1 talk in caller 0301234567 callee 200")
    call = record(daemon, 33, 63, 50, "cic 1 talk out caller 200 callee 0405550199")
    assert (call["direction"], call["remote"], call["local"]) == (1, "0405550199", "200")
