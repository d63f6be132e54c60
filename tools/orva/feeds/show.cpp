// SPDX-License-Identifier: Apache-2.0
#include "feeds/show.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <utility>

#include "feeds/live_feed.h"
#include "feeds/recording_feed.h"
#include "shared/failure.h"
#include "shared/interrupt.h"
#include "shared/terminal.h"
#include "view/foxglove_client.h"
#include "view/page_bundle.h"
#include "view/page_client.h"
#include "view/web_server.h"

namespace orva {
namespace {

/// The process that opens it; 0: none.
pid_t OpenInBrowser(std::string address) {
  std::string program = "xdg-open";
  char* const arguments[] = {program.data(), address.data(), nullptr};
  pid_t child = 0;
  if (posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
    Warn("xdg-open is not there to open a browser; open the address yourself.");
    return 0;
  }
  return child;
}

/// What other machines can type where the page is served on every address.
std::string NameOf(const std::string& address) {
  if (address != "0.0.0.0") {
    return address;
  }
  char name[256] = {};
  return gethostname(name, sizeof name - 1) == 0 ? std::string(name) : address;
}

}  // namespace

void Show(const DriverParam& param, const ShowOptions& options) {
  // The server's clients hold on to the feed, whose thread in turn wakes the server: the thread ends first,
  // then the server, then the feed.
  std::atomic<view::WebServer*> waking = nullptr;
  const auto wake = [&waking] {
    if (view::WebServer* server = waking) {
      server->Wake();
    }
  };
  std::unique_ptr<view::Feed> feed;
  if (param.input_type == PCAP) {
    feed = std::make_unique<RecordingFeed>(param, wake);
  } else {
    feed = std::make_unique<LiveFeed>(param, wake);
  }

  view::WebServer::Options web;
  web.address = options.address;
  web.port = options.port;
  web.guard.loopback = options.address.rfind("127.", 0) == 0;
  const std::string token = web.guard.loopback ? std::string() : view::MakeToken();
  web.guard.token = token;
  web.guard.origins = options.origins;
  web.page = view::BundledPage();
  web.subprotocols = {
      {view::kPageSubprotocol, [&feed] { return std::make_unique<view::PageClient>(*feed); }},
      {view::kFoxgloveSubprotocol, [&feed] { return std::make_unique<view::FoxgloveClient>(*feed); }}};
  std::unique_ptr<view::WebServer> server;
  try {
    server = std::make_unique<view::WebServer>(std::move(web));
  } catch (const std::runtime_error& error) {
    throw Failure(std::string(error.what()) +
                  ". Another program may hold the port: choose one with --http-port.");
  }
  waking = server.get();

  std::string address = "http://" + NameOf(options.address) + ":" + std::to_string(server->port()) + "/";
  address += token.empty() ? "" : "?token=" + token;
  Say("the page is at " + address + "  (Ctrl-C ends)");
  pid_t opening = options.open ? OpenInBrowser(address) : 0;
  while (!Interrupted()) {
    server->Serve();  // for a second at most
    if (opening != 0 && waitpid(opening, nullptr, WNOHANG) != 0) {
      opening = 0;
    }
  }
  feed->Close();
}

}  // namespace orva
