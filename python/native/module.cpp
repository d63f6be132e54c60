// SPDX-License-Identifier: Apache-2.0
// The private module under the package: sessions, records and arrays as C++ has them. The words that people
// use are in the Python layer above it.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "console.h"
#include "live_session.h"
#include "replay_session.h"

namespace py = pybind11;

namespace orva_python {
namespace {

using WithoutInterpreter = py::call_guard<py::gil_scoped_release>;

/// Runs Python's signal handlers, in the main thread, and lets their exception through.
void CheckSignals() {
  const py::gil_scoped_acquire interpreter;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

/// Joining threads takes a moment in which other Python threads go on. In a forked child there is nothing to
/// join, and the locks may be held by threads that do not exist: the object stays as it is.
template <typename Session>
struct EndSession {
  void operator()(Session* session) const {
    if (!session->InOwnProcess()) return;
    const py::gil_scoped_release others;
    delete session;
  }
};

/// A view of the cloud's own points; the array keeps the cloud alive.
template <typename PC>
py::array Points(const py::object& self) {
  const auto& frame = self.cast<const Frame<PC>&>();
  auto& points = frame.cloud->points;
  using PointType = typename PC::PointType;
  const auto count = static_cast<py::ssize_t>(points.size() - frame.skipped);
  return py::array(py::dtype::of<PointType>(), {count}, {static_cast<py::ssize_t>(sizeof(PointType))},
                   points.data() + frame.skipped, self);
}

/// A view of samples that belong to the array alone.
py::array ImuArray(std::vector<ImuMsg> samples) {
  auto owned = std::make_unique<std::vector<ImuMsg>>(std::move(samples));
  const auto count = static_cast<py::ssize_t>(owned->size());
  ImuMsg* data = owned->data();
  const py::capsule owner(owned.release(),
                          [](void* vector) { delete static_cast<std::vector<ImuMsg>*>(vector); });
  return py::array(py::dtype::of<ImuMsg>(), {count}, {static_cast<py::ssize_t>(sizeof(ImuMsg))}, data, owner);
}

template <typename PC>
void BindCloudType(py::module_& module, const std::string& name) {
  using Cloud = Frame<PC>;
  py::class_<Cloud>(module, ("Cloud" + name).c_str())
      .def("points", &Points<PC>)
      .def_readonly("number", &Cloud::number)
      .def_readonly("part", &Cloud::part)
      .def_readonly("received", &Cloud::received)
      .def_readonly("calibrated", &Cloud::calibrated)
      .def_property_readonly("timestamp", [](const Cloud& self) { return self.cloud->timestamp; })
      .def_property_readonly("temperature_a", [](const Cloud& self) { return self.cloud->temperature_a; })
      .def_property_readonly("temperature_b", [](const Cloud& self) { return self.cloud->temperature_b; })
      .def_property_readonly("status_word", [](const Cloud& self) { return self.cloud->status_word; })
      .def_property_readonly("status_byte", [](const Cloud& self) { return self.cloud->status_byte; });

  using Replay = ReplaySession<PC>;
  py::class_<Replay, std::unique_ptr<Replay, EndSession<Replay>>>(module, ("Replay" + name).c_str())
      .def(py::init<const DriverParam&>(), WithoutInterpreter())
      .def(
          "index", [](Replay& self) { return self.Index(CheckSignals); }, WithoutInterpreter())
      .def(
          "play", [](Replay& self, int frame, int next) { return self.Play(frame, next, CheckSignals); },
          WithoutInterpreter())
      .def(
          "statistics", [](Replay& self) { return self.Statistics(CheckSignals); }, WithoutInterpreter())
      .def("close", &Replay::Close, WithoutInterpreter());

  using Live = LiveSession<PC>;
  py::class_<Live, std::unique_ptr<Live, EndSession<Live>>>(module, ("Live" + name).c_str())
      .def(py::init<const DriverParam&, std::size_t, bool>(), WithoutInterpreter())
      .def(
          "take", [](Live& self, std::optional<double> seconds) { return self.Take(seconds, CheckSignals); },
          WithoutInterpreter())
      .def("take_imu", [](Live& self) { return ImuArray(self.TakeImu()); })
      .def("dropped", [](Live& self) { return self.Read().dropped; })
      .def("dropped_imu", [](Live& self) { return self.Read().dropped_imu; })
      .def("held_back", [](Live& self) { return self.Read().held_back; })
      .def("closed", &Live::closed)
      .def(
          "statistics", [](Live& self) { return self.Statistics(CheckSignals); }, WithoutInterpreter())
      .def("close", &Live::Close, WithoutInterpreter());
}

void BindRecords(py::module_& module) {
  py::enum_<CalibrationState>(module, "Calibration")
      .value("NONE", CALIBRATION_NONE)
      .value("FROM_FOLDER", CALIBRATION_FROM_FOLDER)
      .value("DOWNLOADING", CALIBRATION_DOWNLOADING)
      .value("FROM_SENSOR", CALIBRATION_FROM_SENSOR);
  py::class_<DriverStatistics>(module, "Statistics")
#define ORVA_COUNT(field) .def_readonly(#field, &DriverStatistics::field)
      ORVA_COUNT(received) ORVA_COUNT(received_bytes) ORVA_COUNT(decoded) ORVA_COUNT(refused_length)
          ORVA_COUNT(refused_identifier) ORVA_COUNT(not_for_us) ORVA_COUNT(discarded) ORVA_COUNT(queued)
              ORVA_COUNT(kernel_dropped) ORVA_COUNT(frames) ORVA_COUNT(imu_samples) ORVA_COUNT(plays)
                  ORVA_COUNT(index_records) ORVA_COUNT(index_not_for_us) ORVA_COUNT(index_refused_length)
                      ORVA_COUNT(index_refused_identifier) ORVA_COUNT(receive_buffer_bytes)
                          ORVA_COUNT(calibration_bytes) ORVA_COUNT(calibration)
                              ORVA_COUNT(calibration_sections) ORVA_COUNT(out_of_memory)
#undef ORVA_COUNT
                                  ;
  py::class_<DecoderParam>(module, "DecoderParam")
      .def(py::init<>())
      .def_readwrite("min_distance", &DecoderParam::min_distance)
      .def_readwrite("max_distance", &DecoderParam::max_distance)
      .def_readwrite("min_azimuth", &DecoderParam::min_azimuth)
      .def_readwrite("max_azimuth", &DecoderParam::max_azimuth)
      .def_readwrite("min_elevation", &DecoderParam::min_elevation)
      .def_readwrite("max_elevation", &DecoderParam::max_elevation)
      .def_readwrite("use_transform", &DecoderParam::use_transform)
      .def_readwrite("x_offset", &DecoderParam::x_offset)
      .def_readwrite("y_offset", &DecoderParam::y_offset)
      .def_readwrite("z_offset", &DecoderParam::z_offset)
      .def_readwrite("roll", &DecoderParam::roll)
      .def_readwrite("pitch", &DecoderParam::pitch)
      .def_readwrite("yaw", &DecoderParam::yaw);
  py::class_<InputParam>(module, "InputParam")
      .def(py::init<>())
      .def_readwrite("host_ip", &InputParam::host_ip)
      .def_readwrite("msop_port", &InputParam::msop_port)
      .def_property(  // bytes: a path need not be text
          "pcap_path", [](const InputParam& self) { return py::bytes(self.pcap_path); },
          [](InputParam& self, const std::string& path) { self.pcap_path = path; });
  py::class_<CalibrationParam>(module, "CalibrationParam")
      .def(py::init<>())
      .def_readwrite("local_port", &CalibrationParam::local_port)
      .def_readwrite("local_ip", &CalibrationParam::local_ip)
      .def_readwrite("lidar_port", &CalibrationParam::lidar_port)
      .def_readwrite("lidar_ip", &CalibrationParam::lidar_ip)
      .def_property(
          "calib_folder", [](const CalibrationParam& self) { return py::bytes(self.calib_folder); },
          [](CalibrationParam& self, const std::string& path) { self.calib_folder = path; });
  py::class_<DriverParam>(module, "DriverParam")
      .def(py::init<>())
      .def_readwrite("calib_from_lidar", &DriverParam::calib_from_lidar)
      .def_property(
          "replay", [](const DriverParam& self) { return self.input_type == PCAP; },
          [](DriverParam& self, bool replay) { self.input_type = replay ? PCAP : ONLINE; })
      .def_property(
          "lidar_type", [](const DriverParam& self) { return static_cast<int>(self.lidar_type); },
          [](DriverParam& self, int type) { self.lidar_type = static_cast<LidarType>(type); })
      .def_readwrite("input_param", &DriverParam::input_param)
      .def_readwrite("decoder_param", &DriverParam::decoder_param)
      .def_readwrite("calibration_param", &DriverParam::calibration_param);
}

}  // namespace

PYBIND11_MODULE(_orva, module) {
  module.doc() = "Private. Import orva instead.";
  PYBIND11_NUMPY_DTYPE(Point, x, y, z, intensity, label);
  PYBIND11_NUMPY_DTYPE(PointTime, x, y, z, intensity, label, timestamp);
  PYBIND11_NUMPY_DTYPE(PointSource, x, y, z, intensity, label, timestamp, source_distance, source_reserved);
  PYBIND11_NUMPY_DTYPE(ImuMsg, timestamp, angular_velocity_x, angular_velocity_y, angular_velocity_z,
                       linear_acceleration_x, linear_acceleration_y, linear_acceleration_z);
  py::register_exception<Forked>(module, "Forked", PyExc_RuntimeError);
  py::register_exception<Closed>(module, "Closed", PyExc_ValueError);
  py::register_exception<Refused>(module, "Refused", PyExc_OSError);
  module.attr("version") = ORVA_DRIVER_VERSION_STRING;

  BindRecords(module);
  BindCloudType<PointCloud<Point>>(module, "Point");
  BindCloudType<PointCloud<PointTime>>(module, "PointTime");
  BindCloudType<PointCloud<PointSource>>(module, "PointSource");

  KeepConsoleLines();
  module.def("console_line_count", &ConsoleLineCount);
  module.def("console_lines", &ConsoleLines);
  module.def("show_console_lines", &ShowConsoleLines);
}

}  // namespace orva_python
