// SPDX-License-Identifier: Apache-2.0
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

#include "captures/extraction.h"
#include "captures/recorded_bytes.h"
#include "commands/commands.h"
#include "sessions/driver_options.h"
#include "sessions/pacing.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/numbers.h"
#include "shared/terminal.h"
#include "sim/steady_time.h"
#include "sim/udp_endpoint.h"

namespace orva {
namespace {

constexpr const char* kSendExamples =
    "Any recording that 'orva extract' reads will do. Packets are sent as they were\n"
    "recorded, from an address of this machine, when their capture times say.\n"
    "Examples:\n"
    "  orva send drive.pcap --to 127.0.0.1:6699\n"
    "  orva send drive.pcap --to 127.0.0.1:6699 --rate 0.5 --loop --duration 60\n"
    "  orva send both.pcap --source 192.168.1.10 --to localhost:6699\n"
    "  orva live --port 6699 --model NV2        # in another terminal\n"
    "Ctrl-C ends it.\n";

constexpr int64_t kSecond = 1'000'000'000;

struct SendOptions {
  std::string file;
  std::string to;
  Selection selection;
  double rate = 1.0;
  double seconds = 0.0;
  bool loop = false;
  bool remote = false;
};

sockaddr_in ParseDestination(const std::string& text) {
  const size_t colon = text.rfind(':');
  uint16_t port = 0;
  const char* const end = text.data() + text.size();
  if (colon != std::string::npos) {
    const auto [at, error] = std::from_chars(text.data() + colon + 1, end, port);
    if (error != std::errc() || at != end) port = 0;
  }
  if (colon == 0 || port == 0) {
    throw WrongUsage("'" + text + "' is no address and port. Write them as in --to 127.0.0.1:6699");
  }
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  const std::string host = text.substr(0, colon);
  const int error = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
  if (error != 0) throw Failure("there is no IPv4 address for '" + host + "': " + gai_strerror(error) + ".");
  sockaddr_in address{};
  std::memcpy(&address, found->ai_addr, sizeof(address));
  freeaddrinfo(found);
  address.sin_port = htons(port);
  return address;
}

bool IsThisMachine(const in_addr& address) {
  if (ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET) return true;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  bool found = false;
  for (const ifaddrs* entry = list; entry != nullptr && !found; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    sockaddr_in own{};
    std::memcpy(&own, entry->ifa_addr, sizeof(own));
    found = own.sin_addr.s_addr == address.s_addr;
  }
  freeifaddrs(list);
  return found;
}

/// Sends packet after packet when it is due, and counts.
class Sender {
 public:
  explicit Sender(const SendOptions& options)
      : options_(options), destination_(ParseDestination(options.to)), pace_(options.rate) {
    if (!options.remote && !IsThisMachine(destination_.sin_addr)) {
      throw Failure(
          "'" + options.to +
          "' is no address of this machine. --remote sends there all the same: a stream of a sensor's "
          "packets that nobody over there may expect.");
    }
    sim::SleepSharply();
  }

  /// False when it is time to end.
  bool Send(const Datagram& datagram) {
    const int64_t due = pace_.Due(datagram.packet.time_ns, sim::SteadyNow());
    if (!WaitUntil(due)) return false;
    if (!endpoint_.Send(datagram.packet.payload, destination_)) {
      ++refused_;
      reason_ = errno;
    }
    lateness_.Add(sim::SteadyNow() - due);
    ++packets_;
    bytes_ += datagram.packet.payload.size();
    TellNow();
    return true;
  }

  void Restart() { pace_.Restart(); }
  bool IsOver() const { return Interrupted() || (options_.seconds > 0.0 && Elapsed() >= options_.seconds); }
  uint64_t packets() const { return packets_; }

  void Conclude() const {
    std::array<char, 200> text;
    const auto ms = [](int64_t ns) { return static_cast<double>(ns) * 1e-6; };
    std::snprintf(
        text.data(), text.size(),
        "%llu packets, %llu bytes sent in %.3f s; late by %.3f ms (p50), %.3f ms (p99), at most %.3f ms",
        static_cast<unsigned long long>(packets_), static_cast<unsigned long long>(bytes_), Elapsed(),
        ms(lateness_.Quantile(0.5)), ms(lateness_.Quantile(0.99)), ms(lateness_.greatest()));
    Say(text.data());
    if (refused_ == 0) return;
    const std::string what = "the system refused " + std::to_string(refused_) +
                             " of the packets: " + std::generic_category().message(reason_) + ".";
    if (refused_ == packets_) throw Failure(what + " 'ip route' tells which addresses can be reached.");
    Warn(what);
  }

 private:
  double Elapsed() const { return static_cast<double>(sim::SteadyNow() - start_) * 1e-9; }

  /// In pieces, so that Ctrl-C and the status line do not wait for a recording's pause.
  bool WaitUntil(int64_t due) {
    constexpr int64_t kPiece = kSecond / 20;
    for (int64_t now = sim::SteadyNow(); now < due; now = sim::SteadyNow()) {
      if (IsOver()) return false;
      TellNow();
      sim::SleepUntil(std::min(due, now + kPiece));
    }
    return !IsOver();
  }

  void TellNow() {
    const int64_t now = sim::SteadyNow();
    if (now - told_ < kSecond) return;
    std::array<char, 100> text;
    const double seconds = static_cast<double>(now - told_) * 1e-9;
    std::snprintf(text.data(), text.size(), "%4.0f s %8.0f packets/s %12llu packets", Elapsed(),
                  static_cast<double>(packets_ - packets_told_) / seconds,
                  static_cast<unsigned long long>(packets_));
    Say(text.data());
    told_ = now;
    packets_told_ = packets_;
  }

  const SendOptions& options_;
  const sockaddr_in destination_;
  const sim::UdpEndpoint endpoint_{"0.0.0.0", 0};
  Pace pace_;
  LatenessCounts lateness_;
  uint64_t packets_ = 0;
  uint64_t bytes_ = 0;
  uint64_t refused_ = 0;
  int reason_ = 0;
  const int64_t start_ = sim::SteadyNow();
  int64_t told_ = start_;
  uint64_t packets_told_ = 0;
};

void RunSend(const SendOptions& options) {
  if (options.loop && options.file == kStandardInput) {
    throw WrongUsage("standard input cannot be read twice: --loop needs a file");
  }
  Sender sender(options);
  CatchInterrupts();
  Extraction extraction;
  do {
    sender.Restart();
    extraction = Extract({options.file}, options.selection,
                         [&sender](const Datagram& datagram) { return sender.Send(datagram); });
  } while (options.loop && sender.packets() > 0 && !sender.IsOver());
  if (sender.packets() == 0) {
    Report(extraction);
    if (!Interrupted()) throw Failure("nothing was sent. 'orva info' tells what the recording holds.");
    return;
  }
  for (const std::string& damage : extraction.damage) Warn(damage + ". It was sent up to there.");
  sender.Conclude();
}

}  // namespace

void AddSend(CLI::App& app) {
  CLI::App* command = app.add_subcommand("send", "Send a recording to a UDP port, as a sensor would");
  const auto options = std::make_shared<SendOptions>();
  command->add_option("FILE", options->file, "The recording, a pcap or pcapng file, also compressed")
      ->required();
  command->add_option("--to", options->to, "Where to")->required()->type_name("HOST:PORT");
  command->add_flag("--remote", options->remote, "Send also to an address that is not this machine's");
  AddNumber(*command, "--rate", options->rate, 0.001, 1000.0, "Faster than recorded by this factor")
      ->default_str("1")
      ->type_name("X");
  command->add_flag("--loop", options->loop, "Begin anew at the end");
  AddDurationOption(*command, options->seconds);
  AddSenderOptions(*command, options->selection);
  AddTimeWindow(*command, options->selection.window, "--until");
  command->footer(kSendExamples);
  command->callback([options] { RunSend(*options); });
}

}  // namespace orva
