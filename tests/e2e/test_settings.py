"""morvex_ctl settings on the database of a running daemon."""

import json
import subprocess
from contextlib import contextmanager

import pytest

from harness import rows, sql, wait_until
from test_ctl import CTL, complete, ctl

CARDS = "card ATP8 1001 8"
SETTINGS = {"crec": {"Syn1001_Trigger": "1,1,1,1,1,1,1,1"}, "web": {"Theirs": "1"}}
USAGE, NO_DATABASE = 2, 10


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


# -- list ------------------------------------------------------------------------------------------------------------


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
    assert ctl("settings", "RecEncc") == (USAGE, "", "There is no setting RecEncc.\n")
    assert ctl("settings", "\x1b[31m") == (USAGE, "", "There is no setting ?[31m.\n")


def test_locked_table_is_told_and_not_waited_for(daemon):
    with locked_settings():
        status, output, complaint = ctl("settings")
        assert (status, output) == (NO_DATABASE, "")
        assert complaint.startswith("The database cannot be read: ") and "statement timeout" in complaint


# -- around it -------------------------------------------------------------------------------------------------------


def test_completion_offers_keys(daemon):
    assert complete("settings", "Card") == ["CardNotInternal", "CardList", "CardDriverVersion"]
    assert complete("settings", "--") == ["--json"]
