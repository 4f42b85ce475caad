// Connects the viewer, handles what arrives, and sends key presses.
#include "viewer.h"

#include <utility>

#include "machine.h"
#include "relay/wire/part.h"

namespace vantelink_bench {

using nlohmann::json;
using vlk::Msg;
using vlk::agent::TlsConnection;

namespace {

constexpr std::chrono::milliseconds kKeyInterval{250};
constexpr std::chrono::milliseconds kReconnect{1000};
constexpr std::chrono::seconds kSilence{15};
constexpr std::size_t kConfirmEvery = 256 * 1024;  // bytes of downloads
constexpr std::size_t kMostReported = 60;          // pictures in one report

// The time stamp at the begin of a StreamFrame's payload, little-endian.
std::uint64_t stamp_of(const std::vector<std::uint8_t>& payload) {
  std::uint64_t stamp = 0;
  for (std::size_t i = sizeof stamp; i-- > 0;)
    stamp = stamp << 8 | payload[i];
  return stamp;
}

double milliseconds(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

Viewer::Viewer(Settings settings, Figures& figures)
    : settings_(std::move(settings)),
      figures_(figures),
      context_(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free),
      heard_(Clock::now()) {
  reader_ = std::thread([this] { read(); });
  typist_ = std::thread([this] { type(); });
  uploader_ = std::thread([this] { upload(); });
}

Viewer::~Viewer() {
  {
    const std::lock_guard guard(lock_);
    stopping_ = true;
  }
  upload_changed_.notify_all();
  socket_.interrupt();
  reader_.join();
  typist_.join();
  uploader_.join();
}

void Viewer::read() {
  while (!stopping_) {
    read_connection();
    end_session("connection");
    {
      const std::lock_guard guard(lock_);
      online_ = false;
    }
    if (!stopping_) std::this_thread::sleep_for(kReconnect);
  }
}

void Viewer::read_connection() {
  heard_ = Clock::now();
  const vlk::SocketHandle socket = vlk::connect_socket(settings_.address, settings_.port);
  if (socket == vlk::kInvalidSocket) return;
  vlk::send_at_once(socket);
  socket_.set(socket);
  const auto connection = std::make_shared<TlsConnection>(context_.get(), socket, "localhost");
  if (connection->connect() && upgrade(*connection)) {
    {
      const std::lock_guard guard(write_lock_);
      connection_ = connection;
    }
    parser_ = {};
    parts_.clear();
    unsigned char buffer[16384];
    for (std::ptrdiff_t count = 0; (count = connection->read(buffer, sizeof buffer)) > 0;) {
      heard_ = Clock::now();
      parser_.feed(buffer, static_cast<std::size_t>(count));
      while (const auto frame = parser_.next())
        handle(*frame);
    }
    socket_.interrupt();  // ends a blocked write
    const std::lock_guard guard(write_lock_);
    connection_.reset();
  }
  socket_.close();
}

bool Viewer::upgrade(TlsConnection& connection) {
  const std::string host = "localhost:" + std::to_string(settings_.port);
  const std::string request = "GET /console HTTP/1.1\r\nHost: " + host + "\r\nOrigin: https://" + host +
                              "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                              "Sec-WebSocket-Key: c2l4dGVlbiBieXRlcyEhIQ==\r\n"
                              "Sec-WebSocket-Protocol: vantelink.console.v5\r\n"
                              "Cookie: __Host-vantelink_session=" +
                              settings_.cookie + "\r\n\r\n";
  if (!connection.write(reinterpret_cast<const unsigned char*>(request.data()), request.size())) return false;
  std::string response;
  while (!response.ends_with("\r\n\r\n")) {
    unsigned char byte = 0;
    if (connection.read(&byte, 1) < 1) return false;
    response += static_cast<char>(byte);
  }
  return vlk::upgrade_accepted(response);
}

void Viewer::handle(const vlk::WsFrame& frame) {
  using namespace vlk::relay;
  const std::vector<std::uint8_t>& bytes = frame.payload;
  if (frame.opcode == vlk::kWsPing) write(vlk::kWsPong, {bytes.begin(), bytes.end()});
  if (frame.opcode == vlk::kWsText) handle_text(json::parse(bytes));
  if (frame.opcode != vlk::kWsBinary || bytes.size() < kPartHeaderSize) return;
  if (bytes[0] != kPartMark) return handle_envelope(bytes);
  std::vector<std::uint8_t>& whole = parts_[bytes[1] >> kPartLaneShift];
  if (bytes[1] & kFirstPart) whole.clear();
  whole.insert(whole.end(), bytes.begin() + kPartHeaderSize, bytes.end());
  if (!(bytes[1] & kLastPart)) return;
  const std::vector<std::uint8_t> message = std::exchange(whole, {});
  if (bytes[1] & kTextPart) return handle_text(json::parse(message));
  handle_envelope(message);
}

void Viewer::handle_text(const json& message) {
  const std::string type = message["type"];
  if (type == "agents" || type == "agents-changed") {
    const std::lock_guard guard(lock_);
    for (const json& machine : message[type == "agents" ? "agents" : "changed"]) {
      agent_ = machine["id"];
      online_ = machine["state"] != "offline";  // it is "session" while the relay holds the viewer's session
    }
  } else if (type == "session") {
    handle_session(message);
  } else if (type == "transfer") {
    begin_transfer(message);
  } else if (type == "uploaded") {
    const std::lock_guard guard(lock_);
    passed_ = message["bytes"];
    upload_changed_.notify_all();
  } else if (type == "error") {
    const std::lock_guard guard(lock_);
    asked_ = false;
  }
}

void Viewer::handle_session(const json& message) {
  if (message["state"] == "ended") return end_session(message["reason"]);
  if (message["state"] != "accepted" || session_ != 0) return;
  const std::uint32_t session = message["session"];
  {
    const std::lock_guard guard(lock_);
    session_ = session;
  }
  if (!message.value("streaming", false)) start_stream(session);
  if (message.contains("transfers") && !message["transfers"].empty()) return continue_transfers(message);
  ask_for_transfer();
  if (!settings_.upload_path.empty())
    send({{"type", "transfer"}, {"session", session}, {"request", kUpload}});
}

void Viewer::start_stream(std::uint32_t session) {
  if (!settings_.quality.empty())
    send({{"type", "quality"}, {"session", session}, {"preset", settings_.quality}});
  send_envelope(Msg::StreamStart, session,
                json{{"max_fps", kPicturesPerSecond}, {"bitrate", kBitrate}}.dump());
}

void Viewer::handle_envelope(const std::vector<std::uint8_t>& bytes) {
  vlk::Envelope envelope;
  if (!vlk::decode_envelope(bytes.data(), bytes.size(), envelope) || envelope.session_id != session_) return;
  switch (static_cast<Msg>(envelope.type)) {
    case Msg::StreamFrame: {
      figures_.picture_shown(made_at(envelope.payload));
      const std::lock_guard guard(lock_);
      watching_ = true;
      if (seen_.size() < kMostReported) seen_.push_back({stamp_of(envelope.payload), Clock::now()});
      break;
    }
    case Msg::FileChunk: {
      const std::size_t before = stored_;
      stored_ += envelope.payload.size() - kChunkHeader;
      figures_.downloaded(stored_ - before);
      if (stored_ / kConfirmEvery != before / kConfirmEvery)
        send({{"type", "stored"}, {"session", session_}, {"transfer", downloading_}, {"bytes", stored_}});
      break;
    }
    case Msg::FileTransferEnd:
      send({{"type", "stored"},
            {"session", session_},
            {"transfer", downloading_},
            {"bytes", stored_},
            {"end", true}});
      ask_for_transfer();
      break;
    default:
      break;
  }
}

void Viewer::end_session(const std::string& reason) {
  const std::lock_guard guard(lock_);
  if (session_ != 0) figures_.session_ended(reason);
  session_ = 0;
  uploading_ = 0;
  asked_ = watching_ = false;
  seen_.clear();
}

void Viewer::type() {
  for (auto due = Clock::now(); !stopping_; due += kKeyInterval) {
    std::this_thread::sleep_until(due);
    if (Clock::now() - heard_.load() > kSilence) socket_.interrupt();
    open_if_possible();
    std::uint32_t session = 0;
    {
      const std::lock_guard guard(lock_);
      if (watching_) session = session_;
    }
    if (session == 0) continue;
    send_envelope(Msg::InputEvent, session, key_press(figures_.key_pressed(due)));
    if (!settings_.quality.empty()) report_shown(session);
  }
}

void Viewer::report_shown(std::uint32_t session) {
  std::vector<Seen> seen;
  {
    const std::lock_guard guard(lock_);
    seen = std::exchange(seen_, {});
  }
  if (seen.empty()) return;
  const auto now = Clock::now();
  json pictures = json::array();
  for (const Seen& one : seen)
    pictures.push_back({one.stamp, milliseconds(now - one.at), 0, 0});
  send({{"type", "shown"},
        {"session", session},
        {"at", milliseconds(now.time_since_epoch())},
        {"pictures", pictures}});
}

void Viewer::open_if_possible() {
  std::string agent;
  {
    const std::lock_guard guard(lock_);
    if (!online_ || asked_) return;
    asked_ = true;
    agent = agent_;
  }
  send({{"type", "open"}, {"agent", agent}});
}

void Viewer::send(const json& message) {
  write(vlk::kWsText, message.dump());
}

void Viewer::send_envelope(Msg type, std::uint32_t session, const std::string& payload) {
  const auto bytes = vlk::encode_envelope(
      type, session, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), 1);
  write(vlk::kWsBinary, {bytes.begin(), bytes.end()});
}

void Viewer::write(std::uint8_t opcode, const std::string& bytes) {
  const auto frame =
      vlk::encode_frame(opcode, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), true);
  const std::lock_guard guard(write_lock_);
  // A failed write ends the connection, which the reader notices.
  if (connection_) (void)connection_->write(frame.data(), frame.size());
}

}  // namespace vantelink_bench
