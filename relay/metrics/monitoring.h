// How operators see the relay: health, readiness and metrics on a port of their own, and the status for
// administrators in the console.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <nlohmann/json_fwd.hpp>

#include "relay/metrics/operators_port.h"
#include "relay/metrics/readiness.h"
#include "relay/metrics/readings.h"

namespace vlk::relay {

// Used on the relay's one thread.
class Monitoring {
 public:
  // `listening` says whether the relay accepts connections.
  Monitoring(Sources sources, boost::asio::any_io_executor executor, std::function<bool()> listening);

  // Opens the port for operators, and logs where it is. Throws std::runtime_error with a sentence for the
  // operator.
  void open(const OperatorsAddress& where);
  // The port for operators; nothing if it was not opened.
  [[nodiscard]] std::optional<unsigned short> port() const;
  void stop();

  // Reads the time of the last backup again, because another process has changed the database.
  void reload();
  // What administrators see. docs/console-protocol.md lists the members.
  [[nodiscard]] nlohmann::json status() const;

 private:
  [[nodiscard]] boost::asio::awaitable<OperatorsPort::Answer> answer(std::string path);
  [[nodiscard]] boost::asio::awaitable<OperatorsPort::Answer> ready();

  const Sources sources_;
  const boost::asio::any_io_executor executor_;
  const std::int64_t started_;
  Readiness readiness_;
  std::optional<OperatorsPort> port_;
  std::shared_ptr<std::int64_t> last_backup_ = std::make_shared<std::int64_t>(0);  // seconds since 1970; or 0
};

}  // namespace vlk::relay
