# SPDX-License-Identifier: Apache-2.0
"""What only shows in a process of its own: Ctrl-C, the interpreter's end, forks."""

import pytest

from conftest import PATIENCE, free_port, run_python

INTERRUPTED = """
import os, signal, threading, time
import orva
pressed = []
def press():
    pressed.append(time.monotonic())
    os.kill(os.getpid(), signal.SIGINT)
best = 9
for _ in range(5):  # the machine may be busy: what counts is the best
    try:
        with orva.live(model="NV2", port={port}) as sensor:
            threading.Timer(0.1, press).start()
            {wait}
        raise SystemExit("not interrupted")
    except KeyboardInterrupt:
        best = min(best, time.monotonic() - pressed.pop())
print(best)
"""


@pytest.mark.parametrize(
    "wait",
    [
        "list(sensor)",
        "sensor.take(60)",
        # Another thread is in a wait that only the end of the sensor ends.
        "threading.Thread(target=lambda: list(sensor)).start(); sensor.take()",
    ],
)
def test_ctrl_c_ends_a_wait_within_300_milliseconds(wait):
    done = run_python(INTERRUPTED.format(port=free_port(), wait=wait))
    assert done.returncode == 0, done.stderr
    assert float(done.stdout) < 0.3


def test_ctrl_c_reaches_a_recording_and_leaves_it_usable(recorded):
    code = f"""
import signal
import orva
armed = False
def handler(number, frame):
    if armed:
        raise KeyboardInterrupt
signal.signal(signal.SIGALRM, handler)
recording = orva.open({str(recorded("TS4B", 4))!r}, model="TS4B")
want = [cloud.points.tobytes() for cloud in recording]
interrupted = 0
for k in range(200):
    try:
        armed = True
        signal.setitimer(signal.ITIMER_REAL, 0.0002 + 0.00001 * (k % 50))
        for _ in range(50):
            recording[k % 4]
        armed = False
    except KeyboardInterrupt:
        interrupted += 1
    armed = False
    signal.setitimer(signal.ITIMER_REAL, 0)
    assert recording[k % 3].points.tobytes() == want[k % 3], k
print(interrupted)
"""
    done = run_python(code)
    assert done.returncode == 0, done.stderr
    assert int(done.stdout) > 100


@pytest.mark.parametrize(
    "end",
    [
        "",  # the interpreter's end, with a loop half done
        "raise SystemExit(0)",
        "import sys; sys.exit(0)",
        "del clouds, recording, sensor",
        "cloud = next(clouds); recording.close(); recording.close(); sensor.close(); print(cloud.points['x'][0])",
        "import threading; threading.Thread(target=lambda: list(sensor), daemon=True).start()",
        # A child has no thread of the driver: it says so, ends at once, and can open its own.
        """
import os
child = os.fork()
if child == 0:
    for call in (lambda: recording[0], lambda: sensor.take(), lambda: sensor.imu(), lambda: recording.statistics):
        try:
            call()
            os._exit(1)
        except RuntimeError as error:
            assert "forked" in str(error)
    recording.close()
    assert len(list(orva.replay(path, model="TS4B"))) == 4
    sys.exit(0)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
assert next(clouds).frame == 1
""",
    ],
)
def test_no_end_hangs(recorded, end):
    code = f"""
import sys
import orva
path = {str(recorded("TS4B", 4))!r}
recording = orva.open(path, model="TS4B")
sensor = orva.live(model="TS4B", port={free_port()}, uncalibrated=True)
clouds = iter(recording)
assert next(clouds).frame == 0
{end}
"""
    done = run_python(code)
    assert done.returncode == 0, done.stderr
    assert done.stderr == ""


def test_an_exception_in_a_loop_ends_the_replay(recorded):
    code = f"""
import gc, os
import orva
def threads():
    return len(os.listdir("/proc/self/task"))
before = threads()
try:
    for cloud in orva.replay({str(recorded("TS4B", 4))!r}, model="TS4B"):
        raise KeyError("broken")
except KeyError:
    pass
gc.collect()
assert threads() == before, threads()
"""
    done = run_python(code)
    assert done.returncode == 0, done.stderr
