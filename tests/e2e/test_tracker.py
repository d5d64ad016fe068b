"""The post-call script: a real php at /var/morvex/cmd/tracker.php hears of each finished call, well-behaved or not."""

import os
import time
from pathlib import Path

import pytest

from harness import wait_until

CARDS = "card ATP8 1001 8"
SETTINGS = {"s": {"EmailRecs": "1"}}  # asks for posts
SCRIPT = Path("/var/morvex/cmd/tracker.php")
HEARD = Path("/var/morvex/data/heard")

# What a well-behaved script does: one reply line for each request, and an end at "exit".
LOOP = """<?php
function tell($what) { file_put_contents('/var/morvex/data/heard', $what . "\\n", FILE_APPEND); }
tell('begin ' . getmypid());
while (($line = fgets(STDIN)) !== false) {
  $line = rtrim($line, "\\n");
  tell($line);
  if ($line === 'exit') exit(0);
  %s
}
"""
REPLY_DONE = 'echo "done\\n";'
ONCE = "if (!file_exists('/var/morvex/data/heard.once')) { touch('/var/morvex/data/heard.once'); %s } " + REPLY_DONE


@pytest.fixture(autouse=True)
def fresh(daemon):
    """Each test begins with a new child: the one before dies, and the next message finds it dead."""
    for path in (HEARD, HEARD.with_name("heard.once")):
        path.unlink(missing_ok=True)
    SCRIPT.unlink(missing_ok=True)
    yield
    for pid in children(daemon):
        os.kill(pid, 9)


def children(daemon):
    """Running child processes of the daemon that are php."""
    found = []
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            name, rest = stat.read_text().split("(", 1)[1].rsplit(")", 1)
        except OSError:
            continue
        if rest.split()[1] == str(daemon.pid) and rest.split()[0] != "Z" and name.startswith("php"):
            found.append(int(stat.parent.name))
    return found


def is_running(pid):
    """False for one that is dead and that nobody has waited for."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


def install(body):
    """A script with this answer to a request."""
    SCRIPT.write_text(LOOP % body)


def one_call(daemon):
    """A call that is recorded and finished; its row's id and the log before it."""
    mark = daemon.mark()
    daemon.cards("ch 0 offhook")
    active = daemon.active_call(1)
    daemon.cards("ch 0 onhook")
    return daemon.finished_call(active["remoteid"])["id"], mark


def request(call_id):
    return f"type=crec&act=post&id={call_id}"


def heard():
    """What the script has written down, without the process ids of its starts."""
    text = HEARD.read_text() if HEARD.exists() else ""
    return [line.split(" ")[0] for line in text.splitlines()]


def told(daemon, mark):
    """What the daemon says of the child since, without the lines that only time decides."""
    lines = [line for line in daemon.log_after(mark) if line.startswith(("LineCom", "Call Post", "Post done"))]
    return [line for line in lines if not line.startswith(("LineCom try", "LineCom answer is delayed"))]


def posted(daemon, mark):
    daemon.wait_line("Post done", mark)
    return told(daemon, mark)


def success(call_id, reply="done"):
    return [f"Call Post id={call_id}", f"LineCom reply: {reply}", "Post done"]


def success_after(call_id, *troubles):
    """Each trouble is followed by a restart and another try."""
    lines = [f"Call Post id={call_id}"]
    for trouble in troubles:
        lines += [trouble, "LineCom Restart"]
    return lines + success(call_id)[1:]


def test_each_finished_call_is_told_to_the_same_child(daemon):
    install(REPLY_DONE)
    calls = []
    for _ in range(3):
        call_id, mark = one_call(daemon)
        assert posted(daemon, mark) == success(call_id)
        calls.append(request(call_id))
    assert heard() == ["begin"] + calls
    assert len(children(daemon)) == 1
    pid = children(daemon)[0]
    assert Path(f"/proc/{pid}/cmdline").read_bytes() == b"/usr/bin/php\0/var/morvex/cmd/tracker.php\0"
    # Nothing of the daemon's is open in it: no recording, no socket, no card.
    links = [os.readlink(link) for link in Path(f"/proc/{pid}/fd").iterdir()]
    assert [link for link in links if link.startswith(("/recordings", "/tmp", "socket:"))] == []


def test_child_that_has_died_is_replaced(daemon):
    install(REPLY_DONE)
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id)
    os.kill(children(daemon)[0], 9)
    wait_until("it is gone", lambda: not children(daemon))
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id)
    assert heard().count("begin") == 2


def test_request_is_repeated_after_a_crash(daemon):
    install(ONCE % "exit(7);")
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success_after(call_id, "LineCom. Read empty")
    assert heard() == ["begin", request(call_id)] * 2


def test_error_is_a_failure_and_the_request_is_repeated(daemon):
    install(ONCE % r'echo "ERROR\n"; continue;')
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success_after(call_id, "LineCom program reports ERROR")
    # The child was ended without its exit message.
    assert heard() == ["begin", request(call_id)] * 2


def test_error_within_a_longer_reply_is_none(daemon):
    install('echo "ERROR 5\\n";')
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id, "ERROR 5")


def test_error_output_goes_to_the_log(daemon):
    install('fwrite(STDERR, "a warning"); usleep(300000); ' + REPLY_DONE)
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == [f"Call Post id={call_id}", "LineCom stderr: a warning"] + success(call_id)[1:]


def test_reply_in_pieces_is_joined(daemon):
    install('foreach (["a ", "reply ", "in pieces\\n"] as $piece) { echo $piece; flush(); usleep(200000); }')
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id, "a reply in pieces")


def test_slow_reply_is_waited_for_and_said_to_be_delayed(daemon):
    install("sleep(3); " + REPLY_DONE)
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id)
    delayed = [line for line in daemon.log_after(mark) if line.startswith("LineCom answer is delayed")]
    assert 1 <= len(delayed) <= 3
    assert set(delayed) == {f"LineCom answer is delayed. Msg was: {request(call_id)}"}


def test_other_calls_go_on_while_a_script_is_slow(daemon):
    install("sleep(4); " + REPLY_DONE)
    call_id, mark = one_call(daemon)
    daemon.wait_line(f"Call Post id={call_id}", mark)
    started = time.monotonic()
    second, _ = one_call(daemon)
    assert time.monotonic() - started < 3.5
    daemon.wait_line(f"Call Post id={second}", mark)
    wait_until("both are posted", lambda: told(daemon, mark).count("Post done") == 2)
    assert heard() == ["begin", request(call_id), request(second)]


def test_reply_that_is_too_long_is_a_failure(daemon):
    install(ONCE % "echo str_repeat('x', 3000); flush(); sleep(60);")
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success_after(call_id, "LineCom. Buffer overflow")
    assert heard() == ["begin", request(call_id)] * 2


def test_missing_script_is_told_by_php_and_no_failure(daemon):
    """php says so in a line on standard output, which is a reply like any other; the next call finds it gone."""
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id, f"Could not open input file: {SCRIPT}")
    install(REPLY_DONE)
    wait_until("it is gone", lambda: not children(daemon))
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id)
    assert heard() == ["begin", request(call_id)]


def test_stop_ends_the_child(daemon):
    """From here on each test ends its daemon."""
    install(REPLY_DONE)
    call_id, mark = one_call(daemon)
    assert posted(daemon, mark) == success(call_id)
    [pid] = children(daemon)
    assert daemon.stop() == 0
    wait_until("the child is gone", lambda: not is_running(pid))
    assert heard() == ["begin", request(call_id)]  # by a signal, without its exit message


def start_again(daemon):
    """A new process, as the test before has ended the one before."""
    mark = daemon.mark()
    daemon.launch()
    daemon.wait_line("** STARTED **", mark)


def test_stop_lets_a_busy_script_hear_of_all_calls(daemon):
    """Together the answers take longer than a script that is silent is given."""
    start_again(daemon)
    install("sleep(3); " + REPLY_DONE)
    calls = [one_call(daemon)[0] for _ in range(5)]
    mark = daemon.mark()
    assert daemon.stop() == 0
    assert heard() == ["begin"] + [request(call_id) for call_id in calls]
    assert told(daemon, mark)[-1] == "Post done"


def test_stop_gives_up_a_silent_script(daemon):
    start_again(daemon)
    install("sleep(1000);")
    calls = [one_call(daemon)[0] for _ in range(2)]
    wait_until("the first is under way", lambda: heard() == ["begin", request(calls[0])])
    mark = daemon.mark()
    assert daemon.stop() == 0
    given_up = ["LineCom shutting down, not sending msg", "LineCom SendMsg post failed", "Post done"]
    assert told(daemon, mark) == given_up + [f"Call Post id={calls[1]}"] + given_up
