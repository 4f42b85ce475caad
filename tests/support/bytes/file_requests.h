// What a representative who works with the machine's files asks of it, for fixtures with a connection.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "support/peers/scripted_server.h"
#include "wire/big_endian.h"
#include "wire/json.h"

namespace vantelink_test {

class FileRequests {
 protected:
  static constexpr std::uint32_t kSession = 12;

  // The fixture's own connection, which may be replaced and must outlive the object.
  explicit FileRequests(const std::unique_ptr<ServerConnection>& connection) : connection_(connection) {}

  // A request about a path, and perhaps a transfer.
  void ask(vlk::Msg type, const std::string& path, std::int64_t transfer_id = 0) const {
    connection_->send_envelope(
        type, kSession,
        vlk::JsonWriter().add_int("transfer_id", transfer_id).add_string("path", path).finish());
  }
  void chunk(std::uint32_t transfer_id, std::string_view bytes, std::uint32_t index = 0) const {
    unsigned char header[8];
    vlk::put_u32_be(header, transfer_id);
    vlk::put_u32_be(header + 4, index);
    connection_->send_envelope(vlk::Msg::FileChunk, kSession,
                               std::string(reinterpret_cast<char*>(header), 8).append(bytes), 0);
  }
  void end(std::int64_t transfer_id) const {
    connection_->send_envelope(vlk::Msg::FileTransferEnd, kSession,
                               vlk::JsonWriter().add_int("transfer_id", transfer_id).finish());
  }

 private:
  const std::unique_ptr<ServerConnection>& connection_;
};

}  // namespace vantelink_test
