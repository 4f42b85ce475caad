// The rate of messages from an agent that has no accepted session.
#pragma once

#include <cstddef>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/base/clock.h"

namespace vlk::relay {

// Such an agent sends a few messages a minute. One that sends many is read slowly, so that it costs the
// others no time.
class Pace {
 public:
  // To be awaited after each message.
  [[nodiscard]] boost::asio::awaitable<void> wait(boost::asio::any_io_executor executor) {
    const auto now = Clock::now();
    if (now - begin_ >= kWindow) {
      begin_ = now;
      messages_ = 0;
    }
    if (++messages_ <= kMessages) co_return;
    boost::asio::steady_timer rest(executor, begin_ + kWindow);
    co_await rest.async_wait(boost::asio::as_tuple(boost::asio::use_awaitable));
  }

 private:
  static constexpr std::chrono::milliseconds kWindow{500};
  static constexpr std::size_t kMessages = 20;

  Clock::time_point begin_{};
  std::size_t messages_ = 0;
};

}  // namespace vlk::relay
