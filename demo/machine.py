"""The appliance of the demo, in its sandbox: database, daemon, cards, and the tools that a person would use on them."""

import json
import subprocess
import time
from pathlib import Path

from appliance import BUILD, SOURCE, quote, sql

WORK = Path("/tmp/demo")

CARDSIM = BUILD / "sim" / "cardsim"
CTL = BUILD / "tools" / "morvex_ctl"

START_LIMIT_S = 60
STOP_LIMIT_S = 60


class Failed(Exception):
    """The demo cannot go on; the text says why."""


# -- database --------------------------------------------------------------------------------------------------------


def name_line(line, name):
    """What a user does in the web application: the contact of a line gets a name."""
    sql(f"UPDATE Contacts SET name = {quote(name)} FROM Lines WHERE Contacts.id = contactid AND linenr = {line}")


# -- daemon and cards ------------------------------------------------------------------------------------------------


def log_of(name):
    return WORK / f"daemon-{name}.log"


class Daemon:
    """One life of the daemon. Its log goes to a file that a person can follow."""

    def __init__(self, name):
        self.log = log_of(name)
        # A session of its own: a Ctrl-C is for the demo, which then stops the daemon.
        self.process = subprocess.Popen(
            [BUILD / "src" / "morvex_crec", "debug"],
            stdin=subprocess.DEVNULL,
            stdout=self.log.open("w"),
            stderr=subprocess.STDOUT,
            cwd="/",
            start_new_session=True,
        )

    def wait_started(self):
        deadline = time.monotonic() + START_LIMIT_S
        while "** STARTED **" not in self.log.read_text("utf-8", "replace"):
            if self.process.poll() is not None or time.monotonic() > deadline:
                raise Failed(f"the daemon did not start; the end of its log:\n{self.log_end()}")
            time.sleep(0.1)

    def log_end(self):
        return "\n".join("    " + line for line in self.log.read_text("utf-8", "replace").splitlines()[-15:])

    def stop(self):
        """Ends it as its supervisor would; it finishes what it has in hand first."""
        self.process.terminate()
        try:
            status = self.process.wait(STOP_LIMIT_S)
        except subprocess.TimeoutExpired:
            raise Failed(f"the daemon did not stop; the end of its log:\n{self.log_end()}") from None
        if status != 0:
            raise Failed(f"the daemon ended with status {status}; the end of its log:\n{self.log_end()}")


def start_scenario(name):
    scenario = WORK / f"{name}.sim"
    scenario.write_text((SOURCE / "demo" / f"{name}.sim").read_text())
    return subprocess.Popen([CARDSIM, "run", scenario], stdin=subprocess.DEVNULL, start_new_session=True)


# -- orders ----------------------------------------------------------------------------------------------------------


def calls_in_progress():
    """As `morvex_ctl status --json` tells them."""
    result = subprocess.run([CTL, "status", "--json"], capture_output=True, check=False)
    return json.loads(result.stdout)["calls"]


def status_text():
    """The calls of `morvex_ctl status`, between the health of the lines and what else it shows."""
    text = subprocess.run([CTL, "status"], capture_output=True, check=False, text=True).stdout
    return text.split("\n\n")[1]


def order(*words):
    """The answer to an order, which is or begins with "OK" when it was carried out."""
    result = subprocess.run([CTL, *words], capture_output=True, check=False, text=True)
    return " ".join((result.stdout + result.stderr).splitlines())


def settle():
    """Waits until what has left ActiveCalls is in Calls: both are one piece of work, and orders wait their turn."""
    if order("reconfig") != "OK":
        raise Failed("the daemon does not answer orders")
