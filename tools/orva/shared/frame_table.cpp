// SPDX-License-Identifier: Apache-2.0
#include "shared/frame_table.h"

#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace orva {
namespace {

__attribute__((format(printf, 1, 2))) std::string Format(const char* format, ...) {
  std::array<char, 128> text;
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

}  // namespace

std::string TimeText(double seconds) {
  if (!(seconds > 0.0 && seconds < 1e11)) {
    return "-";
  }
  const double milliseconds = std::round(seconds * 1000.0);
  const auto whole = static_cast<std::time_t>(milliseconds / 1000.0);
  const int rest = static_cast<int>(std::fmod(milliseconds, 1000.0));
  std::tm utc = {};
  gmtime_r(&whole, &utc);
  std::array<char, 32> text;
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &utc);
  return text.data() + Format(".%03d", rest);
}

std::string FrameTableHead() {
  return Format("%7s %8s %8s  %-23s %7s %7s  %s", "frame", "points", "valid", "time (UTC)", "temp A",
                "temp B", "status");
}

std::string FrameTableRow(int frame, int part, const Cloud& cloud, std::size_t valid) {
  const std::string number =
      part == 0 ? std::to_string(frame) : std::to_string(frame) + "." + std::to_string(part);
  std::string row = Format("%7s %8zu %8zu  %-23s", number.c_str(), cloud.points.size(), valid,
                           TimeText(cloud.timestamp).c_str());
  // The driver fills these at a frame-end marker only, and raw zeros would be -64 degrees.
  const bool has_tail = cloud.temperature_a != 0.0 || cloud.temperature_b != 0.0 || cloud.status_word != 0 ||
                        cloud.status_byte != 0;
  return row + (has_tail ? Format(" %5.1f C %5.1f C  %04X/%02X", cloud.temperature_a, cloud.temperature_b,
                                  cloud.status_word, cloud.status_byte)
                         : Format(" %7s %7s  %s", "-", "-", "-"));
}

}  // namespace orva
