"""Days at telephones whose calls are made by hook, voice, mute light, tone or taught conditions."""

import pytest

import station_sites

CARDS = station_sites.CARDS
SETTINGS = station_sites.SETTINGS

IN, OUT = 0, 1

# line: the calls, each as direction, whether it rang, local and remote number.
DAYS = {
    "unnamed": (
        11,
        [
            (OUT, False, "", ""),
            (OUT, False, "4712", ""),
            (IN, True, "4712", "0301234567"),
            (IN, True, "4714", "0301234567"),
        ],
    ),
    "mute_light": (12, [(OUT, False, "4712", "0301234567"), (OUT, False, "4712", "")]),
    "audio_change": (13, [(IN, True, "", "0301234567"), (OUT, False, "", "")]),
    "mute_light_and_tone": (14, [(OUT, False, "", "0301234567"), (OUT, False, "", "")]),
    "conditions": (15, [(IN, True, "", "0301234567"), (OUT, False, "", ""), (OUT, False, "", "")]),
}


@pytest.mark.parametrize("name", DAYS)
def test_day(daemon, days, name):
    station_sites.check_day(daemon, days, name, *DAYS[name])
