// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pcap/pcap.h>

#include <memory>
#include <string>
#include <vector>

#include "input/input.h"

namespace tevoro::lidar {

/// Reads a recording: the UDP payloads of a capture file that go to the configured port (0: to any). Reads as
/// fast as it is asked, without regard to capture times.
class InputPcap : public Input {
 public:
  explicit InputPcap(const InputParam& param);

  /// Prints the path, opens the file and compiles the filter. False when it is no capture or, after a line on
  /// standard error, of a link type that the driver does not read.
  bool Init() override;

  /// 0 also for a record that the filter rejects or that does not hold its whole payload, and for a payload
  /// that exceeds the buffer; the buffer is then untouched. A file that is cut off inside a record ends
  /// before it.
  int RecvPacket(std::shared_ptr<Buffer>& buffer, const int& size, long* position,
                 const bool& record) override;

  /// The same without the copy: `packet` points to the payload, which the next call takes away.
  int NextPacket(PacketView& packet, long* position, bool record, size_t largest = PACKET_BUFFER_SIZE);

 private:
  struct CloseCapture {
    void operator()(pcap_t* handle) const { pcap_close(handle); }
  };
  struct Filter {
    Filter() = default;
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() { pcap_freecode(&program); }

    bpf_program program{};  ///< empty it rejects everything
  };

  /// Does the record hold a UDP datagram for us? What is plainly one, or plainly none, needs no filter
  /// program.
  bool Wanted(const pcap_pkthdr& header, const uint8_t* record) const;
  /// The next record. False at the end of the file and where it cannot be read.
  bool ReadRecord(pcap_pkthdr** header, const u_char** data);

  // A pcapng file consists of sections that describe their own interfaces, at any place before their packets:
  // the link type of a record, and the unit of its time. libpcap counts the interfaces that it reads, so
  // before a record it must have read those of its section that stand before the record, and no other.
  bool KnowsInterfaces(long position) const;
  bool ReadUpTo(long position);
  int ReadNoted(pcap_pkthdr** header, const u_char** data);
  /// Notes the sections and interfaces that begin before `end`, from the end of the first interface on: up to
  /// there libpcap reads when it opens the file, and passes over sections that it would refuse later. False
  /// where the file no longer stands as it did.
  bool NoteMarks(long end);
  /// Opens the file once more, as it is: how libpcap opens one, no seek repeats.
  bool Rewind();

  struct Mark {
    long position;
    bool section;  ///< or an interface
  };

  std::unique_ptr<char[]> file_buffer_;  ///< outlives the handle, which reads through it
  std::unique_ptr<pcap_t, CloseCapture> handle_;
  int link_type_ = 0;
  bool is_pcapng_ = false;
  std::vector<Mark> marks_;  ///< pcapng: of the blocks before `noted_`
  long noted_ = 0;
  long known_ = 0;  ///< libpcap knows the interfaces of the section here that are described before
  std::string filter_text_;
  Filter filter_;
};

}  // namespace tevoro::lidar
