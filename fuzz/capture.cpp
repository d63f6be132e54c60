// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <utility>
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

/// libpcap's own answer; each program is compiled once.
const bpf_program& Filter(pcap_t* handle, uint16_t port) {
  static auto& programs = *new std::map<std::pair<int, uint16_t>, bpf_program>;  // for good
  const auto [place, fresh] = programs.try_emplace({pcap_datalink(handle), port});
  const std::string text = port == 0 ? "(udp)" : "(udp dst port " + std::to_string(port) + ")";
  if (fresh) pcap_compile(handle, &place->second, text.c_str(), 1, PCAP_NETMASK_UNKNOWN);
  return place->second;
}

/// Lengths of the payloads for us, by libpcap's filter alone.
std::vector<int> FilteredLengths(const uint8_t* data, size_t size, uint16_t port) {
  std::vector<int> lengths;
  char error[PCAP_ERRBUF_SIZE];
  pcap_t* handle = pcap_fopen_offline(fmemopen(const_cast<uint8_t*>(data), size, "r"), error);
  ORVA_EXPECT(handle != nullptr);
  const bpf_program& filter = Filter(handle, port);
  pcap_pkthdr* header = nullptr;
  const u_char* record = nullptr;
  while (pcap_next_ex(handle, &header, &record) >= 0) {
    if (pcap_offline_filter(&filter, header, record) == 0 || header->caplen < header->len) continue;
    const auto offset = tevoro::lidar::PayloadOffset(pcap_datalink(handle), record, header->caplen);
    if (!offset || header->len <= *offset || header->len - *offset > 1546) continue;
    lengths.push_back(static_cast<int>(header->len - *offset));
  }
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
  ORVA_EXPECT(lengths == FilteredLengths(data, size, param.msop_port));
  // Every record is found again where it stood, from last to first.
  std::reverse(records.begin(), records.end());
  std::vector<uint8_t> payload;
  for (Record& known : records) {
    ORVA_EXPECT(Receive(input, &known.position, false, payload) > 0);
    ORVA_EXPECT(payload == known.payload);
  }
}

}  // namespace orva::fuzz
