// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_VIEW_WEB_SERVER_H_
#define ORVA_TOOLS_VIEW_WEB_SERVER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "view/frame.h"
#include "view/guard.h"

namespace orva::view {

/// What goes to one connection.
struct Message {
  std::shared_ptr<const Bytes> bytes;
  bool text = false;
};

/// One connection, on the server's thread. It is asked for the next message only when the peer can take one,
/// so that nothing piles up for a slow peer: what to leave out is decided as late as possible.
class Client {
 public:
  virtual ~Client() = default;
  /// A whole message. False: the peer makes no sense, the connection ends.
  virtual bool Receive(std::string_view text) = 0;
  /// The next message, or nothing at the moment.
  virtual std::optional<Message> Next() = 0;
};

/// A language that is spoken over the connection; the peer chooses one by name.
struct Subprotocol {
  std::string name;
  std::function<std::unique_ptr<Client>()> connect;
};

/// The page that is served: its text, compressed, and the policy that goes with it.
struct Page {
  std::string_view gzip;
  std::string_view content_security_policy;
};

/// Serves one page at "/" and WebSocket connections, from one thread. There is no other path, and nothing of
/// the file system. At most kMostConnections at a time; further ones wait.
class WebServer {
 public:
  static constexpr int kMostConnections = 64;

  struct Options {
    std::string address = "127.0.0.1";  ///< IPv4
    std::uint16_t port = 0;             ///< 0: of the kernel's choice
    Guard guard;
    Page page;
    std::vector<Subprotocol> subprotocols;
  };

  /// Listens. Throws std::runtime_error where the port cannot be had.
  explicit WebServer(Options options);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  std::uint16_t port() const;

  /// Serves what has come, waiting for it at most for a second.
  void Serve();
  /// From any thread: every client is asked for its next message.
  void Wake();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orva::view

#endif  // ORVA_TOOLS_VIEW_WEB_SERVER_H_
