"""What a station line keeps over a restart of the daemon: the telephone's own number, where its PBX or mode says so.

Three lives of the daemon on one machine. The first learns a number on each of five lines, the second tells which of them
it still has. The third begins when ten minutes have passed.
"""

import pytest

from harness import Daemon, rows, sql
import station_sites

CALLS = "SELECT linenr, local, remote FROM Calls ORDER BY linenr, remoteid"

# line, what it is, and whether it keeps its number
LINES = [
    (5, "Alcatel", True),
    (12, "by mute light", True),
    (14, "by mute light and tone", True),
    (13, "by audio change", False),
    (1, "Siemens", False),
]


@pytest.fixture(scope="module")
def lives():
    """Logs of three lives, each as one text."""
    daemon = Daemon(station_sites.CARDS, station_sites.SETTINGS).start()
    logs = []
    for line, _, _ in LINES:
        daemon.cards(f"ch {line - 1} dchannel 0x8001 text 47{line:02}||0")
    for line, _, _ in LINES:
        daemon.wait_line(f"[{line}] Local Number Changed: 47{line:02}.")
    logs.append(stopped(daemon))

    # The name of a line is read at the start only.
    sql("UPDATE Contacts SET name = 'Balie 4711' WHERE id = (SELECT contactid FROM Lines WHERE linenr = 3)")
    daemon = Daemon(station_sites.CARDS, station_sites.SETTINGS).start()
    for line, _, _ in LINES:
        call(daemon, line)
    belgacom_call(daemon)
    logs.append(stopped(daemon))

    sql("UPDATE Configs SET value = (value::int - 601)::text WHERE param LIKE '%LocalNumTime'")
    daemon = Daemon(station_sites.CARDS, station_sites.SETTINGS).start()
    logs.append(stopped(daemon))
    return logs


def stopped(daemon):
    assert daemon.stop() == 0
    return "".join(line + "\n" for line in daemon.log_after(0))


def call(daemon, line):
    daemon.cards(f"ch {line - 1} offhook", f"wait recording {line - 1}", f"ch {line - 1} onhook", f"wait stopped {line - 1}")


# The number of the line's own name stands on the display, and then the caller's.
def belgacom_call(daemon):
    daemon.cards("ch 2 offhook", "wait recording 2", "ch 2 display 4711", "wait handled")
    daemon.cards("ch 2 display 47119", "wait handled", "ch 2 onhook", "wait stopped 2")


def cached_lines(log):
    return sorted(line for line in log.split("\n") if " Cached local number: " in line)


def test_first_life_knows_no_numbers(lives):
    assert cached_lines(lives[0]) == []


def test_second_life_has_the_numbers_of_some_lines(lives):
    expected = [f"[{line}] Cached local number: 47{line:02}" for line, _, keeps in LINES if keeps]
    assert cached_lines(lives[1]) == sorted(expected)


def test_calls_carry_the_numbers_that_were_kept(lives):
    expected = [{"linenr": line, "local": f"47{line:02}" if keeps else "", "remote": ""} for line, _, keeps in LINES]
    expected.append({"linenr": 3, "local": "", "remote": "47119"})
    assert rows(CALLS) == sorted(expected, key=lambda row: row["linenr"])


def test_number_within_the_name_of_the_line_is_no_caller(lives):
    told = [line for line in lives[1].split("\n") if line.startswith("[3] ") and "Line health" not in line]
    message = told.index("[3] Message change:4711")
    assert told[message : message + 3] == ["[3] Message change:4711", "[3] Message change:47119", "[3] Remote: 47119"]


def test_ten_minutes_later_no_number_is_kept(lives):
    assert cached_lines(lives[2]) == []
