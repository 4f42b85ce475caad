// The file requests that a representative's console sends, as a base class of fixtures with a connection.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "support/peers/server_connection.h"

namespace vantelink_test {

class FileRequests {
 protected:
  static constexpr std::uint32_t kSession = 12;

  // Keeps a reference to the fixture's pointer, so that the fixture may connect again.
  explicit FileRequests(const std::unique_ptr<ServerConnection>& connection) : connection_(connection) {}

  // Sends a request with this path and transfer id. Folder requests need no transfer id.
  void ask(vlk::Msg type, const std::string& path, std::int64_t transfer_id = 0) const;
  void chunk(std::uint32_t transfer_id, std::string_view bytes, std::uint32_t index = 0) const;
  void end(std::int64_t transfer_id) const;

 private:
  const std::unique_ptr<ServerConnection>& connection_;
};

}  // namespace vantelink_test
