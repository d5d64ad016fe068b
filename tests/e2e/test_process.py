"""The life of the process: arguments, background, signals, exit codes, and the starts that do not come to recording."""

import os
import signal
import subprocess
import time
from pathlib import Path

import pytest

from harness import BUILD, DRIVER, HEADER_BYTES, Daemon, path_of, rows, server, wait_until

CARDS = "card ATP8 1001 2"

CONF = Path("/var/morvex/conf")
DATA = Path("/var/morvex/data")
PID_FILE = Path("/var/run/morvex_crec.pid")
ERROR_FILE = DATA / "err_crec.dat"
COMMAND = str(BUILD / "src" / "morvex_crec")


@pytest.fixture(autouse=True)
def clean_machine():
    yield
    for path in (CONF / "opt_cluster", CONF / "crec_disabled", DATA / "node_active", ERROR_FILE, PID_FILE):
        path.unlink(missing_ok=True)


def run(*arguments, limit=60):
    return subprocess.run([COMMAND, *arguments], capture_output=True, text=True, timeout=limit, cwd="/")


def is_gone(pid):
    """Whether a process that is not our child has ended; it may still wait for its parent to notice."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] == "Z"
    except FileNotFoundError:
        return True


def status_of(pid):
    return dict(line.split(":\t", 1) for line in Path(f"/proc/{pid}/status").read_text().splitlines())


def catches_stop(pid):
    """Whether the process has its handlers of SIGTERM and SIGINT; before that it dies of the one and ignores the other."""
    caught = int(status_of(pid)["SigCgt"], 16)
    return all(caught >> (number - 1) & 1 for number in (signal.SIGTERM, signal.SIGINT))


# -- starts that end at once -----------------------------------------------------------------------------------------


@pytest.fixture
def no_driver():
    away = DRIVER.with_name("shcti.away")
    DRIVER.mkdir(parents=True, exist_ok=True)
    DRIVER.rename(away)
    yield
    away.rename(DRIVER)


def test_debug_without_card_driver(no_driver):
    result = run("debug")
    assert (result.returncode, result.stdout) == (
        0,
        "Opened in debug mode.....\nNot starting because card driver not there\n",
    )


@pytest.mark.parametrize("arguments", [[], ["nofork"], ["unknown"]])
def test_without_card_driver(no_driver, arguments):
    result = run(*arguments)
    assert (result.returncode, result.stdout) == (0, "")
    assert not PID_FILE.exists() and not ERROR_FILE.exists()


# -- cluster ---------------------------------------------------------------------------------------------------------


@pytest.fixture
def passive():
    """A daemon that waits as a passive node."""
    DRIVER.mkdir(parents=True, exist_ok=True)
    (CONF / "opt_cluster").touch()
    daemon = Daemon(CARDS).launch()
    daemon.wait_line("Not starting, this node is passive, waiting until we become primary or until termination")
    wait_until("signal handlers", lambda: catches_stop(daemon.pid))
    yield daemon
    if daemon.running:
        daemon.kill()


PASSIVE_LOG = [
    "Opened in debug mode.....",
    "Not starting, this node is passive, waiting until we become primary or until termination",
    "MORVEX-CREC exit",
]


def test_passive_node_that_becomes_primary_ends(passive):
    time.sleep(1)  # two looks at the file
    assert passive.running
    (DATA / "node_active").touch()
    assert passive.wait_exit() == 0
    assert passive.log_after(0) == PASSIVE_LOG


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_passive_node_ends_on_a_signal(passive, number):
    passive.process.send_signal(number)
    assert passive.wait_exit() == 0
    assert passive.log_after(0) == PASSIVE_LOG


def test_passive_node_stays_in_the_foreground():
    (CONF / "opt_cluster").touch()
    process = subprocess.Popen([COMMAND])
    wait_until("signal handlers", lambda: catches_stop(process.pid))
    assert process.poll() is None and not PID_FILE.exists()
    process.terminate()
    assert process.wait(10) == 0


def test_active_node_starts():
    (CONF / "opt_cluster").touch()
    (DATA / "node_active").touch()
    daemon = Daemon(CARDS).launch()
    daemon.wait_line("MORVEX-CREC start")
    daemon.kill()


# -- starts that idle ------------------------------------------------------------------------------------------------


def test_disabled_by_file_idles_until_the_signal():
    (CONF / "crec_disabled").touch()
    daemon = Daemon(CARDS).launch()
    daemon.wait_line("waiting for exit")
    assert "Card recording is disabled using file" in daemon.log_after(0)
    assert daemon.running
    mark = daemon.mark()
    assert daemon.stop() == 0
    assert daemon.log_after(mark) == ["Closing extra threads", "MORVEX-CREC exit"]


def test_disabled_in_the_database_idles_until_the_signal():
    daemon = Daemon(CARDS, {"s": {"crec": "0"}}).launch()
    daemon.wait_line("waiting for exit")
    assert daemon.stop() == 0


def test_stop_while_waiting_for_cards():
    daemon = Daemon("", {"crec": {"CardList": "Syn1001"}}).launch()
    daemon.wait_line("No cards found")
    mark = daemon.mark()
    assert daemon.stop() == 2
    assert daemon.log_after(mark) == ["Closing extra threads", "MORVEX-CREC exit"]
    assert rows("SELECT value FROM Configs WHERE param = 'CardList'") == [{"value": ""}]


def test_database_unreachable():
    daemon = Daemon(CARDS)
    server("stop")
    try:
        started = time.monotonic()
        daemon.launch()
        assert daemon.wait_exit(limit=120) == 1
        assert time.monotonic() - started > 50  # one attempt a second, for a minute
        assert ERROR_FILE.read_text() == "No database connection"
    finally:
        server("start")
    assert "Closing extra threads" not in daemon.log_after(0)


# -- background ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("arguments", [[], ["unknown"]])
def test_into_the_background(arguments):
    (CONF / "crec_disabled").touch()
    Daemon(CARDS)  # cards and settings alone
    result = run(*arguments)
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    pid = int(wait_until("pid file", lambda: PID_FILE.exists() and PID_FILE.read_text()).strip())
    assert PID_FILE.read_text() == f"{pid}\n"
    # The last step of going to the background, long after the pid file is written.
    wait_until("file mode mask", lambda: status_of(pid)["Umask"] == "0000")
    assert catches_stop(pid)
    assert int(status_of(pid)["SigIgn"], 16) >> (signal.SIGPIPE - 1) & 1
    assert os.readlink(f"/proc/{pid}/cwd") == "/"
    assert [os.readlink(f"/proc/{pid}/fd/{fd}") for fd in (0, 1, 2)] == ["/dev/null"] * 3
    assert os.getsid(pid) == pid
    os.kill(pid, signal.SIGTERM)
    wait_until("end of the daemon", lambda: is_gone(pid))


def test_nofork_stays_in_the_foreground():
    (CONF / "crec_disabled").touch()
    Daemon(CARDS)
    process = subprocess.Popen([COMMAND, "nofork"], stdout=subprocess.PIPE)
    wait_until("worker threads", lambda: int(status_of(process.pid)["Threads"]) >= 4)
    assert not PID_FILE.exists()
    process.terminate()
    output, _ = process.communicate(timeout=30)
    assert (process.returncode, output) == (0, b"")  # the log went to syslog


@pytest.mark.parametrize("marker", [(CONF / "crec_disabled"), (CONF / "opt_cluster")])
def test_signals_that_the_parent_blocked_or_ignored(marker):
    marker.touch()
    Daemon(CARDS)
    process = subprocess.Popen(["env", "--ignore-signal=CHLD", "--block-signal", COMMAND, "nofork"])
    wait_until("signal handlers", lambda: catches_stop(process.pid))
    assert int(status_of(process.pid)["SigBlk"], 16) == 0
    process.terminate()
    assert process.wait(30) >= 0  # it heard of the stop, and ended by itself


# -- with cards ------------------------------------------------------------------------------------------------------


def test_commands_have_a_status_when_the_parent_ignored_its_children(monkeypatch):
    monkeypatch.setenv("MORVEX_WRAPPER", "env --ignore-signal=CHLD " + os.environ.get("MORVEX_WRAPPER", ""))
    daemon = Daemon(CARDS, {"o": {"RecEnc": "mp3"}}).start()
    daemon.cards("ch 0 play counting", "ch 0 offhook")
    active = daemon.active_call(1)
    running = Path(f"{path_of(active)}.g711")
    wait_until("audio", lambda: running.exists() and running.stat().st_size > HEADER_BYTES)
    daemon.cards("ch 0 onhook")
    assert daemon.finished_call(active["remoteid"])["encoding"] == 801
    assert daemon.stop() == 0


def test_driver_that_does_not_start_idles_with_failure():
    daemon = Daemon("start_failures 1000 no such board\n" + CARDS).launch()
    daemon.wait_line("waiting for exit", limit=120)
    assert daemon.stop() == 1


def test_run_from_start_to_stop():
    daemon = Daemon(CARDS, {"o": {"TdmLogApi": "1"}}).start()
    assert rows("SELECT part FROM Configs WHERE param = 'CardDriverVersion'") == [{"part": "crec"}]
    assert Path("/recordings/log").is_dir()
    assert (DATA / "linestatus.dat").exists()
    sign = DATA / "crec_event"
    daemon.cards("ch 0 offhook")
    daemon.active_call(1)
    assert sign.read_bytes() == b"" and time.time() - sign.stat().st_mtime < 30
    mark = daemon.mark()
    assert daemon.stop() == 0
    log = daemon.log_after(mark)
    assert log[-2:] == ["Closing extra threads", "MORVEX-CREC exit"]
    assert "reactor exit" in log and "waiting for exit" not in log
    assert not (DATA / "linestatus.dat").exists()


def test_threads_have_names():
    daemon = Daemon(CARDS).start()
    daemon.cards("ch 0 offhook")
    daemon.active_call(1)
    tasks = Path(f"/proc/{daemon.pid}/task").iterdir()
    names = sorted((task / "comm").read_text().strip() for task in tasks)
    others = ("morvex_crec", "simcards")  # the main thread and whoever looks for races; the cards
    assert [name for name in names if name not in others] == ["reactor", "signals", "taker", "worker", "worker"]
    assert daemon.stop() == 0


def test_crash_leaves_its_name_and_dies_of_the_signal():
    (CONF / "crec_disabled").touch()
    daemon = Daemon(CARDS).launch()
    daemon.wait_line("waiting for exit")
    daemon.process.send_signal(signal.SIGABRT)
    assert daemon.wait_exit() == -signal.SIGABRT
    assert ERROR_FILE.read_text() == "Signal SIGABRT"
