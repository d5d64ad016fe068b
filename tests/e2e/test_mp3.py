"""Recordings stored as MP3."""

from encoding import CARDS, convert, record_one_call
from harness import path_of, soxi

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "mp3"}}


def test_recording_is_stored_as_mp3(daemon):
    call, original = record_one_call(daemon)
    assert call["filename"] == call["remoteid"] + ".mp3"
    assert call["encoding"] == 801
    path = path_of(call)
    assert soxi(path, "-t") == "mp3" and soxi(path, "-r") == "8000" and soxi(path, "-c") == "1"
    assert path.read_bytes() == convert(original, ["-C", "16.4"], "/recordings/expected.mp3")
