// SPDX-License-Identifier: Apache-2.0
#include "captures/capture_check.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include "shared/failure.h"
#include "shared/words.h"

namespace orva {
namespace {

/// First four bytes of pcap (micro- and nanoseconds, an old variant) in either byte order, and of pcapng.
constexpr std::array<std::uint32_t, 7> kMagics = {0xA1B2C3D4, 0xD4C3B2A1, 0xA1B23C4D, 0x4D3CB2A1,
                                                  0xA1B2CD34, 0x34CDB2A1, 0x0A0D0D0A};

}  // namespace

RecordingFile OpenRecordingFile(const std::filesystem::path& path) {
  const std::string name = path.string();
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    throw Failure(name + " is a folder. Give the recording itself, a pcap or pcapng file.");
  }
  RecordingFile file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    throw Failure("cannot open the recording " + name + ": " + std::generic_category().message(errno) +
                  ". Check the path and its permissions.");
  }
  return file;
}

Packing PackingOf(const uint8_t* start, size_t size) {
  constexpr std::array<uint8_t, 3> kGzipDeflate = {0x1F, 0x8B, 8};
  constexpr std::array<uint8_t, 4> kZstd = {0x28, 0xB5, 0x2F, 0xFD};
  const auto begins = [start, size](const auto& magic) {
    return size >= magic.size() && std::equal(magic.begin(), magic.end(), start);
  };
  return begins(kGzipDeflate) ? Packing::kGzip : begins(kZstd) ? Packing::kZstd : Packing::kNone;
}

void CheckCapture(const std::filesystem::path& path) {
  const std::string name = path.string();
  std::error_code ignored;
  if (const auto type = std::filesystem::status(path, ignored).type();
      type == std::filesystem::file_type::fifo || type == std::filesystem::file_type::socket ||
      type == std::filesystem::file_type::character) {
    throw Failure(name + " is no regular file. Give the recording itself, a pcap or pcapng file.");
  }
  const RecordingFile file = OpenRecordingFile(path);
  std::array<uint8_t, 4> start = {};
  const std::size_t size = std::fread(start.data(), 1, start.size(), file.get());
  if (size == 0) {
    throw Failure(name + " is empty: the recording was never written. Record it again.");
  }
  if (PackingOf(start.data(), size) != Packing::kNone) {
    throw Failure(name + " is compressed, which the driver does not read. 'orva extract " + ShellWord(name) +
                  " plain.pcap' unpacks it.");
  }
  std::uint32_t magic = 0;
  std::memcpy(&magic, start.data(), start.size());
  if (std::find(kMagics.begin(), kMagics.end(), magic) == kMagics.end()) {
    throw Failure(name +
                  " is no capture file. Give a pcap or pcapng file, such as tcpdump or 'orva simulate' "
                  "write.");
  }
}

}  // namespace orva
