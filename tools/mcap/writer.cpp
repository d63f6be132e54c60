// SPDX-License-Identifier: Apache-2.0
#include "mcap/writer.h"

#include <fcntl.h>
#include <lz4frame.h>
#include <pthread.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <concepts>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

namespace orva::mcap {
namespace {

constexpr std::array<std::uint8_t, 8> kMagic = {0x89, 'M', 'C', 'A', 'P', '0', '\r', '\n'};

enum class Opcode : std::uint8_t {
  kHeader = 0x01,
  kFooter = 0x02,
  kSchema = 0x03,
  kChannel = 0x04,
  kMessage = 0x05,
  kChunk = 0x06,
  kMessageIndex = 0x07,
  kChunkIndex = 0x08,
  kAttachment = 0x09,
  kAttachmentIndex = 0x0A,
  kStatistics = 0x0B,
  kMetadata = 0x0C,
  kMetadataIndex = 0x0D,
  kSummaryOffset = 0x0E,
  kDataEnd = 0x0F,
};

// Checksums.

constexpr std::uint32_t kPolynomial = 0xEDB88320;  ///< of CRC-32, bit-reversed

/// Row k: the effect of a byte that k zero bytes follow. Sixteen bytes are looked up at once.
constexpr auto kCrcTables = [] {
  std::array<std::array<std::uint32_t, 256>, 16> tables = {};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
    }
    tables[0][byte] = crc;
  }
  for (std::size_t row = 1; row < tables.size(); ++row) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[row - 1][byte];
      tables[row][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}();

constexpr std::size_t kCrcStep = kCrcTables.size();

inline std::uint32_t CrcStep(const std::uint8_t* at, std::uint32_t crc) {
  std::uint32_t next = 0;
  for (std::size_t i = 0; i < kCrcStep; i += 4) {
    const std::uint32_t four = (std::uint32_t{at[i]} | std::uint32_t{at[i + 1]} << 8 |
                                std::uint32_t{at[i + 2]} << 16 | std::uint32_t{at[i + 3]} << 24) ^
                               (i == 0 ? crc : 0);
    const auto* table = &kCrcTables[kCrcStep - 4 - i];
    next ^= table[3][four & 0xFF] ^ table[2][(four >> 8) & 0xFF] ^ table[1][(four >> 16) & 0xFF] ^
            table[0][four >> 24];
  }
  return next;
}

/// a * b modulo the CRC's polynomial.
std::uint32_t MultiplyModulo(std::uint32_t a, std::uint32_t b) {
  std::uint32_t product = 0;
  for (std::uint32_t bit = 0x80000000; bit != 0; bit >>= 1) {
    if ((a & bit) != 0) {
      product ^= b;
    }
    b = (b >> 1) ^ ((b & 1) != 0 ? kPolynomial : 0);
  }
  return product;
}

/// The checksum of two runs of bytes, one after the other, from theirs: a chunk's bytes are summed up once,
/// although they count in the chunk's checksum and in the file's.
std::uint32_t JoinCrc(std::uint32_t first, std::uint32_t second, std::uint64_t second_size) {
  std::uint32_t shift = 0x80000000;  // x^0
  std::uint32_t power = 0x00800000;  // x^8, one byte; squared for each bit of the size
  for (; second_size != 0; second_size >>= 1) {
    if ((second_size & 1) != 0) {
      shift = MultiplyModulo(shift, power);
    }
    power = MultiplyModulo(power, power);
  }
  return MultiplyModulo(shift, first) ^ second;
}

// Records. All numbers are little-endian; texts, arrays and maps begin with their size in bytes.

class Record {
 public:
  /// Appends a record to `bytes`; its length is filled in at the end of this object's life.
  Record(std::vector<std::uint8_t>& bytes, Opcode opcode) : bytes_(bytes) {
    Put(static_cast<std::uint8_t>(opcode));
    content_ = bytes_.size() + 8;
    Put(std::uint64_t{0});
  }
  ~Record() { Patch(content_ - 8, static_cast<std::uint64_t>(bytes_.size() - content_ + beyond_)); }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  template <std::integral T>
  Record& Put(T number) {
    const std::size_t at = bytes_.size();
    bytes_.resize(at + sizeof(T));
    Patch(at, number);
    return *this;
  }
  Record& Put(std::string_view text) {
    Put(static_cast<std::uint32_t>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  template <typename Key, typename Value>
  Record& Put(const std::map<Key, Value>& map) {
    const std::size_t at = bytes_.size();
    Put(std::uint32_t{0});
    for (const auto& [key, value] : map) {
      if constexpr (std::is_convertible_v<Key, std::string_view>) {
        Put(std::string_view(key)).Put(std::string_view(value));
      } else {
        Put(key).Put(value);
      }
    }
    Patch(at, static_cast<std::uint32_t>(bytes_.size() - at - 4));
    return *this;
  }
  Record& Append(Bytes data) {
    bytes_.insert(bytes_.end(), data.begin(), data.end());
    return *this;
  }
  /// The last `size` bytes of the record follow elsewhere.
  void ContinuesFor(std::size_t size) { beyond_ = size; }
  std::size_t content() const { return content_; }

 private:
  template <std::integral T>
  void Patch(std::size_t at, T number) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes_[at + i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
  }

  std::vector<std::uint8_t>& bytes_;
  std::size_t content_ = 0;
  std::size_t beyond_ = 0;
};

// Compressors. One belongs to each thread.

class Compressor {
 public:
  virtual ~Compressor() = default;
  /// False where that failed or made nothing smaller.
  virtual bool Compress(Bytes bytes, std::vector<std::uint8_t>& packed) = 0;
  virtual const char* name() const = 0;
};

class Lz4Compressor : public Compressor {
 public:
  bool Compress(Bytes bytes, std::vector<std::uint8_t>& packed) override {
    LZ4F_preferences_t preferences = LZ4F_INIT_PREFERENCES;
    preferences.frameInfo.contentSize = bytes.size();
    packed.resize(LZ4F_compressFrameBound(bytes.size(), &preferences));
    const std::size_t size =
        LZ4F_compressFrame(packed.data(), packed.size(), bytes.data(), bytes.size(), &preferences);
    packed.resize(LZ4F_isError(size) != 0 ? 0 : size);
    return !packed.empty() && packed.size() < bytes.size();
  }
  const char* name() const override { return "lz4"; }
};

class ZstdCompressor : public Compressor {
 public:
  explicit ZstdCompressor(int level) : level_(level), context_(ZSTD_createCCtx(), ZSTD_freeCCtx) {}
  bool Compress(Bytes bytes, std::vector<std::uint8_t>& packed) override {
    if (context_ == nullptr) {
      return false;
    }
    packed.resize(ZSTD_compressBound(bytes.size()));
    const std::size_t size =
        ZSTD_compressCCtx(context_.get(), packed.data(), packed.size(), bytes.data(), bytes.size(), level_);
    packed.resize(ZSTD_isError(size) != 0 ? 0 : size);
    return !packed.empty() && packed.size() < bytes.size();
  }
  const char* name() const override { return "zstd"; }

 private:
  int level_;
  std::unique_ptr<ZSTD_CCtx, std::size_t (*)(ZSTD_CCtx*)> context_;
};

std::unique_ptr<Compressor> MakeCompressor(const Options& options) {
  switch (options.compression) {
    case Compression::kLz4:
      return std::make_unique<Lz4Compressor>();
    case Compression::kZstd:
      return std::make_unique<ZstdCompressor>(options.zstd_level);
    case Compression::kNone:
      break;
  }
  return nullptr;
}

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

struct TimeSpan {
  std::uint64_t first = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t last = 0;

  void Add(const TimeSpan& other) {
    first = std::min(first, other.first);
    last = std::max(last, other.last);
  }
  std::uint64_t start() const { return first > last ? 0 : first; }  ///< 0 without messages
};

/// Messages on their way to the sink.
struct Chunk {
  std::uint64_t number = 0;
  std::vector<std::uint8_t> records;
  std::vector<std::uint8_t> packed;
  const char* compression = "";
  std::uint32_t records_crc = 0;
  std::uint32_t stored_crc = 0;
  TimeSpan span;
  /// Of each channel: log time and place in `records` of each message.
  std::map<std::uint16_t, std::vector<std::pair<std::uint64_t, std::uint64_t>>> index;

  const std::vector<std::uint8_t>& stored() const { return *compression == '\0' ? records : packed; }
  void Clear() {
    records.clear();
    index.clear();
    span = {};
  }
};

void Seal(Chunk& chunk, Compressor* compressor) {
  chunk.records_crc = Crc32(chunk.records);
  chunk.stored_crc = chunk.records_crc;
  chunk.compression = "";
  if (compressor != nullptr && compressor->Compress(chunk.records, chunk.packed)) {
    chunk.compression = compressor->name();
    chunk.stored_crc = Crc32(chunk.packed);
  }
}

Status SystemStatus(int error) {
  return {std::generic_category().message(error)};
}

}  // namespace

std::uint32_t Crc32(Bytes bytes, std::uint32_t crc) {
  // Each step waits for the one before it, so a long run goes as two halves side by side.
  constexpr std::size_t kWorthHalving = 8192;
  crc = ~crc;
  if (bytes.size() >= kWorthHalving) {
    const std::size_t half = bytes.size() / 2 / kCrcStep * kCrcStep;
    std::uint32_t second = ~std::uint32_t{0};
    for (std::size_t i = 0; i < half; i += kCrcStep) {
      crc = CrcStep(&bytes[i], crc);
      second = CrcStep(&bytes[half + i], second);
    }
    crc = ~JoinCrc(~crc, ~second, half);
    bytes = bytes.subspan(2 * half);
  }
  for (; bytes.size() >= kCrcStep; bytes = bytes.subspan(kCrcStep)) {
    crc = CrcStep(bytes.data(), crc);
  }
  for (const std::uint8_t byte : bytes) {
    crc = (crc >> 8) ^ kCrcTables[0][(crc ^ byte) & 0xFF];
  }
  return ~crc;
}

FileSink::FileSink(const std::string& path)
    : file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
  open_error_ = file_ < 0 ? errno : 0;
}

FileSink::~FileSink() {
  End();
}

Status FileSink::Write(Bytes bytes) {
  if (file_ < 0) {
    return SystemStatus(open_error_ != 0 ? open_error_ : EBADF);
  }
  while (!bytes.empty()) {
    const ssize_t written = ::write(file_, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return SystemStatus(errno);
    }
    if (written > 0) {
      size_ += static_cast<std::uint64_t>(written);
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
  }
  return {};
}

Status FileSink::End() {
  const int file = std::exchange(file_, -1);
  return file >= 0 && ::close(file) != 0 ? SystemStatus(errno) : Status{};
}

Status MemorySink::Write(Bytes bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return {};
}

unsigned Options::DefaultThreads() {
  return std::clamp(std::thread::hardware_concurrency(), 2U, 5U) - 1;
}

class Writer::Impl {
 public:
  Impl(Sink& sink, const Options& options) : sink_(sink), options_(options) {
    if (options.threads == 0) {
      compressor_ = MakeCompressor(options);
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
    chunk_->index[channel].emplace_back(log_time, records.size());
    chunk_->span.Add({log_time, log_time});
    Record(records, Opcode::kMessage)
        .Put(channel)
        .Put(static_cast<std::uint32_t>(message_counts_[channel]))
        .Put(log_time)
        .Put(publish_time)
        .Append(data);
    ++message_counts_[channel];
    return records.size() >= options_.chunk_size ? Flush() : Status{};
  }

  Status Flush() {
    std::unique_lock lock(mutex_);
    if (chunk_->index.empty() || !status_.ok()) {
      return status_;
    }
    chunk_->number = sealed_count_++;
    if (threads_.empty()) {
      lock.unlock();
      Seal(*chunk_, compressor_.get());
      StoreChunk(*chunk_);
      chunk_->Clear();
      return CurrentStatus();
    }
    sealed_.push_back(std::move(chunk_));
    changed_.notify_all();
    changed_.wait(lock, [this] { return sealed_count_ - stored_count_ <= 2 * threads_.size(); });
    if (free_.empty()) {
      chunk_ = std::make_unique<Chunk>();
    } else {
      chunk_ = std::move(free_.back());
      free_.pop_back();
    }
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
    for (unsigned i = 0; i < options_.threads; ++i) {
      try {
        threads_.emplace_back([this] { Work(); });
      } catch (const std::system_error&) {  // fewer do as well
        break;
      }
      pthread_setname_np(threads_.back().native_handle(), "mcap-writer");
    }
    if (threads_.empty() && compressor_ == nullptr) {
      compressor_ = MakeCompressor(options_);
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
    const std::unique_ptr<Compressor> compressor = MakeCompressor(options_);
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
