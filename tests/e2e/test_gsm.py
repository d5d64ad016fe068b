"""Recordings stored as GSM."""

from encoding import CARDS, check_recording

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "gsm"}}


def test_recording_is_stored_as_gsm(daemon):
    check_recording(daemon, ".wav", code=551, kind={"-e": "GSM"}, options=["-e", "gsm-full-rate"])
