"""A day at a telephone of each PBX: how its displays are read, told whole by log, rows and files."""

import pytest

import station_sites

CARDS = station_sites.CARDS
SETTINGS = station_sites.SETTINGS

IN, OUT = 0, 1

# line: the calls, each as direction, whether it rang, local and remote number.
DAYS = {
    "siemens": (1, [(IN, True, "", "0301234568"), (OUT, False, "", "00445512")]),
    "ericsson": (2, [(IN, True, "", "004930111222")]),
    "belgacom": (3, [(OUT, False, "", "0223334455"), (IN, True, "", "")]),
    "panasonic": (4, [(IN, True, "", "0612345678"), (OUT, False, "", "0612345678")]),
    "alcatel": (5, [(IN, True, "4711", "0145678902")]),
    "aastra5000": (6, [(IN, True, "", "Jean Dupont"), (IN, True, "", "0145678901")]),
    "nec": (7, [(OUT, False, "", "0123456"), (IN, True, "", "SMITH")]),
}


@pytest.mark.parametrize("name", DAYS)
def test_day(daemon, days, name):
    station_sites.check_day(daemon, days, name, *DAYS[name])
