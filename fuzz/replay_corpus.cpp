// SPDX-License-Identifier: Apache-2.0
//
// Runs a target over the files of a folder, without a fuzzer: replay_corpus TARGET FOLDER-OR-FILE...
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "targets.h"

namespace {

struct Target {
  const char* name;
  void (*run)(const uint8_t* data, size_t size);
};
constexpr Target kTargets[] = {
    {"capture", orva::fuzz::Capture},
    {"decoder", orva::fuzz::Decoder},
    {"calibration_folder", orva::fuzz::CalibrationFolder},
    {"calibration_replies", orva::fuzz::CalibrationReplies},
    {"command_channel", orva::fuzz::CommandChannel},
    {"config", orva::fuzz::Config},
    {"pcapng", orva::fuzz::Pcapng},
    {"pcd", orva::fuzz::Pcd},
#ifdef ORVA_FUZZ_MCAP
    {"mcap_writer", orva::fuzz::McapWriter},
#endif
    {"fragments", orva::fuzz::Fragments},
#ifdef ORVA_FUZZ_VIEW
    {"view_messages", orva::fuzz::ViewMessages},
#endif
};

size_t Run(const Target& target, const std::filesystem::path& path) {
  if (std::filesystem::is_directory(path)) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path)) count += Run(target, entry.path());
    return count;
  }
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::fprintf(stderr, "%s, %zu bytes\n", path.c_str(), bytes.size());
  target.run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (const Target& target : kTargets) {
    if (argc < 3 || std::strcmp(target.name, argv[1]) != 0) continue;
    for (int i = 2; i < argc; ++i) count += Run(target, argv[i]);
  }
  if (count == 0) std::fprintf(stderr, "replay_corpus: nothing was run\n");
  return count == 0 ? 1 : 0;
}
