// SPDX-License-Identifier: Apache-2.0
#include "sessions/recording.h"

#include <cstdint>

#include "captures/survey.h"
#include "captures/survey_report.h"
#include "sessions/frame_selection.h"
#include "sessions/packet_losses.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/models.h"
#include "shared/terminal.h"
#include "shared/words.h"

namespace orva {

std::vector<int> IndexWithProgress(ReplaySession& session, const std::string& list) {
  const InputParam& input = session.Param().input_param;
  int count = 0;
  Survey survey;
  {
    Progress progress("reading the recording", 100);
    session.StartIndex();
    // At the same time as the driver, which tells neither how far it is nor what it skips.
    survey = SurveyCapture(input.pcap_path, [&progress](double share) {
      progress.Step(static_cast<int>(share * 100.0));
      return !Interrupted();
    });
    count = session.FinishIndex();
  }
  if (count == 0) {
    throw Failure(WhyNothing(survey, input.msop_port));
  }
  if (!survey.damage.empty()) {
    Warn("the recording is cut, it breaks off within a record (" + survey.damage +
         "): it is played up to there.");
  }
  for (const std::string& line : WhatIsLost(survey)) {
    Warn(line);
  }
  Say("the recording holds " + Counted(static_cast<std::uint64_t>(count), "frame", "frames"));
  return SelectFrames(list, count);
}

std::size_t RecordingSummary::Add(int frame, const Cloud& cloud) {
  ++clouds_;
  points_ += cloud.points.size();
  const std::size_t valid = CountValid(cloud);
  valid_ += valid;
  if (cloud.points.empty()) {
    ++empty_;
    last_empty_ = frame;
  }
  return valid;
}

void RecordingSummary::Tell(ReplaySession& session) const {
  const ModelTraits& model = TraitsOf(model_);
  const std::string name = model.name;
  const std::string one = OneOf(model_);
  if (const std::string losses = LossText(session.Statistics()); !losses.empty()) {
    Warn(losses + ".");
  }
  if (!model.has_points) {
    Say("The driver decodes no points of " + one +
        ": each frame is one empty cloud, and no file is written.");
    return;
  }
  if (points_ == 0 && clouds_ > 0) {
    if (session.saw_wrong_length() || session.saw_wrong_id()) {
      throw Failure("the packets of this recording are not of the model " + name +
                    ". Check --model and --port; 'orva info' tells whose they are.");
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
