// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "packet_content.h"

namespace orva::sim {

// One per model, see Model::encode. They are written from the wire formats (docs/wire-formats.md) and share
// nothing with the driver's decoders, so that a mistake in one shows against the other.

void EncodeTs4b(const PacketContent& content, const Calibration& calibration, uint8_t* packet);
void EncodeTs6(const PacketContent& content, const Calibration& calibration, uint8_t* packet);
void EncodeNv2(const PacketContent& content, const Calibration& calibration, uint8_t* packet);
void EncodeTs4a(const PacketContent& content, const Calibration& calibration, uint8_t* packet);
void EncodeKr7(const PacketContent& content, const Calibration& calibration, uint8_t* packet);
void EncodeTs4(const PacketContent& content, const Calibration& calibration, uint8_t* packet);

}  // namespace orva::sim
