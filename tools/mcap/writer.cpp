// SPDX-License-Identifier: Apache-2.0
#include "mcap/writer.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <limits>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "mcap/chunk.h"
#include "mcap/crc.h"
#include "mcap/record.h"

namespace orva::mcap {
namespace {

// What the summary repeats.
struct Schema {
  std::string name;
  std::string encoding;
  std::string data;
};

struct Channel {
  std::uint16_t schema;
  std::string topic;
  std::string message_encoding;
  Map metadata;
};

}  // namespace

unsigned Options::DefaultThreads() {
  return std::clamp(std::thread::hardware_concurrency(), 2U, 5U) - 1;
}

class Writer::Impl {
 public:
  Impl(Sink& sink, const Options& options) : sink_(sink), options_(options) {
    if (options.threads == 0) {
      compressor_ = MakeCompressor(options.compression, options.zstd_level);
    }
    std::vector<std::uint8_t> head(kMagic.begin(), kMagic.end());
    Record(head, Opcode::kHeader).Put(options.profile).Put(options.library);
    Store(head);
    StartThreads();
  }
  ~Impl() { Terminate(); }

  std::uint16_t AddSchema(Schema schema) { return Add(schemas_, std::move(schema)); }
  std::uint16_t AddChannel(Channel channel) {
    return channel.schema > schemas_.size() ? std::uint16_t{0} : Add(channels_, std::move(channel));
  }

  Status Write(std::uint16_t channel, std::uint64_t log_time, std::uint64_t publish_time, Bytes data) {
    if (channel == 0 || channel > channels_.size()) {
      return {"no channel has the number " + std::to_string(channel)};
    }
    if (Status status = CurrentStatus(); !status.ok()) {
      return status;
    }
    Introduce(channel);
    auto& records = chunk_->records;
    const std::size_t place = records.size();
    try {
      Record(records, Opcode::kMessage)
          .Put(channel)
          .Put(static_cast<std::uint32_t>(message_counts_[channel]))
          .Put(log_time)
          .Put(publish_time)
          .Append(data);
      chunk_->index[channel].emplace_back(log_time, place);
    } catch (const std::bad_alloc&) {
      records.resize(place);  // without half a message
      throw;
    }
    chunk_->span.Add({log_time, log_time});
    ++message_counts_[channel];
    return records.size() >= options_.chunk_size ? Flush() : Status{};
  }

  Status Flush() {
    std::unique_lock lock(mutex_);
    if (chunk_->index.empty() || !status_.ok()) {
      return status_;
    }
    if (threads_.empty()) {
      lock.unlock();
      Seal(*chunk_, compressor_.get());
      StoreChunk(*chunk_);
      chunk_->Clear();
      return CurrentStatus();
    }
    // First what may run out of memory: a number without its chunk would be waited for without end.
    if (free_.empty()) {
      free_.push_back(std::make_unique<Chunk>());
    }
    chunk_->number = sealed_count_;
    sealed_.push_back(std::move(chunk_));
    ++sealed_count_;
    chunk_ = std::move(free_.back());
    free_.pop_back();
    changed_.notify_all();
    changed_.wait(lock, [this] { return sealed_count_ - stored_count_ <= 2 * threads_.size(); });
    return status_;
  }

  Status Attach(const Attachment& attachment, Bytes data) {
    std::vector<std::uint8_t> bytes;
    {
      Record record(bytes, Opcode::kAttachment);
      record.Put(attachment.log_time).Put(attachment.create_time).Put(attachment.name);
      record.Put(attachment.media_type).Put(std::uint64_t{data.size()}).Append(data);
      record.Put(Crc32(Bytes(bytes).subspan(record.content())));
    }
    const std::lock_guard lock(output_mutex_);
    Record(attachment_indexes_, Opcode::kAttachmentIndex)
        .Put(sink_.size())
        .Put(std::uint64_t{bytes.size()})
        .Put(attachment.log_time)
        .Put(attachment.create_time)
        .Put(std::uint64_t{data.size()})
        .Put(attachment.name)
        .Put(attachment.media_type);
    ++attachment_count_;
    return Store(bytes);
  }

  Status AddMetadata(const std::string& name, const Map& metadata) {
    std::vector<std::uint8_t> bytes;
    Record(bytes, Opcode::kMetadata).Put(name).Put(metadata);
    const std::lock_guard lock(output_mutex_);
    Record(metadata_indexes_, Opcode::kMetadataIndex)
        .Put(sink_.size())
        .Put(std::uint64_t{bytes.size()})
        .Put(name);
    ++metadata_count_;
    return Store(bytes);
  }

  Status Close() {
    Flush();
    StopThreads();
    if (Status status = CurrentStatus(); !status.ok()) {
      sink_.End();
      return status;
    }
    Store(Ending());
    Status status = sink_.End();
    Fail(status);
    status = CurrentStatus();
    Fail({"the file is closed"});
    return status;
  }

  void Terminate() {
    StopThreads();
    if (CurrentStatus().ok()) {
      sink_.End();
      Fail({"the file was given up"});
    }
  }

 private:
  template <typename T>
  static std::uint16_t Add(std::vector<T>& all, T one) {
    if (all.size() >= std::numeric_limits<std::uint16_t>::max()) {
      return 0;
    }
    all.push_back(std::move(one));
    return static_cast<std::uint16_t>(all.size());
  }

  /// A reader has to know a channel and its schema before the first message.
  void Introduce(std::uint16_t channel) {
    if (message_counts_.try_emplace(channel, 0).second) {
      const std::uint16_t schema = channels_[channel - 1U].schema;
      if (schema != 0 && used_schemas_.insert(schema).second) {
        PutSchema(chunk_->records, schema);
      }
      PutChannel(chunk_->records, channel);
    }
  }
  void PutSchema(std::vector<std::uint8_t>& bytes, std::uint16_t number) const {
    const Schema& schema = schemas_[number - 1U];
    Record(bytes, Opcode::kSchema).Put(number).Put(schema.name).Put(schema.encoding).Put(schema.data);
  }
  void PutChannel(std::vector<std::uint8_t>& bytes, std::uint16_t number) const {
    const Channel& channel = channels_[number - 1U];
    Record(bytes, Opcode::kChannel)
        .Put(number)
        .Put(channel.schema)
        .Put(channel.topic)
        .Put(channel.message_encoding)
        .Put(channel.metadata);
  }

  // Threads.

  void StartThreads() {
    free_.reserve(2 * (std::size_t{options_.threads} + 1));  // nobody could tell of a lack of memory in Work
    for (unsigned i = 0; i < options_.threads; ++i) {
      try {
        threads_.emplace_back([this] { Work(); });
      } catch (const std::system_error&) {  // fewer do as well
        break;
      }
      pthread_setname_np(threads_.back().native_handle(), "mcap-writer");
    }
    if (threads_.empty() && compressor_ == nullptr) {
      compressor_ = MakeCompressor(options_.compression, options_.zstd_level);
    }
  }

  void StopThreads() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
    threads_.clear();
  }

  /// Compresses in any order, and stores in the order of the calls.
  void Work() {
    const std::unique_ptr<Compressor> compressor = MakeCompressor(options_.compression, options_.zstd_level);
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return stopping_ || !sealed_.empty(); });
      if (sealed_.empty()) {
        return;
      }
      std::unique_ptr<Chunk> chunk = std::move(sealed_.front());
      sealed_.pop_front();
      lock.unlock();
      try {
        Seal(*chunk, compressor.get());
      } catch (const std::bad_alloc&) {
        Fail({"out of memory"});
      }
      lock.lock();
      changed_.wait(lock, [&] { return stored_count_ == chunk->number; });
      lock.unlock();
      try {
        StoreChunk(*chunk);
      } catch (const std::bad_alloc&) {
        Fail({"out of memory"});
      }
      chunk->Clear();
      lock.lock();
      free_.push_back(std::move(chunk));
      ++stored_count_;
      changed_.notify_all();
    }
  }

  // What follows writes to the sink.

  void StoreChunk(Chunk& chunk) {
    const std::lock_guard lock(output_mutex_);
    const std::vector<std::uint8_t>& stored = chunk.stored();
    std::vector<std::uint8_t> head;
    {
      Record record(head, Opcode::kChunk);
      record.Put(chunk.span.start()).Put(chunk.span.last).Put(std::uint64_t{chunk.records.size()});
      record.Put(chunk.records_crc)
          .Put(std::string_view(chunk.compression))
          .Put(std::uint64_t{stored.size()});
      record.ContinuesFor(stored.size());
    }
    const std::uint64_t start = sink_.size();
    const std::uint64_t length = head.size() + stored.size();
    std::vector<std::uint8_t> indexes;
    std::map<std::uint16_t, std::uint64_t> places;
    for (auto& [channel, messages] : chunk.index) {
      std::stable_sort(messages.begin(), messages.end(),
                       [](const auto& a, const auto& b) { return a.first < b.first; });
      places[channel] = start + length + indexes.size();
      Record record(indexes, Opcode::kMessageIndex);
      record.Put(channel).Put(static_cast<std::uint32_t>(messages.size() * 16));
      for (const auto& [time, place] : messages) {
        record.Put(time).Put(place);
      }
    }
    Store(head);
    StoreSummed(stored, chunk.stored_crc);
    if (!Store(indexes).ok()) {
      return;
    }
    Record(chunk_indexes_, Opcode::kChunkIndex)
        .Put(chunk.span.start())
        .Put(chunk.span.last)
        .Put(start)
        .Put(length)
        .Put(places)
        .Put(std::uint64_t{indexes.size()})
        .Put(std::string_view(chunk.compression))
        .Put(std::uint64_t{stored.size()})
        .Put(std::uint64_t{chunk.records.size()});
    ++chunk_count_;
    span_.Add(chunk.span);
  }

  Status Store(Bytes bytes) { return StoreSummed(bytes, Crc32(bytes)); }

  Status StoreSummed(Bytes bytes, std::uint32_t crc) {
    if (Status status = CurrentStatus(); !status.ok()) {
      return status;
    }
    data_crc_ = JoinCrc(data_crc_, crc, bytes.size());
    Status status = sink_.Write(bytes);
    Fail(status);
    return status;
  }

  /// All that follows the last chunk.
  std::vector<std::uint8_t> Ending() {
    std::vector<std::uint8_t> bytes;
    Record(bytes, Opcode::kDataEnd).Put(data_crc_);
    const std::size_t data_end = bytes.size();
    const std::uint64_t start = sink_.size();
    std::vector<std::uint8_t> offsets;
    const auto group = [&](Opcode opcode, const auto& put) {
      const std::size_t begin = bytes.size();
      put();
      if (bytes.size() > begin) {
        Record(offsets, Opcode::kSummaryOffset)
            .Put(static_cast<std::uint8_t>(opcode))
            .Put(start + begin)
            .Put(std::uint64_t{bytes.size() - begin});
      }
    };
    const auto copy = [&bytes](const std::vector<std::uint8_t>& records) {
      return [&bytes, &records] { bytes.insert(bytes.end(), records.begin(), records.end()); };
    };
    group(Opcode::kSchema, [&] {
      for (const std::uint16_t schema : used_schemas_) {
        PutSchema(bytes, schema);
      }
    });
    group(Opcode::kChannel, [&] {
      for (const auto& [channel, count] : message_counts_) {
        PutChannel(bytes, channel);
      }
    });
    group(Opcode::kStatistics, [&] { PutStatistics(bytes); });
    group(Opcode::kChunkIndex, copy(chunk_indexes_));
    group(Opcode::kAttachmentIndex, copy(attachment_indexes_));
    group(Opcode::kMetadataIndex, copy(metadata_indexes_));
    const std::uint64_t offset_start = start + bytes.size();
    bytes.insert(bytes.end(), offsets.begin(), offsets.end());
    {
      // The checksum covers the footer's own beginning.
      std::vector<std::uint8_t> footer;
      Record(footer, Opcode::kFooter).Put(start + data_end).Put(offset_start).Put(std::uint32_t{0});
      const std::uint32_t crc =
          Crc32(Bytes(footer).first(footer.size() - 4), Crc32(Bytes(bytes).subspan(data_end)));
      Record(bytes, Opcode::kFooter).Put(start + data_end).Put(offset_start).Put(crc);
    }
    bytes.insert(bytes.end(), kMagic.begin(), kMagic.end());
    return bytes;
  }

  void PutStatistics(std::vector<std::uint8_t>& bytes) const {
    std::uint64_t messages = 0;
    for (const auto& [channel, count] : message_counts_) {
      messages += count;
    }
    Record(bytes, Opcode::kStatistics)
        .Put(messages)
        .Put(static_cast<std::uint16_t>(used_schemas_.size()))
        .Put(static_cast<std::uint32_t>(message_counts_.size()))
        .Put(attachment_count_)
        .Put(metadata_count_)
        .Put(chunk_count_)
        .Put(span_.start())
        .Put(span_.last)
        .Put(message_counts_);
  }

  void Fail(const Status& status) {
    const std::lock_guard lock(mutex_);
    if (status_.ok()) {
      status_ = status;
    }
  }
  Status CurrentStatus() {
    const std::lock_guard lock(mutex_);
    return status_;
  }

  Sink& sink_;
  const Options options_;
  std::unique_ptr<Compressor> compressor_;  ///< where there are no threads

  // The caller's own.
  std::vector<Schema> schemas_;
  std::vector<Channel> channels_;
  std::set<std::uint16_t> used_schemas_;
  std::map<std::uint16_t, std::uint64_t> message_counts_;  ///< of the channels used
  std::unique_ptr<Chunk> chunk_ = std::make_unique<Chunk>();

  std::mutex mutex_;  ///< for what stands up to the next one
  std::condition_variable changed_;
  Status status_;
  std::deque<std::unique_ptr<Chunk>> sealed_;
  std::vector<std::unique_ptr<Chunk>> free_;
  std::uint64_t sealed_count_ = 0;
  std::uint64_t stored_count_ = 0;
  bool stopping_ = false;

  std::mutex output_mutex_;  ///< for the sink and what follows; taken before mutex_
  std::uint32_t data_crc_ = 0;
  std::vector<std::uint8_t> chunk_indexes_;
  std::vector<std::uint8_t> attachment_indexes_;
  std::vector<std::uint8_t> metadata_indexes_;
  std::uint32_t chunk_count_ = 0;
  std::uint32_t attachment_count_ = 0;
  std::uint32_t metadata_count_ = 0;
  TimeSpan span_;

  std::vector<std::thread> threads_;  ///< the caller's own, too
};

Writer::Writer(Sink& sink, const Options& options) : impl_(std::make_unique<Impl>(sink, options)) {}
Writer::~Writer() = default;

std::uint16_t Writer::AddSchema(std::string name, std::string encoding, std::string data) {
  return impl_->AddSchema({std::move(name), std::move(encoding), std::move(data)});
}

std::uint16_t Writer::AddChannel(std::uint16_t schema, std::string topic, std::string message_encoding,
                                 Map metadata) {
  return impl_->AddChannel({schema, std::move(topic), std::move(message_encoding), std::move(metadata)});
}

Status Writer::Write(std::uint16_t channel, std::uint64_t log_time, std::uint64_t publish_time, Bytes data) {
  return impl_->Write(channel, log_time, publish_time, data);
}

Status Writer::Flush() {
  return impl_->Flush();
}

Status Writer::Attach(const Attachment& attachment, Bytes data) {
  return impl_->Attach(attachment, data);
}

Status Writer::AddMetadata(const std::string& name, const Map& metadata) {
  return impl_->AddMetadata(name, metadata);
}

Status Writer::Close() {
  return impl_->Close();
}

void Writer::Terminate() {
  impl_->Terminate();
}

}  // namespace orva::mcap
