# SPDX-License-Identifier: Apache-2.0
"""Recordings: frames by number, in any order."""

from __future__ import annotations

import builtins
import errno
import os
import weakref
from pathlib import Path
from typing import Generator, Iterable, Iterator, Optional, Union, overload

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

#: First four bytes of pcap (micro- and nanoseconds, an old variant) in either byte order, and of pcapng.
_MAGICS = {bytes.fromhex(magic) for magic in ("a1b2c3d4 a1b23c4d a1b2cd34 d4c3b2a1 4d3cb2a1 34cdb2a1 0a0d0d0a").split()}


class Frames:
    """Some frames of a recording, in an order: a recording itself, or what slicing one gives.

    Nothing is decoded before it is asked for. Iterating decodes the next frame while Python works on the one before.
    """

    def __init__(self, recording: Recording, numbers: range) -> None:
        self._recording = recording
        self._numbers = numbers

    def __len__(self) -> int:
        return len(self._numbers)

    @overload
    def __getitem__(self, index: int) -> Cloud: ...
    @overload
    def __getitem__(self, index: slice) -> Frames: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[Cloud, Frames]:
        if isinstance(index, slice):
            return Frames(self._recording, self._numbers[index])
        try:
            number = self._numbers[index]
        except IndexError:
            raise IndexError(f"there is no frame {index}: {self!r} holds {len(self)}") from None
        following = number + self._numbers.step
        # Where one play gives several clouds, the last is the one that ends with the frame.
        return self._recording._play(number, following if following in self._numbers else number)[-1]

    def __iter__(self) -> Iterator[Cloud]:
        return self._recording.frames(self._numbers)

    def __reversed__(self) -> Iterator[Cloud]:
        return self._recording.frames(self._numbers[::-1])

    def __repr__(self) -> str:
        return f"<orva.Frames of {self._recording!r}: {len(self)}>"


class Recording(Frames):
    """A recording, opened with :func:`orva.open`.

    ``len(recording)`` is its number of frames, ``recording[k]`` plays frame k, a slice is a lazy sequence, and
    iterating gives every cloud in order. One frame is the same however it is asked for. The replay's queue holds one
    cloud; the driver waits until it is taken. Any thread may call, one call runs at a time.
    """

    def __init__(self, path: PathLike, model: Model, native: _orva.ReplayPointTime) -> None:
        self._path = os.fspath(path)
        self._model = model
        self._native = native
        self._close = weakref.finalize(self, native.close)  # also at the end of the interpreter
        super().__init__(self, range(native.index()))

    @property
    def path(self) -> str:
        """The file."""
        return self._path

    @property
    def model(self) -> str:
        """The sensor's model."""
        return self._model.name

    @property
    def statistics(self) -> Statistics:
        """What became of every packet."""
        return statistics_of(self._native.statistics())

    def frames(self, numbers: Iterable[int]) -> Generator[Cloud, None, None]:
        """The frames of these numbers, in this order: ``recording.frames([7, 3, 3, -1])``."""
        size = len(self)
        numbers = iter(numbers)
        number = next(numbers, None)
        while number is not None:
            following = next(numbers, None)
            for candidate in (number, number if following is None else following):
                if not -size <= candidate < size:
                    raise IndexError(f"there is no frame {candidate}: {self!r} holds {size}")
            ahead = number if following is None else following
            yield from self._play(number % size, ahead % size)
            number = following

    def close(self) -> None:
        """Ends the driver's thread and closes the file. Clouds and arrays remain. Harmless when repeated."""
        self._close()

    def _play(self, number: int, ahead: int) -> list[Cloud]:
        return [Cloud(native, self._model) for native in self._native.play(number, ahead)]

    def __enter__(self) -> Recording:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<orva.Recording {self._path!r}, {self.model}>"


def open(  # noqa: A001: the word that people guess
    path: PathLike,
    *,
    model: str,
    calib: Optional[PathLike] = None,
    uncalibrated: bool = False,
    port: int = 0,
    distance: Range = Limits().distance,
    azimuth: Range = Limits().azimuth,
    elevation: Range = Limits().elevation,
    mounting: Optional[Mounting] = None,
    point: str = "time",
) -> Recording:
    """Opens a recording and finds its frames, which reads the file once.

    :param path: a pcap or pcapng file
    :param model: the sensor's model: TS4B, TS6, NV2, TS4A, KR7 or TS4; a recording does not say
    :param calib: folder of calibration files, for TS4B and TS6; default: the file's name with ``.calib``, if there is
        such a folder
    :param uncalibrated: go on without calibration
    :param port: the sensor's UDP data port; 0 takes every UDP packet
    :param distance: metres, (lowest, highest); a point outside any limit becomes the origin
    :param azimuth: degrees, 0 straight ahead and left positive, (lowest, highest)
    :param elevation: degrees, 0 the horizon, (lowest, highest)
    :param mounting: where the sensor sits, x, y, z in metres and roll, pitch, yaw in degrees
    :param point: fields of a point: "plain", "time" or "source", see :attr:`Cloud.points`
    :raises OSError: FileNotFoundError, PermissionError and so on, for the file and the folder
    :raises ValueError: the file is no capture, holds no packet of this sensor, or the calibration is of no use
    """
    traits = find_model(model)
    _require_capture(path)
    folder = calibration_folder(traits, calib, Path(path).with_suffix(".calib"), uncalibrated)
    param = _orva.DriverParam()
    param.replay = True
    param.lidar_type = traits.number
    param.decoder_param = decoder_param(Limits(distance, azimuth, elevation), mounting)
    param.input_param.pcap_path = os.fsencode(path)
    param.input_param.msop_port = port_number("port", port)
    param.calibration_param.calib_folder = folder
    session = point_class("Replay", point)
    try:
        native = session(param)
    except _orva.Refused:
        raise ValueError(
            f"the driver cannot replay {os.fspath(path)}: it is damaged, or of a link type that the driver does not "
            "know. 'tcpdump -r' on it tells more; record with 'tcpdump -i INTERFACE udp -w FILE'."
        ) from None
    recording = Recording(path, traits, native)
    try:
        statistics = recording.statistics
        require_calibration(folder, statistics.calibration == "folder", traits)
        _require_packets(recording, statistics, port)
    except BaseException:
        recording.close()
        raise
    return recording


def replay(
    path: PathLike, *, frames: Union[None, slice, Iterable[int]] = None, **options: object
) -> Generator[Cloud, None, None]:
    """The clouds of a recording, one after the other: ``for cloud in orva.replay("street.pcap", model="TS4B"): ...``

    :param frames: which, as a slice or as numbers in any order; default: all

    The other arguments are those of :func:`orva.open`. The recording is closed when the loop ends.
    """
    recording = open(path, **options)  # type: ignore[arg-type]
    return _play_and_close(recording, recording[frames] if isinstance(frames, slice) else frames)


def _play_and_close(recording: Recording, frames: Optional[Iterable[int]]) -> Generator[Cloud, None, None]:
    with recording:
        if frames is None or isinstance(frames, Frames):
            yield from recording if frames is None else frames
        else:
            yield from recording.frames(frames)


def _require_capture(path: PathLike) -> None:
    """Says in plain words why a file cannot be a recording; the driver only refuses it."""
    name = os.fspath(path)
    try:
        with builtins.open(path, "rb") as file:
            start = file.read(4)
    except IsADirectoryError:
        raise IsADirectoryError(
            errno.EISDIR, "this is a folder. Give the recording itself, a pcap or pcapng file", name
        ) from None
    except OSError as error:
        text = f"cannot open the recording: {error.strerror}. Check the path and its permissions"
        raise type(error)(error.errno, text, name) from None
    if not start:
        raise ValueError(f"{name} is empty: the recording was never written. Record it again.")
    if start not in _MAGICS:
        raise ValueError(
            f"{name} is no capture file. Give a pcap or pcapng file, such as tcpdump or 'orva simulate' write."
        )


def _require_packets(recording: Recording, statistics: Statistics, port: int) -> None:
    """A recording without a single packet of the sensor is the wrong one."""
    name, model = recording.path, recording.model
    if statistics.index_records == statistics.index_not_for_us:
        if port == 0:
            raise ValueError(f"there is no UDP packet that the driver can read in {name}: 'orva info {name}' says why.")
        raise ValueError(
            f"nothing in {name} was sent to UDP port {port}. Give the sensor's data port, or leave port away to take "
            "every UDP packet."
        )
    refused = statistics.index_refused_length + statistics.index_refused_identifier
    if statistics.index_records == statistics.index_not_for_us + refused:
        raise ValueError(
            f"the packets of {name} are not of the model {model}. Check model and port: 'orva info {name}' shows what "
            "it holds."
        )
