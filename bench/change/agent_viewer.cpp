// Starts the agent, reads its stream and decodes each picture.
#include "agent_viewer.h"

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "e2e/support/agent_fixture.h"

namespace vantelink_bench {
namespace {

namespace fs = std::filesystem;
using namespace vantelink_test;
using vlk::Msg;

constexpr std::uint32_t kSession = 5;
constexpr std::size_t kStampSize = 8;
constexpr std::uint64_t kFrameHeader = 8;  // of a masked WebSocket frame below 64 KiB
constexpr Milliseconds kLook{100};         // the longest wait until the thread looks whether it has to end
// An agent sends a picture of a still screen each second.
constexpr std::chrono::seconds kLongestSilence{4};

std::string filled(std::string text, const std::string& folder) {
  for (const auto& [name, value] :
       {std::pair<std::string, std::string>{"{folder}", folder}, {"{windows-folder}", wine_path(folder)}}) {
    for (std::size_t at = 0; (at = text.find(name)) != std::string::npos;)
      text.replace(at, name.size(), value);
  }
  return text;
}

}  // namespace

AgentViewer::AgentViewer(const Desk& desk, const CapturePath& path, const StreamWish& wish)
    : desk_(desk), folder_(desk.folder() + "/agent") {
  fs::remove_all(folder_);
  fs::create_directories(folder_);
  fs::copy_file(kAgent, folder_ + "/VantelinkAgent.exe");
  for (const std::string& file : path.files) {
    const fs::path from = fs::path(VANTELINK_SOURCE_DIR) / file;
    fs::copy_file(from, fs::path(folder_) / from.filename());
  }
  std::ofstream(folder_ + "/ca.pem") << authority_.pem();
  if (!path.helper.empty()) start_helper(path);
  std::vector<std::string> environment = {"SSL_CERT_FILE=" + folder_ + "/ca.pem"};
  for (const std::string& variable : path.environment)
    environment.push_back(filled(variable, folder_));
  processes_.push_back(desk.spawn({folder_ + "/VantelinkAgent.exe", "--host", "localhost", "--port",
                                   std::to_string(server_.port()), "--unattended"},
                                  environment));
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
  for (const pid_t process : processes_)
    ::kill(process, SIGKILL);
  if (thread_.joinable()) thread_.join();
}

void AgentViewer::start_helper(const CapturePath& path) {
  std::string command = "'" VANTELINK_SOURCE_DIR "/";
  for (const std::string& word : path.helper)
    command += filled(word, folder_) + "' '";
  command.pop_back();
  const std::string output = folder_ + "/helper.out";
  processes_.push_back(std::stoi(
      desk_.host(command + "> '" + output + "' 2> '" + folder_ + "/helper.err' < /dev/null & echo $!")));
  // The shell makes the file a little later.
  if (!eventually([&] { return fs::exists(output) && fs::file_size(output) > 0; }))
    throw std::runtime_error(path.helper[0] + " does not become ready");
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
