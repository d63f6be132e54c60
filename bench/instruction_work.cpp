// SPDX-License-Identifier: Apache-2.0
//
// A fixed amount of work, whose instructions scripts/instruction-budget counts: `instruction_work NAME
// COUNT`. The difference between two counts is free of what set-up costs.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "index_pass.h"
#include "input/input_sock.h"
#include "online/sync_queue.h"
#include "scan_frame.h"
#include "support/calibrations.h"
#include "support/loopback.h"

namespace {

using Cloud = PointCloud<Point>;
using orva::test::Packet;
using tevoro::lidar::Buffer;

struct Decoding {
  explicit Decoding(LidarType model, bool mounted = false) : frame(orva::bench::ScanFrame(model)) {
    DecoderParam param = orva::test::OpenLimits();
    param.use_transform = mounted;
    param.yaw = 30.0F;
    decoder = tevoro::lidar::DecoderFactory<Cloud>::CreateDecoder(model, param);
    decoder->RegisterCallBack([](const Error&) {},
                              [this](const uint16_t&, const double&) { cloud->points.clear(); });
    orva::test::Random random(3);
    decoder->UpdateCheckParam(orva::test::PlausibleCalibration(random).get());
    cloud->points.reserve(200'000);
    decoder->point_cloud_ = cloud;
    Decode(frame[0].data(), frame[0].size());  // prepares the directions
  }
  void Decode(const uint8_t* data, size_t size) { decoder->ProcessMsopPacket(data, size, 0); }

  std::vector<Packet> frame;
  std::shared_ptr<tevoro::lidar::Decoder<Cloud>> decoder;
  std::shared_ptr<Cloud> cloud = std::make_shared<Cloud>();
};

void DecodePackets(LidarType model, bool mounted, size_t count) {
  Decoding work(model, mounted);
  for (size_t i = 0; i < count; ++i) {
    const Packet& packet = work.frame[i % work.frame.size()];
    work.Decode(packet.data(), packet.size());
  }
}

void IndexRecords(size_t count) {
  const std::vector<Packet> frame = orva::bench::ScanFrame(TS4B);
  const orva::bench::RecordingFile recording(frame, count * (16 + 42 + 1360));
  if (orva::bench::IndexRecording(recording.Path()) < count) std::abort();
}

/// From the socket through the queue into a cloud, on one thread: how long threads sleep has no part in it.
void ReceivePackets(size_t count) {
  Decoding work(TS4B);
  InputParam param;
  param.host_ip = "127.0.0.1";
  param.msop_port = orva::test::FreePort();
  tevoro::lidar::InputSock input(param);
  if (!input.Init()) std::abort();
  const orva::test::UdpPeer sensor;
  tevoro::lidar::SyncQueue<std::shared_ptr<Buffer>> queue;
  tevoro::lidar::SyncQueue<std::shared_ptr<Buffer>> used;
  for (size_t i = 0; i < count; ++i) {
    const Packet& packet = work.frame[i % work.frame.size()];
    sensor.Send(param.msop_port, packet.data(), packet.size());
    std::shared_ptr<Buffer> buffer = used.Pop();
    if (!buffer) buffer = std::make_shared<Buffer>();
    if (input.RecvPacket(buffer, int{tevoro::lidar::PACKET_BUFFER_SIZE}, nullptr, true) <= 0) std::abort();
    queue.Push(buffer);
    const std::shared_ptr<Buffer> received = queue.Pop();
    work.Decode(received->View().data, received->View().length);
    used.Push(received);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string name = argc == 3 ? argv[1] : "";
  const size_t count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
  if (name == "decode_TS4B") {
    DecodePackets(TS4B, false, count);
  } else if (name == "decode_TS4B_mounted") {
    DecodePackets(TS4B, true, count);
  } else if (name == "decode_TS6") {
    DecodePackets(TS6, false, count);
  } else if (name == "decode_NV2") {
    DecodePackets(NV2, false, count);
  } else if (name == "index_record") {
    IndexRecords(count);
  } else if (name == "live_packet") {
    ReceivePackets(count);
  } else {
    std::fprintf(stderr, "usage: instruction_work NAME COUNT\n");
    return 2;
  }
  return 0;
}
