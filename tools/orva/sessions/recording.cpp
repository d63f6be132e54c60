// SPDX-License-Identifier: Apache-2.0
#include "sessions/recording.h"

#include <cstdint>

#include "sessions/frame_selection.h"
#include "shared/failure.h"
#include "shared/models.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {

std::vector<int> IndexWithProgress(ReplaySession& session, const std::string& list) {
  int count = 0;
  {
    Progress progress("reading the recording", 0);
    int turns = 0;
    count = session.Index([&] { progress.Step(++turns / 50); });
  }
  Say("the recording holds " + Counted(static_cast<std::uint64_t>(count), "frame", "frames"));
  return SelectFrames(list, count);
}

void RecordingSummary::Add(int frame, const Cloud& cloud) {
  ++clouds_;
  points_ += cloud.points.size();
  valid_ += CountValid(cloud);
  if (cloud.points.empty()) {
    ++empty_;
    last_empty_ = frame;
  }
}

void RecordingSummary::Tell(const ReplaySession& session) const {
  const ModelTraits& model = TraitsOf(model_);
  const std::string name = model.name;
  const std::string one = OneOf(model_);
  if (!model.has_points) {
    Say("The driver decodes no points of " + one +
        ": each frame is one empty cloud, and no file is written.");
    return;
  }
  if (points_ == 0 && clouds_ > 0) {
    if (session.saw_wrong_length() || session.saw_wrong_id()) {
      throw Failure("the packets of this recording are not of the model " + name +
                    ". Check --model and --port.");
    }
    if (clouds_ > 1) {
      throw Failure("no frame holds a point. Check --model and --port.");
    }
  }
  if (session.saw_wrong_length() || session.saw_wrong_id()) {
    Warn("some packets are not of the model " + name + " and were left out. --port may separate them.");
  }
  if (empty_ == 1) {
    Say("Frame " + std::to_string(last_empty_) +
        " is empty: the frame before ended with the recording's last measurement. No file is written for "
        "it.");
  } else if (empty_ > 1) {
    Say(std::to_string(empty_) + " frames are empty; no file is written for them.");
  }
  if (points_ == 0) {
    return;
  }
  if (!model.measures) {
    Say("The driver decodes no distances of " + one + ": every point is the origin.");
  } else if (valid_ == 0) {
    Warn("every point is the origin: nothing lies inside --distance, --azimuth and --elevation.");
  }
}

}  // namespace orva
