"""Recordings as GSM whose conversion fails: the audio stays as it was recorded."""

import pytest

from bench import rows_of
from sox_faults import CARDS, table

__all__ = ["CARDS"]
SETTINGS = {"o": {"RecEnc": "gsm"}}
ROWS = table(code=554, extension=".wav", report=[])


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
