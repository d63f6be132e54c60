// SPDX-License-Identifier: Apache-2.0
#include "metrics/metrics_server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include "shared/failure.h"

namespace orva {
namespace {

constexpr unsigned kMostConnections = 16;
constexpr unsigned kPatience = 10;  ///< seconds that a connection may be silent

MHD_Result Reply(MHD_Connection* connection, unsigned code, std::string_view text, const char* type) {
  MHD_Response* response = MHD_create_response_from_buffer(
      text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);  // the library only reads there
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  const MHD_Result result = MHD_queue_response(connection, code, response);
  MHD_destroy_response(response);
  return result;
}

/// Called once the head of a request is there, and again for its body, which nobody reads.
MHD_Result Answer(void* server, MHD_Connection* connection, const char* path, const char* method,
                  const char* /*version*/, const char* /*body*/, size_t* body_size, void** /*state*/) {
  constexpr const char* kPlain = "text/plain; charset=utf-8";
  *body_size = 0;
  const std::string_view verb = method;
  if (verb != "GET" && verb != "HEAD") {
    return Reply(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET\n", kPlain);
  }
  if (std::string_view(path) != "/metrics") {
    return Reply(connection, MHD_HTTP_NOT_FOUND, "the counters are at /metrics\n", kPlain);
  }
  return Reply(connection, MHD_HTTP_OK, static_cast<MetricsServer*>(server)->Latest(),
               "text/plain; version=0.0.4; charset=utf-8");
}

}  // namespace

struct MetricsServer::Daemon {
  explicit Daemon(MHD_Daemon* handle) : daemon(handle) {}
  ~Daemon() { MHD_stop_daemon(daemon); }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  MHD_Daemon* const daemon;
};

MetricsServer::MetricsServer(const MetricsAddress& address) {
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_port = htons(address.port);
  if (inet_pton(AF_INET, address.host.c_str(), &own.sin_addr) != 1) {
    throw WrongUsage("'" + address.host + "' is no IPv4 address to serve metrics at");
  }
  errno = 0;
  MHD_Daemon* daemon = MHD_start_daemon(
      MHD_USE_INTERNAL_POLLING_THREAD, address.port, nullptr, nullptr, &Answer, this, MHD_OPTION_SOCK_ADDR,
      reinterpret_cast<const sockaddr*>(&own), MHD_OPTION_CONNECTION_LIMIT, kMostConnections,
      MHD_OPTION_CONNECTION_TIMEOUT, kPatience, MHD_OPTION_END);
  if (daemon == nullptr) {
    throw Failure("cannot serve metrics at " + address.host + ":" + std::to_string(address.port) + ": " +
                  std::generic_category().message(errno) + ". Choose another port with --metrics.");
  }
  daemon_ = std::make_unique<Daemon>(daemon);
  const MHD_DaemonInfo* info = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT);
  port_ = info != nullptr ? info->port : address.port;
}

MetricsServer::~MetricsServer() = default;

void MetricsServer::Publish(std::string text) {
  const std::lock_guard lock(mutex_);
  text_ = std::move(text);
}

std::string MetricsServer::Latest() {
  const std::lock_guard lock(mutex_);
  return text_;
}

}  // namespace orva
