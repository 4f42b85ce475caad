// A representative's browser that watches a machine, types and downloads, and returns after each end.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>
#include <openssl/ssl.h>

#include "figures.h"
#include "net/socket.h"
#include "net/tls_connection.h"
#include "wire/messages.h"
#include "wire/websocket.h"

namespace vantelink_bench {

// Behaves as the console does: takes the connection for dead after 15 s of silence, connects again, and asks
// for a session again after its end. A key press is sent every 250 ms, and so is a report of the pictures if
// the stream has a preset. One thread reads, one sends both and looks at the times, one uploads.
class Viewer {
 public:
  struct Settings {
    std::string address;        // of the relay, or of a line to it
    unsigned short port = 0;    // at this address
    std::string cookie;         // the log-in
    std::string download_path;  // of a file on the machine, downloaded again and again; empty for none
    std::string upload_path;    // of a file on the machine, uploaded without an end; empty for none
    std::string quality;        // the preset of the stream; empty for fixed rates
  };
  Viewer(Settings settings, Figures& figures);
  ~Viewer();
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

 private:
  static constexpr std::size_t kChunkHeader = 8;    // bytes
  static constexpr int kDownload = 1, kUpload = 2;  // the requests for the numbers of transfers

  struct Seen {
    std::uint64_t stamp = 0;  // the machine's, in microseconds
    Clock::time_point at;
  };

  void read();  // the reader's thread
  void read_connection();
  bool upgrade(vlk::agent::TlsConnection& connection);
  void handle(const vlk::WsFrame& frame);
  void handle_text(const nlohmann::json& message);
  void handle_session(const nlohmann::json& message);
  void start_stream(std::uint32_t session);
  void ask_for_transfer();
  void continue_transfers(const nlohmann::json& message);
  void begin_transfer(const nlohmann::json& message);
  void handle_envelope(const std::vector<std::uint8_t>& bytes);
  void end_session(const std::string& reason);

  void type();  // the typist's thread
  void report_shown(std::uint32_t session);
  void open_if_possible();
  void upload();  // the uploader's thread

  void send(const nlohmann::json& message);
  void send_envelope(vlk::Msg type, std::uint32_t session, const std::string& payload);
  void write(std::uint8_t opcode, const std::string& bytes);

  const Settings settings_;
  Figures& figures_;
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  vlk::SharedSocket socket_;
  std::atomic<bool> stopping_{false};
  std::atomic<Clock::time_point> heard_;  // bytes arrived, or a connection was begun

  std::mutex write_lock_;
  std::shared_ptr<vlk::agent::TlsConnection>
      connection_;  // guarded by write_lock_; null without a connection

  std::mutex lock_;  // guards what follows
  std::string agent_;
  bool online_ = false;
  bool asked_ = false;
  std::uint32_t session_ = 0;
  bool watching_ = false;        // a picture of the session has arrived
  std::vector<Seen> seen_;       // pictures that have not been reported yet
  std::uint32_t uploading_ = 0;  // the number of the session's upload
  std::uint64_t uploaded_ = 0;   // bytes of it that were sent
  std::uint64_t passed_ = 0;     // bytes of it that have passed the relay
  std::condition_variable upload_changed_;

  vlk::WsParser parser_;                            // the reader's
  std::map<int, std::vector<std::uint8_t>> parts_;  // the reader's, by lane
  std::uint32_t downloading_ = 0;                   // the reader's: the number of the download
  std::size_t stored_ = 0;                          // the reader's: its bytes so far
  std::thread reader_;
  std::thread typist_;
  std::thread uploader_;
};

}  // namespace vantelink_bench
