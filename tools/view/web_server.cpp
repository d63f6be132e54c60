// SPDX-License-Identifier: Apache-2.0
#include "view/web_server.h"

#include <libwebsockets.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "view/requests.h"

namespace orva::view {
namespace {

constexpr std::size_t kPiece = 32 * 1024;  ///< of a message, written at a time
constexpr int kSlowestHeader = 10;         ///< seconds for a request to arrive

std::string Header(lws* connection, lws_token_indexes which) {
  std::array<char, 512> text = {};
  const int length = lws_hdr_copy(connection, text.data(), static_cast<int>(text.size()), which);
  return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string Token(lws* connection) {
  std::array<char, 128> text = {};
  const char* value =
      lws_get_urlarg_by_name(connection, "token=", text.data(), static_cast<int>(text.size()));
  return value == nullptr ? std::string() : std::string(value);
}

/// A reply under way.
struct HttpState {
  const char* rest;
  std::size_t size;
};

/// A WebSocket connection. The library keeps it as plain memory, zeroed at first.
struct StreamState {
  Client* client;
  std::string* request;  ///< what has come of a message
  Message* message;      ///< what is being sent
  std::size_t sent;
};

}  // namespace

class WebServer::Impl {
 public:
  explicit Impl(Options options) : options_(std::move(options)) {
    protocols_.push_back({"http", OnHttp, sizeof(HttpState), 0, 0, nullptr, 0});
    for (const Subprotocol& subprotocol : options_.subprotocols) {
      protocols_.push_back(
          {subprotocol.name.c_str(), OnStream, sizeof(StreamState), 4096, 0, nullptr, kPiece});
    }
    protocols_.push_back({nullptr, nullptr, 0, 0, 0, nullptr, 0});

    lws_set_log_level(0, nullptr);
    lws_context_creation_info info = {};
    info.port = options_.port;
    info.iface = options_.address.c_str();
    info.protocols = protocols_.data();
    info.vhost_name = "orva";
    info.alpn = "http/1.1";
    info.gid = -1;
    info.uid = -1;
    info.user = this;
    info.timeout_secs = kSlowestHeader;
    info.keepalive_timeout = kSlowestHeader;
    info.max_http_header_data = 4096;
    info.fd_limit_per_thread = kMostConnections + 8;  // the listening socket and the like
    info.retry_and_idle_policy = &kIdlePolicy;
    info.options = LWS_SERVER_OPTION_DISABLE_IPV6 | LWS_SERVER_OPTION_SKIP_SERVER_CANONICAL_NAME |
                   LWS_SERVER_OPTION_EXPLICIT_VHOSTS | LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND;
    context_ = lws_create_context(&info);
    if (context_ == nullptr) {
      throw std::runtime_error("the web server cannot be set up");
    }
    vhost_ = lws_create_vhost(context_, &info);
    if (vhost_ == nullptr || lws_get_vhost_listen_port(vhost_) <= 0) {
      lws_context_destroy(context_);
      throw std::runtime_error("cannot listen on " + options_.address + ", TCP port " +
                               std::to_string(options_.port));
    }
  }

  ~Impl() { lws_context_destroy(context_); }

  std::uint16_t port() const { return static_cast<std::uint16_t>(lws_get_vhost_listen_port(vhost_)); }

  void Serve() {
    lws_sul_schedule(
        context_, 0, &alarm_, [](lws_sorted_usec_list_t*) {}, LWS_US_PER_SEC);
    lws_service(context_, 0);
    if (woken_.exchange(false)) {
      for (const lws_protocols& protocol : protocols_) {
        if (protocol.callback == OnStream) {
          lws_callback_on_writable_all_protocol(context_, &protocol);
        }
      }
    }
  }

  void Wake() {
    woken_ = true;
    lws_cancel_service(context_);
  }

 private:
  static Impl& Of(lws* connection) {
    return *static_cast<Impl*>(lws_context_user(lws_get_context(connection)));
  }

  static int OnHttp(lws* connection, lws_callback_reasons reason, void* user, void* in, std::size_t length) {
    const auto state = static_cast<HttpState*>(user);
    switch (reason) {
      case LWS_CALLBACK_HTTP:
        return Of(connection).Answer(connection, *state, {static_cast<const char*>(in), length});
      case LWS_CALLBACK_HTTP_WRITEABLE:
        return WriteBody(connection, *state);
      case LWS_CALLBACK_HTTP_CONFIRM_UPGRADE:
        return Of(connection).AdmitsStream(connection, static_cast<const char*>(in)) ? 0 : -1;
      case LWS_CALLBACK_HTTP_BODY:
        return -1;  // nothing is taken
      default:
        return 0;
    }
  }

  int Answer(lws* connection, HttpState& state, std::string_view path) {
    const bool head = lws_hdr_total_length(connection, WSI_TOKEN_HEAD_URI) > 0;
    if (!head && lws_hdr_total_length(connection, WSI_TOKEN_GET_URI) == 0) {
      lws_return_http_status(connection, HTTP_STATUS_METHOD_NOT_ALLOWED, "this server only shows a page");
      return -1;  // no body is waited for
    }
    if (!options_.guard.AdmitsHost(Header(connection, WSI_TOKEN_HOST))) {
      return Refuse(connection, state, HTTP_STATUS_FORBIDDEN, "this name is none of the server's\n");
    }
    if (!options_.guard.AdmitsToken(Token(connection))) {
      return Refuse(connection, state, HTTP_STATUS_FORBIDDEN,
                    "the address lacks its token: use the whole address that orva view printed\n");
    }
    if (path != "/") {
      return Refuse(connection, state, HTTP_STATUS_NOT_FOUND, "there is nothing here\n");
    }
    if (Header(connection, WSI_TOKEN_HTTP_ACCEPT_ENCODING).find("gzip") == std::string::npos) {
      return Refuse(connection, state, HTTP_STATUS_NOT_ACCEPTABLE, "the page comes compressed with gzip\n");
    }
    return Begin(connection, state, HTTP_STATUS_OK, "text/html; charset=utf-8", options_.page.gzip, head,
                 true);
  }

  int Refuse(lws* connection, HttpState& state, unsigned status, std::string_view text) const {
    return Begin(connection, state, status, "text/plain; charset=utf-8", text, false, false);
  }

  int Begin(lws* connection, HttpState& state, unsigned status, const char* type, std::string_view body,
            bool head, bool page) const {
    std::array<unsigned char, LWS_PRE + 2048> buffer = {};
    unsigned char* const start = buffer.data() + LWS_PRE;
    unsigned char* at = start;
    unsigned char* const end = buffer.data() + buffer.size() - 1;
    const auto add = [&](const char* name, std::string_view value) {
      return lws_add_http_header_by_name(connection, reinterpret_cast<const unsigned char*>(name),
                                         reinterpret_cast<const unsigned char*>(value.data()),
                                         static_cast<int>(value.size()), &at, end) != 0;
    };
    if (lws_add_http_common_headers(connection, status, type, body.size(), &at, end) != 0 ||
        add("cache-control:", "no-store") || add("x-content-type-options:", "nosniff") ||
        add("referrer-policy:", "no-referrer") || add("x-frame-options:", "DENY") ||
        (page && (add("content-encoding:", "gzip") ||
                  add("content-security-policy:", options_.page.content_security_policy))) ||
        lws_finalize_write_http_header(connection, start, &at, end) != 0) {
      return -1;
    }
    if (head) {
      return lws_http_transaction_completed(connection) != 0 ? -1 : 0;
    }
    state = {body.data(), body.size()};
    lws_callback_on_writable(connection);
    return 0;
  }

  static int WriteBody(lws* connection, HttpState& state) {
    if (state.rest == nullptr) {
      return 0;
    }
    std::array<unsigned char, LWS_PRE + 8192> buffer;
    const std::size_t size = std::min<std::size_t>(state.size, buffer.size() - LWS_PRE);
    std::memcpy(buffer.data() + LWS_PRE, state.rest, size);
    state.rest += size;
    state.size -= size;
    const bool last = state.size == 0;
    if (lws_write(connection, buffer.data() + LWS_PRE, size, last ? LWS_WRITE_HTTP_FINAL : LWS_WRITE_HTTP) <
        static_cast<int>(size)) {
      return -1;
    }
    if (last) {
      state.rest = nullptr;
      return lws_http_transaction_completed(connection) != 0 ? -1 : 0;
    }
    lws_callback_on_writable(connection);
    return 0;
  }

  bool AdmitsStream(lws* connection, std::string_view kind) const {
    const std::string host = Header(connection, WSI_TOKEN_HOST);
    return kind == "websocket" && options_.guard.AdmitsHost(host) &&
           options_.guard.AdmitsOrigin(Header(connection, WSI_TOKEN_ORIGIN), host) &&
           options_.guard.AdmitsToken(Token(connection)) &&
           SpeaksOneOf(Header(connection, WSI_TOKEN_PROTOCOL));
  }

  /// `offered`: names, separated by commas. Without this the library would take the first of ours for none.
  bool SpeaksOneOf(std::string_view offered) const {
    while (!offered.empty()) {
      std::string_view name = offered.substr(0, offered.find(','));
      offered.remove_prefix(std::min(offered.size(), name.size() + 1));
      name.remove_prefix(std::min(name.size(), name.find_first_not_of(' ')));
      name = name.substr(0, name.find_last_not_of(' ') + 1);
      const auto speaks = [name](const Subprotocol& subprotocol) { return subprotocol.name == name; };
      if (std::any_of(options_.subprotocols.begin(), options_.subprotocols.end(), speaks)) {
        return true;
      }
    }
    return false;
  }

  static int OnStream(lws* connection, lws_callback_reasons reason, void* user, void* in,
                      std::size_t length) {
    const auto state = static_cast<StreamState*>(user);
    switch (reason) {
      case LWS_CALLBACK_ESTABLISHED:
        return Of(connection).Connect(connection, *state);
      case LWS_CALLBACK_CLOSED:
        delete state->client;
        delete state->request;
        delete state->message;
        *state = {};
        return 0;
      case LWS_CALLBACK_RECEIVE:
        return Receive(connection, *state, {static_cast<const char*>(in), length});
      case LWS_CALLBACK_SERVER_WRITEABLE:
        return Write(connection, *state);
      default:
        return 0;
    }
  }

  int Connect(lws* connection, StreamState& state) const {
    const std::string_view name = lws_get_protocol(connection)->name;
    for (const Subprotocol& subprotocol : options_.subprotocols) {
      if (subprotocol.name == name) {
        state.request = new std::string;
        state.message = new Message;
        state.client = subprotocol.connect().release();
        lws_callback_on_writable(connection);
        return 0;
      }
    }
    return -1;
  }

  static int Receive(lws* connection, StreamState& state, std::string_view piece) {
    if (state.request->size() + piece.size() > kLongestRequest) {
      return Close(connection, LWS_CLOSE_STATUS_MESSAGE_TOO_LARGE, "too long");
    }
    state.request->append(piece);
    if (lws_is_final_fragment(connection) == 0 || lws_remaining_packet_payload(connection) > 0) {
      return 0;
    }
    const bool sense = lws_frame_is_binary(connection) == 0 && state.client->Receive(*state.request);
    state.request->clear();
    if (!sense) {
      return Close(connection, LWS_CLOSE_STATUS_UNEXPECTED_CONDITION, "not understood");
    }
    lws_callback_on_writable(connection);
    return 0;
  }

  static int Close(lws* connection, lws_close_status status, std::string_view reason) {
    std::array<unsigned char, 64> text = {};
    std::copy(reason.begin(), reason.end(), text.begin());
    lws_close_reason(connection, status, text.data(), reason.size());
    return -1;
  }

  /// One piece of the message under way, or the first one of the next.
  static int Write(lws* connection, StreamState& state) {
    if (state.message->bytes == nullptr) {
      auto next = state.client->Next();
      if (!next) {
        return 0;
      }
      *state.message = std::move(*next);
      state.sent = 0;
    }
    const Bytes& bytes = *state.message->bytes;
    std::array<unsigned char, LWS_PRE + kPiece> buffer;
    const std::size_t size = std::min(kPiece, bytes.size() - state.sent);
    std::copy_n(bytes.data() + state.sent, size, buffer.data() + LWS_PRE);
    const bool first = state.sent == 0;
    const bool last = state.sent + size == bytes.size();
    const int kind = lws_write_ws_flags(state.message->text ? LWS_WRITE_TEXT : LWS_WRITE_BINARY, first, last);
    if (lws_write(connection, buffer.data() + LWS_PRE, size, static_cast<lws_write_protocol>(kind)) <
        static_cast<int>(size)) {
      return -1;
    }
    state.sent += size;
    if (last) {
      *state.message = {};
    }
    lws_callback_on_writable(connection);
    return 0;
  }

  /// A peer that is gone without a word is asked after 20 seconds and given up after 40.
  static constexpr lws_retry_bo_t kIdlePolicy = {nullptr, 0, 0, 20, 40, 0};

  Options options_;
  std::vector<lws_protocols> protocols_;
  lws_context* context_ = nullptr;
  lws_vhost* vhost_ = nullptr;
  lws_sorted_usec_list_t alarm_ = {};
  std::atomic<bool> woken_ = false;
};

WebServer::WebServer(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}
WebServer::~WebServer() = default;

std::uint16_t WebServer::port() const {
  return impl_->port();
}

void WebServer::Serve() {
  impl_->Serve();
}

void WebServer::Wake() {
  impl_->Wake();
}

}  // namespace orva::view
