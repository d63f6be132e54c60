// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SESSIONS_FRAME_SELECTION_H_
#define ORVA_TOOLS_SESSIONS_FRAME_SELECTION_H_

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace orva {

/// Adds --frames, a list for SelectFrames. `list` holds the default, and must outlive the parsing.
void AddFrameListOption(CLI::App& command, std::string& list);

/// Turns a list such as "0-4,7,20-" into frame numbers, in the order given; "all" or empty means every
/// frame. Throws WrongUsage for a text that is no such list, Failure for a number that the recording does not
/// have. `count` is the recording's number of frames.
std::vector<int> SelectFrames(const std::string& list, int count);

/// Throws WrongUsage where SelectFrames would, before a recording is open.
void CheckFrameList(const std::string& list);

}  // namespace orva

#endif  // ORVA_TOOLS_SESSIONS_FRAME_SELECTION_H_
