// SPDX-License-Identifier: Apache-2.0
//
// In the place of the server, where the program is built without an HTTP library.
#include "metrics/metrics_server.h"
#include "shared/failure.h"

namespace orva {

struct MetricsServer::Daemon {};

MetricsServer::MetricsServer(const MetricsAddress&) {
  throw Failure("this orva was built without libmicrohttpd, and serves no metrics.");
}
MetricsServer::~MetricsServer() = default;
void MetricsServer::Publish(std::string) {}
std::string MetricsServer::Latest() {
  return {};
}

}  // namespace orva
