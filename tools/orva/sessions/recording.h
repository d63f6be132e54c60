// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_RECORDING_H_
#define ORVA_TOOLS_SESSIONS_RECORDING_H_

#include <cstddef>
#include <string>
#include <vector>

#include "sessions/replay_session.h"
#include "shared/cloud.h"

namespace orva {

/// Indexes the recording, shows that this goes on, and returns the frames that `list` chooses from it.
std::vector<int> IndexWithProgress(ReplaySession& session, const std::string& list);

/// What is worth saying in words about the frames of a replay.
class RecordingSummary {
 public:
  explicit RecordingSummary(LidarType model) : model_(model) {}

  /// Returns how many of the points are valid.
  std::size_t Add(int frame, const Cloud& cloud);
  int clouds() const { return clouds_; }
  std::size_t points() const { return points_; }
  std::size_t valid() const { return valid_; }

  /// Says what was odd. Throws Failure where the recording gave no point although the model has some.
  void Tell(ReplaySession& session) const;

 private:
  LidarType model_;
  int clouds_ = 0;
  int empty_ = 0;
  int last_empty_ = 0;
  std::size_t points_ = 0;
  std::size_t valid_ = 0;
};

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_RECORDING_H_
