# SPDX-License-Identifier: Apache-2.0
import time

import numpy as np
import pytest

import orva
from conftest import PATIENCE, free_port


def test_clouds_and_imu_of_a_sensor_that_gives_its_calibration(streaming):
    port, command_port = streaming("TS6", 50)
    with orva.live(
        model="TS6", port=port, sensor="127.0.0.1", command_port=command_port, timeout=PATIENCE
    ) as sensor:
        clouds = [next(sensor) for _ in range(3)]
        assert all(cloud.calibrated and abs(cloud.xyz[:, 1]).max() > 0.5 for cloud in clouds)
        assert sensor.held_back > 0 and clouds[0].frame >= sensor.held_back
        assert abs(clouds[0].received - time.time()) < PATIENCE and clouds[0].timestamp > 0
        imu = sensor.imu()
        assert len(imu) and 5 < np.linalg.norm([imu[0][f"linear_acceleration_{axis}"] for axis in "xyz"]) < 15
        assert (np.diff(imu["timestamp"]) >= 0).all() and not np.shares_memory(imu, sensor.imu())
        assert sensor.statistics.calibration == "sensor"
    assert list(sensor) == [], "closed"
    with pytest.raises(ValueError, match="closed"):
        sensor.take()
    assert imu["timestamp"][0] > 0 and len(clouds[0].points), "remain"


def test_a_slow_reader_gets_the_newest_and_learns_what_it_missed(streaming):
    port, _ = streaming("NV2", 100)
    with orva.live(model="NV2", port=port, queue=3, timeout=PATIENCE) as sensor:
        first = next(sensor)
        deadline = time.monotonic() + PATIENCE
        while sensor.dropped < 5 and time.monotonic() < deadline:
            time.sleep(0.01)
        dropped = sensor.dropped
        late = [next(sensor).frame for _ in range(3)]
    assert dropped >= 5 and late[0] - first.frame > 5 and late[2] - late[0] < 5 + sensor.dropped - dropped
    assert sensor.statistics.discarded == 0


def test_silence_and_a_port_that_cannot_be_opened():
    port = free_port()
    with orva.live(model="NV2", port=port, timeout=0.05) as sensor:
        with pytest.raises(TimeoutError, match=f"nothing arrived on UDP port {port} within 0.05 s"):
            for _ in sensor:
                pass
    with pytest.raises(OSError, match="bind failed: Cannot assign requested address"):
        orva.live(model="NV2", port=port, host="192.0.2.1")
    with pytest.raises(ValueError, match="at least one"):
        orva.live(model="NV2", port=port, queue=0)
