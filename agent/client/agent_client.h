// The agent's outbound connection to the relay server: the thread that connects and reconnects, and the
// functions through which all other parts of the agent send messages to the server.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "config/config.h"
#include "platform/clock.h"
#include "platform/threads/mutex.h"
#include "platform/threads/thread_checker.h"
#include "wire/messages.h"

namespace vlk::agent {

enum class Status : std::int32_t {
  Offline = 0,     // a connection attempt or connection has ended
  Connecting = 1,  // before each attempt, and again after hello and enrolment or log-in are sent
  Online = 2,      // logged in, no session
  InSession = 3,   // at least one session has a stream
};

// The functions through which the client reports events. All are called on the connection thread and must
// return at once, so they only pass the values on. An empty function is not called.
struct AgentCallbacks {
  std::function<void(Status, int)> on_status;  // the number counts representatives
  std::function<void(std::string)> on_notice;  // UTF-8 text for the status line
  // The arguments are the session and the representative's name in UTF-8.
  std::function<void(std::uint32_t, std::string)> on_session_request;
  std::function<void(const std::vector<std::uint8_t>&)> on_clipboard;  // copies what it keeps
  std::function<void(std::uint32_t)> on_session_ended;
};

class TlsConnection;
struct LinkState;  // the socket, the TLS connection and the stream

class AgentClient {
 public:
  // Starts no thread and uses no network. `clock` is the steady clock except in tests.
  AgentClient(AgentConfig config, AgentCallbacks callbacks, Clock clock = steady_clock());
  ~AgentClient();  // calls stop()
  AgentClient(const AgentClient&) = delete;
  AgentClient& operator=(const AgentClient&) = delete;

  // Starts the connection thread. Does nothing if the thread is already running.
  void start();

  // Ends the connection and joins its thread. May block for the rest of a reconnect delay, a name
  // resolution or a connect.
  void stop();

  // Writes one message and blocks until it is written. Nothing is ever queued: without a connection, the
  // message is lost and the result is false, which most callers ignore. Callable on any thread.
  bool send(Msg type, std::uint32_t session_id, const unsigned char* data, std::size_t length,
            std::uint8_t flags);
  bool send_text(Msg type, std::uint32_t session_id, std::string_view text);

  // Sends clipboard content to the session that has the stream. If no session has one, the content is lost.
  void send_clipboard(const unsigned char* data, std::size_t length);

  // Answer a session request. The client does not record the answer.
  void accept_session(std::uint32_t session);
  void reject_session(std::uint32_t session, std::string_view reason);

  // Change the client's own copy of the settings. The name is also sent to the server if there is a
  // connection.
  void set_display_name(std::string name);
  void set_unattended(bool unattended);

  // A message that the agent acts on, and the function that handles it. The connection ends if the function
  // returns false.
  struct MessageHandler {
    Msg code{};
    bool (AgentClient::*handle)(const Envelope& envelope) = nullptr;
  };

  // One row for each message that the agent acts on. Every other message is ignored.
  static std::span<const MessageHandler> message_handlers();

 private:
  void run();                             // the connection thread
  bool run_connection();                  // one attempt; true if the upgrade succeeded
  bool upgrade(const std::string& host);  // from TLS to WebSocket
  void authenticate();
  void read_frames();
  // The connection ends if this function returns false.
  bool handle_frame(std::uint8_t opcode, const std::vector<std::uint8_t>& payload);
  void end_connection();
  // Removes the TLS connection from the link and returns it. Messages that are sent afterwards are lost.
  std::unique_ptr<TlsConnection> drop_tls();
  void report_status(Status status, int count);

  // The functions below are in dispatch.cpp. dispatch() calls the handler of the message's code. The
  // connection ends if the handler returns false.
  bool dispatch(const Envelope& envelope);
  bool on_error(const Envelope& envelope);
  bool on_heartbeat(const Envelope& envelope);
  bool on_enroll_result(const Envelope& envelope);
  bool on_login_result(const Envelope& envelope);
  bool on_session_request(const Envelope& envelope);
  bool on_session_end(const Envelope& envelope);
  bool on_stream_start(const Envelope& envelope);
  bool on_stream_stop(const Envelope& envelope);
  bool on_keyframe_request(const Envelope& envelope);
  bool on_monitor_select(const Envelope& envelope);
  bool on_codec_select(const Envelope& envelope);
  bool on_cursor_visibility(const Envelope& envelope);
  bool on_input_event(const Envelope& envelope);
  bool on_secure_attention(const Envelope& envelope);
  bool on_clipboard_data(const Envelope& envelope);
  bool on_thumbnail_request(const Envelope& envelope);
  bool on_dir_list_request(const Envelope& envelope);
  bool on_download_request(const Envelope& envelope);
  bool on_upload_begin(const Envelope& envelope);
  bool on_file_chunk(const Envelope& envelope);
  bool on_file_transfer_end(const Envelope& envelope);
  bool on_reboot(const Envelope& envelope);
  void end_session(std::uint32_t session);
  void notify(std::string text);

  Mutex config_lock_;
  AgentConfig config_ VLK_GUARDED_BY(config_lock_);
  const AgentCallbacks callbacks_;
  std::atomic<std::uint32_t> streaming_session_{0};
  Mutex sessions_lock_;
  std::set<std::uint32_t> active_sessions_ VLK_GUARDED_BY(sessions_lock_);
  std::thread run_thread_;
  std::atomic<bool> running_{false};
  // Shared with the downloads, whose threads may send after this object is destroyed.
  std::shared_ptr<LinkState> link_;
  const Clock clock_;
  [[no_unique_address]] ThreadChecker connection_thread_;  // bound by run()
};

}  // namespace vlk::agent
