"""The daemon as a service, with a log daemon that stops reading: it waits as long, and loses no audio meanwhile."""

import socket
import threading
from pathlib import Path

import pytest

from bench import Bench, lasts
from harness import wait_until

CARDS = """card ATP8 1001 8
card ATP8 1002 8
"""
DEV_LOG = Path("/dev/log")
CARRIERS = range(1, 9)
TALKER = 9  # the channel that gives the log something to say
HANG_S = 2


class LogDaemon:
    """Reads /dev/log into the lines of a daemon, but while it hangs."""

    def __init__(self, daemon):
        self.daemon = daemon
        self.reads = threading.Event()
        self.reads.set()
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(DEV_LOG))
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        while True:
            self.reads.wait()
            message = self.socket.recv(65536).decode("utf-8", "backslashreplace")
            with self.daemon.changed:
                # "<13>Nov 22 05:00:00 morvex_crec: text"
                self.daemon.lines.append(message.split(": ", 1)[-1].rstrip("\n\0"))
                self.daemon.changed.notify_all()


@pytest.fixture(scope="module")
def service(request):
    bench = Bench(CARDS, campaign="hangs_log")
    request.module.DAEMON = bench.daemon
    log = LogDaemon(bench.daemon)
    bench.start(argument="nofork")
    yield bench, log
    bench.stop()


def test_log_daemon_that_hangs_holds_up_all_lines_as_long(service):
    bench, log = service
    before = bench.held()

    def hang():
        log.reads.clear()
        # More than the socket holds.
        waiting = int(Path("/proc/sys/net/unix/max_dgram_qlen").read_text()) + 5
        for _ in range(waiting):
            bench.cards.do(f"ch {TALKER} dtmf 1")
        lasts(HANG_S, "the daemon waits for room in the log's socket", lambda: bench.waits_in("unix_wait_for_peer"))
        log.reads.set()

    bench.count_bytes("log unread", CARRIERS, hang)
    assert bench.daemon.running
    bench.clean_call()
    wait_until("as much held as before", lambda: bench.held() == before)
