// SPDX-License-Identifier: Apache-2.0
#include "view/page_client.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "view/requests.h"

namespace orva::view {
namespace {

using Json = nlohmann::json;

constexpr int kMostCredit = 2;  ///< one frame on its way, one being drawn
constexpr std::size_t kMostReplies = 16;
constexpr std::chrono::milliseconds kImuPause(100);  ///< samples come by the batch

template <typename... Cases>
struct Choose : Cases... {
  using Cases::operator()...;
};
template <typename... Cases>
Choose(Cases...) -> Choose<Cases...>;

/// File names may be no UTF-8.
std::string Dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Message Text(const std::string& text) {
  return {std::make_shared<const Bytes>(text.begin(), text.end()), true};
}

std::string ImuText(const std::vector<ImuMsg>& samples) {
  Json list = Json::array();
  for (const ImuMsg& sample : samples) {
    list.push_back({sample.timestamp, sample.angular_velocity_x, sample.angular_velocity_y,
                    sample.angular_velocity_z, sample.linear_acceleration_x, sample.linear_acceleration_y,
                    sample.linear_acceleration_z});
  }
  return Dump({{"type", "imu"}, {"samples", std::move(list)}});
}

}  // namespace

PageClient::PageClient(Feed& feed) : feed_(feed), id_(feed.Enter()) {}

PageClient::~PageClient() {
  feed_.Leave(id_);
}

bool PageClient::Receive(std::string_view text) {
  const auto request = ReadPageRequest(text);
  if (!request) {
    return false;
  }
  std::visit(Choose{[this](const ShowRequest& show) {
                      if (show.frame < feed_.subject().frames) {
                        feed_.Want(id_, show.frame, Clock::now());
                      }
                    },
                    [this](const ReadyRequest&) { credit_ = std::min(credit_ + 1, kMostCredit); },
                    [this](const PointRequest& point) {
                      if (replies_.size() < kMostReplies) {
                        replies_.push_back(PointText(point.frame, point.index));
                      }
                    }},
             *request);
  return true;
}

std::optional<Message> PageClient::Next() {
  if (!std::exchange(greeted_, true)) {
    return Text(Hello());
  }
  if (!replies_.empty()) {
    const std::string reply = std::move(replies_.front());
    replies_.pop_front();
    return Text(reply);
  }
  if (auto frame = NextFrame()) {
    return frame;
  }
  if (const Status status = feed_.status(); status.version != told_) {
    told_ = status.version;
    return Text(StatusText(status));
  }
  if (Clock::now() < imu_due_) {
    return std::nullopt;
  }
  if (const auto samples = feed_.ImuSince(imu_taken_); !samples.empty()) {
    imu_due_ = Clock::now() + kImuPause;
    return Text(ImuText(samples));
  }
  return std::nullopt;
}

std::optional<Message> PageClient::NextFrame() {
  FramePtr frame;
  if (!feed_.subject().live) {
    frame = feed_.TakeWanted(id_);
    if (frame != nullptr && !frame->imu.empty() && replies_.size() < kMostReplies) {
      replies_.push_back(ImuText(frame->imu));
    }
  } else if (credit_ > 0) {
    frame = feed_.Newest();
    if (frame == nullptr || (!shown_.empty() && frame->number == shown_.back()->number)) {
      return std::nullopt;
    }
    --credit_;
    dropped_ += shown_.empty() ? 0 : frame->number - shown_.back()->number - 1;
  }
  if (frame == nullptr) {
    return std::nullopt;
  }
  shown_.push_back(frame);
  if (shown_.size() > kMostCredit + 1) {  // those under way, and the one that is seen
    shown_.pop_front();
  }
  ++sent_;
  return Message{frame->page_bytes, false};
}

std::string PageClient::Hello() const {
  const Subject& subject = feed_.subject();
  return Dump({{"type", "hello"},
               {"version", ORVA_DRIVER_VERSION_STRING},
               {"mode", subject.live ? "live" : "recording"},
               {"title", subject.title},
               {"model", subject.model},
               {"hasImu", subject.has_imu},
               {"frames", subject.frames},
               {"period", subject.period},
               {"mounting", subject.mounted ? Json(subject.mounting) : Json()}});
}

std::string PageClient::StatusText(const Status& status) const {
  const DriverStatistics& now = status.statistics;
  const DriverStatistics& before = status.before;
  const auto rate = [&status](std::uint64_t after, std::uint64_t earlier) {
    return static_cast<double>(after - earlier) / std::max(status.interval, 1e-3);
  };
  return Dump({{"type", "status"},
               {"seconds", status.seconds},
               {"packets", now.received},
               {"packetRate", rate(now.received, before.received)},
               {"frameRate", rate(now.frames, before.frames)},
               {"imuRate", rate(now.imu_samples, before.imu_samples)},
               {"lost",
                {{"kernel", now.kernel_dropped},
                 {"queue", now.discarded},
                 {"length", now.refused_length},
                 {"identifier", now.refused_identifier},
                 {"notForUs", now.not_for_us},
                 {"memory", now.out_of_memory}}},
               {"calibration", status.calibration},
               {"condition", {{"code", status.condition.code}, {"text", status.condition.text}}},
               {"sent", sent_},
               {"dropped", dropped_},
               {"missed", status.missed}});
}

std::string PageClient::PointText(std::uint32_t frame, std::uint32_t index) const {
  Json reply = {{"type", "point"}, {"frame", frame}, {"index", index}};
  const auto shown = std::find_if(shown_.begin(), shown_.end(),
                                  [frame](const FramePtr& sent) { return sent->number == frame; });
  if (shown == shown_.end() || index >= (*shown)->cloud->points.size()) {
    reply["gone"] = true;  // others have been sent since
    return Dump(reply);
  }
  const PointTime& point = (*shown)->cloud->points[index];
  // In double, so that the digits are those of the float.
  const double x = point.x;
  const double y = point.y;
  const double z = point.z;
  constexpr double kDegrees = 57.29577951308232;
  reply.update({{"x", x},
                {"y", y},
                {"z", z},
                {"distance", std::sqrt(x * x + y * y + z * z)},
                {"azimuth", std::atan2(y, x) * kDegrees},
                {"elevation", std::atan2(z, std::hypot(x, y)) * kDegrees},
                {"intensity", point.intensity},
                {"line", point.label},
                {"time", point.timestamp}});
  return Dump(reply);
}

}  // namespace orva::view
