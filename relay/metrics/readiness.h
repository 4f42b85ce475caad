// Whether the relay can serve agents and browsers.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>

#include "relay/metrics/readings.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Readiness {
 public:
  // `sources` outlives this object. `listening` says whether the relay accepts connections.
  Readiness(const Sources& sources, boost::asio::any_io_executor executor, std::function<bool()> listening)
      : sources_(sources), executor_(std::move(executor)), listening_(std::move(listening)) {}

  // One sentence for each thing that is wrong; none if the relay can serve. Takes at most
  // Limits::database_answer.
  [[nodiscard]] boost::asio::awaitable<std::vector<std::string>> problems();

 private:
  // A job that the database carries out to show that it does.
  struct Probe {
    boost::asio::steady_timer until;  // the end of the time that the database has; cancelled at its answer
    bool done = false;
    std::string failure{};
  };
  // Returns why the database does not work, or an empty text.
  [[nodiscard]] boost::asio::awaitable<std::string> database_problem();

  const Sources& sources_;
  const boost::asio::any_io_executor executor_;
  const std::function<bool()> listening_;
  std::shared_ptr<Probe> probe_;  // the last one
};

}  // namespace vlk::relay
