// SPDX-License-Identifier: Apache-2.0
#include "formats/mcap_options.h"

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

namespace orva {
namespace {

constexpr const char* kGroup = "MCAP files (--format mcap)";

template <typename Value>
CLI::Option* AddChoice(CLI::App& command, const std::string& name, Value& value,
                       const std::map<std::string, Value>& choices, const std::string& description) {
  std::vector<std::string> words;
  std::string type;
  for (const auto& choice : choices) {
    words.push_back(choice.first);
    type += (type.empty() ? "" : "|") + choice.first;
  }
  const auto choose = [&value, choices](const std::string& word) { value = choices.at(word); };
  return command.add_option_function<std::string>(name, choose, description)
      ->check(CLI::IsMember(words).description(""))
      ->type_name(type);
}

}  // namespace

void AddMcapOptions(CLI::App& command, CLI::Option* format, McapOptions& options) {
  using messages::PointLayout;
  const std::vector<CLI::Option*> all = {
      AddChoice<PointLayout>(command, "--layout", options.cloud.layout,
                             {{"packed", PointLayout::kPacked}, {"pcl", PointLayout::kPcl}},
                             "A point takes 22 bytes, or 32 as PCL aligns it"),
      command.add_option("--frame-id", options.cloud.frame_id, "Coordinate frame of the messages")
          ->capture_default_str()
          ->type_name("NAME"),
      AddChoice<bool>(command, "--schema", options.foxglove, {{"ros2", false}, {"foxglove", true}},
                      "Clouds as PointCloud2, or foxglove.PointCloud"),
      AddChoice<mcap::Compression>(command, "--compression", options.compression,
                                   {{"zstd", mcap::Compression::kZstd},
                                    {"lz4", mcap::Compression::kLz4},
                                    {"none", mcap::Compression::kNone}},
                                   "How chunks are packed")};
  for (CLI::Option* const option : all) {
    option->group(kGroup)->needs(format);
  }
}

}  // namespace orva
