"""What a conversion inherits from a daemon that has all in use which it ever opens: nothing but its standard descriptors.

A sox in front of the real one writes down what it holds itself and what the daemon holds meanwhile, each as
/proc/PID/fd has it, and the sockets of the machine.
"""

import os
import socket
import threading
from collections import Counter
from contextlib import ExitStack
from pathlib import Path

import pytest

from harness import BLOCK_BYTES, LIMIT_S, Daemon, can_connect, control_client, path_of, rows, sql, wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"o": {"RecEnc": "mp3"}, "s": {"EmailRecs": "1", "DTMF1": "*1", "DTMFact1": "email"}}
RUNNING, CONVERTED = 1, 2  # lines
MAILED = (3, 4, 5, 6)  # their calls have a message for the service each
SILENT_CLIENTS = 6  # one after the other has the five seconds in which it may speak

TOOLS = Path("/tmp/tools")
SEEN = Path("/tmp/seen")
SOX = f"""#!/bin/sh
mkdir {SEEN}/$$
(
  cd {SEEN}/$$ && exec >own  # not in the shell that is looked at
  ls -l /proc/$$/fd
  ls -l /proc/%d/fd >daemon
  cat /proc/net/unix >sockets
  echo "$1" >source
)
exec /usr/bin/sox "$@"
"""

SCRIPT = Path("/var/morvex/cmd/tracker.php")
HEARD = Path("/tmp/heard")
NEVER_REPLIES = f"<?php fgets(STDIN); touch('{HEARD}'); sleep(1000);"

STREAM, DATAGRAM = "0001", "0002"
IN_USE = Counter(
    {
        (DATAGRAM, ""): 1,  # the log
        (STREAM, ""): 2,  # database and service
        (STREAM, "/tmp/morvex_crec"): 2,  # the socket and a connection
        "pipe": 4,  # the post-call script's three and the conversion's
        "recording": 1,
    }
)


def listener(path, kind):
    Path(path).unlink(missing_ok=True)
    made = socket.socket(socket.AF_UNIX, kind)
    made.bind(path)
    return made


class Log:
    """A log daemon, whose lines the daemon under test gets for its own."""

    def __init__(self, daemon):
        self.daemon = daemon
        self.socket = listener("/dev/log", socket.SOCK_DGRAM)
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        while True:
            message = self.socket.recv(65536).decode("utf-8", "backslashreplace")
            with self.daemon.changed:
                self.daemon.lines.append(message.split(": ", 1)[-1].rstrip("\n\0"))
                self.daemon.changed.notify_all()


@pytest.fixture
def daemon(request, monkeypatch):
    monkeypatch.setenv("PATH", f"{TOOLS}:{os.environ['PATH']}")
    daemon = request.module.DAEMON = Daemon(CARDS, SETTINGS)
    SCRIPT.write_text(NEVER_REPLIES)
    Log(daemon)
    daemon.launch("nofork", power_up=False)
    for folder in (TOOLS, SEEN):
        folder.mkdir()
    (TOOLS / "sox").write_text(SOX % daemon.pid)
    (TOOLS / "sox").chmod(0o755)
    daemon.wait_line("** STARTED **")
    wait_until("connection to the control socket", can_connect)
    for line in MAILED:
        contact = rows(f"SELECT contactid FROM Lines WHERE linenr = {line}")[0]["contactid"]
        sql(f"INSERT INTO Users (accid) VALUES ({line}); INSERT INTO UserPhones VALUES ({line}, {contact})")
    yield daemon
    if daemon.running:
        daemon.kill()


def begin(daemon, line):
    """A call that is recorded; its row."""
    daemon.cards(f"ch {line - 1} play counting", f"ch {line - 1} offhook")
    active = daemon.active_call(line)
    file = Path(f"{path_of(active)}.g711")
    wait_until(f"audio in {file}", lambda: file.exists() and file.stat().st_size > BLOCK_BYTES)
    return active


def descriptors(listed):
    """What each descriptor stands for, of the lines of ls."""
    found = [line.split(" -> ") for line in listed.splitlines() if " -> " in line]
    return {int(name.split()[-1]): link for name, link in found}


def uses(links, sockets):
    """Of what kinds those of these descriptors are that the daemon is to have in use."""
    kinds = {}
    for line in sockets.splitlines()[1:]:
        _, _, _, _, kind, _, inode, *path = line.split()
        kinds[f"socket:[{inode}]"] = (kind, *path) if path else (kind, "")
    found = Counter()
    for link in links:
        if link in kinds:
            found[kinds[link]] += 1
        elif link.startswith("pipe:"):
            found["pipe"] += 1
        elif link.startswith("/recordings/"):
            found["recording"] += 1
    return found


def test_conversion_holds_nothing_of_the_daemons(daemon):
    begin(daemon, RUNNING)
    call = begin(daemon, CONVERTED)
    with ExitStack() as held:
        service = held.enter_context(listener("/tmp/morvex", socket.SOCK_STREAM))
        service.listen(len(MAILED))
        service.settimeout(LIMIT_S)
        mailed = [begin(daemon, line) for line in MAILED]
        for line in MAILED:
            daemon.cards(f"ch {line - 1} dtmf *1")
            daemon.wait_line(f"[{line}] Action to perform: email")
        for line in MAILED:
            daemon.cards(f"ch {line - 1} onhook")
        held.enter_context(service.accept()[0])
        for active in mailed:
            daemon.finished_call(active["remoteid"])
        wait_until("the post-call script", HEARD.exists)
        for _ in range(SILENT_CLIENTS):
            held.enter_context(control_client())
        daemon.cards(f"ch {CONVERTED - 1} onhook")
        daemon.finished_call(call["remoteid"])

    source = f"{path_of(call)}.g711\n"
    [seen] = [file.parent for file in SEEN.glob("*/source") if file.read_text() == source]
    of_daemon = descriptors((seen / "daemon").read_text())
    in_use = uses([of_daemon[fd] for fd in of_daemon if fd > 2], (seen / "sockets").read_text())
    assert not IN_USE - in_use, in_use
    own = descriptors((seen / "own").read_text())
    assert {fd: link for fd, link in own.items() if link != str(TOOLS / "sox")}.keys() == {0, 1, 2}, own
