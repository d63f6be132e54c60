// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace orva::fuzz {

// What libFuzzer and the corpus replay call. They end the program where the library breaks a promise.

/// A capture file, as it is. An odd size reads every datagram, an even one those to port 2368.
void Capture(const uint8_t* data, size_t size);

/// Blocks of a pcapng file, in the order of the input: sections, interfaces with their unit of time, packets,
/// and blocks that make no sense. An odd size begins in the other byte order.
void Pcapng(const uint8_t* data, size_t size);

/// Bytes 0 to 2: model, cloud type, limits with mounting and calibration. Then packets: a byte that says what
/// to do with it, two of start block, the packet's bytes behind its identifier. What is missing at the end
/// counts as zeros.
void Decoder(const uint8_t* data, size_t size);

/// Byte 0 even: which columns of the file that follows are taken, and how many values. Odd: a folder of up to
/// four texts, parted by form feeds: azimuth, elevation, weight and near filter file.
void CalibrationFolder(const uint8_t* data, size_t size);

/// Byte 0: model. Then replies of a calibration download: a byte that says whether the magic word is put in
/// and how often the reply comes, two of length, the reply. What is missing at the end counts as zeros.
void CalibrationReplies(const uint8_t* data, size_t size);

/// Byte 0: what the sensor's stream holds. Then up to 63 deeds: what it answers to a calibration download.
void CommandChannel(const uint8_t* data, size_t size);

/// A configuration file.
void Config(const uint8_t* data, size_t size);

/// Byte 0: how the file is written and ends. Then calls of the writer of MCAP files.
void McapWriter(const uint8_t* data, size_t size);

/// Byte 0 below 5: a capture's link type. Then its records: two bytes of length, one that says how many bytes
/// more were on the wire, one of nanoseconds since the record before, the record. Any other byte 0: bare
/// fragments, each a byte with identification and "more follow", two of offset, one of length, one of
/// nanoseconds, and the bytes.
void Fragments(const uint8_t* data, size_t size);

/// A PCD file.
void Pcd(const uint8_t* data, size_t size);

/// Byte 0: recording or live sensor, page or desktop viewer. Then what a browser sends, a line for a message.
void ViewMessages(const uint8_t* data, size_t size);

}  // namespace orva::fuzz
