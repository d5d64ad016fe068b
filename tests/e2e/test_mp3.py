"""Recordings stored as MP3."""

from encoding import CARDS, check_recording

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "mp3"}}


def test_recording_is_stored_as_mp3(daemon):
    check_recording(daemon, ".mp3", code=801, kind={"-t": "mp3"}, options=["-C", "16.4"])
