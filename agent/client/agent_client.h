// The centre of the agent: the one outbound connection to the relay server, the thread that keeps it, and the
// road by which every other part reaches the server.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config/config.h"
#include "platform/clock.h"
#include "wire/messages.h"

namespace vlk::agent {

enum class Status : std::int32_t {
  Offline = 0,     // a connection attempt or connection has ended
  Connecting = 1,  // before each attempt, and again once hello and enrolment or login are sent
  Online = 2,      // logged in, no session
  InSession = 3,   // at least one session has a stream
};

// How the client tells the outside. All are called on the connection thread and must only hand over and
// return; an empty one is skipped.
struct AgentCallbacks {
  std::function<void(Status, int)> on_status;  // with the count of representatives
  std::function<void(std::string)> on_notice;  // UTF-8 text for the status line
  std::function<void(std::uint32_t, std::string)>
      on_session_request;  // session, representative's name in UTF-8
  std::function<void(std::vector<std::uint8_t>)> on_clipboard;
  std::function<void(std::uint32_t)> on_session_ended;
};

class TlsConnection;
struct LinkState;  // everything at the level of socket, TLS and stream

class AgentClient {
 public:
  // No thread and no network yet. `clock` is the steady clock but in tests.
  AgentClient(AgentConfig config, AgentCallbacks callbacks, Clock clock = steady_clock());
  ~AgentClient();  // stops
  AgentClient(const AgentClient&) = delete;
  AgentClient& operator=(const AgentClient&) = delete;

  // Starts the connection thread; does nothing when started already.
  void start();

  // Ends the connection and joins its thread. May wait out a reconnect delay, a resolve or a connect.
  void stop();

  // Writes one message, blocking; false with no connection, when the message is lost: nothing is ever queued.
  // Callable from any thread.
  bool send(Msg type, std::uint32_t session_id, const unsigned char* data, std::size_t length,
            std::uint8_t flags);
  bool send_text(Msg type, std::uint32_t session_id, std::string_view text);

  // Clipboard content to the session that streams; lost when none does.
  void send_clipboard(const unsigned char* data, std::size_t length);

  // Answers to a session request. Nothing is recorded.
  void accept_session(std::uint32_t session);
  void reject_session(std::uint32_t session, std::string_view reason);

  // Changes the client's own copy of the settings; the name also goes to the server if there is a connection.
  void set_display_name(std::string name);
  void set_unattended(bool unattended);

 private:
  void run();                             // the connection thread
  bool run_connection();                  // one attempt; true if the upgrade succeeded
  bool upgrade(const std::string& host);  // from TLS to WebSocket
  void authenticate();
  void read_frames();
  bool handle_frame(std::uint8_t opcode,
                    const std::vector<std::uint8_t>& payload);  // false ends the connection
  void end_connection();
  std::unique_ptr<TlsConnection> drop_tls();  // from here on, sends are lost
  void report_status(Status status, int count);

  // In dispatch.cpp; false ends the connection.
  bool dispatch(const Envelope& envelope);
  bool handle_error(std::string_view text);
  void handle_enroll_result(std::string_view text);
  void handle_session_request(std::uint32_t session, std::string_view text);
  void start_stream(std::uint32_t session, std::string_view text);
  void end_session(std::uint32_t session);
  void send_thumbnails(std::uint32_t session);
  void adjust_stream(Msg type, std::string_view text);
  void serve_files(const Envelope& envelope, std::string_view text);

  AgentConfig config_;
  std::mutex config_lock_;  // guards config_
  const AgentCallbacks callbacks_;
  std::atomic<std::uint32_t> streaming_session_{0};
  std::set<std::uint32_t> active_sessions_;
  std::mutex sessions_lock_;  // guards active_sessions_
  std::thread run_thread_;
  std::atomic<bool> running_{false};
  // Shared with the downloads, whose threads end on their own: a send of theirs may come after this object.
  std::shared_ptr<LinkState> link_;
  const Clock clock_;
};

}  // namespace vlk::agent
