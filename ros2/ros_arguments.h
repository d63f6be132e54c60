// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace orva::ros2 {

/// The command line with what stands between --ros-args and -- in the program's own words:
///   -r __ns:=/front             --namespace /front
///   -p frame_id:=lidar          --frame-id lidar
///   --params-file FILE          every parameter of the file, likewise
/// A parameter is an option with underscores for hyphens; one that is false says nothing, a list gives
/// several values. __node is taken and says nothing; of a file each node's parameters count. Throws
/// std::invalid_argument for what has no meaning here, and for a file that cannot be read.
std::vector<std::string> OwnArguments(const std::vector<std::string>& arguments);

}  // namespace orva::ros2
