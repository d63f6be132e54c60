// SPDX-License-Identifier: Apache-2.0
//
// ORVA: driver library for a family of LiDAR sensors. This is its one public header.
//
// What it does
//   The driver receives a sensor's UDP packets, live from the network or from a pcap recording, and
//   turns them into calibrated point clouds and IMU samples, which it hands to your callbacks.
//
// In five lines
//   OrvaDriver<PointCloud<Point>> driver;
//   driver.RegisterPointCloudCallBack(take_finished_cloud, make_empty_cloud);  // before InitDriver
//   driver.RegisterExceptionCallBack(report_error);                            // optional
//   if (!driver.InitDriver(param)) return 1;                                   // see DriverParam
//   driver.Start();                                                            // callbacks begin
//
// Units and axes
//   Distances and coordinates are metres, angles degrees, times seconds since 1970-01-01 UTC, IMU rates
//   radians per second, accelerations metres per second squared, temperatures degrees Celsius.
//   Points are in the sensor's frame: x forward, y to the left, z up; the origin is the sensor. With
//   DecoderParam::use_transform they are in the frame that its mounting values describe.
//   Azimuth is 0 straight ahead and positive to the left (towards y), elevation 0 is the horizon.
//
// Threads
//   InitDriver, Start, Stop, the registrations and the queries belong to one thread of the application;
//   the driver object is not synchronised. GetStatistics alone may be called from any thread while neither
//   InitDriver nor the destructor runs. Every callback runs on one thread of the driver, one at a
//   time: the decoding thread (live) or the replay thread (replay). The exception: InitDriver itself
//   fetches the first cloud (and in live mode the first IMU message) on the caller's thread. While a
//   callback runs, the next packet waits: live packets queue up, and when more than 8191 wait, all of
//   them are discarded.
//
// Inside a callback you may call
//   Stop (it asks the threads to end and returns at once; the next Start, Stop or destructor on another
//   thread joins them), GetLocalFileStatus, SetLocalFrame and GetStatistics. You must not destroy the driver
//   or call InitDriver there. A callback must not throw: on a driver thread that ends the program, but for
//   std::bad_alloc, which costs a packet or a frame. An exception of the first get callback, inside
//   InitDriver, reaches InitDriver's caller.
//
// Failures
//   Set-up failures come back as `false`. Packet faults go to the exception callback. The library itself
//   throws nothing at the application (out of memory excepted).
//
// It prints whole lines to standard output, and to standard error why a socket cannot be opened, a thread not
// be started, or a call on them fails later. Of a capture file that cannot be opened it prints the path
// alone. SetOrvaConsole sends the lines elsewhere. docs/console-lines.md lists them, docs/calibration.md
// describes the calibration folder.
#ifndef ORVA_DRIVER_H_
#define ORVA_DRIVER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#define ORVA_DRIVER_VERSION_MAJOR 1
#define ORVA_DRIVER_VERSION_MINOR 0
#define ORVA_DRIVER_VERSION_PATCH 0
#define ORVA_DRIVER_VERSION_STRING "1.0.0"

#if defined(__GNUC__)
#define ORVA_API __attribute__((visibility("default")))
#else
#define ORVA_API
#endif

/// Sensor models. The values are sparse on purpose: they are the sensors' own type numbers, and the
/// driver prints them ("type:33"). Any other value makes InitDriver fail.
enum LidarType : int32_t {
  KR7 = 1,    ///< accepted, but its packets yield no points
  NV2 = 16,   ///< 56 lines, fixed angles, IMU
  TS4A = 32,  ///< frame cadence only: every point is the origin
  TS4B = 33,  ///< 192 lines x 128 columns, calibrated
  TS4 = 48,   ///< accepted, but its packets yield no points
  TS6 = 64,   ///< 192 lines x 128 columns, calibrated, IMU
};

/// Where packets come from. Any non-zero value selects replay; other than PCAP it then fails.
enum InputType : int32_t {
  ONLINE = 0,  ///< UDP stream of a live sensor
  PCAP = 1,    ///< recording in a capture file (pcap or pcapng)
};

/// Packet source.
struct InputParam {
  /// Live: IPv4 address of the local interface to listen on; empty, or not in dotted form: all.
  std::string host_ip;
  /// UDP destination port of the point data. 0: in replay every UDP datagram, live a port of the kernel's
  /// choice.
  uint16_t msop_port = 0;
  /// Replay: path of the capture file. A regular file of any size, pcap or pcapng, of Ethernet (no VLAN
  /// tags), Linux cooked v1 or v2, raw IP or BSD loopback. Records that are not whole are skipped; a file
  /// that is cut off plays up to there.
  std::string pcap_path;
};

/// Limits and mounting.
///
/// A point outside the limits is not removed: it stays in the cloud as exactly (0, 0, 0), with its
/// intensity and label, so that a frame always holds the full grid. All bounds are inclusive.
///
/// Beware: the defaults are zero, and zero limits reject every point away from the origin. To let
/// everything pass set the ranges to
///   min_distance 0, max_distance 1000; azimuth -180 to 180; elevation -90 to 90.
/// A measurement that the near filter removed has distance 0; min_distance above 0 rejects it.
///
/// Mounting: a point p becomes Rz(yaw) * Ry(pitch) * Rx(roll) * p + offset, computed in double. Degrees
/// are converted with the constant pi * 0.005555556. Limits are tested on the sensor's own distance and
/// angles, not on the mounted point.
struct DecoderParam {
  float min_distance = 0.0F;   ///< metres
  float max_distance = 0.0F;   ///< metres
  float min_azimuth = 0.0F;    ///< degrees
  float max_azimuth = 0.0F;    ///< degrees
  float min_elevation = 0.0F;  ///< degrees
  float max_elevation = 0.0F;  ///< degrees
  bool use_transform = false;  ///< false: the six values below are ignored
  float x_offset = 0.0F;       ///< metres, added after the rotation
  float y_offset = 0.0F;       ///< metres
  float z_offset = 0.0F;       ///< metres
  float roll = 0.0F;           ///< degrees about x
  float pitch = 0.0F;          ///< degrees about y
  float yaw = 0.0F;            ///< degrees about z
};

/// Calibration source: a folder, or the sensor's command channel.
struct CalibrationParam {
  int32_t local_port = 0;    ///< local UDP port of the command socket; 0: chosen by the kernel
  std::string local_ip;      ///< local IPv4 address of the command socket; empty: all
  int32_t lidar_port = 0;    ///< the sensor's command port; 0: learnt from the first datagram it sends
  std::string lidar_ip;      ///< the sensor's IPv4 address; empty: learnt likewise
  std::string calib_folder;  ///< folder of calibration text files; TS4B and TS6 need one, else every
                             ///< direction of the grid is straight ahead
};

/// Everything InitDriver needs. It keeps copies; the record may go away afterwards.
struct DriverParam {
  bool calib_from_lidar = false;  ///< live: download the calibration from the sensor, do not read the folder.
                                  ///< Replay always reads the folder
  InputType input_type = ONLINE;
  LidarType lidar_type = static_cast<LidarType>(0);  ///< must be set: 0 is no model
  InputParam input_param;
  DecoderParam decoder_param;
  CalibrationParam calibration_param;
};

/// Values of Error::error_code. No others exist.
enum ErrorCode : int32_t {
  ERROR_MSOP_LENGTH = 65,  ///< a packet's length differs from the model's
  ERROR_MSOP_ID = 66,      ///< a packet's leading identifier bytes differ from the model's
};

/// A packet fault, given to the exception callback: for each code at most once every two seconds (counted
/// in whole seconds, over all drivers of the process with the same cloud type). The console line
/// appears for every faulty packet. The packet is dropped and decoding goes on. The index pass of a replay
/// counts its own two seconds and prints no line, so a bad packet is reported there, and again when its
/// frame is played.
struct Error {
  int32_t error_code = 0;   ///< an ErrorCode
  int32_t error_level = 0;  ///< always 1
};

/// The plain point, 16 bytes.
struct ORVA_API Point {
  float x = 0.0F;          ///< metres
  float y = 0.0F;          ///< metres
  float z = 0.0F;          ///< metres
  uint16_t intensity = 0;  ///< raw count of the sensor: 16 bits, NV2 12 bits
  uint16_t label = 0;      ///< laser line of the measurement, counted from 0
};

/// Point with a time, 24 bytes.
struct ORVA_API PointTime {
  float x = 0.0F;          ///< metres
  float y = 0.0F;          ///< metres
  float z = 0.0F;          ///< metres
  uint16_t intensity = 0;  ///< as in Point
  uint16_t label = 0;      ///< as in Point
  double timestamp = 0.0;  ///< seconds since the epoch. NV2: its packet's UTC time. TS6: UTC time of a recent
                           ///< packet, renewed every 256 blocks. Others: 0
};

/// Point with a time and its source data, 40 bytes.
struct ORVA_API PointSource {
  float x = 0.0F;                ///< metres
  float y = 0.0F;                ///< metres
  float z = 0.0F;                ///< metres
  uint16_t intensity = 0;        ///< as in Point
  uint16_t label = 0;            ///< as in Point
  double timestamp = 0.0;        ///< as in PointTime
  int64_t source_distance = 0;   ///< TS4B: measured distance in whole metres, truncated; INT64_MIN where
                                 ///< the measurement gave no finite distance. Others: 0
  uint64_t source_reserved = 0;  ///< always 0
};

/// One frame of points.
///
/// You allocate clouds in the get callback and receive them back, filled, in the put callback; from then
/// on the driver holds no reference. The driver only appends: clear `points` before you reuse a cloud.
/// You may derive from it and override PushPoint; the driver then calls your PushPoint for every point.
template <typename T>
class ORVA_API PointCloud {
 public:
  using PointType = T;

  /// Appends one point. Called on the driver's thread.
  virtual void PushPoint(const T& point) { points.push_back(point); }

  PointCloud() = default;
  PointCloud(const PointCloud&) = default;
  PointCloud(PointCloud&&) = default;
  PointCloud& operator=(const PointCloud&) = default;
  PointCloud& operator=(PointCloud&&) = default;
  virtual ~PointCloud() = default;

  std::string frame_id;  ///< the application's own; the driver never touches it
  uint32_t seq = 0;      ///< the application's own; the driver never touches it
  /// Frame time in seconds since the epoch, set when the frame ends. NV2: UTC time of the packet that ended
  /// the frame. TS6: of its first packet. Else 0. Also 0 where a recording ended inside the frame.
  double timestamp = 0.0;
  uint16_t status_word = 0;    ///< TS4B and TS6, at a frame-end marker: the sensor's status word
  double temperature_a = 0.0;  ///< TS4B and TS6, likewise: degrees Celsius, raw * 0.0625 - 64
  double temperature_b = 0.0;  ///< TS4B and TS6, likewise: degrees Celsius, raw * 0.0625 - 64
  uint8_t status_byte = 0;     ///< TS4B and TS6, likewise: the sensor's status byte
  std::vector<T> points;       ///< in the order of measurement, rejected points as (0, 0, 0)
};

/// One IMU sample (TS6 and NV2, live mode only). Axes are those of the point cloud before mounting.
struct ImuMsg {
  bool valid = false;                  ///< true once the driver has filled the message
  double timestamp = 0.0;              ///< UTC time of the packet that carried it, seconds since the epoch
  uint64_t user_a = 0;                 ///< the application's own; the driver never touches it
  uint64_t user_b = 0;                 ///< the application's own; the driver never touches it
  float angular_velocity_x = 0.0F;     ///< radians per second: count * 0.000173611 * pi (TS6),
  float angular_velocity_y = 0.0F;     ///< count * 2.0345e-05 * pi (NV2)
  float angular_velocity_z = 0.0F;     ///<
  float linear_acceleration_x = 0.0F;  ///< metres per second squared: count * 0.004788403,
  float linear_acceleration_y = 0.0F;  ///< that is 1/2048 of standard gravity per count
  float linear_acceleration_z = 0.0F;  ///<
};

/// Where the calibration of the points comes from.
enum CalibrationState : int32_t {
  CALIBRATION_NONE = 0,  ///< points come uncalibrated: no folder was given, or it did not load whole; or
                         ///< a download ended that lacked sections or whose model takes none
  CALIBRATION_FROM_FOLDER = 1,  ///< the calibration folder is in use
  CALIBRATION_DOWNLOADING = 2,  ///< asked for from the sensor, not yet in use: points come uncalibrated
  CALIBRATION_FROM_SENSOR = 3,  ///< the download ended, filled all that the model takes, and is in use
};

/// What became of every packet since InitDriver, see OrvaDriver::GetStatistics. Stop and Start let the counts
/// go on. After Stop, and in replay between two plays,
///   received = decoded + refused_length + refused_identifier + not_for_us + discarded + queued;
/// while packets flow the two sides may differ by the few that the driver has in hand.
///
/// The record keeps its size of 256 bytes: further fields take the place of reserved words, which are 0.
struct DriverStatistics {
  uint64_t received = 0;            ///< live: datagrams taken from the socket. Replay: records read by plays
  uint64_t received_bytes = 0;      ///< their payload, live without what exceeds 1546 bytes of a datagram,
                                    ///< replay without that of `not_for_us`
  uint64_t decoded = 0;             ///< packets of the model, given to the decoder
  uint64_t refused_length = 0;      ///< packets of another length than the model's (ERROR_MSOP_LENGTH)
  uint64_t refused_identifier = 0;  ///< packets that begin with other bytes (ERROR_MSOP_ID)
  uint64_t not_for_us = 0;          ///< replay: records of another port or protocol, cut, too long or empty.
                                    ///< Live: empty datagrams
  uint64_t discarded = 0;           ///< live: packets thrown away because more than 8191 waited (a callback
                                    ///< takes too long), or for want of memory
  uint64_t queued = 0;              ///< live: packets that wait for the decoding thread at this moment
  uint64_t kernel_dropped = 0;    ///< live: datagrams that the kernel dropped on the data socket, most often
                                  ///< because its receive buffer was full. Not among `received`. After
                                  ///< `Stop` it stands still: nobody reads then. 0 before Linux 4.12; the
                                  ///< kernel's count wraps at 2^32
  uint64_t frames = 0;            ///< frames that ended, whether or not a put callback took the cloud
  uint64_t imu_samples = 0;       ///< live: IMU samples made; none without an IMU get callback
  uint64_t plays = 0;             ///< replay: plays begun, also of a frame that was played before
  uint64_t index_records = 0;     ///< replay: records that the index pass read; the four counts of the index
                                  ///< pass are not among the ones above
  uint64_t index_not_for_us = 0;  ///< replay: of these, as in `not_for_us`
  uint64_t index_refused_length = 0;      ///< replay: of these, as in `refused_length`
  uint64_t index_refused_identifier = 0;  ///< replay: of these, as in `refused_identifier`
  uint64_t receive_buffer_bytes = 0;  ///< live: receive buffer that the kernel grants the data socket, with
                                      ///< its own overhead (some 2300 bytes for a packet of 1360)
  uint64_t calibration_bytes = 0;     ///< live: bytes of calibration that the sensor has sent
  CalibrationState calibration = CALIBRATION_NONE;
  int32_t calibration_sections = 0;  ///< live: sections of the calibration that the sensor's download filled,
                                     ///< of the 4 that TS4A, TS4B and TS6 take. Fewer are in use all the same
  uint64_t out_of_memory =
      0;  ///< times that memory ran out on a thread of the driver, or in a callback there:
          ///< a packet, a frame, an IMU sample or a reply of the download was dropped
  uint64_t reserved[12] = {};
};

/// The driver. PC is PointCloud<Point>, PointCloud<PointTime> or PointCloud<PointSource>; the three differ
/// only in the fields that a point carries.
///
/// Order of calls: register callbacks, InitDriver, Start; Stop at any time, then Start again or destroy.
///
/// Stepping through a recording (input_type PCAP):
///   1. Start. The replay thread reads the file once and indexes its frames; it delivers nothing yet.
///   2. Poll GetLocalFileStatus until it returns true: it gives the number of frames.
///   3. SetLocalFrame(k), 0 <= k < number. The put callback gets the frame from the replay thread.
///   4. Wait for the put callback, then repeat the next SetLocalFrame until it returns true: a play ends
///      only after the put callback has returned.
///   Do not poll GetLocalFileStatus while a frame plays: that cancels the play, and the points read so far
///   stay in the current cloud.
///   A frame's first packet is the one that ended the frame before, from the block after the frame-end
///   marker. Where a marker closes the file, the last frame is therefore empty. A frame so short that it ends
///   within its first packet is put, and the play goes on to put the next one too. The last frame ends with
///   the file, and is put as it stands there.
template <typename PC>
class ORVA_API OrvaDriver {
 public:
  OrvaDriver();
  /// Stops the driver and joins its threads. Not from inside a callback.
  virtual ~OrvaDriver();
  OrvaDriver(const OrvaDriver&) = delete;
  OrvaDriver& operator=(const OrvaDriver&) = delete;

  /// `put` takes each finished cloud, `get` returns an empty one. Both are copied, and reach the driver
  /// at the next InitDriver, not before. Without `put` finished clouds are dropped; without `get`, or where
  /// it returns null, the points of that frame are dropped (without `get` a yellow line says so).
  void RegisterPointCloudCallBack(const std::function<void(std::shared_ptr<PC>)>& put,
                                  const std::function<std::shared_ptr<PC>()>& get);
  /// The same for IMU samples. Without `get` no sample is delivered.
  void RegisterImuCallBack(const std::function<void(std::shared_ptr<ImuMsg>)>& put,
                           const std::function<std::shared_ptr<ImuMsg>()>& get);
  /// Takes packet faults, see Error. Registered like the others, before InitDriver.
  void RegisterExceptionCallBack(const std::function<void(const Error&)>& callback);
  /// Takes every packet as it came, before it is checked: `length` bytes at `data`, valid during the call,
  /// and when it was received, in seconds since the epoch: by the system's clock, as soon as the driver had
  /// it from the socket (live), or the record's time in the capture (replay; only what plays read, and only
  /// datagrams for us). It runs on the decoding or the replay thread, ahead of the other callbacks of that
  /// packet. Datagrams that the queue discarded, and empty ones, are not seen. Registered like the others,
  /// before InitDriver; without it nothing is spent on it.
  void RegisterPacketCallBack(
      const std::function<void(const uint8_t* data, size_t length, double received)>& callback);

  /// Sets everything up: decoder, calibration, socket or file. Releases the set-up of an earlier call
  /// first (and joins its threads), also when it then fails. False, after a line on the console, when the
  /// model or input type is unknown, a socket cannot be opened, or the capture file is no capture, missing
  /// (the line then only names it) or of an unknown link type; the driver is then as before its first
  /// InitDriver. A missing or unusable calibration folder is not a failure: points then come uncalibrated.
  bool InitDriver(const DriverParam& param);
  /// Starts the threads. True also when they run already; false without a successful InitDriver, or, after a
  /// line on the console, when the system refuses a thread. After Stop it goes on; replay neither rewinds nor
  /// forgets its index, while a calibration download that was broken off begins anew.
  bool Start();
  /// Ends and joins the threads; a live driver may take 100 ms for it, with calib_from_lidar 300 ms. Waits
  /// for a callback that is running, so hold no lock here that a callback needs. Harmless when repeated, and
  /// without a successful InitDriver.
  void Stop();

  /// Replay: true once the recording is indexed; `status` is then the number of frames, and a play that
  /// is under way is cancelled. Otherwise, and live, false with `status` untouched. From outside a callback
  /// it waits until the first packet of a frame that is being played is decoded, with the callbacks that this
  /// packet causes: hold no lock here that the packet, error or cloud callbacks need.
  bool GetLocalFileStatus(int& status);
  /// Replay: asks for frame `frame`, counted from 0, and returns at once. False, with nothing changed,
  /// while indexing, while a play is under way, for a number out of range, and live.
  bool SetLocalFrame(const int& frame);

  /// What became of every packet so far. From any thread, also in a callback, but not while InitDriver or the
  /// destructor runs; it holds up no packet. False, with `statistics` untouched, without a successful
  /// InitDriver.
  bool GetStatistics(DriverStatistics& statistics);

 private:
  class Impl;
  std::shared_ptr<Impl> impl_;
};

extern template class OrvaDriver<PointCloud<Point>>;
extern template class OrvaDriver<PointCloud<PointTime>>;
extern template class OrvaDriver<PointCloud<PointSource>>;

/// Where the console lines of all drivers of this process go (docs/console-lines.md), instead of standard
/// output and standard error: to `sink`, line by line, without the line end but with its colours. It is
/// called on whatever thread prints, several at a time too, and must neither throw nor wait for a driver. An
/// empty `sink` restores the streams. From any thread; a sink that was replaced may be called for a moment
/// longer, and is never destroyed.
ORVA_API void SetOrvaConsole(const std::function<void(const char* line, bool is_error)>& sink);

#endif  // ORVA_DRIVER_H_
