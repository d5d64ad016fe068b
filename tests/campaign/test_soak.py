"""Hundreds of lines for as long as one likes: what the daemon holds of the machine stays as it was.

    SOAK_LINES     how many (default 80)
    SOAK_MINUTES   how long (default 2)
    SOAK_PERIOD_S  so long are there calls between two rests (default 8)
    SOAK_SEED      what decides about calls (default 1)
    SOAK_REPORT    a file that gets one JSON line a rest

Calls begin and end on all lines all the time: analogue lines, telephones and trunk circuits. Once in a while all have
hung up, and at this rest

    calls      each that began has its row in Calls, complete, and a recording that is what its line carried, byte by
               byte; unless the machine was too slow for its own simulated cards, which they tell
    log        has not a word of trouble
    holdings   memory, descriptors, threads and children are counted; then rows and recordings go

The first rest is for settling, since a line makes its buffers at its first call and they stay. Behind it descriptors,
threads and children have to be as many at each rest, and memory may be GROWTH_KB more than at the first of these, however
long it takes: so the longer the run, the smaller the leak that it sees.
"""

import json
import os
import random
import time
from dataclasses import replace
from pathlib import Path

from bench import TROUBLE
from day import CARDS, CLEAR, PARTNER, TRUNK_LINES
from day import Cards, Mode, Service, begin, end, is_whole, md5
from harness import AUDIO_BYTES_PER_S, HEADER_BYTES, Daemon, order, path_of, rows, sql, store_settings, wait_until

LINES = int(os.environ.get("SOAK_LINES", "80"))
MINUTES = float(os.environ.get("SOAK_MINUTES", "2"))
PERIOD_S = float(os.environ.get("SOAK_PERIOD_S", "8"))
SEED = os.environ.get("SOAK_SEED", "1")
REPORT = os.environ.get("SOAK_REPORT")

MODE = Mode("alaw", False, CLEAR)  # its checksum is a child process for each call
SHORTEST_CALL_S = 2
WIND_DOWN_S = 4  # all hang up within this time
REST_LIMIT_S = 300
CLOCK_S = 2  # a row counts whole seconds, a recording half rings
SETTLING_RESTS = 1
GROWTH_KB = 512  # a burst of work leaves some of its room behind, most of all on a busy machine
ERROR_FILE = Path("/var/morvex/data/err_crec.dat")
TRUNK_IS_UP = "PRI-line of card Syn3001 is available"  # a warning, by the first call on it

# The lines of a busy day, and behind them as many analogue ones as are asked for.
DAY_LINES = TRUNK_LINES.stop - 1
CARD_LINES = 24
MORE_CARDS = -(-max(0, LINES - DAY_LINES) // CARD_LINES)
ALL_CARDS = CARDS + "".join(f"card ATP24 {4001 + i} {CARD_LINES}\n" for i in range(MORE_CARDS))


def held(pid):
    """What the process has. Its memory is what no file backs, also where it lies in the swap."""
    status = dict(line.split(":", 1) for line in Path(f"/proc/{pid}/status").read_text().splitlines())
    children = [child for task in Path(f"/proc/{pid}/task").iterdir() for child in (task / "children").read_text().split()]
    return {
        "resident_kb": int(status["VmRSS"].split()[0]),
        "own_kb": int(status["RssAnon"].split()[0]) + int(status["VmSwap"].split()[0]),
        "descriptors": len(os.listdir(f"/proc/{pid}/fd")),
        "threads": int(status["Threads"]),
        "children": len(children),
    }


def number_of(line):
    return f"03012{line:05}"


def call_of(line):
    """The actions that begin and end a call."""
    if line <= DAY_LINES:
        return begin(line, number_of(line)), end(line)
    channel = f"ch {line - 1 + PARTNER}"  # the circuits have two channels each
    return [f"{channel} play counting", f"{channel} callerid {number_of(line)}", f"{channel} offhook"], [f"{channel} onhook"]


def plan(rng):
    """The calls of one period as (second, actions), in order. A call that would outlast it ends in the seconds behind."""
    moments = []
    for line in range(1, LINES + 1):
        begins, ends = call_of(line)
        start = rng.uniform(0, PERIOD_S / 2)
        while start < PERIOD_S:
            stop = start + rng.uniform(SHORTEST_CALL_S, PERIOD_S)
            if stop > PERIOD_S:
                stop = max(start + SHORTEST_CALL_S, PERIOD_S + rng.uniform(0, WIND_DOWN_S))
            moments += [(start, begins), (stop, ends)]
            start = stop + rng.uniform(1, 5)
    return sorted(moments)


def talk(cards, moments):
    began = time.monotonic()
    for second, actions in moments:
        time.sleep(max(0, began + second - time.monotonic()))
        cards.do(*actions)


def check_call(call, late):
    """A row and its recording. Whether the recording is what the line carried, and its seconds of audio."""
    line = call["linenr"]
    data = path_of(call).read_bytes()
    seconds = (len(data) - HEADER_BYTES) / AUDIO_BYTES_PER_S
    # With a call before it that has not ended yet for the daemon, it clears the number of this one on the card.
    assert late or (call["remote"], call["remotefull"]) == (number_of(line), number_of(line)), call
    assert call["filename"] == f"{call['remoteid']}.wav" and call["remoteid"].split("_")[2] == f"{line:03}", call
    assert (call["encoding"], call["isarchived"], call["isconnected"]) == (554, 1, 1), call
    assert call["callextra"] == f"chk: {md5(data)}\r\nchktype: md5\r\n", call
    assert late or abs(call["duration"] - seconds) <= CLOCK_S, call
    if is_whole(data, line, MODE):
        return True, seconds
    assert late and is_whole(data, line, replace(MODE, late=True)), call
    return False, seconds


def trouble(daemon):
    """What the log has said of trouble; what has been read is forgotten, as there are hours of it."""
    with daemon.changed:
        said, daemon.lines[:] = daemon.lines[:], []
    return [line for line in said if TROUBLE.match(line)]


def rest(daemon, cards, calls, late, warnings):
    """Waits until nothing is left to do; looks at all that there is, and clears it away."""
    wait_until("all calls are in Calls", lambda: rows("SELECT count(*) FROM Calls") == [{"count": calls}], REST_LIMIT_S)
    wait_until("no call runs", lambda: rows("SELECT id FROM ActiveCalls") == [])
    assert trouble(daemon) == warnings
    assert not ERROR_FILE.exists(), ERROR_FILE.read_text()
    found = [check_call(call, late) for call in rows("SELECT * FROM Calls")]
    for call in rows("SELECT directory, filename FROM Calls"):
        path_of(call).unlink()
    sql("DELETE FROM Calls")
    return {
        **held(daemon.pid),
        "calls": calls,
        "as_carried": sum(whole for whole, _ in found),
        "audio_s": round(sum(seconds for _, seconds in found)),
        "late_bytes": late,
    }


def test_soak():
    Service()
    store_settings(MODE.settings)
    daemon = Daemon(ALL_CARDS).start()
    daemon.wait_orders()
    cards, rng = Cards(), random.Random(SEED)
    rests = []
    end_at = time.monotonic() + 60 * MINUTES
    while time.monotonic() < end_at or len(rests) < SETTLING_RESTS + 2:
        before = cards.overruns()
        moments = plan(rng)
        talk(cards, moments)
        assert order("reconfig") == "OK\n"
        warnings = [] if rests else [TRUNK_IS_UP]
        rests.append(rest(daemon, cards, len(moments) // 2, cards.overruns() - before, warnings))
        print(rests[-1])
        if REPORT:
            with open(REPORT, "a", encoding="utf-8") as report:
                report.write(json.dumps(rests[-1]) + "\n")
    settled = rests[SETTLING_RESTS]
    for one in rests[SETTLING_RESTS:]:
        for name in ("descriptors", "threads", "children"):
            assert one[name] == settled[name], f"{name}: {[each[name] for each in rests]}"
        assert one["own_kb"] <= settled["own_kb"] + GROWTH_KB, f"memory: {[each['own_kb'] for each in rests]}"
    cards.close()
    assert daemon.stop() == 0
