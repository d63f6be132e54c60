// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "expect.h"
#include "input/input_pcap.h"
#include "input/link_header.h"
#include "targets.h"

namespace orva::fuzz {
namespace {

using tevoro::lidar::Buffer;
using tevoro::lidar::InputPcap;

struct Record {
  long position;
  std::vector<uint8_t> payload;
};

int Receive(InputPcap& input, long* position, bool record, std::vector<uint8_t>& payload) {
  auto buffer = std::make_shared<Buffer>();
  const int result = input.RecvPacket(buffer, 1546, position, record);
  ORVA_EXPECT(result >= -1 && result <= 1546);
  if (result > 0) {
    ORVA_EXPECT(buffer->offset == 0 && buffer->length == static_cast<uint64_t>(result));
    payload.assign(buffer->data.get(), buffer->data.get() + result);
  }
  return result;
}

/// Lengths of the payloads for us, by libpcap's filter alone.
std::vector<int> FilteredLengths(const std::string& path, uint16_t port) {
  std::vector<int> lengths;
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_open_offline(path.c_str(), error);
  ORVA_EXPECT(handle != nullptr);
  bpf_program filter{};
  const std::string text = port == 0 ? "(udp)" : "(udp dst port " + std::to_string(port) + ")";
  pcap_compile(handle, &filter, text.c_str(), 1, PCAP_NETMASK_UNKNOWN);
  pcap_pkthdr* header = nullptr;
  const u_char* record = nullptr;
  while (pcap_next_ex(handle, &header, &record) >= 0) {
    if (pcap_offline_filter(&filter, header, record) == 0 || header->caplen < header->len) continue;
    const auto offset = tevoro::lidar::PayloadOffset(pcap_datalink(handle), record, header->caplen);
    if (!offset || header->len <= *offset || header->len - *offset > 1546) continue;
    lengths.push_back(static_cast<int>(header->len - *offset));
  }
  pcap_freecode(&filter);
  pcap_close(handle);
  return lengths;
}

}  // namespace

void Capture(const uint8_t* data, size_t size) {
  static const int file = memfd_create("capture", 0);
  ORVA_EXPECT(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
  InputParam param;
  param.msop_port = size % 2 == 0 ? 2368 : 0;
  param.pcap_path = "/proc/self/fd/" + std::to_string(file);
  InputPcap input(param);
  if (!input.Init()) return;

  std::vector<Record> records;
  std::vector<int> lengths;
  Record record{};
  int result = 0;
  while ((result = Receive(input, &record.position, true, record.payload)) != -1) {
    if (result > 0) lengths.push_back(result);
    if (result > 0 && records.size() < 64) records.push_back(record);
  }
  ORVA_EXPECT(lengths == FilteredLengths(param.pcap_path, param.msop_port));
  // Every record is found again where it stood, from last to first.
  std::reverse(records.begin(), records.end());
  std::vector<uint8_t> payload;
  for (Record& known : records) {
    ORVA_EXPECT(Receive(input, &known.position, false, payload) > 0);
    ORVA_EXPECT(payload == known.payload);
  }
}

}  // namespace orva::fuzz
