"""The installed daemon in the background, with another build of the card library in the place of the linked one."""

import os
import re
import signal
import socket
import subprocess
import threading
from pathlib import Path

import pytest

from harness import BUILD, Daemon, rows, wait_until

PREFIX = Path("/tmp/installed")
PID_FILE = Path("/var/run/morvex_crec.pid")


class Syslog:
    """Stands in for the machine's log: takes what reaches /dev/log, which a sandbox does not have otherwise."""

    def __init__(self):
        self.entries = []
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind("/dev/log")
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        while True:
            entry = self.socket.recv(65536).decode()
            # "<13>Nov 20 18:00:00 morvex_crec: text": facility and priority, time, program.
            number, text = re.fullmatch(r"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d [^:]*: (.*)", entry, re.DOTALL).groups()
            self.entries.append((int(number) % 8, text))


@pytest.fixture(scope="module")
def installed():
    subprocess.run(["cmake", "--install", BUILD, "--prefix", PREFIX], check=True, stdout=subprocess.DEVNULL)
    return PREFIX / "sbin" / "morvex_crec"


def test_installed_daemon_carries_no_path(installed):
    dynamic = subprocess.run(["readelf", "-d", installed], check=True, capture_output=True, text=True).stdout
    assert "Shared library: [libshpa3.so]" in dynamic
    assert "RPATH" not in dynamic and "RUNPATH" not in dynamic


def test_display_tool_runs_without_a_card_library(installed):
    tool = installed.parent.parent / "bin" / "morvex_display"
    assert "libshpa3" not in subprocess.run(["ldd", tool], check=True, capture_output=True, text=True).stdout
    text = "Von: 0301234567"
    result = subprocess.run([tool, "--ringing", "-"], input=text, capture_output=True, text=True)
    assert (result.returncode, result.stderr) == (0, "")
    assert "0301234567: taken" in result.stdout


def test_daemon_goes_to_the_background_and_logs_to_syslog(installed):
    syslog = Syslog()
    Daemon("card ATP8 1001 8")
    library = BUILD / "sim" / "no_r2"
    environment = dict(os.environ, LD_LIBRARY_PATH=str(library))
    starter = subprocess.run([installed], env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    assert (starter.returncode, starter.stdout, starter.stderr) == (0, "", "")

    wait_until("start in the log", lambda: (5, "** STARTED **") in syslog.entries)
    assert (5, "SsmClearR2callToneBuf symbol not found") in syslog.entries
    pid = int(PID_FILE.read_text())
    assert PID_FILE.read_text() == f"{pid}\n"
    assert os.readlink(f"/proc/{pid}/exe") == str(installed)
    # A session of its own, and nothing of the starter's terminal.
    assert os.getsid(pid) == pid
    assert [os.readlink(f"/proc/{pid}/fd/{number}") for number in range(3)] == ["/dev/null"] * 3
    assert rows("SELECT value FROM Configs WHERE param = 'CardList'") == [{"value": "Syn1001"}]

    os.kill(pid, signal.SIGTERM)
    wait_until("the end of the process", lambda: not Path(f"/proc/{pid}/exe").exists())
    farewell = (5, "MORVEX-CREC exit")
    wait_until("the end in the log", lambda: farewell in syslog.entries)  # the reader may be behind the process
    assert syslog.entries[-1] == farewell
