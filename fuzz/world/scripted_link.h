// A WebSocketLink without a network: messages are given to it, and nothing is written by itself.
#pragma once

#include <deque>
#include <memory>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/steady_timer.hpp>

#include "relay/net/websocket_link.h"

namespace vlk::relay::fuzz {

// The peer's side of the link.
struct Inbox {
  explicit Inbox(const boost::asio::any_io_executor& executor)
      : changed(executor, boost::asio::steady_timer::time_point::max()) {}

  void give(Incoming message) {
    messages.push_back(std::move(message));
    changed.cancel();
  }
  void close() {
    closed = true;
    changed.cancel();
  }

  std::deque<Incoming> messages;  // that the link has not read yet
  bool closed = false;            // the peer has closed the connection
  std::size_t read_limit = 0;
  boost::asio::steady_timer changed;  // never expires; is cancelled to resume the reader
};

struct ScriptedLink {
  std::shared_ptr<WebSocketLink> link;
  std::shared_ptr<Inbox> inbox;
};

[[nodiscard]] ScriptedLink make_scripted_link(const boost::asio::any_io_executor& executor);

}  // namespace vlk::relay::fuzz
