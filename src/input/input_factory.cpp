// SPDX-License-Identifier: Apache-2.0
#include "input/input_factory.h"

#include "common/console.h"
#include "input/input_pcap.h"
#include "input/input_sock.h"

namespace tevoro::lidar {

std::shared_ptr<Input> InputFactory::CreateInput(const InputType& type, const InputParam& param) {
  switch (type) {
    case ONLINE:
      return std::make_shared<InputSock>(param);
    case PCAP:
      return std::make_shared<InputPcap>(param);
  }
  PrintLine(Colour::kRed, "Wrong Input Type. Please check your LiDAR Version! ");
  return nullptr;
}

}  // namespace tevoro::lidar
