#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Converts a folder of recordings, with all processors or on a cluster: each frame to a NumPy .npz file, or ranges of
frames to MCAP files.

    convert_archive.py recordings/ clouds/ --model TS4B                      # this machine
    convert_archive.py recordings/ bags/ --model TS4B --format mcap --scheduler 10.0.0.1:8786

What is there already, and newer than its recording, is left alone, so that an interrupted run goes on where it was.
Files appear whole or not at all. Recordings that fail are listed with the reason; the exit code is then 1.
"""

from __future__ import annotations

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Iterator, Optional, Tuple

import numpy as np

import orva


@dataclass(frozen=True)
class Settings:
    """What every task has to know. Paths hold on every machine of a cluster."""

    archive: Path
    out: Path
    model: str
    calib: Optional[Path]
    uncalibrated: bool
    format: str
    tool: str

    def open(self, recording: Path) -> orva.Recording:
        beside = recording.with_suffix(".calib")
        calib = beside if beside.is_dir() else self.calib
        return orva.open(recording, model=self.model, calib=calib, uncalibrated=self.uncalibrated)

    def folder(self, recording: Path) -> Path:
        """Where the files of a recording go: named after it, its ending included, in the archive's own tree."""
        return self.out / recording.relative_to(self.archive)


def up_to_date(path: Path, recording: Path) -> bool:
    return path.exists() and path.stat().st_mtime >= recording.stat().st_mtime


def write_whole(path: Path, write: Callable[[Path], None]) -> None:
    """Under another name until it is complete. A task that a cluster runs twice writes the same bytes twice."""
    path.parent.mkdir(parents=True, exist_ok=True)
    folder = Path(tempfile.mkdtemp(dir=path.parent, prefix=".partial-"))
    try:
        write(folder / path.name)
        os.replace(folder / path.name, path)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def save_npz(path: Path, cloud: orva.Cloud) -> None:
    np.savez_compressed(
        path,
        points=cloud.points,
        frame=cloud.frame,
        timestamp=cloud.timestamp,
        received=cloud.received,
        temperatures=(cloud.temperature_a, cloud.temperature_b),
        calibrated=cloud.calibrated,
    )


def run_tool(settings: Settings, *arguments: object) -> subprocess.CompletedProcess:
    command = [settings.tool, *map(str, arguments)]
    return subprocess.run(command, capture_output=True, text=True, errors="replace", check=False)


def save_mcap(path: Path, recording: Path, frames: range, settings: Settings) -> None:
    beside = recording.with_suffix(".calib")
    calib = beside if beside.is_dir() else settings.calib
    options = ["--uncalibrated"] if settings.uncalibrated else ["--calib", calib] if calib else []
    done = run_tool(
        settings, "replay", recording, "--model", settings.model, *options, "--format", "mcap", "--out", path,
        "--frames", f"{frames[0]}-{frames[-1]}",
    )  # fmt: skip
    if done.returncode or not path.is_file():
        raise OSError((done.stderr.strip().splitlines() or ["orva replay failed"])[-1].removeprefix("orva: "))


def targets(recording: Path, frames: range, settings: Settings) -> Iterator[Tuple[Path, range]]:
    """The files of a range of frames, and the frames in each."""
    folder = settings.folder(recording)
    if settings.format == "mcap":
        yield folder / f"frames_{frames[0]:06d}-{frames[-1]:06d}.mcap", frames
    else:
        yield from ((folder / f"frame_{frame:06d}.npz", range(frame, frame + 1)) for frame in frames)


def count_frames(recording: Path, settings: Settings) -> int:
    """First task of a recording."""
    with settings.open(recording) as opened:
        return len(opened)


def convert(recording: Path, frames: range, settings: Settings) -> int:
    """Writes what is missing of a range of frames, and returns how many files that were."""
    missing = [target for target in targets(recording, frames, settings) if not up_to_date(target[0], recording)]
    if settings.format == "mcap":
        for path, inside in missing:
            write_whole(path, lambda new, inside=inside: save_mcap(new, recording, inside, settings))
    elif missing:
        with settings.open(recording) as opened:
            for path, (frame,) in missing:
                write_whole(path, lambda new, cloud=opened[frame]: save_npz(new, cloud))
    return len(missing)


def reason(recording: Path, error: BaseException, settings: Settings) -> str:
    """Why a recording failed, with what 'orva info' knows of it."""
    words = [" ".join(str(error).split()).split(": 'orva info")[0]]
    report = run_tool(settings, "info", recording, "--json") if shutil.which(settings.tool) else None
    if report is not None and report.stdout.startswith("{"):
        facts = json.loads(report.stdout)
        words += [f"the file breaks off: {facts['damage']}"] if facts["damage"] else []
        words += [f"{count} records skipped: {why.replace('_', ' ')}" for why, count in facts["skipped"].items() if count]
        words += [f"port {sensor['port']} holds packets of {' or '.join(sensor['models'])}" for sensor in facts["sensors"]]
        words += [] if facts["sensors"] else ["no packets of a known sensor"]
    elif report is not None:
        words = [" ".join(report.stderr.split()).removeprefix("orva: ")]
    return "; ".join(words)


class Serial:
    """Runs the tasks one after the other. What a cluster does has to come out the same."""

    def __init__(self) -> None:
        self._tasks: list = []

    def submit(self, label: Tuple, task: Callable, *arguments: object) -> None:
        self._tasks.append((label, task, arguments))

    def finished(self) -> Iterator[Tuple[Tuple, object, Optional[BaseException]]]:
        while self._tasks:
            label, task, arguments = self._tasks.pop(0)
            try:
                yield label, task(*arguments), None
            except (OSError, ValueError) as error:
                yield label, None, error


class Cluster:
    """Runs the tasks on Dask workers: those of a scheduler, or of this machine. A worker that dies loses nothing: its
    tasks run again elsewhere, and files appear whole or not at all."""

    def __init__(self, scheduler: Optional[str], workers: Optional[int]) -> None:
        import distributed  # only who uses it needs it

        options = {"n_workers": workers, "threads_per_worker": 1, "dashboard_address": None}
        self._client = distributed.Client(scheduler) if scheduler else distributed.Client(**options)
        self._done = distributed.as_completed()
        self._labels: dict = {}

    def submit(self, label: Tuple, task: Callable, *arguments: object) -> None:
        future = self._client.submit(task, *arguments, pure=False)
        self._labels[future] = label
        self._done.add(future)

    def finished(self) -> Iterator[Tuple[Tuple, object, Optional[BaseException]]]:
        for future in self._done:
            error = future.exception()
            yield self._labels.pop(future), None if error else future.result(), error

    def close(self) -> None:
        self._client.close()


def convert_all(runner: object, settings: Settings, frames_per_task: int) -> bool:
    """Converts every recording of the archive, tells what was done, and returns whether all went well."""
    recordings = sorted(path for path in settings.archive.rglob("*.pcap*") if path.suffix in (".pcap", ".pcapng"))
    counts: dict = {}
    failures: dict = {}
    wanted: list = []
    for recording in recordings:
        runner.submit((recording, None), count_frames, recording, settings)
    for (recording, frames), result, error in runner.finished():
        if error is not None:
            failures.setdefault(recording, reason(recording, error, settings))
        elif frames is None:
            counts[recording] = result
            for first in range(0, result, frames_per_task):
                inside = range(first, min(first + frames_per_task, result))
                wanted += [path for path, _ in targets(recording, inside, settings)]
                runner.submit((recording, inside), convert, recording, inside, settings)
        else:
            name = recording.relative_to(settings.archive)
            print(f"{name}: frames {frames[0]}-{frames[-1]}, {result} files written", flush=True)
    for left in settings.out.rglob(".partial-*"):  # of workers that were killed
        shutil.rmtree(left, ignore_errors=True)
    there = sum(path.exists() for path in wanted)
    print(f"{len(recordings)} recordings, {sum(counts.values())} frames: {there} of {len(wanted)} files are there")
    for recording, why in sorted(failures.items()):
        print(f"FAILED {recording.relative_to(settings.archive)}: {why}")
    return not failures and there == len(wanted) > 0


def main() -> int:
    parser = argparse.ArgumentParser(description="Convert a folder of recordings.")
    parser.add_argument("archive", type=Path, help="folder of pcap and pcapng files")
    parser.add_argument("out", type=Path, help="folder for the results")
    parser.add_argument("--model", required=True, help="TS4B, TS6, NV2 or TS4A")
    parser.add_argument("--calib", type=Path, help="calibration folder of recordings without a .calib folder beside them")
    parser.add_argument("--uncalibrated", action="store_true", help="go on without calibration")
    parser.add_argument("--format", choices=("npz", "mcap"), default="npz")
    parser.add_argument("--frames-per-task", type=int, default=200, metavar="N")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a Dask cluster; default: workers on this machine")
    parser.add_argument("--workers", type=int, metavar="N", help="on this machine; default: one a processor")
    parser.add_argument("--serial", action="store_true", help="without Dask")
    parser.add_argument("--tool", default="orva", help="the program orva, for MCAP and for the reasons of failures")
    options = parser.parse_args()
    if options.frames_per_task < 1:
        parser.error("--frames-per-task has to be 1 or more")
    if not options.archive.is_dir():
        parser.error(f"{options.archive} is no folder")
    settings = Settings(
        options.archive.resolve(),
        options.out.resolve(),
        options.model,
        options.calib and options.calib.resolve(),
        options.uncalibrated,
        options.format,
        shutil.which(options.tool) or options.tool,
    )
    settings.out.mkdir(parents=True, exist_ok=True)
    if options.serial:
        return 0 if convert_all(Serial(), settings, options.frames_per_task) else 1
    cluster = Cluster(options.scheduler, options.workers)
    try:
        return 0 if convert_all(cluster, settings, options.frames_per_task) else 1
    finally:
        cluster.close()


if __name__ == "__main__":
    sys.exit(main())
