#!/usr/bin/python3
"""The names of the benchmark's rows, and what each measures.

usage: names.py [BEGINNING]...

Prints the names that are one of these, or begin with one and a hyphen; all without any.
"""

import sys

LINES = (100, 500, 1000, 2000, 4000, 8000, 10000, 15000, 19500, 20000)
PAIRS = (100, 1000, 2500, 5000, 10000)
LOUD_LINES = (1000, 10000)
MONITORED_LINES = (1000, 8000)
HELD = ("lines-19500", "lines-20000", "stereo-10000", "mono-10000")
BESIDE = (0, 100, 300)
BURSTS = (300, 1000)
RATES = ("100-300", "150-300", "200-0")  # calls a second, and beside how many lines
HANG_UPS = (4000, 8000, 10000)
STALLS = ("backend", "table", "disk", "service")
ENCODINGS = ("alaw", "gsm", "mp3")
STARTS = (10000,)
STOPS = (100, 1000)

KINDS = {
    "lines": ("so many analogue lines record", LINES),
    "stereo": ("so many circuits record both directions into one file of two channels", PAIRS),
    "mono": ("so many circuits record both directions mixed", PAIRS),
    "loudness": ("as lines, with the detection of loud talking on", LOUD_LINES),
    "monitoring": ("as lines, with a copy for a live listener", MONITORED_LINES),
    "held": ("so many lines or circuits record for ten minutes, however long a run else is", HELD),
    "calls": ("calls as fast as they go, beside so many lines that record", BESIDE),
    "rate": ("so many calls a second begin and end, beside so many lines that record", RATES),
    "burst": ("so many calls begin in one instant beside as many recordings", BURSTS),
    "hangup": ("so many calls end in one instant", HANG_UPS),
    "stall": ("1,000 lines record while something hangs", STALLS),
    "finish": ("60 calls of one encoding end in one instant", ENCODINGS),
    "start": ("start and stop with so many lines and no call", STARTS),
    "stop": ("stop with so many calls up", STOPS),
}

NAMES = [f"{kind}-{size}" for kind, (_, sizes) in KINDS.items() for size in sizes] + ["mixing", "micro"]


def chosen(beginnings):
    """In the order of the table; None where one of them begins no name."""
    fitting = {one: [name for name in NAMES if name == one or name.startswith(f"{one}-")] for one in beginnings}
    if not all(fitting.values()):
        return None
    return [name for name in NAMES if not beginnings or any(name in names for names in fitting.values())]


if __name__ == "__main__":
    names = chosen(sys.argv[1:])
    if names is None:
        sys.exit(f"bench: no such row; there are {' '.join(NAMES)}")
    print("\n".join(names))
