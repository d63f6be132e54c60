// SPDX-License-Identifier: Apache-2.0
#include "mcap/writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "support/faults.h"
#include "support/mcap_reader.h"

namespace orva {
namespace {

using mcap::Compression;
using mcap::Status;
using test::McapReader;
using Messages = std::vector<McapReader::Message>;

/// Takes `room` bytes, then fails in the middle of a write, as a full disk does.
class FullSink : public mcap::MemorySink {
 public:
  explicit FullSink(size_t room) : room_(room) {}
  Status Write(mcap::Bytes bytes) override {
    const size_t fits = std::min<size_t>(bytes.size(), room_ - size());
    MemorySink::Write(bytes.first(fits));
    return {fits == bytes.size() ? "" : "no room"};
  }

 private:
  size_t room_;
};

/// Messages of two channels and many sizes, out of the order of time.
Messages SomeMessages() {
  Messages messages;
  uint32_t numbers[3] = {};
  for (uint32_t i = 0; i < 400; ++i) {
    const auto channel = static_cast<uint16_t>(1 + i % 3 / 2);
    std::vector<uint8_t> data(i * 37 % 900);
    for (size_t k = 0; k < data.size(); ++k) data[k] = static_cast<uint8_t>(k * k % (i + 1));
    messages.push_back({channel, numbers[channel]++, 1000 + i * 7919 % 400, data});
  }
  return messages;
}

/// Gives all to a writer with small chunks; how it ended.
Status WriteAll(mcap::Sink& sink, const Messages& messages, Compression compression, unsigned threads) {
  mcap::Writer writer(sink, {.compression = compression, .chunk_size = 4096, .threads = threads});
  const auto schema = writer.AddSchema("text", "ros2msg", "string data\n");
  writer.AddChannel(schema, "/one", "cdr", {{"key", "value"}});
  writer.AddChannel(0, "/two", "json");
  const std::vector<uint8_t> attached(5000, 'x');
  writer.Attach({.name = "table.csv", .media_type = "text/csv"}, attached);
  for (const auto& message : messages) {
    writer.Write(message.channel, message.log_time, message.log_time, message.data);
  }
  writer.AddMetadata("device", {{"model", "TS4B"}});
  Status status = writer.Close();
  EXPECT_FALSE(writer.Write(1, 1, 1, {}).ok()) << "after the end";
  return status;
}

TEST(McapWriter, EveryMessageIsReadBackWhateverTheCompressionAndTheThreads) {
  const Messages messages = SomeMessages();
  for (const Compression compression : {Compression::kNone, Compression::kLz4, Compression::kZstd}) {
    for (const unsigned threads : {0U, 1U, 4U}) {
      mcap::MemorySink sink;
      EXPECT_EQ(WriteAll(sink, messages, compression, threads).text, "");
      const McapReader reader(sink.bytes());
      EXPECT_TRUE(reader.complete);
      EXPECT_TRUE(reader.messages == messages) << threads << " threads";
      EXPECT_GT(reader.chunks, 10U);
      EXPECT_EQ(reader.metadata, 1U);
      EXPECT_EQ(reader.attachments.at("table.csv"), std::vector<uint8_t>(5000, 'x'));
    }
  }
}

TEST(McapWriter, AFullDiskIsToldAndLosesNoWholeChunk) {
  const Messages messages = SomeMessages();
  mcap::MemorySink whole;
  WriteAll(whole, messages, Compression::kLz4, 0);
  for (const unsigned threads : {0U, 3U}) {
    size_t most = 0;
    for (size_t room = 0; room < whole.size(); room += 997) {
      FullSink sink(room);
      EXPECT_EQ(WriteAll(sink, messages, Compression::kLz4, threads).text, "no room");
      const McapReader reader(sink.bytes());
      EXPECT_FALSE(reader.complete);
      ASSERT_LE(reader.messages.size(), messages.size());
      EXPECT_TRUE(std::equal(reader.messages.begin(), reader.messages.end(), messages.begin()));
      EXPECT_GE(reader.messages.size(), most) << "more room, fewer messages";
      most = std::max(most, reader.messages.size());
    }
    EXPECT_EQ(most, messages.size());
  }
}

TEST(McapWriter, WhatIsGivenUpHasWholeChunksAndNoEnd) {
  mcap::MemorySink sink;
  {
    mcap::Writer writer(sink, {.chunk_size = 1 << 20});
    const auto channel = writer.AddChannel(0, "/one", "json");
    EXPECT_FALSE(writer.Write(static_cast<uint16_t>(channel + 1), 1, 1, {}).ok()) << "no such channel";
    EXPECT_EQ(writer.AddChannel(7, "/two", "json"), 0) << "no such schema";
    writer.Write(channel, 5, 5, {});
    writer.Flush();
    writer.Write(channel, 6, 6, {});
  }
  const McapReader reader(sink.bytes());
  EXPECT_FALSE(reader.complete);
  EXPECT_EQ(reader.messages, (Messages{{1, 0, 5, {}}}));
}

TEST(McapWriter, WhatFailsForWantOfMemoryIsLeftOutAndTheRestIsWhole) {
  mcap::MemorySink sink;
  Messages written;
  unsigned failures = 0;
  {
    mcap::Writer writer(sink, {.threads = 1});
    const auto channel = writer.AddChannel(0, "/one", "json");
    const auto fails = [&failures](unsigned long number, const auto& call) {
      test::FailAllocation(test::On::kThisThread, number);
      bool failed = false;
      try {
        call();
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      test::FailAllocation(test::On::kThisThread, 0);
      failures += failed;
      return failed;
    };
    const std::vector<uint8_t> data(700, 'x');
    for (uint32_t i = 0; i < 600; ++i) {  // some blocks of the queue
      const uint64_t time = 1 + i;
      // The first one introduces its channel, which is not done by halves.
      if (!fails(i == 0 ? 0 : 1 + i % 3, [&] { writer.Write(channel, time, time, data); })) {
        written.push_back({channel, static_cast<uint32_t>(written.size()), time, data});
      }
      if (fails(1, [&] { writer.Flush(); })) writer.Flush();
    }
    EXPECT_EQ(writer.Close().text, "");
  }
  EXPECT_GT(failures, 100U);
  const McapReader reader(sink.bytes());
  EXPECT_TRUE(reader.complete);
  EXPECT_TRUE(reader.messages == written);
}

TEST(McapWriter, AFileThatCannotBeOpenedIsTold) {
  mcap::FileSink sink("/nowhere/file.mcap");
  mcap::Writer writer(sink);
  EXPECT_EQ(writer.Close().text, "No such file or directory");
}

}  // namespace
}  // namespace orva
