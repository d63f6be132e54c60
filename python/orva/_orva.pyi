# SPDX-License-Identifier: Apache-2.0
# The private module under the package.
from enum import Enum
from typing import Optional

import numpy

version: str

class Forked(RuntimeError): ...
class Closed(ValueError): ...
class Refused(OSError): ...

class Calibration(Enum):
    NONE = 0
    FROM_FOLDER = 1
    DOWNLOADING = 2
    FROM_SENSOR = 3

class Statistics:
    received: int
    received_bytes: int
    decoded: int
    refused_length: int
    refused_identifier: int
    not_for_us: int
    discarded: int
    queued: int
    kernel_dropped: int
    frames: int
    imu_samples: int
    plays: int
    index_records: int
    index_not_for_us: int
    index_refused_length: int
    index_refused_identifier: int
    receive_buffer_bytes: int
    calibration_bytes: int
    calibration: Calibration
    calibration_sections: int
    out_of_memory: int

class DecoderParam:
    min_distance: float
    max_distance: float
    min_azimuth: float
    max_azimuth: float
    min_elevation: float
    max_elevation: float
    use_transform: bool
    x_offset: float
    y_offset: float
    z_offset: float
    roll: float
    pitch: float
    yaw: float

class InputParam:
    host_ip: str
    msop_port: int
    pcap_path: bytes

class CalibrationParam:
    local_port: int
    local_ip: str
    lidar_port: int
    lidar_ip: str
    calib_folder: bytes

class DriverParam:
    replay: bool
    lidar_type: int
    calib_from_lidar: bool
    input_param: InputParam
    decoder_param: DecoderParam
    calibration_param: CalibrationParam

# Each of the following exists for the three point types.

class CloudPointTime:
    number: int
    part: int
    received: float
    calibrated: bool
    timestamp: float
    temperature_a: float
    temperature_b: float
    status_word: int
    status_byte: int
    def points(self) -> numpy.ndarray: ...

class ReplayPointTime:
    def __init__(self, param: DriverParam) -> None: ...
    def index(self) -> int: ...
    def play(self, frame: int, next: int) -> list[CloudPointTime]: ...
    def statistics(self) -> Statistics: ...
    def close(self) -> None: ...

class LivePointTime:
    def __init__(self, param: DriverParam, queue: int, uncalibrated: bool) -> None: ...
    def take(self, seconds: Optional[float]) -> Optional[CloudPointTime]: ...
    def take_imu(self) -> numpy.ndarray: ...
    def dropped(self) -> int: ...
    def dropped_imu(self) -> int: ...
    def held_back(self) -> int: ...
    def closed(self) -> bool: ...
    def statistics(self) -> Statistics: ...
    def close(self) -> None: ...

def console_line_count() -> int: ...
def console_lines(first: int) -> list[str]: ...
def show_console_lines(show: bool) -> None: ...
