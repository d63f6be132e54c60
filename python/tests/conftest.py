# SPDX-License-Identifier: Apache-2.0
"""Recordings and sensors of the tool's simulator; ORVA_TOOL names the tool."""

import os
import pathlib
import socket
import subprocess
import sys

import pytest

TOOL = os.environ.get("ORVA_TOOL", "orva")
PATIENCE = 120  # seconds; only a hanging test takes so long


def run_tool(*arguments):
    return subprocess.run([TOOL, *map(str, arguments)], check=True, capture_output=True, timeout=PATIENCE)


def run_python(code, **options):
    """A script of its own: what it printed, and how it ended."""
    done = subprocess.run(
        [sys.executable, "-c", code], capture_output=True, text=True, timeout=PATIENCE, check=False, **options
    )
    assert done.returncode >= 0, f"killed by signal {-done.returncode}: {done.stderr}"
    return done


@pytest.fixture(scope="session")
def recorded(tmp_path_factory):
    """recorded("TS4B", 4): a recording of so many frames, its calibration folder beside it."""
    folder = tmp_path_factory.mktemp("recorded")

    def record(model, frames, *options):
        path = folder / f"{model}_{frames}{''.join(options)}.pcap"
        if not path.exists():
            run_tool("simulate", path, "--model", model, "--frames", frames, *options)
        return path

    return record


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@pytest.fixture
def streaming():
    """streaming("TS6", 50): a simulated sensor that sends at 50 frames a second; its data and command port."""
    sensors = []

    def stream(model, rate, *options):
        port, command_port = free_port(), free_port()
        sensors.append(
            subprocess.Popen(
                [TOOL, "simulate", "--live", "--model", model, "--rate", str(rate), "--port", str(port)]
                + ["--command-port", str(command_port), *options],
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
            )
        )
        return port, command_port

    yield stream
    for sensor in sensors:
        sensor.kill()
        sensor.wait()


def read_pcd(path: pathlib.Path):
    """The structured array of a binary PCD file."""
    import numpy

    header, _, data = path.read_bytes().partition(b"DATA binary\n")
    entries = dict(line.split(maxsplit=1) for line in header.decode().splitlines())
    kinds = [kind.lower() + size for kind, size in zip(entries["TYPE"].split(), entries["SIZE"].split())]
    return numpy.frombuffer(data, list(zip(entries["FIELDS"].split(), kinds)))
