"""Recordings as MP3 whose conversion fails: the audio stays as it was recorded, under another ending."""

import pytest

from bench import rows_of
from sox_faults import CARDS, table

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "mp3"}}
ROWS = table(code=554, extension=".wav", report=["Conversion to MP3 failed, fn: {path}"])


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
