// Builds and sends the payloads of file requests.
#include "support/peers/file_requests.h"

#include "wire/big_endian.h"
#include "wire/json.h"

namespace vantelink_test {

void FileRequests::ask(vlk::Msg type, const std::string& path, std::int64_t transfer_id) const {
  connection_->send_envelope(
      type, kSession,
      vlk::JsonWriter().add_int("transfer_id", transfer_id).add_string("path", path).finish());
}

void FileRequests::chunk(std::uint32_t transfer_id, std::string_view bytes, std::uint32_t index) const {
  unsigned char header[8];
  vlk::put_u32_be(header, transfer_id);
  vlk::put_u32_be(header + 4, index);
  connection_->send_envelope(vlk::Msg::FileChunk, kSession,
                             std::string(reinterpret_cast<char*>(header), sizeof header).append(bytes), 0);
}

void FileRequests::end(std::int64_t transfer_id) const {
  connection_->send_envelope(vlk::Msg::FileTransferEnd, kSession,
                             vlk::JsonWriter().add_int("transfer_id", transfer_id).finish());
}

}  // namespace vantelink_test
