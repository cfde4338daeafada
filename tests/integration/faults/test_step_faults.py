# SPDX-License-Identifier: Apache-2.0
"""The program that disturbs a process at one of its steps, tried on small shells."""

import signal

import pytest

from fault_steps import GO, PROGRAM, STEPS, step_faults_of

pytestmark = pytest.mark.tunnel

SHELL = "/bin/dash"


@pytest.fixture
def disturb(make_world):
    """Runs a script with these orders; returns its status and the listed steps."""
    with make_world(bus=False) as world:
        world.put_file(PROGRAM, step_faults_of(world.executable).read_bytes(), mode=0o755)

        def run(script: str, *orders: str) -> tuple[int, list[str]]:
            done = world.run([PROGRAM, "--list", STEPS, *orders, SHELL, "-c", script], check=False)
            return done.status, world.path(STEPS).read_text().splitlines()
        run.world = world
        yield run


def test_steps_are_listed_in_order_but_neither_looks_nor_what_children_do(disturb):
    script = "/bin/sh -c 'echo a > /tmp/child'; exec 3> /tmp/new; echo a >&3; read line < /tmp/new; kill -0 $$; exit 7"
    status, steps = disturb(script)
    assert status == 7
    assert steps == ["1 start a process", "2 open /tmp/new", "3 write /tmp/new"]
    assert disturb.world.path("/tmp/child").read_text() == "a\n"


def test_a_killed_program_has_not_done_the_step(disturb):
    status, steps = disturb("exec 3> /tmp/one 4> /tmp/two", "--kill-at", "2")
    assert status == -signal.SIGKILL
    assert steps == ["1 open /tmp/one", "2 open /tmp/two -> killed before"]
    assert disturb.world.path("/tmp/one").exists() and not disturb.world.path("/tmp/two").exists()


def test_a_program_killed_after_a_step_has_done_it_and_no_more(disturb):
    status, steps = disturb("exec 3> /tmp/one; echo a >&3; echo b >&3", "--kill-after", "2")
    assert status == -signal.SIGKILL
    assert steps == ["1 open /tmp/one", "2 write /tmp/one -> killed after"]
    assert disturb.world.path("/tmp/one").read_text() == "a\n"


def test_a_failing_step_is_left_out_and_the_program_hears_why(disturb):
    script = "exec 3> /tmp/one; echo a >&3 || echo b >&3"
    assert disturb(script, "--fail-at", "2")[1][1] == "2 write /tmp/one -> ENOSPC"
    assert disturb.world.path("/tmp/one").read_text() == "b\n"
    assert disturb(script, "--fail-at", "2", "--errno", "EIO")[1][1] == "2 write /tmp/one -> EIO"


def test_a_process_that_cannot_be_started_is_said_to_be_one(disturb):
    status, steps = disturb("/bin/true; echo a > /tmp/never", "--fail-at", "1")
    assert status == 2 and steps[0] == "1 start a process -> EAGAIN"
    assert not disturb.world.path("/tmp/never").exists()


def test_steps_are_numbered_by_their_words_on_request(disturb):
    script = "exec 3> /tmp/one; echo a >&3; echo b >&3; echo c >&3"
    _, steps = disturb(script, "--only", "write /tmp/one", "--fail-at", "2")
    assert steps[2] == "3 write /tmp/one -> ENOSPC"
    assert disturb.world.path("/tmp/one").read_text() == "a\nc\n"


def test_children_count_on_request_and_die_with_the_program(disturb):
    script = "/bin/sh -c 'echo a > /tmp/one; echo b > /tmp/two'; exit 3"
    status, steps = disturb(script, "--children", "--kill-at", "4")
    assert status == -signal.SIGKILL
    assert steps == ["1 start a process", "2 sh: open /tmp/one", "3 sh: write /tmp/one",
                     "4 sh: open /tmp/two -> killed before"]
    assert not disturb.world.path("/tmp/two").exists()


def test_children_live_on_when_the_program_is_killed_alone(disturb):
    script = "/bin/sh -c 'echo a > /tmp/one; echo b > /tmp/two'; exit 3"
    status, _ = disturb(script, "--children", "--alone", "--kill-at", "2")
    assert status == -signal.SIGKILL
    two = disturb.world.path("/tmp/two")
    disturb.world.poll(lambda: two.exists() and two.read_text() == "b\n", what="the child's work")


def test_only_what_happens_while_the_file_is_there_counts(disturb):
    script = f"exec 3> /tmp/one; exec 4> {GO}; echo a >&3; exec 4>&-; rm {GO}; echo b >&3"
    assert disturb(script, "--while-file", GO)[1] == ["1 write /tmp/one", "2 start a process"]


def test_signals_go_to_the_program_and_its_end_is_passed_on(disturb):
    assert disturb("trap 'exit 5' TERM; kill -TERM $$; exit 6")[0] == 5
    assert disturb("kill -INT $$")[0] == -signal.SIGINT


@pytest.mark.parametrize("orders", [["--kill-at", "none"], ["--errno", "ENOTHING"], ["--what"]], ids=" ".join)
def test_orders_that_make_no_sense_are_refused(disturb, orders):
    done = disturb.world.run([PROGRAM, *orders, SHELL, "-c", "exit 0"], check=False)
    assert done.status == 2 and done.stderr.endswith("of such a call\n")


def test_a_program_that_is_not_there_is_an_error(disturb):
    done = disturb.world.run([PROGRAM, "/nowhere/nothing"], check=False)
    assert done.status == 127 and "/nowhere/nothing: No such file or directory" in done.stderr


def test_all_threads_are_followed(disturb):
    script = "import threading; t = threading.Thread(target=lambda: open('/tmp/one', 'w')); t.start(); t.join()"
    orders = ["--only", "open /tmp/one", "--fail-at", "1"]
    done = disturb.world.run([PROGRAM, *orders, "/usr/bin/python3", "-Ic", script], check=False)
    assert "PermissionError" in done.stderr
