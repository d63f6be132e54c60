# SPDX-License-Identifier: Apache-2.0
"""An archive on a real cluster of two workers, one of which is killed; run by scripts/prove-archive."""

import json
import pathlib
import shutil
import signal
import subprocess
import sys
import time

import pytest

from conftest import PATIENCE, TOOL

CONVERT = pathlib.Path(__file__).parents[1] / "examples" / "convert_archive.py"


def wait_for(what, process):
    deadline = time.monotonic() + PATIENCE
    while not (found := what()):
        assert process.poll() is None and time.monotonic() < deadline, "the other side has ended, or hangs"
        time.sleep(0.005)
    return found


@pytest.fixture
def cluster(tmp_path):
    """The scheduler's address, and the two workers."""
    logs = (tmp_path / "cluster.log").open("w")
    processes = []

    def start(command, *arguments):
        module = f"distributed.cli.{command}"
        line = [sys.executable, "-m", module, "--no-dashboard", "--scheduler-file", str(contact), *arguments]
        processes.append(subprocess.Popen(line, cwd=tmp_path, stdout=logs, stderr=logs))
        return processes[-1]

    contact = tmp_path / "scheduler.json"
    scheduler = start("dask_scheduler", "--host", "127.0.0.1", "--port", "0")
    wait_for(lambda: contact.exists() and contact.read_text().endswith("}"), scheduler)
    workers = [start("dask_worker", "--no-nanny", "--nthreads", "1", "--host", "127.0.0.1") for _ in range(2)]
    yield json.loads(contact.read_text())["address"], workers
    for process in processes:
        process.kill()
        process.wait()


def contents(folder):
    return {path.relative_to(folder): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


@pytest.mark.parametrize("kind,files", [("npz", 80), ("mcap", 16)])
def test_a_killed_worker_loses_nothing(recorded, cluster, tmp_path, kind, files):
    if kind == "mcap" and b"mcap" not in subprocess.run([TOOL, "replay", "--help"], capture_output=True).stdout:
        pytest.skip("the tool writes no MCAP")
    address, workers = cluster
    archive = tmp_path / "archive"
    for day in ("monday", "tuesday"):
        (archive / day).mkdir(parents=True)
        path = recorded("TS4B", 40, "--seed", str(len(day)))
        shutil.copy(path, archive / day / "street.pcap")
        shutil.copytree(path.with_suffix(".calib"), archive / day / "street.calib")
    shutil.copy(recorded("NV2", 4), archive / "another_model.pcap")
    (archive / "text.pcap").write_text("no capture")

    def convert(out, *options):
        command = [sys.executable, CONVERT, archive, tmp_path / out, "--model", "TS4B", "--format", kind]
        command += ["--tool", TOOL, "--frames-per-task", "5", *options]
        return subprocess.Popen(list(map(str, command)), stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)

    serial, _ = convert("serial", "--serial").communicate(timeout=PATIENCE)
    running = convert("cluster", "--scheduler", address)
    wait_for(lambda: len(list((tmp_path / "cluster").rglob(f"*.{kind}"))) >= files // 8, running)
    workers[0].send_signal(signal.SIGKILL)
    left = files - len(list((tmp_path / "cluster").rglob(f"*.{kind}")))
    said, _ = running.communicate(timeout=PATIENCE)
    assert left > 0, "killed too late"
    assert running.returncode == 1, "two recordings fail"

    want = contents(tmp_path / "serial")
    assert len(want) == files and contents(tmp_path / "cluster") == want
    for report in (serial, said):
        assert f"4 recordings, 80 frames: {files} of {files} files are there" in report
        assert "FAILED another_model.pcap: " in report and "port 6699 holds packets of NV2" in report
        assert "FAILED text.pcap: " in report and "is no capture file" in report
        assert report.count("FAILED") == 2

    one = next((tmp_path / "cluster").rglob(f"*.{kind}"))
    one.unlink()
    kept = {path: path.stat().st_mtime_ns for path in (tmp_path / "cluster").rglob(f"*.{kind}")}
    again, _ = convert("cluster", "--scheduler", address).communicate(timeout=PATIENCE)
    assert again.count(" 0 files written") == 15 and contents(tmp_path / "cluster") == want
    assert all(path.stat().st_mtime_ns == stamp for path, stamp in kept.items())
