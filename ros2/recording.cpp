// SPDX-License-Identifier: Apache-2.0
#include "recording.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <numeric>
#include <thread>
#include <utility>
#include <vector>

#include "deliveries.h"
#include "report_topics.h"
#include "sensor_topics.h"
#include "sessions/pacing.h"
#include "sessions/replay_session.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"

namespace orva::ros2 {
namespace {

using Clock = std::chrono::steady_clock;

int64_t Nanoseconds() {
  return Clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

/// In steps, so that Ctrl-C is heard.
void WaitUntil(int64_t due, int64_t end) {
  constexpr int64_t kStep = 50'000'000;
  for (int64_t now = Nanoseconds(); now < due && now < end && !Interrupted(); now = Nanoseconds()) {
    std::this_thread::sleep_for(std::chrono::nanoseconds(std::min(due - now, kStep)));
  }
}

}  // namespace

std::string PublishRecording(const Options& options, const Participant& participant) {
  const SensorSetup& setup = options.sensors.front();
  SensorTopics topics(participant, setup.space, options.delivery, setup.cloud);
  ReportTopics reports(participant, {setup.mounting});

  constexpr int64_t kSecond = 1'000'000'000;
  const int64_t end = options.duration > 0 ? Nanoseconds() + static_cast<int64_t>(options.duration * 1e9)
                                           : std::numeric_limits<int64_t>::max();
  const auto over = [end] { return Interrupted() || Nanoseconds() >= end; };
  while (!topics.HasReaders(options.readers) && !over()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  // A reader that is known here may not know this writer yet; what it is sent until then it does not take.
  if (options.readers > 0) std::this_thread::sleep_for(std::chrono::milliseconds(500));
  Pace pace(options.rate);
  DriverStatistics reported;
  Deliveries deliveries, reported_deliveries;
  int64_t last_report = Nanoseconds();
  do {
    ReplaySession session(setup.param);
    session.StartIndex();
    std::vector<int> frames(static_cast<size_t>(session.FinishIndex()));
    if (frames.empty()) {
      throw Failure("nothing in " + setup.param.input_param.pcap_path +
                    " is for the driver. 'orva info' on it tells why.");
    }
    std::iota(frames.begin(), frames.end(), 0);
    reported = {};
    session.Play(frames, [&](int, int, const Cloud& cloud) {
      const FrameOrigin& origin = session.Origin();
      if (over()) return;
      const auto wait_for = [&](double recorded) {
        WaitUntil(pace.Due(static_cast<int64_t>(recorded * 1e9), Nanoseconds()), end);
      };
      for (const auto& [sample, received] : origin.imu) {
        wait_for(received);
        if (!topics.Publish(sample, received)) ++deliveries.samples_lost;
      }
      wait_for(origin.last_packet);
      if (!cloud.points.empty()) deliveries.Add(topics.Publish(cloud, origin.first_packet));
      if (const int64_t now = Nanoseconds(); now - last_report >= kSecond) {
        const double seconds = static_cast<double>(now - std::exchange(last_report, now)) * 1e-9;
        reports.Publish({Diagnose(origin.statistics, std::exchange(reported, origin.statistics), deliveries,
                                  std::exchange(reported_deliveries, deliveries), seconds,
                                  {"orva: " + setup.name, TraitsOf(setup.param.lidar_type).name})});
      }
    });
    pace.Restart();
  } while (options.loop && !over());
  topics.WaitForReaders(std::chrono::seconds(2));
  return deliveries.Summary(setup.name);
}

}  // namespace orva::ros2
