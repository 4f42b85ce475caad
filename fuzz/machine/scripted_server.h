// A server that gives the agent's client one run of bytes after another and reads what the client sends.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/agent_client.h"
#include "machine/network.h"
#include "wire/websocket.h"

namespace vlk::agent::fuzz {

using Bytes = std::vector<std::uint8_t>;

inline constexpr char kUpgraded[] = "HTTP/1.1 101 Switching Protocols\r\n\r\n";

// A message that the agent has sent, or the payload of a pong.
struct Sent {
  std::uint8_t opcode = 0;
  Envelope envelope;
  Bytes pong;
};

// Requires of everything that the client sends: first one request for an upgrade; then, once the server has
// answered, whole masked frames, each with one complete message of the direction and the session that its
// type has, or a pong.
class ScriptedServer : public Server {
 public:
  // `cut` is the largest number of bytes of one read; 0 stands for no limit.
  explicit ScriptedServer(std::size_t cut) : cut_(cut) {}

  // Runs a client with this server until another_connection() is false, and stops it. Then ends all uploads.
  void run(AgentConfig config, AgentCallbacks callbacks);

 protected:
  // Whether the client may connect once more. Called on the connection thread, after each connection.
  [[nodiscard]] virtual bool another_connection() = 0;
  // The next bytes of the connection: first the answer to the request, then frames. No value ends the
  // connection. Called on the connection thread when the client needs more bytes, so when it has acted on all
  // earlier ones.
  [[nodiscard]] virtual std::optional<Bytes> next() = 0;
  // Called for each message and pong, on the thread that sends it. False makes the write fail.
  [[nodiscard]] virtual bool on_sent(const Sent& sent) = 0;

 private:
  [[nodiscard]] bool accept(const std::string& host, std::uint32_t port) override;
  [[nodiscard]] std::ptrdiff_t give(unsigned char* buffer, std::size_t size) override;
  [[nodiscard]] bool take(const unsigned char* data, std::size_t size) override;
  void interrupted() override;
  [[nodiscard]] Clock clock();
  void pause_between_connections();
  void note_uploads(const Bytes& bytes);

  const std::size_t cut_;
  bool requested_ = false;  // the client has sent its request
  bool answered_ = false;
  Bytes given_;  // bytes of next() that the client has not read yet, from position_ on
  std::size_t position_ = 0;
  WsParser own_;                       // reads the frames that the client gets
  std::set<std::uint32_t> uploads_;    // the numbers in all messages that begin an upload
  std::atomic<std::int64_t> time_{0};  // nanoseconds
  std::mutex lock_;
  std::condition_variable changed_;
  bool finished_ = false;
  bool stopping_ = false;
};

}  // namespace vlk::agent::fuzz
