"""Telephones at sites with different PBXs, for the tests of station lines.

The machine is sim/scenarios/stations/cards.conf, with one telephone a card; each scenario beside it is a day at one of
them. All days pass side by side on one daemon. A line is its driver channel and 1.
"""

import re
import subprocess
import time

from harness import BUILD, SOURCE, AUDIO_BYTES_PER_S, counted_audio, path_of, rows, wait_until

SITES = SOURCE / "sim/scenarios/stations"
CARDS = (SITES / "cards.conf").read_text()

SETTINGS = {
    "crec": {
        "Syn2001_PBXType": "Siemens HiPath",
        "Syn2002_PBXType": "Ericsson MD110",
        "Syn2003_PBXType": "Belgacom",
        "Syn2004_PBXType": "PANASONIC",
        "Syn2005_PBXType": "Alcatel 4400",
        "Syn2006_PBXType": "Aastra 5000",
        "Syn2007_PBXType": "NEC",
        "Syn2008_PBXType": "Avaya Mer",
        "Syn2008_PhoneType": "1",
        "Syn2009_PBXType": "Avaya Mer",
        "Syn2009_PhoneType": "1",
        "Syn2009_MissedCalls": "1",
        "Syn2010_PBXType": "ISDN",
        "Syn2010_MissedCalls": "1",
        "Syn2011_AudioDetect": "1",
        "Syn2011_SilenceT": "2",
        "Syn2011_DetectDtmf": "1",
        "Syn2012_TdmStart": "1",
        "Syn2013_TdmStart": "2",
        "Syn2014_TdmStart": "3",
        "Syn2015_StartCndList": "1001.1, 1100, 1006.23",
        "Syn2015_StopCndList": "1001.2,1100",
        "Syn2015_RingOnCndList": "1303",
        "Syn2015_RingOffCndList": "1305",
    }
}

# When a scenario has ended, its last lines are in the log at once, unless a step of it did not come about.
LOG_LIMIT_S = 15

# What depends on the clock, and on when a second ends.
MASKS = [
    (re.compile(r"/recordings/\d{4}/\d\d/\d\d/\d\d/\d{8}_\d{6}_\d{3}_"), "<stamp>_"),
    (re.compile(r"(Recording stopped \(|ringing time: |last ring: |Remote expired, )\d+"), r"\1#"),
]


def run_days(daemon, *names):
    """Runs the scenarios side by side, to their ends: the place in the log where they begin, and how each ended."""
    mark = daemon.mark()
    runs = {name: subprocess.Popen([BUILD / "sim" / "cardsim", "run", SITES / f"{name}.sim"]) for name in names}
    return mark, {name: run.wait() for name, run in runs.items()}


# How the messages begin that are of no line. What begins in no such way goes on with the text of the line above.
OTHERS = re.compile(
    r"\[\d+\] |\{\d+\} |Added |Bg Act |signal =>|Signal: |Error connecting|Other .* is also local"
    r"|Msg received: |Command: |reactor |St(art|opp)(ing|ed) bit stream tracing|(Event handling|Periodic) took: "
)


def story(daemon, line, mark=0):
    """What the log says about a line after `mark`, without what the clock decides, as one text."""
    told = []
    is_told = False
    for text in daemon.log_after(mark):
        if OTHERS.match(text):
            is_told = text.startswith(f"[{line}] ")
            text = text.removeprefix(f"[{line}] ")
        if is_told:
            told.append(text)
    whole = "".join(text + "\n" for text in told)
    for pattern, instead in MASKS:
        whole = pattern.sub(instead, whole)
    return whole


def check_story(daemon, line, name, mark=0):
    """Holds what the log says about a line after `mark` against tests/data/stations/<name>.log."""
    expected = (SOURCE / "tests/data/stations" / f"{name}.log").read_text()
    deadline = time.monotonic() + LOG_LIMIT_S  # the last lines come when the scenario has ended already
    while len(story(daemon, line, mark)) < len(expected) and time.monotonic() < deadline:
        time.sleep(0.02)
    assert story(daemon, line, mark) == expected


# -- rows and files --------------------------------------------------------------------------------------------------


def durations(daemon, line, mark=0):
    """Seconds of each recording of a line, as the log has them."""
    told = (re.match(rf"\[{line}\] Recording stopped \((\d+) s\)", text) for text in daemon.log_after(mark))
    return [int(found[1]) for found in told if found]


def caller_id(number):
    return rows(f"SELECT * FROM CallerIDs WHERE callerid = '{number}'")[0]


def contact_of_line(line):
    return rows(f"SELECT contactid FROM Lines WHERE linenr = {line}")[0]["contactid"]


def parties(line, local, remote):
    """The columns of both parties. Without a local number the contact is that of the line."""
    by_local = caller_id(local) if local else {"id": 0, "contactid": contact_of_line(line)}
    by_remote = caller_id(remote)
    return {
        "local": local,
        "localfull": local,
        "localcallerid": by_local["id"],
        "localcontact": by_local["contactid"],
        "remote": remote,
        "remotefull": remote,
        "remotecallerid": by_remote["id"],
        "remotecontact": by_remote["contactid"],
        "connected": "",
        "connectedcallerid": None,
        "connectedcontact": None,
    }


def row_of(line, local, remote):
    """What all rows of Calls of a station line have in common."""
    return {
        "recorderid": 1,
        "lineid": rows(f"SELECT id FROM Lines WHERE linenr = {line}")[0]["id"],
        "linenr": line,
        **parties(line, local, remote),
        "encryption": 0,
        "isarchived": 1,
        "isconnected": 1,
        "processingstate": 0,
        "flags": 0,
        "source": 5,
        "category": 0,
        "notes": "",
        "notes2": "",
        "notes3": "",
        "notes4": "",
        "notes5": "",
        "callextra": "chk: \r\n",
    }


def check_file(call):
    audio = counted_audio(path_of(call))
    # The card reports its last bytes in blocks; a busy machine may stop the call a little later than it hears it.
    assert abs(len(audio) / AUDIO_BYTES_PER_S - call["duration"]) <= 2


def check_calls(daemon, line, expected, mark=0, first=1):
    """Each recorded call of a line, in order, as (direction, whether it rang, local, remote); rows and files whole.

    first: the number of the first recording since the daemon started.
    """
    query = f"SELECT * FROM Calls WHERE linenr = {line} AND flags = 0 ORDER BY startdate, remoteid"
    calls = wait_until(f"{len(expected)} calls", lambda: len(rows(query)) >= len(expected) and rows(query))
    assert len(calls) == len(expected)
    seconds = durations(daemon, line, mark)
    for count, (call, (direction, rang, local, remote)) in enumerate(zip(calls, expected)):
        started = time.localtime(call["startdate"])
        remoteid = time.strftime("%Y%m%d_%H%M%S", started) + f"_{line:03}_{first + count:02}"
        assert call == {
            **row_of(line, local, remote),
            "id": call["id"],
            "direction": direction,
            "startdate": call["startdate"],
            "duration": seconds[count],
            "waittime": call["waittime"] if rang else -1,
            "remoteid": remoteid,
            "directory": time.strftime("%Y/%m/%d/%H", started),
            "filename": remoteid + ".wav",
            "encoding": 554,
        }
        assert not rang or 0 <= call["waittime"] <= 20
        check_file(call)
    assert rows(f"SELECT * FROM ActiveCalls WHERE linenr = {line}") == []


def check_day(daemon, days, name, line, calls):
    """A whole day at a telephone: what the log tells, that the scenario came to its end, rows and files."""
    mark, exits = days
    check_story(daemon, line, name, mark)
    assert exits[name] == 0
    check_calls(daemon, line, calls, mark)


def check_missed(line, expected):
    """Each missed call of a line, in order, as (local, remote): rows without recording."""
    calls = rows(f"SELECT * FROM Calls WHERE linenr = {line} AND flags <> 0 ORDER BY id")
    assert len(calls) == len(expected)
    for call, (local, remote) in zip(calls, expected):
        assert call == {
            **row_of(line, local, remote),
            "id": call["id"],
            "direction": 0,
            "startdate": call["startdate"],
            "duration": 0,
            "waittime": -1,
            "remoteid": "",
            "directory": "",
            "filename": "",
            "encoding": 0,
            "isarchived": 0,
            "isconnected": 0,
            "flags": 64,
            "notes": None,
            "notes2": None,
            "notes3": None,
            "notes4": None,
            "notes5": None,
            "callextra": "",
        }
        assert abs(call["startdate"] - time.time()) < 120
