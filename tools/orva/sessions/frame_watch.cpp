// SPDX-License-Identifier: Apache-2.0
#include "sessions/frame_watch.h"

#include <array>
#include <cstdio>

#include "shared/models.h"
#include "shared/words.h"

namespace orva {
namespace {

template <typename... Values>
std::string Format(const char* format, Values... values) {
  std::array<char, 160> text;
  std::snprintf(text.data(), text.size(), format, values...);
  return text.data();
}

}  // namespace

FrameCounts::FrameCounts(LidarType model) : full_(TraitsOf(model).frame_points) {}

void FrameCounts::Add(std::size_t points) {
  ++frames_;
  if (full_ == 0 || frames_ == 1) {
    return;
  }
  if (points < full_) {
    ++incomplete_;
    missing_points_ += full_ - points;
  } else if (points > full_) {
    ++merged_;
  }
}

std::string FrameCounts::Text() const {
  std::string text;
  if (incomplete_ > 0) {
    text = std::to_string(incomplete_) + " of " + Counted(frames_, "frame", "frames") + " incomplete, " +
           Format("%.1f %% of their points missing",
                  100.0 * static_cast<double>(missing_points_) / static_cast<double>(incomplete_ * full_));
  }
  if (merged_ > 0) {
    text += (text.empty() ? "" : "; ") + Counted(merged_, "frame", "frames") +
            " merged with the next, its end marker missing";
  }
  return text;
}

std::string SilenceWatch::Look(std::uint64_t packets, Clock::time_point now) {
  const std::chrono::duration<double> since = now - last_;
  if (packets > packets_) {
    const bool was_silent = silent_;
    packets_ = packets;
    last_ = now;
    silent_ = false;
    if (was_silent) {
      total_ += since;
      return Format("the sensor sends again, after %.1f s of silence", since.count());
    }
  } else if (packets_ > 0 && !silent_ && now - last_ >= kSilent) {
    silent_ = true;
    ++times_;
    return Format("the sensor is silent: no packet of its model for %.1f s", since.count());
  }
  return "";
}

std::string SilenceWatch::Text(Clock::time_point now) const {
  if (times_ == 0) {
    return "";
  }
  const std::chrono::duration<double> total = total_ + (silent_ ? now - last_ : Clock::duration{});
  return "the sensor was silent " + Counted(times_, "time", "times") +
         Format(", %.1f s in all%s", total.count(), silent_ ? ", and is so at the end" : "");
}

}  // namespace orva
