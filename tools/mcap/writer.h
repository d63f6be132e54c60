// SPDX-License-Identifier: Apache-2.0
//
// Writes MCAP files (https://mcap.dev): timed messages of several channels, in compressed chunks with
// indexes.
//
//   mcap::FileSink file("drive.mcap");
//   mcap::Writer writer(file, {.profile = "ros2"});
//   const auto schema = writer.AddSchema("sensor_msgs/msg/Imu", "ros2msg", text);
//   const auto channel = writer.AddChannel(schema, "/imu/data_raw", "cdr");
//   writer.Write(channel, log_time, publish_time, bytes);  // any number of times
//   if (const mcap::Status status = writer.Close(); !status.ok()) ...
//
// A chunk reaches the sink as soon as it is complete: what was written before the program was killed, or the
// disk was full, can be read without the summary that Close writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "mcap/compressor.h"
#include "mcap/sink.h"

namespace orva::mcap {

using Map = std::map<std::string, std::string>;

struct Options {
  std::string profile{};         ///< a set of rules that readers may rely on, "ros2" for instance
  std::string library = "orva";  ///< who wrote the file
  Compression compression = Compression::kZstd;  ///< kLz4 packs less at several times the speed
  int zstd_level = 1;  ///< 1 to 19. Measured points hardly get smaller by higher ones
  /// Bytes of messages after which a chunk ends. Smaller ones lose less when the program is killed and are
  /// cheaper to seek in; larger ones pack better.
  std::size_t chunk_size = std::size_t{1} << 20;
  /// Threads that compress and write; 0: all is done in Write. Memory is some 2 * (threads + 1) chunks.
  unsigned threads = DefaultThreads();

  static unsigned DefaultThreads();  ///< one less than the machine has, 1 to 4
};

struct Attachment {
  std::string name{};
  std::string media_type{};       ///< "text/csv"
  std::uint64_t log_time = 0;     ///< nanoseconds since the epoch
  std::uint64_t create_time = 0;  ///< likewise
};

/// Calls belong to one thread. Times are nanoseconds since the epoch; messages need not come in their order.
class Writer {
 public:
  /// Writes the head of the file. `sink` must outlive the writer.
  explicit Writer(Sink& sink, const Options& options = {});
  ~Writer();  ///< as Terminate, where Close was not called
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  /// Both return a number from 1 on, or 0 after 65535. They reach the file with their first message.
  std::uint16_t AddSchema(std::string name, std::string encoding, std::string data);
  /// `schema` 0: messages that describe themselves.
  std::uint16_t AddChannel(std::uint16_t schema, std::string topic, std::string message_encoding,
                           Map metadata = {});

  /// Messages of a channel are numbered from 0. Waits while the sink is slower than the caller.
  Status Write(std::uint16_t channel, std::uint64_t log_time, std::uint64_t publish_time, Bytes data);
  /// Ends the chunk under way, so that its messages are on their way to the sink.
  Status Flush();

  Status Attach(const Attachment& attachment, Bytes data);
  Status AddMetadata(const std::string& name, const Map& metadata);

  /// Completes the file: the last chunk, the summary, the end. Further calls fail.
  Status Close();
  /// Gives the file up: messages of the chunk under way are dropped, and no summary is written. Chunks that
  /// were complete stay in the sink.
  void Terminate();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orva::mcap
