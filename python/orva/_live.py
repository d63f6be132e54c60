# SPDX-License-Identifier: Apache-2.0
"""Live sensors."""

from __future__ import annotations

import os
import weakref
from typing import Iterator, Optional

import numpy as np

from . import _orva
from ._cloud import Cloud
from ._models import Model, find_model
from ._parameters import (
    Limits,
    Mounting,
    PathLike,
    Range,
    calibration_folder,
    decoder_param,
    point_class,
    port_number,
    require_calibration,
)
from ._statistics import Statistics, statistics_of


class LiveSensor:
    """A sensor that is being listened to, see :func:`orva.live`.

    Iterating gives the clouds as they come, for ever. They wait in a bounded queue: where Python is too slow, the
    oldest is dropped and counted, and the driver never waits. Any thread may call.
    """

    def __init__(self, model: Model, port: int, native: _orva.LivePointTime, timeout: Optional[float]) -> None:
        self._model = model
        self._port = port
        self._native = native
        self._timeout = timeout
        self._close = weakref.finalize(self, native.close)  # also at the end of the interpreter

    def take(self, timeout: Optional[float] = None) -> Cloud:
        """The oldest cloud in the queue. Waits for one up to ``timeout`` seconds, by default for ever.

        :raises TimeoutError: none came
        :raises ValueError: the sensor is closed
        :raises OSError: the calibration that the sensor sent is not whole
        """
        native = self._native.take(timeout)
        if native is None:
            if self._native.closed():
                raise ValueError("the sensor is closed")
            raise TimeoutError(self._silence(timeout))
        return Cloud(native, self._model)

    def imu(self) -> np.ndarray:
        """The IMU samples since the last call, oldest first (TS6 and NV2).

        A structured array: ``timestamp`` in seconds since the epoch, ``angular_velocity_x``, ``_y``, ``_z`` in
        radians per second, ``linear_acceleration_x``, ``_y``, ``_z`` in metres per second squared. Up to 100,000
        samples wait; beyond that the oldest are dropped and counted.
        """
        return self._native.take_imu()

    @property
    def statistics(self) -> Statistics:
        """What became of every packet."""
        return statistics_of(self._native.statistics())

    @property
    def dropped(self) -> int:
        """Clouds that were not taken in time."""
        return self._native.dropped()

    @property
    def dropped_imu(self) -> int:
        """IMU samples that were not taken in time."""
        return self._native.dropped_imu()

    @property
    def held_back(self) -> int:
        """Clouds that came before the sensor's calibration was in use, and were left out."""
        return self._native.held_back()

    @property
    def model(self) -> str:
        """The sensor's model."""
        return self._model.name

    def close(self) -> None:
        """Ends the driver's threads and closes the port. Clouds and arrays remain. Harmless when repeated."""
        self._close()

    def __iter__(self) -> Iterator[Cloud]:
        return self

    def __next__(self) -> Cloud:
        if self._native.closed():
            raise StopIteration
        try:
            return self.take(self._timeout)
        except ValueError:  # closed by another thread
            raise StopIteration from None

    def __enter__(self) -> LiveSensor:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<orva.LiveSensor {self.model} on UDP port {self._port}>"

    def _silence(self, timeout: Optional[float]) -> str:
        statistics = self.statistics
        if statistics.received or statistics.kernel_dropped:
            return f"no frame ended within {timeout} s: {statistics}"
        return (
            f"nothing arrived on UDP port {self._port} within {timeout} s. The usual reasons:\n"
            "- the sensor is off, or a cable or switch is\n"
            "- it sends to another address than this machine's; 'ip address' lists these\n"
            "- it sends to another port; 'tcpdump -n -i any udp' shows what reaches the machine\n"
            "- a firewall drops it: tcpdump shows it then, and the driver does not see it"
        )


def live(
    *,
    model: str,
    port: int,
    host: str = "",
    calib: Optional[PathLike] = None,
    sensor: Optional[str] = None,
    command_port: int = 0,
    uncalibrated: bool = False,
    queue: int = 8,
    timeout: Optional[float] = None,
    distance: Range = Limits().distance,
    azimuth: Range = Limits().azimuth,
    elevation: Range = Limits().elevation,
    mounting: Optional[Mounting] = None,
    point: str = "time",
) -> LiveSensor:
    """Listens to a sensor: ``with orva.live(model="TS4B", port=6699, calib="calib") as sensor: ...``

    :param model: the sensor's model: TS4B, TS6, NV2, TS4A, KR7 or TS4
    :param port: the sensor's UDP data port
    :param host: local IPv4 address to listen on; default: all
    :param calib: folder of calibration files, for TS4B and TS6
    :param sensor: the sensor's IPv4 address: its calibration is downloaded from there, and frames are held back until
        it is in use
    :param command_port: with ``sensor``: the sensor's command port; 0: learnt from the first datagram it sends
    :param uncalibrated: give frames without calibration too, from the start
    :param queue: clouds that wait at most; beyond that the oldest is dropped
    :param timeout: seconds that iterating waits for a cloud before it raises TimeoutError; default: for ever
    :param distance: metres, (lowest, highest); a point outside any limit becomes the origin
    :param azimuth: degrees, 0 straight ahead and left positive, (lowest, highest)
    :param elevation: degrees, 0 the horizon, (lowest, highest)
    :param mounting: where the sensor sits, x, y, z in metres and roll, pitch, yaw in degrees
    :param point: fields of a point: "plain", "time" or "source", see :attr:`Cloud.points`
    :raises OSError: the port cannot be opened
    :raises ValueError: an argument is wrong, or the calibration folder is of no use
    """
    traits = find_model(model)
    if queue < 1:
        raise ValueError(f"queue={queue!r}: at least one cloud has to wait somewhere")
    download = sensor is not None and traits.uses_calibration
    folder = b"" if download else calibration_folder(traits, calib, None, uncalibrated)
    param = _orva.DriverParam()
    param.lidar_type = traits.number
    param.calib_from_lidar = download
    param.decoder_param = decoder_param(Limits(distance, azimuth, elevation), mounting)
    param.input_param.host_ip = host
    param.input_param.msop_port = port_number("port", port)
    param.calibration_param.calib_folder = folder
    param.calibration_param.lidar_ip = sensor or ""
    param.calibration_param.lidar_port = port_number("command_port", command_port)
    first_line = _orva.console_line_count()
    try:
        native = point_class("Live", point)(param, queue, uncalibrated)
    except _orva.Refused as error:
        failures = [line for line in _orva.console_lines(first_line) if " failed: " in line]
        reason = failures[-1] if failures else str(error)
        raise OSError(
            f"cannot open UDP port {port} for the points{', or the command port' if download else ''} ({reason}). "
            "Another program may hold it, or the address to listen on is none of this machine's ('ip address' lists "
            "them)."
        ) from None
    listening = LiveSensor(traits, port, native, timeout)
    try:
        require_calibration(folder, listening.statistics.calibration == "folder", traits)
    except BaseException:
        listening.close()
        raise
    return listening
