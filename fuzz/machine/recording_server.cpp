// Records what the client does.
#include "machine/recording_server.h"

#include <cstdio>

#include "fakes/fakes.h"
#include "require.h"

namespace vlk::agent::fuzz {
namespace {

constexpr std::size_t kStampSize = 8;  // bytes before a picture

}  // namespace

void RecordingServer::run_recorded(const AgentConfig& config) {
  vantelink_fakes::watch([this](const std::string& line) {
    if (line == "~ScreenCapturer") ++ends_;
    if (on_connecting_thread()) note(line);
  });
  run(config, callbacks());
  vantelink_fakes::watch(nullptr);
  check_stopped();
}

std::string RecordingServer::sent_line(const Sent& sent) {
  const Envelope& envelope = sent.envelope;
  std::string line = "sent " + std::to_string(sent.opcode) + ' ' + std::to_string(envelope.type) + ' ' +
                     std::to_string(envelope.flags) + ' ' + std::to_string(envelope.session_id) + ' ';
  line.append(envelope.payload.begin(), envelope.payload.end());
  return line.append(sent.pong.begin(), sent.pong.end());
}

void RecordingServer::check_stopped() {
  REQUIRE(!input_ && !clipboard_ && starts_ == ends_);
}

void RecordingServer::take_events(const std::vector<std::string>& expected) {
  if (events_ != expected) {
    for (const std::string& line : expected)
      std::fprintf(stderr, "expected: %s\n", line.c_str());
    for (const std::string& line : events_)
      std::fprintf(stderr, "happened: %s\n", line.c_str());
  }
  REQUIRE(events_ == expected);
  events_.clear();
}

bool RecordingServer::on_sent(const Sent& sent) {
  if (on_connecting_thread()) {
    events_.push_back(sent_line(sent));
    return true;
  }
  const auto type = static_cast<Msg>(sent.envelope.type);
  const bool first = streaming_ != std::this_thread::get_id();
  streaming_ = std::this_thread::get_id();
  REQUIRE(type == Msg::StreamConfig || (type == Msg::StreamFrame && !first));
  REQUIRE(type == Msg::StreamConfig || sent.envelope.payload.size() > kStampSize);
  on_stream_message(sent.envelope);
  return true;
}

void RecordingServer::note(const std::string& line) {
  if (line.starts_with("SetInputSessionActive")) input_ = line.ends_with("true");
  if (line.starts_with("SetClipboardSessionActive")) clipboard_ = line.ends_with("true");
  // A stream's start allows input before it reports the status; a session's end stops it before.
  if (line.starts_with("status 3") && input_) ++starts_;
  events_.push_back(line);
}

AgentCallbacks RecordingServer::callbacks() {
  AgentCallbacks callbacks;
  callbacks.on_status = [this](Status status, int count) {
    note("status " + std::to_string(static_cast<int>(status)) + ' ' + std::to_string(count));
  };
  callbacks.on_notice = [this](const std::string& text) { note("notice " + text); };
  callbacks.on_session_request = [this](std::uint32_t session, const std::string& name) {
    note("request " + std::to_string(session) + ' ' + name);
  };
  callbacks.on_clipboard = [this](const Bytes& bytes) {
    note("clipboard " + std::string(bytes.begin(), bytes.end()));
  };
  callbacks.on_session_ended = [this](std::uint32_t session) { note("ended " + std::to_string(session)); };
  return callbacks;
}

}  // namespace vlk::agent::fuzz
