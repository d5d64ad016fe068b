"""Each allocation of one call fails once.

    CAMPAIGN_SHARE    "3/40": the third of forty shares of all cases, dealt by the seed; default "1/700"
    CAMPAIGN_SEED     default 1
    CAMPAIGN_REPORT   a file that gets one JSON line a case

As in test_syscalls.py, with a preloaded library in the place of strace. A daemon without memory may end: then by a
signal within DEATH_S, with its report in err_crec.dat, and what it leaves is what a kill may leave; the next start is
clean. One that goes on has the call whole or says that something went wrong. Either way the next call is whole.
"""

import json
import mmap
import os
import signal
import struct
import subprocess
from pathlib import Path

import pytest

from day import Service, install_tools
from harness import BUILD
from test_crash import ERROR_FILE
from test_syscalls import PAIRS, THREADS, Late, before_call, check_death, check_refused, forget_files
from test_syscalls import mode_of, no_children, pass_call, share_of, start, start_again

SHARE = os.environ.get("CAMPAIGN_SHARE", "1/700")
SEED = os.environ.get("CAMPAIGN_SEED", "1")
REPORT = os.environ.get("CAMPAIGN_REPORT")
DEATH_S = 10
DEATHS = (-signal.SIGABRT, -signal.SIGSEGV)


class Orders:
    """What the library in the daemon is told: see failing.cpp."""

    FILE = Path("/tmp/failing")
    # The process, three threads, the allocation that fails, allocations so far, whether one failed.
    SHAPE = struct.Struct("=7q")

    def __init__(self):
        self.FILE.write_bytes(bytes(self.SHAPE.size))
        with self.FILE.open("r+b") as file:
            self.place = mmap.mmap(file.fileno(), self.SHAPE.size)

    def give(self, daemon, threads, number):
        tids = sorted(int(task.name) for task in Path(f"/proc/{daemon.pid}/task").iterdir())[THREADS[threads]]
        self.SHAPE.pack_into(self.place, 0, 0, *(tids + [0, 0])[:3], number, 0, 0)
        struct.pack_into("=q", self.place, 0, daemon.pid)  # last: from here on it counts

    def take_back(self):
        """How many allocations there were, and whether one failed."""
        struct.pack_into("=q", self.place, 0, 0)
        return self.SHAPE.unpack_from(self.place, 0)[-2:]


@pytest.fixture(scope="module")
def orders():
    install_tools()
    service = Service()
    os.environ["MORVEX_WRAPPER"] = f"env LD_PRELOAD={BUILD / 'tests' / 'libfailing.so'}"
    yield Orders()
    del os.environ["MORVEX_WRAPPER"]
    service.stop()


def count_allocations(orders, daemon, cards, line, threads):
    forget_files()
    orders.give(daemon, threads, 0)
    pass_call(daemon, cards, line)
    no_children(daemon)
    return orders.take_back()[0]


def refuse(orders, daemon, cards, line, mode, case, told):
    """One case. The daemon that is there for the next one."""
    threads, number = case
    before = before_call()
    ERROR_FILE.unlink(missing_ok=True)
    mark = daemon.mark()
    orders.give(daemon, threads, number)
    try:
        pass_call(daemon, cards, line, limit=3)
    except (OSError, AssertionError):
        pass
    told["met"] = bool(orders.take_back()[1])
    if not daemon.running or is_dying(daemon):
        try:
            status = daemon.wait_exit(DEATH_S)
        except subprocess.TimeoutExpired:
            raise AssertionError("neither dead nor alive") from None
        told["died"] = signal.Signals(-status).name if status < 0 else status
        assert status in DEATHS, f"ended with {status}"
        assert ERROR_FILE.exists() and ERROR_FILE.read_text().startswith("Signal SIG"), "died without a report"
        settled = {}
        check_death(daemon, cards, mode, mark, settled, told)
        return start_again(line, mode, settled)
    check_refused(daemon, cards, line, mode, before, mark, "it", told)
    return daemon, cards


def is_dying(daemon):
    """Whether the report of a crash is there, and the end under way."""
    return ERROR_FILE.exists() and ERROR_FILE.read_text().startswith("Signal SIG")


def report(told):
    if REPORT:
        with open(REPORT, "a") as lines:
            lines.write(json.dumps(told) + "\n")


@pytest.mark.parametrize("kind", PAIRS)
def test_allocations(kind, orders):
    line, mode = mode_of(kind)
    daemon, cards = start(mode)
    cases = []
    for threads in THREADS:
        count = count_allocations(orders, daemon, cards, line, threads)
        cases.extend((threads, number) for number in range(1, count + 1))
    forget_files()
    wrong = []
    for case in share_of(cases, SHARE, f"{SEED} {kind}"):
        told = {"kind": kind, "case": f"{case[0]} {case[1]}"}
        try:
            daemon, cards = refuse(orders, daemon, cards, line, mode, case, told)
        except Late:
            told["late"] = True
            daemon.kill()
        except AssertionError as error:
            told["wrong"] = str(error).split("\n")[0]
            wrong.append(f"{told['case']}: {told['wrong']}")
            daemon.kill()
        report(told)
        forget_files()
        if not daemon.running:
            daemon, cards = start(mode)
    assert daemon.stop() == 0
    assert not wrong, "\n".join(wrong)
