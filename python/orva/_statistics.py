# SPDX-License-Identifier: Apache-2.0
"""What became of every packet."""

from __future__ import annotations

from dataclasses import dataclass, fields

from . import _orva

_CALIBRATION = {
    _orva.Calibration.NONE: "none",
    _orva.Calibration.FROM_FOLDER: "folder",
    _orva.Calibration.DOWNLOADING: "downloading",
    _orva.Calibration.FROM_SENSOR: "sensor",
}


@dataclass(frozen=True)
class Statistics:
    """What became of every packet so far.

    Replay counts what its plays read, also of frames that were decoded ahead; the four ``index_`` counts are of the
    pass that finds the frames, before the first play.
    """

    received: int  #: live: datagrams taken from the socket; replay: records read by plays
    received_bytes: int  #: their payload
    decoded: int  #: packets of the model, given to the decoder
    refused_length: int  #: packets of another length than the model's
    refused_identifier: int  #: packets that begin with other bytes than the model's
    not_for_us: int  #: replay: records of another port or protocol, cut or empty; live: empty datagrams
    discarded: int  #: live: packets thrown away because more than 8191 waited
    queued: int  #: live: packets that wait for the decoding thread at this moment
    kernel_dropped: int  #: live: datagrams that the kernel dropped, most often because its buffer was full
    frames: int  #: frames that ended
    imu_samples: int  #: live: IMU samples made
    plays: int  #: replay: plays begun
    index_records: int  #: replay: records of the recording
    index_not_for_us: int  #: replay: of these, as in not_for_us
    index_refused_length: int  #: replay: of these, as in refused_length
    index_refused_identifier: int  #: replay: of these, as in refused_identifier
    receive_buffer_bytes: int  #: live: receive buffer that the kernel grants the socket
    calibration_bytes: int  #: live: bytes of calibration that the sensor has sent
    calibration: str  #: "none", "folder", "downloading" or "sensor"
    calibration_sections: int  #: live: sections of the calibration that the download filled, of 4; fewer are used too
    out_of_memory: int  #: times that memory ran out on a thread of the driver: a packet, frame or sample was dropped


def statistics_of(native: _orva.Statistics) -> Statistics:
    """From the driver's record."""
    counts = {field.name: getattr(native, field.name) for field in fields(Statistics)}
    counts["calibration"] = _CALIBRATION[counts["calibration"]]
    return Statistics(**counts)
