# SPDX-License-Identifier: Apache-2.0
"""From keyword arguments to the driver's parameter record. The first wrong one raises, and says what is wrong."""

from __future__ import annotations

import math
import os
import warnings
from pathlib import Path
from typing import NamedTuple, Optional, Tuple, Union

from . import _orva
from ._models import Model

PathLike = Union[str, "os.PathLike[str]"]
Range = Tuple[float, float]

#: Point types by the word for them, and the ending of the private module's classes.
POINTS = {"plain": "Point", "time": "PointTime", "source": "PointSource"}


class Mounting(NamedTuple):
    """Where the sensor sits: a point p becomes Rz(yaw) Ry(pitch) Rx(roll) p + (x, y, z)."""

    x: float = 0.0  #: metres forward
    y: float = 0.0  #: metres to the left
    z: float = 0.0  #: metres up
    roll: float = 0.0  #: degrees about x
    pitch: float = 0.0  #: degrees about y
    yaw: float = 0.0  #: degrees about z


class Limits(NamedTuple):
    """What a point must lie within, else it becomes the origin. Inclusive."""

    distance: Range = (0.0, 1000.0)  #: metres
    azimuth: Range = (-180.0, 180.0)  #: degrees, 0 straight ahead, left positive
    elevation: Range = (-90.0, 90.0)  #: degrees, 0 the horizon, up positive


def point_class(kind: str, point: str) -> type:
    """The private module's class for a point type: ``point_class("Replay", "time")``."""
    if point not in POINTS:
        raise ValueError(f"point={point!r}: known are {', '.join(map(repr, POINTS))}")
    return getattr(_orva, kind + POINTS[point])


def port_number(name: str, value: int, lowest: int = 0) -> int:
    """A UDP port."""
    if not lowest <= value <= 65535:
        raise ValueError(f"{name}={value!r}: a UDP port is a number from {lowest} to 65535")
    return int(value)


def decoder_param(limits: Limits, mounting: Optional[Mounting]) -> _orva.DecoderParam:
    """Limits and mounting as the driver takes them."""
    param = _orva.DecoderParam()
    for name, bounds in limits._asdict().items():
        low, high = (float(bound) for bound in bounds)
        if not (math.isfinite(low) and math.isfinite(high) and low <= high):
            raise ValueError(f"{name}={bounds!r}: give the lower bound, then the upper one")
        setattr(param, f"min_{name}", low)
        setattr(param, f"max_{name}", high)
    if mounting is not None:
        pose = Mounting(*(float(value) for value in mounting))
        if not all(map(math.isfinite, pose)):
            raise ValueError(f"mounting={tuple(mounting)!r}: give six finite numbers")
        param.use_transform = True
        param.x_offset, param.y_offset, param.z_offset = pose[:3]
        param.roll, param.pitch, param.yaw = pose[3:]
    return param


def calibration_folder(model: Model, folder: Optional[PathLike], beside: Optional[Path], uncalibrated: bool) -> bytes:
    """The folder to read, as the file system has it; empty for none. ``beside`` is tried where none is named."""
    if not model.uses_calibration or uncalibrated:
        return b""
    if folder is None:
        if beside is not None and beside.is_dir():
            return os.fsencode(beside)
        warnings.warn(
            "no calibration folder (calib=FOLDER): points come uncalibrated, all of them straight ahead. "
            "uncalibrated=True says that this is meant.",
            stacklevel=3,
        )
        return b""
    if not os.path.exists(folder):
        raise FileNotFoundError(
            f"there is no calibration folder {os.fspath(folder)}. Give the folder that holds the sensor's azimuth, "
            "elevation, weight and near_filter files."
        )
    return os.fsencode(folder)


def require_calibration(folder: bytes, in_use: bool, model: Model) -> None:
    """A folder that was named has to be of use."""
    if folder and not in_use:
        name = os.fsdecode(folder)
        raise ValueError(
            f"the calibration folder {name} cannot be used: 'orva check {name} --model {model.name}' says what is "
            "wrong with each file. uncalibrated=True goes on without."
        )
