"""What the daemon asks others for: the service process, the post-call script, processes, descriptors."""

import os
import resource
import socket
import subprocess
import threading
import time
from contextlib import contextmanager
from pathlib import Path

import pytest

from bench import LOG_BURST, Bench, Row, remoteid_of, rows_of
from harness import order, wait_until
from test_neighbour import NOBODY

CARDS = "card ATP8 1001 8"
SETTINGS = {
    "crec": {"Syn1001_CheckLineStatus": "0,1,1,1,1,1,1,1"},  # the service process is told when one of these is offline
    "s": {"EmailRecs": "1"},  # asks for posts
    "o": {"CalcChecksum": "md5"},
}
WATCHED = iter(range(7, 0, -1))  # a fresh one each time: a line that flickers is not told of
SERVICE = Path("/tmp/morvex")
SCRIPT = Path("/var/morvex/cmd/tracker.php")
GOOD_SCRIPT = '<?php while (($line = fgets(STDIN)) !== false) { if ($line === "exit\\n") exit(0); echo "done\\n"; }\n'


def prepare(_bench):
    SCRIPT.write_text(GOOD_SCRIPT)


def after_start(bench):
    bench.daemon.wait_line("Post done")  # the script's process stays


@contextmanager
def nothing(_bench):
    yield


@contextmanager
def service(answer):
    """A service process whose every connection goes to `answer`; None: connections are never accepted."""
    SERVICE.unlink(missing_ok=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
        listener.bind(str(SERVICE))
        listener.listen(1)
        peers = []
        answered = threading.Event()

        def serve():
            while True:
                try:
                    peer = listener.accept()[0]
                except OSError:
                    return
                peers.append(peer)
                if peer.recv(4096):
                    answer(peer)
                    answered.set()

        if answer is not None:
            threading.Thread(target=serve, daemon=True).start()
        try:
            yield
            assert answer is None or answered.wait(10)
        finally:
            SERVICE.unlink()
            listener.shutdown(socket.SHUT_RDWR)
            for peer in peers:
                peer.close()


@contextmanager
def neighbours_fifo(_bench):
    """User nobody was first under the name of the service socket."""
    SERVICE.unlink(missing_ok=True)
    subprocess.run([*NOBODY, "mkfifo", SERVICE], check=True)
    try:
        yield
    finally:
        SERVICE.unlink()


def served(answer):
    return lambda _bench: service(answer)


def slowly(peer):
    time.sleep(2)
    peer.sendall(b"OK")


def refuse(peer):
    peer.sendall(b"ERROR 7")


def hang_up(peer):
    peer.shutdown(socket.SHUT_RDWR)


def message(bench):
    """A line goes offline, which the service process is to hear; a call goes on beside it."""
    mark = bench.daemon.mark()
    bench.cards.do(f"ch {next(WATCHED)} state offline")
    bench.daemon.wait_line("Signal: sysinfo", mark)
    began = time.monotonic()
    bench.one_call()
    assert time.monotonic() - began < 4  # beside the message, not behind it


@contextmanager
def no_descriptor(bench):
    """The process may have no descriptor beyond those that it has."""
    bench.settle()
    open_ones = {int(name) for name in os.listdir(f"/proc/{bench.daemon.pid}/fd")}
    lowest_free = next(number for number in range(len(open_ones) + 1) if number not in open_ones)
    soft, hard = resource.prlimit(bench.daemon.pid, resource.RLIMIT_NOFILE)
    resource.prlimit(bench.daemon.pid, resource.RLIMIT_NOFILE, (lowest_free, hard))
    try:
        yield
    finally:
        resource.prlimit(bench.daemon.pid, resource.RLIMIT_NOFILE, (soft, hard))


def order_without_descriptors(bench):
    """The control socket cannot take the connection, and is given up until the next start."""
    mark = bench.daemon.mark()
    try:
        assert order("warm up") == ""
    except ConnectionError:
        pass  # as the socket goes
    bench.daemon.wait_line("reactor exit", mark)


def post_without_fork(bench):
    """The script's process cannot be made, and is asked for again."""
    for pid in children(bench.daemon):
        subprocess.run(["kill", "-KILL", str(pid)], check=True)
    wait_until("it is gone", lambda: not children(bench.daemon))
    mark = bench.one_call()
    bench.daemon.wait_line("Post done", mark)
    bench.daemon.finished_call(remoteid_of(bench.file_of(mark)))


def children(daemon):
    """Processes that the daemon has started and that run."""
    command = ["ps", "-o", "pid=,state=", "--ppid", str(daemon.pid)]
    listed = subprocess.run(command, capture_output=True, text=True, check=False)
    return [int(line.split()[0]) for line in listed.stdout.splitlines() if line.split()[1] != "Z"]


def no_fork(bench):
    return bench.control.during(refuse_fork=2)


def no_popen(bench):
    return bench.control.during(refuse_popen=1)


def files_without_a_sum(bench):
    call = bench.daemon.finished_call(remoteid_of(bench.file_of(bench.one_call())))
    assert call["callextra"] == "chk: \r\n"


def orders_in_a_loop(bench):
    """A client orders as fast as it is answered, while a call is recorded whole. Its orders are counted in the log, and
    leave nothing behind."""
    began = time.monotonic()
    mark = bench.daemon.mark()
    answers = []
    over = threading.Event()

    def order_on():
        while not over.is_set():
            answers.append(order(ORDER))

    with bench.flat_memory():
        client = threading.Thread(target=order_on)
        client.start()
        try:
            bench.clean_call(blocks=12)
        finally:
            over.set()
            client.join()
        assert set(answers) == {UNKNOWN} and len(answers) > 5 * LOG_BURST
        for text in LOG_OF_AN_ORDER:
            bench.check_flood(text, len(answers), mark, began)


ORDER = "flood of orders"
UNKNOWN = "E0: Unknown commmand\n"
LOG_OF_AN_ORDER = (
    f"Msg received: {ORDER}",
    "Command: 'flood' Param: 'of orders'",
    f"reactor reply: {UNKNOWN.strip()}",
)
ROWS = [
    Row("service socket absent", nothing, ["Error connecting to socket"], story=message),
    Row("a neighbour's FIFO at the service socket's name", neighbours_fifo, ["Error connecting to socket"], story=message),
    Row("service that never accepts", served(None), ["Error reading reply from socket"], story=message),
    Row("service that never answers", served(lambda peer: None), ["Error reading reply from socket"], story=message),
    Row("service that answers after 2 s", served(slowly), story=message),
    Row("service that refuses", served(refuse), ["Error socket reply: ERROR 7"], story=message),
    Row("service that hangs up", served(hang_up), ["Error socket reply: "], story=message),
    Row(
        "fork refused to the post-call script",
        no_fork,
        ["LineCom. Ensure program is started failed"],
        story=post_without_fork,
    ),
    Row("popen refused to a checksum", no_popen, story=files_without_a_sum),
    Row(
        "a client that orders in a loop",
        nothing,
        [f"{{n}} messages like this one left out: {text}" for text in LOG_OF_AN_ORDER],
        story=orders_in_a_loop,
    ),
    Row(
        "no descriptor left for a recording",
        no_descriptor,
        # That nothing is there cannot be found out without a descriptor either.
        [
            "C-api error at OpenAudioFile: Too many open files",
            "C-api error at Sync of recording file: Too many open files",
        ],
        story=Bench.row_without_audio,
    ),
    Row(
        "no descriptor left for an order",
        no_descriptor,
        ["Socket communication error: accept: Too many open files"],
        story=order_without_descriptors,
        clean=False,  # last, as the listening socket has gone with it
    ),
]


@pytest.mark.parametrize("row", rows_of(ROWS))
def test_fault(bench, row):
    bench.run(row)
