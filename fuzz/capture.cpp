// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "expect.h"
#include "input/input_pcap.h"
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
  Record record{};
  int result = 0;
  while ((result = Receive(input, &record.position, true, record.payload)) != -1) {
    if (result > 0 && records.size() < 64) records.push_back(record);
  }
  // Every record is found again where it stood, from last to first.
  std::reverse(records.begin(), records.end());
  std::vector<uint8_t> payload;
  for (Record& known : records) {
    ORVA_EXPECT(Receive(input, &known.position, false, payload) > 0);
    ORVA_EXPECT(payload == known.payload);
  }
}

}  // namespace orva::fuzz
