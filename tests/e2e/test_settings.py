"""morvex_ctl settings and set, on the database of a running daemon."""

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


# -- set -------------------------------------------------------------------------------------------------------------


def test_set_takes_effect_on_the_running_daemon(daemon):
    mark = daemon.mark()
    assert ctl("set", "DelOnDmdType", "1") == (
        0,
        "DelOnDmdType (part o)\n  before  -\n  after   '1'\nIt holds at once: the recorder has read it.\n",
        "",
    )
    daemon.wait_line("DelOnDmdType: 1", mark)
    assert stored("DelOnDmdType") == [("1", "o")]


def test_set_that_needs_no_order(daemon):
    mark = daemon.mark()
    assert ctl("set", "RecMinDur", "2", "--part", "s") == (
        0,
        "RecMinDur (part s)\n  before  -\n  after   '2'\nIt holds at once: the recorder asks for it each time.\n",
        "",
    )
    assert stored("RecMinDur") == [("2", "s")]
    assert [line for line in daemon.log_after(mark) if line.startswith("Msg")] == []


def test_set_of_one_channel(daemon):
    assert ctl("set", "Trigger", "2", "--board", "Syn1001", "--channel", "3") == (
        0,
        "Syn1001_Trigger (part crec)\n  before  '1,1,1,1,1,1,1,1'\n  after   '1,1,1,2,1,1,1,1'\n"
        "It holds from the next start of the recorder.\n",
        "",
    )
    assert stored("Syn1001_Trigger") == [("1,1,1,2,1,1,1,1", "crec")]


def test_set_that_meets_another_change_writes_nothing(daemon):
    before, theirs = stored("Syn1001_Trigger")[0][0], "1,1,1,1,4,1,1,1"
    with another_client() as client:
        client.stdin.write(f"BEGIN; UPDATE Configs SET value = '{theirs}' WHERE param = 'Syn1001_Trigger';\n\\echo changed\n")
        client.stdin.flush()
        assert client.stdout.readline() == "changed\n"
        command = [CTL, "set", "Trigger", "3", "--board", "Syn1001", "--channel", "0"]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as mine:
            waits = "SELECT 1 FROM pg_stat_activity WHERE query LIKE '%DELETE FROM Configs%' AND wait_event_type = 'Lock'"
            wait_until("the tool waits for the row", lambda: rows(waits))
            client.stdin.write("COMMIT;\n")
            client.stdin.flush()
            output, complaint = mine.communicate()
    assert (mine.returncode, output) == (NO_DATABASE, "")
    assert complaint.startswith("Nothing was written: ") and "could not serialize access" in complaint
    assert before != theirs and stored("Syn1001_Trigger") == [(theirs, "crec")]


def test_set_moves_a_setting_into_its_part(daemon):
    daemon.store_settings({"crec": {"RecEnc": "gsm"}})
    assert ctl("set", "RecEnc", "mp3")[0] == 0
    assert stored("RecEnc") == [("mp3", "o")]


def test_set_takes_any_text_as_it_is(daemon):
    text = "22'), ('x', 'y', 'o'); DROP TABLE Configs; -- \\ %s $1"
    assert ctl("set", "NumberFilters", text)[0] == 0
    assert stored("NumberFilters") == [(text, "o")]
    assert ctl("set", "InboundGain", "-3", "--board", "Syn1001")[0] == 0
    assert stored("Syn1001_InboundGain") == [("-3", "crec")]


@pytest.mark.parametrize(
    "arguments, status, complaint",
    [
        (["RecEnc", "MP3"], BAD_SETTING, "RecEnc: 'MP3' is none of alaw, ulaw, gsm, mp3; write 'mp3'"),
        (["RecEncc", "mp3"], USAGE, "There is no setting RecEncc (is it RecEnc?)"),
        (["CardList", ""], USAGE, "CardList: the recorder writes it"),
        (["ALE", "1", "--part", "crec"], USAGE, "ALE: the recorder does not see it in part 'crec'; its part is 'o'"),
        (["Trigger", "1"], USAGE, "Trigger: it is a setting of a board: name it by --board"),
        (
            ["Syn1001_Trigger", "1", "--channel", "8"],
            BAD_SETTING,
            "Syn1001_Trigger: the board has 8 channels, counted from 0",
        ),
    ],
)
def test_set_that_makes_no_sense_writes_nothing(daemon, arguments, status, complaint):
    before = rows("SELECT * FROM Configs ORDER BY param, value, part")
    assert ctl("set", *arguments) == (status, "", complaint + "; nothing was written.\n")
    assert rows("SELECT * FROM Configs ORDER BY param, value, part") == before


@pytest.mark.parametrize(
    "arguments",
    [
        ["set"],
        ["set", "RecEnc"],
        ["set", "RecEnc", "mp3", "gsm"],
        ["set", "Trigger", "1", "--channel", "-1"],
        ["set", "Trigger", "1", "--channel", "x"],
        ["settings", "RecEnc", "--check"],
        ["settings", "--markdown", "--json"],
    ],
)
def test_arguments_that_make_no_sense(daemon, arguments):
    status, output, complaint = ctl(*arguments)
    assert (status, output) == (USAGE, "")
    assert complaint.endswith("\n")


def test_set_is_not_held_up_by_a_locked_table(daemon):
    with locked_settings():
        status, output, complaint = ctl("set", "RecLocal", "1")
        assert (status, output) == (NO_DATABASE, "")
        assert complaint.startswith("Nothing was written: ") and "statement timeout" in complaint
    assert stored("RecLocal") == []


# -- around it -------------------------------------------------------------------------------------------------------


def test_completion_offers_keys(daemon):
    assert complete("settings", "Card") == ["CardNotInternal", "CardList", "CardDriverVersion"]
    assert complete("settings", "--") == ["--check", "--json"]
    assert complete("set", "Card") == ["CardNotInternal"]
    assert complete("set", "RecE") == ["RecEnc"]
    assert complete("set", "opt") == []
    assert complete("set", "RecEnc", "--") == ["--board", "--channel", "--part"]


def test_set_without_a_daemon(daemon):
    """From here on the daemon of the other tests has ended."""
    assert daemon.stop() == 0
    assert ctl("set", "RecOnDmdType", "2") == (
        0,
        "RecOnDmdType (part o)\n  before  -\n  after   '2'\n"
        "It holds from the next start: the recorder is not running.\n",
        "",
    )
