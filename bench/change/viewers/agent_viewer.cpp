// Starts the agent, reads its stream and decodes each picture.
#include "viewers/agent_viewer.h"

#include <fstream>
#include <stdexcept>

namespace vantelink_bench {
namespace {

using namespace vantelink_test;
using vlk::Msg;

constexpr std::uint32_t kSession = 5;
constexpr std::size_t kStampSize = 8;
constexpr std::uint64_t kFrameHeader = 8;  // of a masked WebSocket frame below 64 KiB
constexpr Milliseconds kLook{100};         // the longest wait until the thread looks whether it has to end
// An agent sends a picture of a still screen each second.
constexpr std::chrono::seconds kLongestSilence{4};

}  // namespace

AgentViewer::AgentViewer(const Desk& desk, const CapturePath& path, const StreamWish& wish)
    : agent_(desk, path) {
  const std::string authority = agent_.folder() + "/ca.pem";
  std::ofstream(authority) << authority_.pem();
  agent_.start(server_.port(), authority);
  connection_ = server_.accept_upgraded();
  connection_->read_until(Msg::Hello);
  connection_->send_envelope(Msg::StreamStart, kSession,
                             R"({"max_fps":)" + std::to_string(wish.pictures_a_second) + "}");
  connection_->send_envelope(Msg::CodecSelect, kSession, R"({"codec":")" + wish.codec + "\"}");
  connection_->send_envelope(Msg::CursorVisibility, kSession, R"({"show":0})");
  thread_ = std::thread([this, codec = wish.codec] { run(codec); });
}

AgentViewer::~AgentViewer() {
  ending_ = true;
  if (thread_.joinable()) thread_.join();
}

// Waits for input without the mutex, so that a key is sent at once. The agent writes each message on its own,
// so no complete message waits in the connection's memory while its socket has no input.
void AgentViewer::run(const std::string& codec) {
  try {
    for (Clock::time_point last = Clock::now(); !ending_;) {
      if (!connection_->has_input(kLook)) {
        if (Clock::now() - last > kLongestSilence) throw std::runtime_error("the agent sends nothing");
        continue;
      }
      last = Clock::now();
      vlk::Envelope envelope;
      {
        const std::lock_guard lock(connection_mutex_);
        envelope = connection_->read_envelope();
        connection_->forget_received();
      }
      take(envelope, codec);
    }
  } catch (const std::exception& failure) {
    if (!ending_) fail(std::string("the agent's viewer: ") + failure.what());
  }
}

void AgentViewer::take(const vlk::Envelope& envelope, const std::string& codec) {
  bytes_ += kFrameHeader + vlk::kEnvelopeHeaderSize + envelope.payload.size();
  if (envelope.type == static_cast<std::uint8_t>(Msg::StreamConfig)) {
    const bool wished = text_of(envelope).find("\"codec\":\"" + codec + '"') != std::string::npos;
    decoder_.reset();
    if (wished) decoder_.emplace(codec == "mjpeg" ? VideoCodec::Jpeg : VideoCodec::H264);
  }
  if (envelope.type == static_cast<std::uint8_t>(Msg::StreamFrame) && decoder_) decode(envelope);
}

void AgentViewer::decode(const vlk::Envelope& envelope) {
  Picture picture = decoder_->decode({envelope.payload.begin() + kStampSize, envelope.payload.end()});
  see(number_of(picture), bytes_);
  const std::lock_guard lock(mutex_);
  picture_ = std::move(picture);
}

double AgentViewer::similarity(const PngPicture& screen) const {
  const std::lock_guard lock(mutex_);
  return vantelink_test::similarity(picture_, screen);
}

void AgentViewer::press_key() {
  // The number of events; kind, down, virtual key and scan code of two bytes each, and extended, of the key
  // A.
  const std::string press("\x01\x04\x01\x41\x00\x00\x00\x00", 8),
      release("\x01\x04\x00\x41\x00\x00\x00\x00", 8);
  const std::lock_guard lock(connection_mutex_);
  connection_->send_envelope(Msg::InputEvent, kSession, press, vlk::kBinaryPayload);
  connection_->send_envelope(Msg::InputEvent, kSession, release, vlk::kBinaryPayload);
}

}  // namespace vantelink_bench
