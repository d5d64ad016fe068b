"""morvex_ctl settings on the database of a running daemon."""

import json
import subprocess
from contextlib import contextmanager

import pytest

from harness import rows, sql, wait_until
from test_ctl import CTL, complete, ctl

CARDS = "card ATP8 1001 8"
SETTINGS = {"crec": {"Syn1001_Trigger": "1,1,1,1,1,1,1,1"}, "web": {"Theirs": "1"}}
CLEAN = (0, "Nothing found.\n", "")
USAGE, NO_DATABASE, BAD_SETTING = 2, 10, 13


def stored(param):
    """Value and part of each row with this name."""
    return [(row["value"], row["part"]) for row in rows(f"SELECT value, part FROM Configs WHERE param = '{param}'")]


def another_client():
    return subprocess.Popen(["psql", "-XAtq"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)


@contextmanager
def locked_settings():
    """Another client holds the table, for as long as it likes."""
    with another_client() as client:
        client.stdin.write("BEGIN; LOCK TABLE Configs;\n\\echo locked\n")
        client.stdin.flush()
        assert client.stdout.readline() == "locked\n"
        yield
        client.stdin.close()


# -- list and check --------------------------------------------------------------------------------------------------


def test_what_the_daemon_writes_is_clean(daemon):
    assert stored("CardList") == [("Syn1001", "crec")]
    assert ctl("settings", "--check") == CLEAN
    assert ctl("settings", "--check", "--json") == (0, "[]\n", "")


def test_check_finds_what_the_daemon_takes_otherwise(daemon):
    wrong = {"RecEnc": "mp3", "Syn1001_PBXType": "Panasonic", "Syn1001_Trigger": "9"}
    daemon.store_settings({"crec": wrong})
    try:
        status, output, complaint = ctl("settings", "--check")
        assert (status, complaint) == (BAD_SETTING, "")
        assert output.splitlines() == [
            "RecEnc: the recorder does not see it in part 'crec'; its part is 'o'",
            "Syn1001_PBXType: 'Panasonic' is a PBX without rules of its own; write 'PANASONIC'",
            "Syn1001_Trigger: channel 0: '9' is not in the range 0 to 4",
        ]
        status, output, complaint = ctl("settings", "--check", "--json")
        assert (status, complaint) == (BAD_SETTING, "")
        assert [finding["param"] for finding in json.loads(output)] == list(wrong)
    finally:
        sql("DELETE FROM Configs WHERE param IN ('RecEnc', 'Syn1001_PBXType')")
        daemon.store_settings(SETTINGS)
    assert ctl("settings", "--check") == CLEAN


def test_list_of_number_items_is_held_against_the_card(daemon):
    daemon.store_settings({"crec": {"Syn1001_AGC": "0,0,0,0,0,0,0,0,1"}})
    expected = "Syn1001_AGC: 9 items, but the board has 8 channels\n"
    assert ctl("settings", "--check") == (BAD_SETTING, expected, "")
    sql("DELETE FROM Configs WHERE param = 'Syn1001_AGC'")


def test_list_shows_present_values(daemon):
    status, output, complaint = ctl("settings")
    assert (status, complaint) == (0, "")
    lines = [line.split("  ") for line in output.splitlines()]
    assert ["Syn1001_Trigger", "crec", "channels", "1", "'1,1,1,1,1,1,1,1'", "from the next start"] in [
        [cell.strip() for cell in line if cell.strip()] for line in lines
    ]
    assert not any("Theirs" in line for line in output.splitlines())
    assert "/var/morvex/conf/serial" in output and "'there'" in output

    status, output, complaint = ctl("settings", "--json")
    assert (status, complaint) == (0, "")
    trigger = [setting for setting in json.loads(output) if setting["key"] == "<board>_Trigger"][0]
    assert trigger["present"] == [{"param": "Syn1001_Trigger", "part": "crec", "value": "1,1,1,1,1,1,1,1"}]


def test_one_setting(daemon):
    status, output, complaint = ctl("settings", "MaskLastRemoteDigits")
    assert (status, complaint) == (0, "")
    assert output == (
        "MaskLastRemoteDigits\n"
        "  So many last digits of a remote number are X in rows and contacts; log and number lists have it whole.\n"
        "  part           s\n"
        "  scope          unit\n"
        "  values         0 or more\n"
        "  default        0\n"
        "  a change holds from the next start\n"
        "It is not set.\n"
    )
    status, output, _ = ctl("settings", "Syn1001_Trigger", "--json")
    assert (status, [setting["key"] for setting in json.loads(output)]) == (0, ["<board>_Trigger"])
    assert ctl("settings", "RecEncc") == (USAGE, "", "There is no setting RecEncc (is it RecEnc?).\n")
    assert ctl("settings", "\x1b[31m") == (USAGE, "", "There is no setting ?[31m.\n")


def test_locked_table_is_told_and_not_waited_for(daemon):
    with locked_settings():
        status, output, complaint = ctl("settings")
        assert (status, output) == (NO_DATABASE, "")
        assert complaint.startswith("The database cannot be read: ") and "statement timeout" in complaint


# -- around it -------------------------------------------------------------------------------------------------------


def test_completion_offers_keys(daemon):
    assert complete("settings", "Card") == ["CardNotInternal", "CardList", "CardDriverVersion"]
    assert complete("settings", "--") == ["--check", "--json"]
