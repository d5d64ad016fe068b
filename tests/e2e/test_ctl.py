"""morvex_ctl against a running daemon, as a person and as a script use it."""

import json
import os
import pty
import re
import resource
import select
import signal
import subprocess
import termios
import time
from pathlib import Path

import pytest

from harness import BUILD, SOURCE, Daemon, order, rows, wait_until

CARDS = "card ATP8 1001 8"
# Line 8 records on demand.
SETTINGS = {"o": {"SilOnDemand": "1"}, "crec": {"Syn1001_RecOnDmd": "0,0,0,0,0,0,0,1"}}
CTL = BUILD / "tools" / "morvex_ctl"
NO_CALL = "20240131_142305_007_42"
OUTSIDE = "0301234567"
USAGE = 2
LOOP_REPORT = Path("/var/morvex/data/crec_loop")


def ctl(*arguments, **environment):
    """Exit status, standard output, standard error."""
    done = subprocess.run(
        [CTL, *arguments], capture_output=True, text=True, stdin=subprocess.DEVNULL, env={**os.environ, **environment}
    )
    return done.returncode, done.stdout, done.stderr


def told(text, status):
    """The outcome of an order: "OK" for standard output, all else for standard error."""
    return (status, text + "\n", "") if status == 0 else (status, "", text + "\n")


OK = told("OK", 0)


@pytest.fixture(scope="module", autouse=True)
def calls(daemon):
    """Line 1: an incoming call; line 2: an outgoing one, silenced; line 8: waits for a demand."""
    daemon.wait_line("signal => sysinfo")
    mark = daemon.mark()
    daemon.cards("ch 0 ring on", f"ch 0 callerid {OUTSIDE}")
    daemon.wait_line(f"[1] Remote: {OUTSIDE}", mark)
    daemon.cards("ch 0 offhook")
    daemon.active_call(1)
    daemon.cards("ch 1 offhook", "ch 7 offhook", "ch 4 state offline")
    silenced = daemon.active_call(2)
    daemon.active_call(8)
    daemon.wait_line("[5] Line health: offline", mark)
    assert ctl("silence", silenced["remoteid"]) == OK
    return {line: daemon.active_call(line) for line in (1, 2, 8)}


# -- orders ----------------------------------------------------------------------------------------------------------


def test_orders_that_need_no_call(daemon):
    assert ctl("reconfig") == OK
    assert ctl("bittrace_stop") == told("ERR: already stopped", 7)


@pytest.mark.parametrize("word", ["silence", "sound", "start", "stop", "delete"])
def test_unknown_call(daemon, word):
    assert ctl(word, NO_CALL) == told("E2: unknown call", 4)


def test_options_that_are_off(daemon, calls):
    call = calls[1]["remoteid"]
    demand = (
        "E3: option RecOnDmd is off\n"
        "RecOnDmd of the line, such as Syn1001_RecOnDmd in part 'crec' of the settings, or for trunks RecOnDmdType in"
        " part 'o', allows it."
    )
    assert ctl("start", call) == told(demand, 5)
    assert ctl("stop", call) == told(demand, 5)
    delete = "E3: option DelOnDmd is off\nDelOnDmdType in part 'o' of the settings allows it."
    assert ctl("delete", call) == told(delete, 5)
    # The daemon closes without a line behind a refusal, and does the order.
    check_local(daemon, call, "22")


def check_local(daemon, call, number):
    """Whatever the daemon answers."""
    assert ctl("change_local", number, OUTSIDE) == told(f"Local number of the call {call} is now {number}.", 0)
    assert daemon.active_call(1)["local"] == number


def test_change_local_tells_what_became_of_it(daemon, calls):
    call = calls[1]["remoteid"]
    assert ctl("silence", NO_CALL)[0] == 4  # the daemon's answer to the next one too
    check_local(daemon, call, "200")
    assert ctl("silence", call) == OK
    check_local(daemon, call, "22")
    assert ctl("change_local", "22", "00" + OUTSIDE) == told(f"Local number of the call {call} is now 22.", 0)
    assert ctl("change_local", "23", "0309999999") == told("No call in progress has the remote number 0309999999.", 4)
    status, output, complaint = ctl("change_local", "22", OUTSIDE, PGHOST="/tmp/nowhere")
    assert (status, output) == (10, "")
    assert complaint.endswith("\nThe order was sent; what came of it cannot be told.\n")


def test_call_by_its_line(daemon, calls):
    assert ctl("silence", "--line", "1") == OK
    assert daemon.active_call(1)["callextra"] == "silencing: 1\r\n"
    assert ctl("sound", "--line", "1") == OK
    assert daemon.active_call(1)["callextra"] == "silencing: 0\r\n"
    for word in ("silence", "sound", "start", "stop", "delete"):
        assert ctl(word, "--line", "4") == told("Line 4 has no call in progress.", 4)
        assert ctl(word, "--line", "9") == told("There is no line 9; the recorder has 1-8.", USAGE)
    status, output, complaint = ctl("silence", "--line", "1", PGHOST="/tmp/nowhere")
    assert (status, output) == (10, "")
    assert complaint.startswith("The database cannot be read: ")


def test_silence_and_sound(daemon, calls):
    call = calls[1]["remoteid"]
    assert ctl("silence", call) == OK
    assert daemon.active_call(1)["callextra"] == "silencing: 1\r\n"
    assert ctl("sound", call) == OK
    assert daemon.active_call(1)["callextra"] == "silencing: 0\r\n"
    mark = daemon.mark()
    for arguments in (["--stop-start", "23", "0309999999"], ["", "0309999999"]):
        assert ctl("change_local", *arguments) == told("No call in progress has the remote number 0309999999.", 4)
    daemon.wait_line("Msg received: change_local 23|0309999999|1", mark)
    daemon.wait_line("Msg received: change_local |0309999999|0", mark)


@pytest.mark.parametrize(
    "arguments",
    [
        [],
        ["nonsense"],
        ["silence"],
        ["silence", "7"],
        ["silence", NO_CALL + "\n"],
        ["silence", NO_CALL, NO_CALL],
        ["silence", NO_CALL, "--line", "1"],
        ["silence", "--line", "0"],
        ["start", "--line"],
        ["chst"],
        ["chst", "0"],
        ["chst", "-1"],
        ["chst", "100000"],
        ["chst", "two"],
        ["bittrace_start"],
        ["bittrace_start", "-1"],
        ["bittrace_start", "1x"],
        ["bittrace_stop", "1"],
        ["reconfig", "now"],
        ["change_local", "22"],
        ["change_local", "2|2", OUTSIDE],
        ["change_local", "22", OUTSIDE + "\n"],
        ["change_local", "2" * 50, "3" * 50],
        ["status", "--xml"],
        ["watch"],  # no terminal
    ],
)
def test_arguments_that_make_no_sense_send_nothing(daemon, arguments):
    mark = daemon.mark()
    status, output, complaint = ctl(*arguments)
    assert (status, output) == (USAGE, "")
    assert complaint.endswith("\n")
    assert order("hello") == "E0: Unknown commmand\n"
    daemon.wait_line("Msg received: hello", mark)
    assert [line for line in daemon.log_after(mark) if line.startswith("Msg")] == ["Msg received: hello"]


@pytest.mark.parametrize("tool", ["tools/morvex_ctl", "tools/morvex_display", "sim/cardsim"])
def test_version_is_that_of_the_project(daemon, tool):
    project = (SOURCE / "CMakeLists.txt").read_text()
    version = re.search(r"^project\(morvex_crec VERSION (\S+) ", project, re.MULTILINE)[1]
    done = subprocess.run([BUILD / tool, "--version"], capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{Path(tool).name} {version}\n", "")


def test_misspelt_command_names_what_was_meant(daemon):
    assert ctl("sart", NO_CALL) == told("sart: no such command; did you mean start?", USAGE)
    assert ctl("nonsense") == told("nonsense: no such command", USAGE)


def test_help_names_each_subcommand(daemon):
    status, output, complaint = ctl("--help")
    assert (status, complaint) == (0, "")
    for word in SUBCOMMANDS:
        assert re.search(rf"^ +{word} ", output, re.MULTILINE)


# -- status ----------------------------------------------------------------------------------------------------------

ROWS = [(1, "incoming", OUTSIDE, "recording"), (2, "outgoing", "", "silenced"), (8, "outgoing", "", "waiting")]


def test_status_for_people(daemon, calls):
    status, output, complaint = ctl("status")
    assert (status, complaint) == (0, "")
    lines, table, signs = (part.splitlines() for part in output.split("\n\n"))
    assert lines == ["LINES    HEALTH", "1-4,6-8  ok", "5        offline"]
    assert table[0].split("  ")[0] == "LINE" and len(table) == 1 + len(ROWS)
    local = daemon.active_call(1)["local"]
    for line, (number, direction, remote, state) in zip(table[1:], ROWS):
        call = calls[number]
        since = time.strftime("%H:%M:%S", time.localtime(call["startdate"]))
        *words, age = line.split()
        parties = [local if number == 1 and local else "-", remote or "-"]
        assert words == [str(number), call["remoteid"], state, *parties, direction, since]
        hours, minutes, seconds = map(int, age.split(":"))
        assert abs(time.time() - call["startdate"] - (hours * 3600 + minutes * 60 + seconds)) < 5
    error = Path("/var/morvex/data/err_crec.dat").read_text().splitlines()[0]
    for sign, form in zip(
        signs,
        [
            r"Main loop: \d+\.\d s behind",
            r"Free on /recordings: \d+\.\d % \(\d+\.\d GB\)",
            r"Last card event: 0:0\d:\d\d ago",
            r"Last error, 0:\d\d:\d\d ago: " + re.escape(error),
        ],
        strict=True,
    ):
        assert re.fullmatch(form, sign)


def test_status_tells_that_calls_are_not_recorded(daemon):
    """They leave no row. The daemon reads the schedule with each call, and so does the status."""
    daemon.store_settings({"o": {"srWeekdays": "none"}})
    mark = daemon.mark()
    daemon.cards("ch 2 offhook")
    daemon.wait_line("[3] Recording not scheduled", mark)
    assert "\nNot recorded: calls that begin outside the schedule, as now\n" in ctl("status")[1]
    daemon.cards("ch 2 onhook")
    daemon.wait_line("[3] Call stops", mark)
    daemon.store_settings({"o": {"srWeekdays": ""}})
    assert "Not recorded" not in ctl("status")[1]


def expected_json(daemon, calls):
    local = daemon.active_call(1)["local"]
    return {
        "running": True,
        "lines": [{"line": n, "health": "offline" if n == 5 else "ok"} for n in range(1, 9)],
        "calls": [
            {
                "line": number,
                "call_id": calls[number]["remoteid"],
                "direction": direction,
                "local": local if number == 1 else "",
                "remote": remote,
                "since": calls[number]["startdate"],
                "state": state,
                "silenced": state == "silenced",
            }
            for number, direction, remote, state in ROWS
        ],
    }


def without_signs(text):
    """The object, without what changes by the second."""
    told = json.loads(text)
    assert told.pop("signs")["loop"] == "turns"
    return told


def test_status_for_scripts(daemon, calls):
    status, output, complaint = ctl("status", "--json")
    assert (status, complaint) == (0, "")
    assert without_signs(output) == expected_json(daemon, calls)


def test_status_without_database(daemon):
    status, output, complaint = ctl("status", PGHOST="/tmp/nowhere")
    assert (status, complaint) == (10, "")
    assert output.startswith("LINES    HEALTH\n1-4,6-8  ok\n")
    assert "\nThe database cannot be read: " in output


def test_chst_tells_what_the_line_says(daemon):
    Path("/var/morvex/data/chstate_3.dat").write_bytes(b"Voltage: 1\r\n")
    assert ctl("chst", "3") in (told("Line 3: voltage 48 V", 0), told("Line 3: voltage 8 V", 0))
    daemon.cards("ch 2 voltage -7")
    wait_until("read anew", lambda: ctl("chst", "3") == told("Line 3: voltage -7 V", 0))
    status, output, complaint = ctl("chst", "3", "--json")
    assert (status, json.loads(output), complaint) == (0, {"line": 3, "voltage": -7}, "")
    daemon.cards("ch 2 voltage 48")
    wait_until("read anew", lambda: ctl("chst", "3") == told("Line 3: voltage 48 V", 0))


def test_chst_of_a_line_that_does_not_exist_sends_nothing(daemon):
    mark = daemon.mark()
    assert ctl("chst", "999") == told("There is no line 999; the recorder has 1-8.", USAGE)
    assert order("hello") == "E0: Unknown commmand\n"
    daemon.wait_line("Msg received: hello", mark)
    assert [line for line in daemon.log_after(mark) if line.startswith("Msg")] == ["Msg received: hello"]


def test_status_of_one_line(daemon, calls):
    status, output, complaint = ctl("status", "--line", "3")
    assert (status, complaint) == (0, "")
    assert output.startswith("LINES  HEALTH\n3      ok\n\nNo calls in progress.\n\n")
    assert output.endswith("\nLine 3: voltage 48 V\n")
    seen = json.loads(ctl("status", "--line", "2", "--json")[1])
    assert [line["line"] for line in seen["lines"]] == [2]
    assert [call["call_id"] for call in seen["calls"]] == [calls[2]["remoteid"]]
    assert seen["line_state"]["line"] == 2 and "voltage" in seen["line_state"]
    assert ctl("status", "--line", "9") == told("There is no line 9; the recorder has 1-8.", USAGE)


def check(*limits):
    """Exit status, verdict and performance data."""
    status, output, complaint = ctl("status", "--check", *limits)
    assert complaint == "" and output.count("\n") == 1
    verdict, bar, data = output.rstrip("\n").partition(" | ")
    return status, verdict, dict(value.split("=") for value in data.split()) if bar else {}


PATIENT = "--warn-behind 60 --crit-behind 60".split()  # of a slow machine


def test_check_of_a_line_that_is_offline(daemon):
    status, verdict, data = check("--warn-free", "0", "--crit-free", "0", *PATIENT)
    assert (status, verdict) == (1, "CREC WARNING - line 5 offline; 7 lines ok, 3 calls")
    counts = {"lines_ok": "7", "lines_offline": "1", "lines_error": "0", "calls": "3", "calls_left": "0"}
    assert {key: data[key] for key in counts} == counts
    assert re.fullmatch(r"\d+\.\d%;0:;0:", data["free"])
    assert re.fullmatch(r"\d+\.\d{3}s;60;60", data["behind"])
    assert re.fullmatch(r"\d+s", data["event_age"])


def test_check_has_limits_of_its_caller(daemon):
    status, verdict, _ = check("--crit-free", "100", *PATIENT)
    assert status == 2
    assert re.match(r"CREC CRITICAL - \d+\.\d % free on /recordings; line 5 offline; ", verdict)


def test_check_tells_of_a_process_with_few_descriptors(daemon):
    """One for each of eight lines, and some."""
    old = resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, (71, old[1]))
    verdict = check()[1]
    resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, old)
    assert "; at most 71 open files, the lines need 72; " in verdict
    assert "open files" not in check()[1]


@pytest.mark.parametrize(
    "arguments",
    [["--warn-free", "101"], ["--crit-behind", "-1"], ["--warn-event", "soon"], ["--json"], ["--critical", "5"]],
)
def test_check_with_arguments_that_make_no_sense_is_unknown(daemon, arguments):
    status, output, _ = ctl("status", "--check", *arguments)
    assert status == 3
    assert output.startswith("CREC UNKNOWN - ")
    assert ctl("status", "--warn-free", "5")[0] == USAGE


# -- watch -----------------------------------------------------------------------------------------------------------


class Terminal:
    """`morvex_ctl watch` on a terminal of this size."""

    def __init__(self, rows=40, columns=120, **environment):
        self.output = b""
        self.pid, self.master = pty.fork()
        if self.pid == 0:
            termios.tcsetwinsize(0, (rows, columns))
            kept = {name: value for name, value in os.environ.items() if name not in ("LINES", "COLUMNS")}
            os.execve(CTL, [CTL, "watch"], {**kept, "TERM": "xterm", **environment})

    def resize(self, rows, columns):
        termios.tcsetwinsize(self.master, (rows, columns))

    def wait(self, text):
        """Waits for this text on the screen, after what was waited for last."""

        def seen():
            if select.select([self.master], [], [], 0)[0]:
                self.output += os.read(self.master, 65536)
            return text in self.output

        wait_until(f"{text} on the screen", seen)
        self.output = self.output.split(text, 1)[1]

    def press(self, key):
        os.write(self.master, key)

    def status(self):
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])


def test_watch_redraws_until_a_key(daemon, calls):
    terminal = Terminal()
    terminal.wait(b"HEALTH")
    terminal.wait(calls[8]["remoteid"].encode())
    terminal.wait(b"Any key ends.")
    # Only what differs is drawn: "5" becomes "5-6", then "5,7".
    for channel, drawn in ((5, b"-6"), (6, b",7")):
        daemon.cards(f"ch {channel} state offline")
        terminal.wait(drawn)
        mark = daemon.mark()
        daemon.cards(f"ch {channel} state standby")
        daemon.wait_line(f"[{channel + 1}] Line health: ok", mark)
    terminal.press(b"q")
    assert terminal.status() == 0


def test_watch_goes_on_at_another_size(daemon, calls):
    """The id of a call is what somebody copies, so it is not what a narrow terminal cuts."""
    terminal = Terminal(rows=8, columns=67, LC_ALL="C")
    terminal.wait(b"DIRECT>")
    terminal.wait(calls[1]["remoteid"].encode())
    terminal.wait(b"more lines")
    terminal.resize(40, 120)
    terminal.wait(b"SINCE")
    terminal.wait(calls[8]["remoteid"].encode())
    terminal.wait(b"Last card event")
    terminal.resize(8, 67)
    terminal.wait(b"more lines")
    terminal.press(b"q")
    assert terminal.status() == 0


def test_watch_for_scripts_is_an_object_a_line(daemon, calls):
    with subprocess.Popen([CTL, "watch", "--json"], stdout=subprocess.PIPE, text=True) as watch:
        started = time.monotonic()
        for _ in range(3):
            assert without_signs(watch.stdout.readline()) == expected_json(daemon, calls)
        assert time.monotonic() - started > 1.9
        watch.stdout.close()  # nobody reads on
        assert watch.wait(60) == -signal.SIGPIPE


# -- around it -------------------------------------------------------------------------------------------------------

ORDERS = "silence sound start stop delete reconfig chst bittrace_start bittrace_stop change_local".split()
SUBCOMMANDS = [*ORDERS, "status", "watch", "metrics", "settings", "set"]


def complete(*words):
    """What bash offers for the last of the words."""
    script = (
        f"source {SOURCE}/tools/morvex_ctl.bash; COMP_WORDS=(morvex_ctl \"$@\"); COMP_CWORD=$#; _morvex_ctl;"
        ' printf "%s\\n" "${COMPREPLY[@]}"'
    )
    path = f"{CTL.parent}:{os.environ['PATH']}"
    done = subprocess.run(
        ["bash", "-c", script, "-", *words], capture_output=True, text=True, check=True, env={**os.environ, "PATH": path}
    )
    assert done.stderr == ""
    return done.stdout.split()


def test_completion(daemon, calls):
    assert complete("") == SUBCOMMANDS + ["--help", "--version"]
    assert complete("bit") == ["bittrace_start", "bittrace_stop"]
    assert complete("x") == []
    ids = [call["remoteid"] for call in calls.values()]
    for word in SUBCOMMANDS[:5]:
        assert complete(word, "") == ids
    assert complete("silence", ids[2]) == [ids[2]]
    assert complete("silence", "--") == ["--line"]
    assert complete("delete", "--line", "") == [str(line) for line in range(1, 9)]
    assert complete("status", "--j") == ["--json"]
    assert complete("chst", "--") == ["--json"]
    assert complete("status", "--warn") == ["--warn-free", "--warn-behind", "--warn-event"]
    assert complete("watch", "") == ["--json"]
    assert complete("change_local", "--") == ["--stop-start"]
    assert complete("status", "--line", "") == complete("chst", "") == [str(line) for line in range(1, 9)]


def test_manual_page_renders_without_warnings(daemon):
    done = subprocess.run(
        ["groff", "-ww", "-man", "-Tutf8", SOURCE / "tools" / "morvex_ctl.1"], capture_output=True, text=True, check=True
    )
    assert done.stderr == ""
    text = re.sub("\x1b\\[[\\d;]*m|.\b", "", done.stdout)  # bold by colour or by overprinting
    for word in SUBCOMMANDS:
        assert word in text


# -- start, stop, delete, trace, the end -------------------------------------------------------------------------------


def test_record_on_demand(daemon, calls):
    """Each order makes a part of its own, and tells its id."""
    status, output, complaint = ctl("start", calls[8]["remoteid"])
    query = "SELECT * FROM ActiveCalls WHERE linenr = 8 AND encoding <> 0"
    part = wait_until("the demanded part", lambda: rows(query))[0]
    assert (status, output, complaint) == (0, f"OK\n{part['remoteid']}\n", "")
    assert ctl("start", part["remoteid"]) == OK, "it is recorded already, and keeps its id"
    status, output, complaint = ctl("stop", "--line", "8")
    waiting = wait_until("the part that waits", lambda: rows(query.replace("<>", "=")))[0]
    assert (status, output, complaint) == (0, f"OK\n{waiting['remoteid']}\n", "")
    assert daemon.finished_call(part["remoteid"])["encoding"] == 554


def test_delete(daemon, calls):
    daemon.store_settings({"o": {"DelOnDmdType": "1"}})
    mark = daemon.mark()
    assert ctl("reconfig") == OK
    daemon.wait_line("DelOnDmdType: 1", mark)
    assert ctl("delete", calls[1]["remoteid"]) == OK
    wait_until("row deleted", lambda: rows("SELECT id FROM ActiveCalls WHERE linenr = 1") == [])
    # The daemon knows the call as long as it lasts, and says OK again.
    assert ctl("delete", calls[1]["remoteid"]) == told("OK\nNo recording of this call was listed any more.", 0)


def test_trace(daemon):
    Path("/recordings/log").mkdir(parents=True, exist_ok=True)
    assert ctl("bittrace_start", "0") == OK
    daemon.wait_line("Starting bit stream tracing on channel 0")
    assert ctl("bittrace_start", "1") == told("ERR: already started", 7)
    wait_until_told("A trace runs: no call is recorded.", "traces")
    status, verdict, _ = check()
    assert status == 2
    assert verdict.startswith("CREC CRITICAL - a trace runs, no call is recorded; ")
    assert ctl("bittrace_stop") == OK
    daemon.wait_line("Stopped bit stream tracing")
    wait_until_told("No line status: no line has changed since a trace.", "turns")
    mark = daemon.mark()
    daemon.cards("ch 5 state offline")
    daemon.wait_line("[6] Line health: offline", mark)
    assert ctl("status")[1].startswith("LINES    HEALTH\n")


def wait_until_told(sentence, loop):
    """In place of the lines, by a recorder that runs. The report of its loop comes once a second."""

    def is_told():
        status, output, _ = ctl("status")
        assert status == 0
        return output.startswith(sentence + "\n\n")

    wait_until(sentence, is_told)
    status, output, _ = ctl("status", "--json")
    seen = json.loads(output)
    assert (status, seen["running"], seen["lines"], seen["signs"]["loop"]) == (0, True, [], loop)


def test_daemon_that_does_not_run(daemon):
    """From here on the daemon of the other tests has ended."""
    assert daemon.stop() == 0
    sentence = "The recorder is not running: nobody answers at /tmp/morvex_crec."
    for line in ("reconfig", f"silence {NO_CALL}", "chst 1", "start --line 1", "change_local 1 2"):
        assert ctl(*line.split()) == told(sentence, 9)
    status, output, complaint = ctl("status")
    assert (status, complaint) == (9, "")
    assert output.startswith("The recorder is not running: nobody serves /tmp/morvex_crec.\n\n")
    status, output, _ = ctl("status", "--json")
    assert (status, json.loads(output)["running"], json.loads(output)["lines"]) == (9, False, [])
    status, verdict, _ = check()
    assert status == 2
    assert verdict.startswith("CREC CRITICAL - the recorder is not running; ")


def test_metrics_of_a_report_that_outlives_its_daemon(daemon):
    LOOP_REPORT.unlink(missing_ok=True)
    assert ctl("metrics") == told(f"The recorder has left no report: {LOOP_REPORT} cannot be read.", 1)
    LOOP_REPORT.write_text("loop_behind_seconds 0.0123\ntaken_bytes 12345\n")
    os.utime(LOOP_REPORT, (time.time() - 1000,) * 2)
    status, output, complaint = ctl("metrics")
    assert (status, complaint) == (0, "")
    samples = dict(line.split(" ") for line in output.splitlines() if not line.startswith("#"))
    assert samples["morvex_crec_taken_bytes"] == "12345"
    assert float(samples["morvex_crec_loop_age_seconds"]) >= 1000
    assert float(samples["morvex_crec_loop_behind_seconds"]) >= 1000 - 1.2


def test_call_of_a_daemon_that_was_killed(daemon):
    killed = Daemon(CARDS, SETTINGS).start()
    killed.wait_orders()
    killed.cards("ch 0 offhook")
    dead = killed.active_call(1)["remoteid"]
    assert states() == (0, {dead: "recording"})
    assert killed.kill() == -9
    assert Path("/var/morvex/data/linestatus.dat").exists()
    assert states() == (9, {dead: "unfinished"})
    assert ctl("status")[1].startswith("The recorder is not running: ")

    # What is older than the process is known by the second, so a start of the usual length lies between.
    next_life = Daemon(CARDS, SETTINGS).start(power_up=True)
    next_life.wait_orders()
    next_life.cards("ch 1 offhook")
    alive = next_life.active_call(2)["remoteid"]
    assert states() == (0, {dead: "left by a crash", alive: "recording"})
    assert complete("silence", "") == [alive]
    assert "; 1 call left by a crash; 8 lines ok, 1 call" in "; " + check()[1].partition(" - ")[2]
    assert next_life.stop() == 0


def test_table_that_somebody_locks(daemon):
    """The status comes all the same, and says why there are no calls."""
    query = "SELECT 1 FROM pg_locks l JOIN pg_class c ON c.oid = l.relation WHERE relname = 'activecalls' AND granted"
    lock = ["psql", "-Xq", "-c", "BEGIN; LOCK TABLE ActiveCalls; SELECT pg_sleep(600)"]
    with subprocess.Popen(lock, stdout=subprocess.DEVNULL) as holder:
        wait_until("the lock", lambda: rows(query))
        status, output, _ = ctl("status", "--json")
        _, verdict, _ = check()
        holder.kill()
    assert (status, json.loads(output)["calls"]) == (9, [])
    assert "statement timeout" in json.loads(output)["database_error"]
    assert verdict.startswith("CREC CRITICAL - the recorder is not running; ")
    assert re.search("; the database cannot be read: .*statement timeout", verdict)


def states():
    """The exit status of the status, and the states of the calls that it shows."""
    status, output, _ = ctl("status", "--json")
    return status, {call["call_id"]: call["state"] for call in json.loads(output)["calls"]}
