#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""What a frame costs in Python, against the loop of the C++ example that steps through a recording.

Both are run by turns on two recordings of different length, so that what happens once, such as the start, the
calibration and the index, falls out of the difference. Prints the ratio of the best wall-clock times; processor time
stands beside it, in which the example's idle replay thread counts too.

    PYTHONPATH=build/release/python python/bench/replay_ratio.py build/release
"""

import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SHORT, LONG, ROUNDS = 10, 110, 7
# The work of the example for each cloud: how many points are inside the limits, and a line.
LOOP = """
import sys
import numpy
import orva
limits = dict(distance=(0.5, 200), azimuth=(-60, 60), elevation=(-45, 45), mounting=orva.Mounting(z=1.8))
for cloud in orva.replay(sys.argv[1], model="TS4B", **limits):
    points = cloud.points
    inside = numpy.count_nonzero(points["x"]) if len(sys.argv) > 2 else 0
    print(f"frame {cloud.frame}: {len(points)} points, {inside} inside, {cloud.temperature_a:.1f} degrees Celsius")
"""


def seconds(command: list) -> tuple:
    """Wall-clock and processor time."""
    start = time.perf_counter()
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode:
        sys.exit(f"failed: {command}")
    return time.perf_counter() - start, usage.ru_utime + usage.ru_stime


def main() -> None:
    build = Path(sys.argv[1] if len(sys.argv) > 1 else "build/release")
    with tempfile.TemporaryDirectory() as folder:
        commands = {}
        for frames in (SHORT, LONG):
            path = Path(folder) / f"{frames}.pcap"
            subprocess.run(
                [build / "tools/orva/orva", "simulate", path, "--model", "TS4B", "--frames", str(frames)],
                check=True,
                stderr=subprocess.DEVNULL,
            )
            calibration = path.with_suffix(".calib")
            commands["C++ example", frames] = [build / "examples/02_replay_all_frames", "33", path, calibration]
            commands["Python, iterating", frames] = [sys.executable, "-c", LOOP, path]
            commands["Python, counting too", frames] = [sys.executable, "-c", LOOP, path, "count"]
        times: dict = {key: [] for key in commands}
        for _ in range(ROUNDS):
            for key, command in commands.items():
                times[key].append(seconds(command))
    names = list(dict.fromkeys(name for name, _ in commands))
    best = {key: [min(column) for column in zip(*values)] for key, values in times.items()}
    frame = {
        name: [(b - a) / (LONG - SHORT) * 1e6 for a, b in zip(best[name, SHORT], best[name, LONG])] for name in names
    }
    wall, _ = frame["C++ example"]
    for name in names:
        print(
            f"{name:22} {frame[name][0]:7.0f} us a frame, {frame[name][0] / wall:.2f} of the example; "
            f"processor {frame[name][1]:.0f} us"
        )


if __name__ == "__main__":
    main()
