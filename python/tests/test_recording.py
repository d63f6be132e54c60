# SPDX-License-Identifier: Apache-2.0
import gc
import resource
import sys
import threading
import time

import numpy as np
import pytest

import orva
from conftest import read_pcd, run_python, run_tool


@pytest.mark.parametrize("model", ["TS4B", "TS6"])
def test_frames_are_the_tools(recorded, tmp_path, model):
    path = recorded(model, 3, "--phase", "7")  # frame ends in the middle of packets
    run_tool("replay", path, "--model", model, "--calib", path.with_suffix(".calib"), "--out", tmp_path)
    clouds = list(orva.replay(path, model=model))
    files = sorted(tmp_path.glob("*.pcd"))
    assert len(clouds) == len(files) > 2
    for number, (cloud, file) in enumerate(zip(clouds, files)):
        want = read_pcd(file)
        want = want[(want["x"] != 0) | (want["y"] != 0) | (want["z"] != 0)]
        points = cloud.points[cloud.valid]
        assert cloud.frame == number and cloud.calibrated and len(points) == len(want)
        for field in "xyz":
            assert (points[field] == want[field]).all()
    assert clouds[1].valid.sum() > 20_000 and len(clouds[-1]) == 7, "the last one has what the phase left over"


@pytest.mark.parametrize(
    "model,sizes", [("TS4B", [24576] * 4), ("TS6", [24576] * 4), ("NV2", [10944, 10752, 10752, 10560])]
)
@pytest.mark.parametrize("point", ["plain", "time", "source"])
def test_a_frame_is_the_same_however_it_is_asked_for(recorded, model, sizes, point):
    with orva.open(recorded(model, 4), model=model, point=point) as recording:
        times, once = zip(*((cloud.timestamp, cloud.points) for cloud in recording))
        assert [len(points) for points in once] == sizes
        orders = {
            "backwards": list(reversed(recording)),
            "by number": [recording[k] for k in (3, 2, -3, 0)],
            "in any order": list(recording.frames([3, 2, 1, 0])),
            "sliced": list(recording[::-1]),
        }
        for name, clouds in orders.items():
            assert [cloud.frame for cloud in clouds] == [3, 2, 1, 0], name
            for cloud in clouds:
                assert cloud.points.tobytes() == once[cloud.frame].tobytes(), (name, cloud)
                assert cloud.timestamp == times[cloud.frame], (name, cloud)
        pairs = zip(recording[1:], recording)  # two loops at once
        assert [(a.frame, b.frame) for a, b in pairs] == [(1, 0), (2, 1), (3, 2)]
        assert [cloud.frame for cloud in recording[1:][:2]] == [1, 2]
        for wrong in (4, -5):
            with pytest.raises(IndexError, match=f"no frame {wrong}"):
                recording[wrong]


def test_arrays_are_views_that_keep_the_cloud(recorded):
    recording = orva.open(recorded("TS4B", 4), model="TS4B")
    cloud = recording[1]
    points, xyz, grid = cloud.points, cloud.xyz, cloud.grid
    assert np.shares_memory(points, xyz) and np.shares_memory(points, grid)
    assert np.shares_memory(points, cloud.points) and not np.shares_memory(points, recording[1].points)
    copy = points.copy()
    points["x"][5] = 42.0
    assert xyz[5, 0] == grid[0, 5]["x"] == 42.0
    points["x"][5] = copy["x"][5]
    recording.close()
    del recording, cloud, points
    gc.collect()
    noise = [np.full(copy.nbytes, 0xFF, np.uint8) for _ in range(20)]  # would land in memory that was freed
    assert (xyz[:, 2] == copy["z"]).all() and grid.tobytes() == copy.tobytes() and noise
    assert len(grid) == 192 and (np.asarray(grid)["label"] == np.arange(192)[:, None]).all()


def test_grid_of_nv2_and_of_a_frame_with_gaps(recorded):
    first, second, _, last = orva.replay(recorded("NV2", 4), model="NV2")
    assert second.complete and first.complete and not last.complete
    assert second.grid.shape == (56, 192) and (second.grid["label"] == np.arange(56)[:, None]).all()
    assert (second.grid[0] == second.points[-192:]).all() and (second.grid[7] == second.points[6 * 192 :][:192]).all()
    assert not last.grid[0]["x"].any() and last.grid[1]["x"].any()


def test_limits_and_mounting(recorded):
    path = recorded("TS4B", 4)
    (plain,) = orva.replay(path, model="TS4B", frames=[1])
    options = {"distance": (5, 20), "azimuth": (-10, 30), "elevation": (-5, 5)}
    (near,) = orva.replay(path, model="ts4b", frames=slice(1, 2), **options)
    kept = plain.xyz[near.valid]
    ranges = np.linalg.norm(kept, axis=1)
    assert 100 < len(kept) < plain.valid.sum() and ranges.min() > 4.99 and ranges.max() < 20.01
    assert -10.1 < np.degrees(np.arctan2(kept[:, 1], kept[:, 0])).min() and len(near) == len(plain)
    (mounted,) = orva.replay(path, model="TS4B", frames=[1], mounting=orva.Mounting(z=1.5, yaw=90))
    moved = np.stack([-plain.xyz[:, 1], plain.xyz[:, 0], plain.xyz[:, 2] + np.float32(1.5)], axis=1)
    assert np.allclose(mounted.xyz[plain.valid], moved[plain.valid], atol=1e-4)


def test_wrong_arguments_and_files_say_what_to_do(recorded, tmp_path):
    path = recorded("TS4B", 4)
    (tmp_path / "empty.pcap").touch()
    (tmp_path / "text.pcap").write_text("no capture")
    (tmp_path / "cut.pcap").write_bytes(path.read_bytes()[:30])
    (tmp_path / "calib").mkdir()
    cases = [
        ({"model": "TS5"}, ValueError, "there is no model 'TS5'"),
        ({"path": tmp_path / "gone.pcap"}, FileNotFoundError, "cannot open the recording"),
        ({"path": tmp_path}, IsADirectoryError, "this is a folder"),
        ({"path": tmp_path / "empty.pcap"}, ValueError, "is empty: the recording was never written"),
        ({"path": tmp_path / "text.pcap"}, ValueError, "is no capture file"),
        ({"path": tmp_path / "cut.pcap", "uncalibrated": True}, ValueError, "there is no UDP packet"),
        ({"port": 4}, ValueError, "nothing in .* was sent to UDP port 4"),
        ({"port": 65536}, ValueError, "a UDP port is a number"),
        ({"model": "NV2"}, ValueError, "are not of the model NV2"),
        ({"calib": tmp_path / "gone"}, FileNotFoundError, "there is no calibration folder"),
        ({"calib": tmp_path / "calib"}, ValueError, "'orva check .*calib --model TS4B' says what is wrong"),
        ({"distance": (9, 1)}, ValueError, "the lower bound, then the upper"),
        ({"azimuth": (float("nan"), 1)}, ValueError, "the lower bound"),
        ({"mounting": (0, 0, 1, 0, 0, float("inf"))}, ValueError, "six finite numbers"),
        ({"point": "all"}, ValueError, "known are 'plain'"),
    ]
    for change, kind, text in cases:
        with pytest.raises(kind, match=text):
            orva.open(**{"path": path, "model": "TS4B", **change})
    alone = tmp_path / "alone.pcap"
    alone.symlink_to(path)
    with pytest.warns(UserWarning, match="no calibration folder"):
        with orva.open(alone, model="TS4B") as recording:
            assert not recording[0].calibrated and not recording[0].xyz[:, 1].any()
    with pytest.raises(ValueError, match="the recording is closed"):
        recording[0]


def test_optional_packages(recorded, monkeypatch):
    (cloud,) = orva.replay(recorded("TS4B", 4), model="TS4B", frames=[0])
    for module, convert in (("pandas", cloud.to_dataframe), ("open3d", cloud.to_open3d)):
        with monkeypatch.context() as patch:
            patch.setitem(sys.modules, module, None)
            with pytest.raises(ImportError, match=f"apt install python3-{module}"):
                convert()
    pandas = pytest.importorskip("pandas")
    table = cloud.to_dataframe()
    assert isinstance(table, pandas.DataFrame) and len(table) == cloud.valid.sum() and "intensity" in table


def test_nothing_is_printed_unless_asked_for(recorded):
    code = f"import orva; {{}}\nlist(orva.replay({str(recorded('TS4B', 4))!r}, model='TS4B')); print(len(orva.driver_lines()))"
    quiet, loud = (run_python(code.format(say)) for say in ("", "orva.show_driver_lines()"))
    assert quiet.stdout.strip().isdigit() and int(quiet.stdout) > 5 and not quiet.stderr
    assert "pcap file is load finished!" in loud.stdout


def test_iterating_holds_no_more_than_a_few_clouds_and_an_open_recording_rests(recorded):
    with orva.open(recorded("TS4B", 4), model="TS4B") as recording:
        for _ in range(10):
            sum(len(cloud) for cloud in recording)
        before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        for _ in range(50):
            sum(len(cloud) for cloud in recording)
        assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 40_000, "kilobytes; these 200 clouds have 120,000"
        start = time.process_time()
        time.sleep(0.3)
        assert time.process_time() - start < 0.15, "the replay thread spins"


def test_threads_share_a_recording(recorded):
    with orva.open(recorded("TS4B", 4), model="TS4B") as recording:
        want = [cloud.points.tobytes() for cloud in recording]
        failures = []

        def work(first):
            for k in range(12):
                number = (first + k) % 4
                if recording[number].points.tobytes() != want[number]:
                    failures.append(number)

        threads = [threading.Thread(target=work, args=(first,)) for first in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        assert not failures
