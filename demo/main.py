"""The demo inside its sandbox: runs the daemon three times over simulated calls, and checks what came of each call.

usage: main.py [--keep] FOLDER      FOLDER gets the recordings and a page about them

Exit status: 0 when each call left what it should, 1 when one did not, 130 after a Ctrl-C.
"""

import argparse
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import appliance
import compare
import machine
import report
import speech
from calls import ALAW, COMMON_SETTINGS, LINE_NAMES, RUNS
from machine import WORK, Failed
from watch import Watch

# How much of a call an order to silence it for two seconds may take: a block of audio and the watching's own pace.
SILENCED_S = (1.0, 5.0)

began = time.monotonic()


def say(text):
    stamp = f"{time.monotonic() - began:5.1f} s  "
    print(stamp + text.replace("\n", "\n" + " " * len(stamp)), flush=True)


# -- a run -----------------------------------------------------------------------------------------------------------


def make_speeches():
    for run in RUNS:
        for call in run.calls:
            for each in call.speeches:
                speech.make(each, WORK)


def play(run, first, keep):
    """One life of the daemon, from its start to its stop; with `keep` it goes on and is returned."""
    scenario = None
    say(f"the daemon starts: {run.title}. It gives the cards ten seconds to come up.")
    appliance.store_settings(run.settings)
    daemon = machine.Daemon(run.name)
    try:
        if first:
            make_speeches()
            say("meanwhile: espeak-ng has spoken all calls")
        daemon.wait_started()
        for line, name in LINE_NAMES.items():
            machine.name_line(line, name)
        say(f"the daemon runs; the cards play the scenario demo/{run.name}.sim")
        scenario = machine.start_scenario(run.name)
        Watch(run, say).follow(scenario)
    except BaseException:
        if scenario is not None:
            scenario.kill()
        daemon.process.kill()
        raise
    if keep:
        machine.settle()
        return daemon
    daemon.stop()
    return None


# -- checking --------------------------------------------------------------------------------------------------------


def compare_audio(call, path):
    speeches = [speech.spoken(each, WORK) for each in call.speeches]
    if call.encoding != ALAW:
        return compare.alike(path, WORK / f"{call.speeches[0].name}.al", speeches[0])
    audio = compare.audio_of(path)
    if len(speeches) == 2:
        return compare.exact_stereo(audio, speeches)
    if call.silenced:
        return compare.exact_but_silenced(audio, speeches[0], *SILENCED_S)
    return compare.exact(audio, speeches[0])


def check_row(call, row):
    """What the row says against what was played."""
    found = {key: row[key] for key in ("direction", "remote", "local", "encoding")}
    wanted = {"direction": call.direction, "remote": call.remote, "local": call.local, "encoding": call.encoding}
    for key, value in wanted.items():
        if found[key] != value:
            raise compare.Different(f"its {key} is {found[key]!r}, not {value!r}")
    if call.line_name not in row["filename"]:
        raise compare.Different(f"its file is not named after the line {call.line_name}")
    if not appliance.path_of(row).exists():
        raise compare.Different(f"its file {row['filename']} is missing")
    if report.checksum_of(row) != report.sha256(appliance.path_of(row)):
        raise compare.Different("its checksum is not that of its file")


def check_call(call, rows):
    """What was found; raises Different."""
    rows = [row for row in rows if row["linenr"] == call.line]
    if not call.speeches:
        left = [path.name for path in appliance.RECORDINGS.rglob(f"*_{call.line:03}_*")]
        if rows or left:
            raise compare.Different(f"it should not have been kept, but left {left or rows}")
        return compare.Found("nothing was kept of it")
    if len(rows) != 1:
        raise compare.Different(f"{len(rows)} recordings of it were kept, not one")
    check_row(call, rows[0])
    return compare_audio(call, appliance.path_of(rows[0]))


def judge(call, rows, log):
    """The verdict on a call, by the rows and the log of its run."""
    own = [row for row in rows if row["linenr"] == call.line and appliance.path_of(row).exists()]
    seen = {"row": own[0] if len(own) == 1 else None, "log": report.log_of(call.line, log)}
    try:
        found = check_call(call, rows)
    except compare.Different as why:
        return report.Judged(call, f"WRONG: {why}", **seen)
    return report.Judged(call, found.verdict, found=found, **seen)


def judge_run(run, rows):
    log = machine.log_of(run.name).read_text("utf-8", "replace")
    return [judge(call, rows, log) for call in run.calls]


# -- keeping it running ----------------------------------------------------------------------------------------------


def stay():
    """Leaves daemon and cards to a person."""
    print(
        "\nThe daemon and its cards go on. From another terminal of this machine:\n"
        "  script/sandbox-enter --in demo/main.py\n"
        "opens a shell in here, with cardsim, morvex_ctl, morvex_display and psql.\n"
        "In here:\n"
        "  cardsim ch 5 offhook               line 6 is lifted\n"
        "  cardsim ch 5 dtmf 0301112223       it dials\n"
        f"  cardsim ch 5 play file {WORK}/outgoing.al\n"
        "  morvex_ctl status                  the call in progress\n"
        "  cardsim ch 5 onhook                it is over; from 3 seconds on it leaves a row in Calls,\n"
        "                                     and a file in /recordings\n"
        '  psql -c "SELECT linenr, remote, duration, filename FROM Calls"\n'
        f"  tail -f {machine.log_of(RUNS[-1].name)}     the daemon's log",
        flush=True,
    )
    if sys.stdin.isatty():
        print("This terminal is in here too. Leave it by exit, which ends the demo.", flush=True)
        signal.signal(signal.SIGINT, signal.SIG_IGN)  # a Ctrl-C is for what runs in the shell
        path = f"{machine.CARDSIM.parent}:{machine.CTL.parent}:{os.environ['PATH']}"
        environment = {**os.environ, "PATH": path, "PS1": "demo# "}
        subprocess.run(["bash", "--norc", "-i"], env=environment, cwd=WORK, check=False, preexec_fn=heed_ctrl_c)
    else:
        print("It ends with Ctrl-C.", flush=True)
        signal.pause()


def heed_ctrl_c():
    signal.signal(signal.SIGINT, signal.SIG_DFL)


# -- the whole -------------------------------------------------------------------------------------------------------


def demo(folder, keep):
    WORK.mkdir()
    Path("/var/morvex/conf/serial").write_text("DEMO1\n")
    appliance.store_settings(COMMON_SETTINGS)
    rows_by_run = []
    daemon = None
    for run in RUNS:
        known = {row["id"] for rows in rows_by_run for row in rows}
        daemon = play(run, first=run is RUNS[0], keep=keep and run is RUNS[-1])
        rows_by_run.append([row for row in appliance.rows("SELECT * FROM Calls ORDER BY id") if row["id"] not in known])

    rows = sorted((row for rows in rows_by_run for row in rows), key=lambda row: (row["startdate"], row["linenr"]))
    print(f"\nThe table Calls:\n\n{report.calls_table(rows)}\n", flush=True)
    judged = [each for run, run_rows in zip(RUNS, rows_by_run) for each in judge_run(run, run_rows)]
    print(report.compared_table(judged), flush=True)

    report.deliver(judged, rows, folder)
    print(f"\n{len(rows)} recordings are in {folder}; to see and to hear them open {folder}/index.html", flush=True)
    if daemon is not None:
        stay()
        daemon.stop()
    return sum(each.found is None for each in judged)


def main():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--keep", action="store_true")
    parser.add_argument("folder", type=Path)
    arguments = parser.parse_args()
    try:
        wrong = demo(arguments.folder, arguments.keep)
    except KeyboardInterrupt:
        print("\ndemo: ended by Ctrl-C", file=sys.stderr)
        return 130
    except Failed as why:
        print(f"demo: {why}", file=sys.stderr)
        return 1
    if wrong:
        print(f"demo: {wrong} of the calls did not leave what they should", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
