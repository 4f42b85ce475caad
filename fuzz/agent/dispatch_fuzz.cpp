// Lets the server send messages of all types in any order, each with a payload that is valid, cut off or any
// text. After each message, what the agent's parts were asked to do and what was sent must be what a model
// expects. The first byte selects the agent's settings.
#include "fakes/fakes.h"
#include "input.h"
#include "machine/recording_server.h"
#include "require.h"
#include "wire/json.h"

using namespace vlk;
using namespace vlk::agent;
using namespace vlk::agent::fuzz;

namespace {

constexpr int kSteps = 48;
constexpr int kConnections = 6;

struct Sample {
  Msg type{};
  const char* payload = "";
};
constexpr Sample kSamples[] = {
    {Msg::Error, R"({"code":"BUSY","message":"later"})"},
    {Msg::Error, R"({"code":"AUTH_FAILED","message":"unknown"})"},
    {Msg::Heartbeat, R"({"beat":1})"},
    {Msg::EnrollResult, R"({"agent_id":"id-2","agent_secret":"s\"2"})"},
    {Msg::EnrollResult, R"({"agent_id":"id-3"})"},
    {Msg::LoginResult, "{}"},
    {Msg::SessionRequest, R"({"rep_name":"Ada"})"},
    {Msg::SessionRequest, R"({"rep_name":7})"},
    {Msg::SessionEnd, "{}"},
    {Msg::StreamStart, R"({"monitor_id":0,"max_fps":30,"bitrate":1000})"},
    {Msg::StreamStart, R"({"monitor_id":-1,"max_fps":99999})"},
    {Msg::StreamStart, R"({"monitor_id":4294967296})"},
    {Msg::StreamStop, "{}"},
    {Msg::KeyframeRequest, "{}"},
    {Msg::MonitorSelect, R"({"monitor_id":1})"},
    {Msg::InputEvent, "\1\1\2\3\4"},
    {Msg::ClipboardData, "\1text"},
    {Msg::CodecSelect, R"({"codec":"mjpeg"})"},
    {Msg::CursorVisibility, R"({"show":0})"},
    {Msg::ThumbnailRequest, "{}"},
    {Msg::DirListRequest, R"({"path":"C:\\"})"},
    {Msg::DownloadRequest, R"({"transfer_id":1,"path":"C:\\a"})"},
    {Msg::UploadBegin, R"({"transfer_id":1,"path":"C:\\a","size":5})"},
    {Msg::FileChunk, "\1\1\1\1\2\2\2\2bytes"},
    {Msg::FileTransferEnd, R"({"transfer_id":1})"},
    {Msg::Reboot, "{}"},
    {Msg::SecureAttention, ""},
};
constexpr std::uint32_t kSessions[] = {0, 1, 2, 0xFFFFFFFF};

class DispatchScript : public RecordingServer {
 public:
  explicit DispatchScript(vlk::fuzz::Input& input) : RecordingServer(0), input_(input) {}

  void run_script();

 private:
  bool another_connection() override;
  std::optional<Bytes> next() override;
  bool on_sent(const Sent& sent) override;
  void on_stream_message(const Envelope& envelope) override;

  [[nodiscard]] Bytes next_frame();
  [[nodiscard]] Bytes control_frame(std::uint8_t kind);
  [[nodiscard]] Envelope next_message();
  void expect_greeting();
  void expect(const Envelope& message);
  void expect_link(const Envelope& message, const std::string& text);
  void expect_stream_start(std::uint32_t session, const std::string& text);
  void expect_session_end();
  void expect_thumbnails(std::uint32_t session);
  void expect_sent(Msg type, std::uint8_t flags, std::uint32_t session, const std::string& payload);
  void add(std::string line) { expected_.push_back(std::move(line)); }

  vlk::fuzz::Input& input_;
  int steps_ = 0;
  int connections_ = 0;
  bool upgraded_ = false;
  Msg last_{};  // the last message to the agent
  std::uint32_t last_session_ = 0;
  std::size_t answers_ = 0;  // messages about files since then

  // The model.
  std::vector<std::string> expected_ = {"status 1 0"};
  bool unattended_ = false;
  bool simulated_ = true;  // a restart only ends the connection
  std::string id_, secret_;
  std::set<std::uint32_t> active_;
  // The sessions of the stream after the last message and before it.
  std::atomic<std::uint32_t> streaming_{0}, earlier_{0};
  std::atomic<bool> streams_{false}, streamed_{false};
};

void DispatchScript::run_script() {
  const std::uint8_t settings = input_.byte();
  unattended_ = (settings & 1) != 0;
  simulated_ = (settings & 2) == 0;
  if ((settings & 4) != 0) id_ = secret_ = "stored";
  vantelink_fakes::reset();
  vantelink_fakes::script().simulate_reboot = simulated_;
  vantelink_fakes::script().thumbnails = {{0, 2, 1, Bytes(8)}, {7, 1, 258, Bytes(1032)}};
  if ((settings & 8) != 0) vantelink_fakes::script().init = [] { return true; };
  AgentConfig config;
  config.unattended = unattended_;
  config.agent_id = id_;
  config.agent_secret = secret_;
  config.display_name = "machine";
  run_recorded(config);
}

bool DispatchScript::another_connection() {
  for (const char* const line :
       {"SetInputSessionActive false", "SetClipboardSessionActive false", "status 0 0"})
    add(line);
  take_events(expected_);
  check_stopped();
  active_.clear();
  streams_ = streamed_ = false;
  upgraded_ = false;
  expected_ = {"status 1 0"};
  return !input_.empty() && ++connections_ < kConnections;
}

std::optional<Bytes> DispatchScript::next() {
  take_events(expected_);
  REQUIRE(last_ == Msg::DirListRequest ? answers_ == 1 : last_ != Msg::DownloadRequest || answers_ > 0);
  expected_.clear();
  answers_ = 0;
  last_ = {};
  streamed_ = streams_.load();
  earlier_ = streaming_.load();
  if (!upgraded_) {
    upgraded_ = true;
    expect_greeting();
    return Bytes(kUpgraded, kUpgraded + sizeof kUpgraded - 1);
  }
  if (input_.empty() || ++steps_ > kSteps) return std::nullopt;
  return next_frame();
}

bool DispatchScript::on_sent(const Sent& sent) {
  const auto type = static_cast<Msg>(sent.envelope.type);
  if (type != Msg::DirListResult && type != Msg::FileChunk && type != Msg::FileTransferEnd)
    return RecordingServer::on_sent(sent);
  // The target files checks their payloads.
  REQUIRE(last_ == (type == Msg::DirListResult ? Msg::DirListRequest : Msg::DownloadRequest));
  REQUIRE(sent.envelope.session_id == last_session_);
  ++answers_;
  return true;
}

void DispatchScript::on_stream_message(const Envelope& envelope) {
  REQUIRE((streams_ && envelope.session_id == streaming_) || (streamed_ && envelope.session_id == earlier_));
}

Bytes DispatchScript::next_frame() {
  const std::uint8_t kind = input_.byte();
  if (kind >= 0xF8) return control_frame(kind);
  const Envelope message = next_message();
  expect(message);
  Bytes envelope = encode_envelope(static_cast<Msg>(message.type), message.session_id, message.payload.data(),
                                   message.payload.size(), message.flags);
  if (kind % 4 == 0) envelope.push_back(kind);  // bytes after the payload are ignored
  return encode_frame(kWsBinary, envelope.data(), envelope.size(), kind % 2 != 0);
}

Bytes DispatchScript::control_frame(std::uint8_t kind) {
  const Bytes payload = input_.bytes();
  const std::uint8_t opcode = kind == 0xFF   ? kWsClose
                              : kind == 0xFE ? kWsPing
                              : kind == 0xFD ? kWsText
                                             : kWsPong;
  if (opcode == kWsPing) add(sent_line({kWsPong, {}, payload}));
  return encode_frame(opcode, payload.data(), payload.size(), false);
}

Envelope DispatchScript::next_message() {
  const std::uint8_t kind = input_.byte();
  Envelope message;
  message.session_id = kSessions[kind / 32 % 4];
  message.flags = kind >= 128 ? kBinaryPayload : kJsonPayload;
  const std::size_t number = kind % 32;
  if (number >= std::size(kSamples)) {
    message.type = input_.byte();
    message.payload = input_.bytes();
    return message;
  }
  const Sample& sample = kSamples[number];
  message.type = static_cast<std::uint8_t>(sample.type);
  std::string text = sample.payload;
  const std::uint8_t change = input_.byte();
  if (change >= 0xC0) text.resize(text.size() * (change - 0xC0u) / 64);
  if (change == 0xBF) text = input_.text();
  message.payload.assign(text.begin(), text.end());
  return message;
}

void DispatchScript::expect_sent(Msg type, std::uint8_t flags, std::uint32_t session,
                                 const std::string& payload) {
  add(sent_line(
      {kWsBinary, {static_cast<std::uint8_t>(type), flags, session, {payload.begin(), payload.end()}}, {}}));
}

void DispatchScript::expect_greeting() {
  expect_sent(Msg::Hello, kJsonPayload, 0,
              R"({"role":"agent","client_version":"0.1.0-scaffold","os":"windows"})");
  if (id_.empty() || secret_.empty()) {
    expect_sent(Msg::Enroll, kJsonPayload, 0,
                R"({"name":"machine","machine_name":"machine","os":"windows","hw_id":"guid"})");
  } else {
    JsonWriter login;
    login.add_string("agent_id", id_).add_string("secret", secret_).add_string("name", "machine");
    expect_sent(Msg::Login, kJsonPayload, 0, login.finish());
  }
  add("status 1 0");
}

void DispatchScript::expect(const Envelope& message) {
  const std::string text(message.payload.begin(), message.payload.end());
  const std::uint32_t session = message.session_id;
  last_ = static_cast<Msg>(message.type);
  last_session_ = session;
  switch (last_) {
    case Msg::SessionRequest:
      if (unattended_) {
        expect_sent(Msg::SessionAccept, kJsonPayload, session,
                    "{\"session\":" + std::to_string(session) + '}');
      } else {
        add("request " + std::to_string(session) + ' ' +
            value_or(read_string(text, "rep_name"), "A representative"));
      }
      return;
    case Msg::SessionEnd:
      add("ended " + std::to_string(session));
      return expect_session_end();
    case Msg::StreamStop:
      return expect_session_end();
    case Msg::StreamStart:
      return expect_stream_start(session, text);
    case Msg::InputEvent:
      return add("InjectInputBatch " + std::to_string(text.size()));
    case Msg::SecureAttention:
      return add("SendSecureAttention");
    case Msg::ClipboardData:
      return add("clipboard " + text);
    case Msg::ThumbnailRequest:
      return expect_thumbnails(session);
    case Msg::Reboot:
      return add("reboot_machine");
    default:
      expect_link(message, text);
  }
}

void DispatchScript::expect_link(const Envelope& message, const std::string& text) {
  if (last_ == Msg::Heartbeat) return expect_sent(Msg::Heartbeat, message.flags, 0, text);
  if (last_ == Msg::LoginResult) {
    add("status 2 0");
    return add("notice Connected to Maravek");
  }
  if (last_ == Msg::EnrollResult) {
    id_ = value_or(read_string(text, "agent_id"), "");
    secret_ = value_or(read_string(text, "agent_secret"), "");
    add("save_config " + id_ + '/' + secret_);
    return add("notice Registered with Maravek");
  }
  if (last_ != Msg::Error) return;  // all others lead to nothing, or to answers about files
  add("notice " + value_or(read_string(text, "message"), "error"));
  if (value_or(read_string(text, "code"), "") != "AUTH_FAILED") return;
  id_.clear();
  secret_.clear();
  add("save_config /");
}

void DispatchScript::expect_stream_start(std::uint32_t session, const std::string& text) {
  add("EnumerateMonitors");
  // There is one monitor. Of its number, the lowest 32 bits count.
  const auto monitor = static_cast<std::int32_t>(value_or(read_int(text, "monitor_id"), 0));
  if (monitor == 0) add("SetActiveMonitorRect 0 0 1280 720");
  add("SetInputSessionActive true");
  add("SetClipboardSessionActive true");
  active_.insert(session);
  add("status 3 " + std::to_string(active_.size()));
  streaming_ = session;
  streams_ = true;
}

void DispatchScript::expect_session_end() {
  add("SetInputSessionActive false");
  add("SetClipboardSessionActive false");
  active_.erase(last_session_);
  add((active_.empty() ? "status 2 " : "status 3 ") + std::to_string(active_.size()));
  streams_ = false;
}

void DispatchScript::expect_thumbnails(std::uint32_t session) {
  add("CaptureThumbnails 320");
  add("EncodeJpeg 2 1 8 80");
  expect_sent(Msg::Thumbnail, kBinaryPayload, session, std::string("\0\2\2\0\1\0jpeg", 10));
  add("EncodeJpeg 1 258 4 80");
  expect_sent(Msg::Thumbnail, kBinaryPayload, session, std::string("\7\2\1\0\2\1jpeg", 10));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vlk::fuzz::Input input(data, size);
  DispatchScript(input).run_script();
  return 0;
}
