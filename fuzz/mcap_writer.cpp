// SPDX-License-Identifier: Apache-2.0
#include "mcap/writer.h"

#include <algorithm>
#include <string>
#include <vector>

#include "expect.h"
#include "support/mcap_reader.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

/// A disk that is full after some bytes.
class SmallSink : public mcap::MemorySink {
 public:
  explicit SmallSink(size_t room) : room_(room) {}
  mcap::Status Write(mcap::Bytes bytes) override {
    const size_t fits = std::min<size_t>(bytes.size(), room_ - size());
    MemorySink::Write(bytes.first(fits));
    return {fits == bytes.size() ? "" : "no room"};
  }

 private:
  size_t room_;
};

}  // namespace

void McapWriter(const uint8_t* data, size_t size) {
  const auto next = [&data, &size]() -> uint8_t { return size == 0 ? uint8_t{0} : (--size, *data++); };
  const uint8_t setting = next();
  SmallSink sink(setting % 2 == 0 ? SIZE_MAX : size_t{next()} * 64);
  // Compressors and threads take longer to make than all the rest.
  const mcap::Options options = {.compression = static_cast<mcap::Compression>(
                                     setting % 16 < 6 && OneIn(4, data, size) ? setting % 16 / 2 : 0),
                                 .chunk_size = size_t{next()} * 16,
                                 .threads = setting % 32 < 6 && OneIn(32, data, size) ? setting / 64U : 0};
  std::vector<test::McapReader::Message> given;
  bool closed = false;
  {
    mcap::Writer writer(sink, options);
    std::vector<uint32_t> sequences(1, 0);
    for (int i = 0; i < 16 && size > 0; ++i) {
      const uint8_t action = next();
      const std::string text(action / 16, static_cast<char>(next()));
      switch (action % 16) {
        case 0:
          writer.AddSchema(text, text, text);
          break;
        case 1:
          if (writer.AddChannel(next(), text, text, {{text, text}}) != 0) sequences.push_back(0);
          break;
        case 2:
          writer.Flush();
          break;
        case 3:
          writer.AddMetadata(text, {{text, text}});
          break;
        case 4:
          writer.Attach({.name = std::to_string(size), .media_type = text},
                        mcap::Bytes(data, std::min<size_t>(size, 64)));
          break;
        default: {
          const uint16_t channel = next() % 8;
          const uint64_t time = uint64_t{next()} << (next() % 57);
          const size_t length = next() * size_t{4};
          const mcap::Bytes bytes(data, std::min(size, length));
          const bool known = channel != 0 && channel < sequences.size();
          if (writer.Write(channel, time, time, bytes).ok() || known) {
            ORVA_EXPECT(known);
            given.push_back({channel, sequences[channel]++, time, {bytes.begin(), bytes.end()}});
          }
        }
      }
    }
    closed = setting < 200 && writer.Close().ok();
  }
  const test::McapReader reader(sink.bytes());  // throws where the file contradicts itself
  ORVA_EXPECT(reader.complete == closed);
  ORVA_EXPECT(closed ? reader.messages == given
                     : reader.messages.size() <= given.size() &&
                           std::equal(reader.messages.begin(), reader.messages.end(), given.begin()));
}

}  // namespace orva::fuzz
