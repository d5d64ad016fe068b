"""The sandbox as its user sees it: what stays private, and what ends it. One sandbox runs inside the test's own."""

import os
import signal
import subprocess

from harness import SOURCE, wait_until


def sandbox(*command, **options):
    return subprocess.Popen([SOURCE / "script/sandbox", *command], text=True, stdout=subprocess.PIPE, **options)


def test_ctrl_c_reaches_the_command():
    # As from a terminal: the signal goes to the whole group. A command that does not hear it ends by itself.
    # Nothing is substituted behind "ready": bash gives up with 130 when that is what the signal ends.
    command = "trap 'echo interrupted; exit 7' INT; echo ready; for i in {1..100}; do sleep 0.1; done"
    process = sandbox("bash", "-c", command, start_new_session=True)
    assert process.stdout.readline() == "ready\n"
    os.killpg(process.pid, signal.SIGINT)
    assert process.stdout.readline() == "interrupted\n"
    assert process.wait(30) == 7


def test_status_is_that_of_the_command():
    assert sandbox("sh", "-c", "exit 3").wait(30) == 3


def test_what_is_written_to_private_paths_stays_inside():
    paths = ["/recordings/left", "/var/morvex/data/left", "/tmp/left", "/dev/shm/left"]
    assert sandbox("touch", *paths).wait(30) == 0
    assert [path for path in paths if os.path.exists(path)] == []


def test_kill_ends_all_processes_inside():
    process = sandbox("sh", "-c", "sleep 1000 & echo ready; wait")
    assert process.stdout.readline() == "ready\n"
    process.kill()
    # The pipe is closed when the last process that holds it has gone.
    assert process.stdout.read() == ""


def test_second_command_enters_a_sandbox_that_runs():
    process = sandbox("sh", "-c", "echo secret >/recordings/inside; echo ready; exec sleep 999.125")
    assert process.stdout.readline() == "ready\n"
    enter = [SOURCE / "script/sandbox-enter", "--in", "999.125", "cat", "/recordings/inside"]
    assert subprocess.run(enter, check=True, capture_output=True, text=True).stdout == "secret\n"
    assert not os.path.exists("/recordings/inside")
    process.kill()
    wait_until("end of the sandbox", lambda: subprocess.run(enter, capture_output=True, check=False).returncode == 125)
