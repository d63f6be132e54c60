# SPDX-License-Identifier: Apache-2.0
"""Point clouds and IMU samples of ORVA LiDAR sensors, from recordings and live.

A recording, frame by frame::

    import orva

    for cloud in orva.replay("street.pcap", model="TS4B", calib="calib"):
        print(cloud.frame, cloud.points["x"].max())

or in any order::

    with orva.open("street.pcap", model="TS4B", calib="calib") as recording:
        last = recording[len(recording) - 1]
        for cloud in recording[10:20:2]:
            print(cloud.xyz[cloud.valid].mean(axis=0))

A live sensor, with the IMU samples that came meanwhile::

    with orva.live(model="TS6", port=6699, sensor="192.168.1.200") as sensor:
        for cloud in sensor:
            print(cloud.timestamp, len(sensor.imu()), sensor.dropped)

Arrays are views of the driver's memory and keep it alive. Distances and coordinates are metres, angles degrees, times
seconds since 1970-01-01 UTC; x points forward, y to the left, z up. Ctrl-C ends any wait.

The driver's own console lines are kept back: ``orva.driver_lines()`` returns the latest, ``orva.show_driver_lines()``
lets them through.
"""

from ._cloud import Cloud
from ._live import LiveSensor, live
from ._orva import version as __version__
from ._parameters import Mounting
from ._recording import Frames, Recording, open, replay
from ._statistics import Statistics
from ._console import driver_lines, show_driver_lines

__all__ = [
    "Cloud",
    "Frames",
    "LiveSensor",
    "Mounting",
    "Recording",
    "Statistics",
    "driver_lines",
    "live",
    "open",
    "replay",
    "show_driver_lines",
]
