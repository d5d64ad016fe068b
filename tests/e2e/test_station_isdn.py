"""Days at ISDN telephones: phases as text and as records, several calls at a time, and calls that nobody took."""

import pytest

from harness import rows
import station_sites

CARDS = station_sites.CARDS
SETTINGS = station_sites.SETTINGS

IN, OUT = 0, 1

# line: the calls, each as direction, whether it rang, local and remote number; and the missed ones, local and remote.
DAYS = {
    "tenovis_text": (8, [(IN, True, "", "0301234567"), (OUT, False, "", "0044551299")], []),
    "tenovis_records": (
        9,
        [
            (IN, True, "", "0301111111"),
            (OUT, True, "", "0302222222"),  # a further part of a call keeps the ringing of the first
            (IN, True, "", "0301111111"),
            (IN, True, "", "0303333333"),
        ],
        [("", "0305550000")],
    ),
    "isdn": (
        10,
        [(IN, True, "203", "0301234567"), (OUT, False, "200", "00445512")],
        [("200", "0301234567"), ("200", "0307654321")],
    ),
}


@pytest.mark.parametrize("name", DAYS)
def test_day(daemon, days, name):
    line, calls, missed = DAYS[name]
    station_sites.check_day(daemon, days, name, line, calls)
    station_sites.check_missed(line, missed)
    assert len(rows(f"SELECT * FROM Calls WHERE linenr = {line}")) == len(calls) + len(missed)
