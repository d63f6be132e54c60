# SPDX-License-Identifier: Apache-2.0
"""One frame of points."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Optional

import numpy as np

from ._models import Model

if TYPE_CHECKING:
    import open3d
    import pandas

    from . import _orva


class Cloud:
    """One frame of points, in the order of measurement.

    ``points`` and ``xyz`` are views of the memory that the driver filled: nothing is copied, and the memory lives as
    long as an array refers to it. A measurement without a return inside the limits is the exact origin; ``valid``
    tells these apart. Axes: x forward, y to the left, z up; metres.
    """

    __slots__ = ("_native", "_model", "__weakref__")

    def __init__(self, native: _orva.CloudPointTime, model: Model) -> None:
        self._native = native
        self._model = model

    @property
    def points(self) -> np.ndarray:
        """The points as a structured array with the fields

        - ``x``, ``y``, ``z``: metres, float32
        - ``intensity``: raw count of the sensor, uint16 (16 bits, NV2 12 bits)
        - ``label``: laser line of the measurement, counted from 0, uint16
        - ``timestamp``: seconds since the epoch, float64; 0 where the model gives none (not with ``point="plain"``)
        - ``source_distance``, ``source_reserved``: only with ``point="source"``
        """
        return self._native.points()

    @property
    def xyz(self) -> np.ndarray:
        """The coordinates in metres as an (N, 3) float32 view."""
        points = self._native.points()
        return np.ndarray((len(points), 3), np.float32, points, strides=(points.itemsize, 4))

    @property
    def valid(self) -> np.ndarray:
        """A mask: False for a measurement without a return inside the limits."""
        points = self._native.points()
        return (points["x"] != 0) | (points["y"] != 0) | (points["z"] != 0)

    @property
    def complete(self) -> bool:
        """Whether the frame holds the model's full grid: no packet was lost, and the recording did not end in it."""
        lines, columns = self._grid_size()
        return bool((np.bincount(self._native.points()["label"], minlength=lines)[:lines] >= columns).all())

    @property
    def grid(self) -> np.ndarray:
        """The organised array: a row for each laser line, from line 0, a column for each firing of it.

        A view of the points where they are stored in this order, as TS4B's and TS6's complete frames are; else a
        copy. (An NV2 frame ends with line 0.) A line that is not complete is all origin: which of its columns are
        missing is not known. Raises ValueError for a model without a grid.
        """
        lines, columns = self._grid_size()
        points = self._native.points()
        order = np.arange(lines, dtype=np.uint16)[:, np.newaxis]
        if len(points) == lines * columns:
            rows = points.reshape(lines, columns)
            if (rows["label"] == order).all():
                return rows
        grid = np.zeros((lines, columns), points.dtype)
        grid["label"] = order
        by_line = np.argsort(points["label"], kind="stable")
        counts = np.bincount(points["label"], minlength=lines)
        ends = np.cumsum(counts)
        for line in np.flatnonzero(counts[:lines] >= columns):
            # The later ones: NV2's first frame holds line 0 twice, and all others end with it.
            grid[line] = points[by_line[ends[line] - columns : ends[line]]]
        return grid

    @property
    def frame(self) -> int:
        """Replay: the frame's number in the recording. Live: counted since the start; a gap is a dropped frame."""
        return self._native.number

    @property
    def part(self) -> int:
        """Above 0: a further cloud of the same frame, where a frame was so short that it shared its first packet."""
        return self._native.part

    @property
    def timestamp(self) -> float:
        """The sensor's time, seconds since 1970-01-01 UTC; 0.0 where the model gives none (``received`` does)."""
        return self._native.timestamp

    @property
    def received(self) -> float:
        """When the frame's last packet was captured or received, seconds since 1970-01-01 UTC."""
        return self._native.received

    @property
    def calibrated(self) -> bool:
        """Whether the points are calibrated, or of a model that needs no calibration."""
        return self._native.calibrated or not self._model.uses_calibration

    @property
    def temperature_a(self) -> float:
        """Degrees Celsius, TS4B and TS6; 0.0 where the frame has none."""
        return self._native.temperature_a

    @property
    def temperature_b(self) -> float:
        """Degrees Celsius, TS4B and TS6; 0.0 where the frame has none."""
        return self._native.temperature_b

    @property
    def status_word(self) -> int:
        """The sensor's status word, TS4B and TS6."""
        return self._native.status_word

    @property
    def status_byte(self) -> int:
        """The sensor's status byte, TS4B and TS6."""
        return self._native.status_byte

    @property
    def model(self) -> str:
        """The sensor's model."""
        return self._model.name

    def __len__(self) -> int:
        return len(self._native.points())

    def __array__(self, dtype: Optional[np.dtype] = None) -> np.ndarray:
        points = self._native.points()
        return points if dtype is None else points.astype(dtype, copy=False)

    def __repr__(self) -> str:
        part = f".{self.part}" if self.part else ""
        uncalibrated = "" if self.calibrated else ", uncalibrated"
        return f"<orva.Cloud {self.model} frame {self.frame}{part}: {len(self)} points{uncalibrated}>"

    def to_dataframe(self, *, valid_only: bool = True) -> pandas.DataFrame:
        """The points as a pandas DataFrame, a column for each field. Needs pandas."""
        module = _optional("pandas", "python3-pandas")
        return module.DataFrame(self.points[self.valid] if valid_only else self.points)

    def to_open3d(self, *, valid_only: bool = True) -> open3d.geometry.PointCloud:
        """The points as an Open3D point cloud, grey by intensity. Needs Open3D."""
        module = _optional("open3d", "python3-open3d")
        points = self.points[self.valid] if valid_only else self.points
        cloud = module.geometry.PointCloud()
        coordinates = np.column_stack([points[axis] for axis in "xyz"]).astype(np.float64)
        cloud.points = module.utility.Vector3dVector(coordinates)
        grey = points["intensity"] / max(1, points["intensity"].max(initial=0))
        cloud.colors = module.utility.Vector3dVector(np.repeat(grey[:, np.newaxis], 3, axis=1))
        return cloud

    def _grid_size(self) -> tuple[int, int]:
        if self._model.grid is None:
            raise ValueError(f"a frame of a {self.model} has no grid")
        return self._model.grid


def _optional(module: str, package: str) -> Any:
    """A package that only this needs."""
    try:
        return __import__(module)
    except ImportError as error:
        raise ImportError(f"this needs {module}: install it with 'apt install {package}'", name=module) from error
