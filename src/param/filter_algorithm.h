// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace tevoro::lidar {

/// Appends the path of every file below `folder`, in the order of the directories, and prints each. Follows
/// symbolic links. Throws std::filesystem::filesystem_error where a folder cannot be read.
void SearchFiles(const std::string& folder, std::vector<std::string>& paths);

// Kept for those who work on calibrations; nothing here calls the three.

/// The pieces of `text` between delimiters. An empty piece between two delimiters counts, one behind a
/// trailing delimiter does not.
std::vector<std::string> SplitString(const std::string& text, char delimiter);

/// Population variance (divides by the count). The values must not be empty.
float CalculateVariance(const std::vector<float>& values);

/// Wall clock, seconds since the epoch.
double GetSystemTime();

}  // namespace tevoro::lidar
