"""What bash offers for the command lines of cardsim and morvex_display: the words that these tools have themselves."""

import subprocess

import pytest

from harness import BUILD, SOURCE

PROGRAMS = {"cardsim": BUILD / "sim" / "cardsim", "morvex_display": BUILD / "tools" / "morvex_display"}


def complete(name, *words):
    """What is offered for the last of the words. The files to choose from are "day.sim" and "dmsg.log"."""
    script = (
        f"source {SOURCE}/tools/{name}.bash; COMP_WORDS=({PROGRAMS[name]} \"$@\"); COMP_CWORD=$#; _{name};"
        ' printf "%s\\n" "${COMPREPLY[@]}"'
    )
    done = subprocess.run(
        ["bash", "-uc", script, "-", *words], capture_output=True, text=True, check=True, cwd="/tmp/files"
    )
    assert done.stderr == ""
    return sorted(done.stdout.split())


@pytest.fixture(autouse=True, scope="module")
def files():
    subprocess.run("mkdir /tmp/files && touch /tmp/files/day.sim /tmp/files/dmsg.log", shell=True, check=True)


CHANNEL_WORDS = (
    "ring offhook onhook callerid dtmf flash tone sound nosound state voltage play display key button audio mutelight bri"
    " isdn dchannel event"
)
CARDSIM = [
    ([""], "ch cic event fail speed overruns recorded cost status wait directory print run replay check"),
    (["re"], "recorded replay"),
    (["x"], ""),
    (["--"], "--help --version --socket --connect"),
    (["ch", ""], ""),
    (["ch", "3", ""], CHANNEL_WORDS),
    (["ch", "3", "on"], "onhook"),
    (["ch", "0..7", "play", ""], "silence counting tone file"),
    (["ch", "3", "play", "file", "d"], "day.sim dmsg.log"),
    (["ch", "3", "callerid", ""], ""),
    (["--socket", "/tmp/other", "cic", "5", "i"], "idle"),
    (["run", ""], "day.sim dmsg.log"),
    (["run", "--"], "--help --speed --verbose"),
    (["status", "--j"], "--json"),
]
DISPLAY = [
    ([""], "day.sim dmsg.log"),
    (["dm"], "dmsg.log"),
    (
        ["--"],
        "--help --version --pbx --start-mode --phone-type --busy --ringing --pilot --remote --local --previous"
        " --line-name --channel",
    ),
    (["--start-mode", ""], "audio default mutelight mutelight+tone"),
    (["--start-mode", "mute"], "mutelight mutelight+tone"),
    (["--pbx", ""], ""),
    (["--ringing", "d"], "day.sim dmsg.log"),
]
ROWS = [("cardsim", *row) for row in CARDSIM] + [("morvex_display", *row) for row in DISPLAY]


@pytest.mark.parametrize("name, words, offered", ROWS, ids=[" ".join([row[0], *row[1]]) for row in ROWS])
def test_words_are_offered(name, words, offered):
    assert complete(name, *words) == sorted(offered.split())


def test_start_modes_are_those_that_the_tool_takes():
    for mode in complete("morvex_display", "--start-mode", ""):
        subprocess.run([PROGRAMS["morvex_display"], "--start-mode", mode, "/dev/null"], check=True)
