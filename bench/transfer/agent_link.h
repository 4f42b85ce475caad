// The agent's own client, connected over TLS to a server that the benchmark simulates.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "client/agent_client.h"
#include "tls_peer.h"
#include "wire/messages.h"

namespace vantelink_bench {

constexpr std::size_t kReadSize = 16384;  // the size of one TLS record

// Walks over a client's frames and reads each message's type. It does not unmask the content, so it takes
// almost no time.
class FrameWalker {
 public:
  // Processes the bytes. Returns whether a message of the type `wanted` begins in them.
  bool feed(const unsigned char* bytes, std::size_t size, vlk::Msg wanted);

 private:
  std::vector<unsigned char> head_;
  std::uint64_t left_ = 0;
};

class AgentLink {
 public:
  AgentLink();
  ~AgentLink();
  AgentLink(const AgentLink&) = delete;
  AgentLink& operator=(const AgentLink&) = delete;

  void send(vlk::Msg type, std::string_view payload);
  void send_frame(const std::vector<std::uint8_t>& frame);
  // Reads until the agent sends a message of the type.
  void wait_for(vlk::Msg type);

 private:
  TlsListener listener_;
  std::unique_ptr<vlk::agent::AgentClient> client_;
  Ssl ssl_{nullptr, &SSL_free};
  FrameWalker walker_;
};

}  // namespace vantelink_bench
