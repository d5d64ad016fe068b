"""Recordings as MP3, encrypted, when conversion or encryption fails: a recording that was lost is told of, and clear audio
never stays."""

import pytest

from bench import install_encryption, rows_of
from sox_faults import CARDS, encrypted_table

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "mp3", "ALE": "1"}}
ROWS = encrypted_table(code=554, suffix=".mp3", report=["Conversion to MP3 failed, fn: {path}"])
prepare = install_encryption


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
