// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_METRICS_METRICS_SERVER_H_
#define ORVA_TOOLS_METRICS_METRICS_SERVER_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace orva {

/// Where metrics are served.
struct MetricsAddress {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;
};

/// Answers GET /metrics with the text that was published last, on a thread of its own, to a few connections
/// at a time. It serves nothing else and takes nothing in.
class MetricsServer {
 public:
  /// Throws Failure where the port cannot be had, and where the program was built without an HTTP library.
  explicit MetricsServer(const MetricsAddress& address);
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  void Publish(std::string text);
  std::string Latest();
  /// The one that was asked for, or the kernel's choice where that was 0.
  std::uint16_t port() const { return port_; }

 private:
  struct Daemon;

  std::mutex mutex_;
  std::string text_;
  std::uint16_t port_ = 0;
  std::unique_ptr<Daemon> daemon_;  ///< last: its thread ends before what it uses goes
};

}  // namespace orva

#endif  // ORVA_TOOLS_METRICS_METRICS_SERVER_H_
