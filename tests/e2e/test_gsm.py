"""Recordings stored as GSM."""

from encoding import CARDS, convert, record_one_call
from harness import path_of, soxi

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "gsm"}}


def test_recording_is_stored_as_gsm(daemon):
    call, original = record_one_call(daemon)
    assert call["filename"] == call["remoteid"] + ".wav"
    assert call["encoding"] == 551
    path = path_of(call)
    assert soxi(path, "-e") == "GSM" and soxi(path, "-r") == "8000" and soxi(path, "-c") == "1"
    assert path.read_bytes() == convert(original, ["-e", "gsm-full-rate"], "/recordings/expected.wav")
