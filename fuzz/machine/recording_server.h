// A scripted server that records in one list what the client's connection thread does: calls of the fakes,
// callbacks and messages.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "machine/file_store.h"
#include "machine/scripted_server.h"

namespace vlk::agent::fuzz {

// Requires of the stream, whose thread's calls are not in the list: its messages are those of a stream, its
// first one is StreamConfig, and the end of a connection ends it.
class RecordingServer : public ScriptedServer {
 public:
  using ScriptedServer::ScriptedServer;

  // Runs a client with the fakes. Their results may be set before.
  void run_recorded(const AgentConfig& config);

  // For instance "status 2 0", "InjectInputBatch 4", or for a message "sent 2 TYPE FLAGS SESSION PAYLOAD", in
  // which 2 is the opcode.
  [[nodiscard]] const std::vector<std::string>& events() const { return events_; }
  [[nodiscard]] static std::string sent_line(const Sent& sent);

 protected:
  // Requires that nothing of a session is left. Called after each connection.
  void check_stopped();
  // Requires that exactly `expected` has happened since the last call, and forgets it.
  void take_events(const std::vector<std::string>& expected);
  [[nodiscard]] bool on_sent(const Sent& sent) override;
  // Called for each message of a stream, on its thread.
  virtual void on_stream_message(const Envelope&) {}

  FileStore store_;

 private:
  void note(const std::string& line);
  [[nodiscard]] AgentCallbacks callbacks();

  std::vector<std::string> events_;
  bool input_ = false, clipboard_ = false;  // whether they are allowed
  std::size_t starts_ = 0;                  // of streams
  std::atomic<std::size_t> ends_{0};
  std::thread::id
      streaming_;  // the thread that sent the last message of a stream; used by one sender at a time
};

}  // namespace vlk::agent::fuzz
