// Finds messages in the bytes that the agent sends, and connects its client to a simulated server.
#include "agent_link.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "fakes/fakes.h"
#include "wire/websocket.h"

namespace vantelink_bench {

using vlk::Msg;

bool FrameWalker::feed(const unsigned char* bytes, std::size_t size, Msg wanted) {
  bool seen = false;
  for (std::size_t at = 0; at < size;) {
    if (left_ > 0) {
      const std::size_t count = std::min<std::size_t>(left_, size - at);
      at += count;
      left_ -= count;
      continue;
    }
    head_.push_back(bytes[at++]);
    if (head_.size() < 2) continue;
    const std::size_t code = head_[1] & 0x7F;
    const std::size_t extra = code == 127 ? 8 : code == 126 ? 2 : 0;
    // Waits for the extended length, the four bytes of the mask and the first byte of the content.
    if (head_.size() < 2 + extra + 5) continue;
    std::uint64_t length = extra == 0 ? code : 0;
    for (std::size_t i = 0; i < extra; ++i)
      length = length << 8 | head_[2 + i];
    const auto type = static_cast<Msg>(head_[2 + extra + 4] ^ head_[2 + extra]);
    seen |= type == wanted;
    left_ = length - 1;
    head_.clear();
  }
  return seen;
}

AgentLink::AgentLink() {
  ::unsetenv("SSL_CERT_FILE");
  ::unsetenv("SSL_CERT_DIR");
  vantelink_fakes::reset();
  vantelink_fakes::script().roots = {authority().der()};
  vlk::agent::AgentConfig config;
  config.agent_id = config.agent_secret = "x";
  config.server_host = "localhost";
  config.server_port = listener_.port;
  client_ = std::make_unique<vlk::agent::AgentClient>(config, vlk::agent::AgentCallbacks{});
  client_->start();
  ssl_ = listener_.accept();
  std::string request;
  unsigned char byte = 0;
  while (!request.ends_with("\r\n\r\n")) {
    read_some(ssl_.get(), &byte, 1);
    request += static_cast<char>(byte);
  }
  const std::string answer =
      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n";
  write_all(ssl_.get(), answer.data(), answer.size());
  wait_for(Msg::Login);
}

AgentLink::~AgentLink() {
  close_connection(ssl_);
  client_.reset();
}

void AgentLink::send(Msg type, std::string_view payload) {
  const std::vector<std::uint8_t> envelope = vlk::encode_envelope(
      type, 1, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), 1);
  send_frame(vlk::encode_frame(vlk::kWsBinary, envelope.data(), envelope.size(), false));
}

void AgentLink::send_frame(const std::vector<std::uint8_t>& frame) {
  write_all(ssl_.get(), frame.data(), frame.size());
}

void AgentLink::wait_for(Msg type) {
  unsigned char buffer[kReadSize];
  while (!walker_.feed(buffer, read_some(ssl_.get(), buffer, sizeof buffer), type)) {
  }
}

}  // namespace vantelink_bench
