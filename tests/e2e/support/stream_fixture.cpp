// Sets up the boards and the agent's folder, and reads streams.
#include "e2e/support/stream_fixture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace vantelink_test {
namespace {

namespace fs = std::filesystem;
using vantelink_doubles::CodecBoard;
using vantelink_doubles::DesktopBoard;
using vlk::Envelope;
using vlk::Msg;

constexpr char kDoubles[] = VANTELINK_SOURCE_DIR "/build/windows/tests/doubles/";
constexpr std::size_t kStampSize = 8;

std::string folder() {
  return VANTELINK_SOURCE_DIR "/build/e2e/" + std::to_string(::getpid());
}

}  // namespace

template <typename Board>
SharedBoard<Board>::SharedBoard(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, sizeof(Board)) != 0) throw std::runtime_error("cannot make " + path);
  void* const view = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (view == MAP_FAILED) throw std::runtime_error("cannot map " + path);
  board_ = static_cast<Board*>(view);
}

template <typename Board>
SharedBoard<Board>::~SharedBoard() {
  ::munmap(board_, sizeof(Board));
}

template <typename Board>
void SharedBoard<Board>::clear() {
  std::memset(static_cast<void*>(board_), 0, sizeof(Board));
}

std::string config_text(const std::string& codec, int width, int height, int monitor) {
  return R"({"codec":")" + codec + R"(","w":)" + std::to_string(width) + R"(,"h":)" + std::to_string(height) +
         R"(,"monitor_id":)" + std::to_string(monitor) + "}";
}

void StreamTest::SetUpTestSuite() {
  AgentTest::SetUpTestSuite();
  fs::create_directories(folder());
  // The doubles are copied into the folder of the executable, the only folder that Wine searches before its
  // own libraries.
  fs::copy_file(kAgent, folder() + "/VantelinkAgent.exe", fs::copy_options::overwrite_existing);
  for (const char* const name : {"dxgi.dll", "d3d11.dll"})
    fs::copy_file(std::string(kDoubles) + name, folder() + '/' + name, fs::copy_options::overwrite_existing);
  desktop = new SharedBoard<DesktopBoard>(folder() + "/desktop");
  codec = new SharedBoard<CodecBoard>(folder() + "/codec");
  registered.clear();
  // Moves the pointer out of the pictures, since it may be drawn before it is hidden.
  run(". '" + desk->folder() + "/env' && xdotool mousemove 1275 715");
}

void StreamTest::TearDownTestSuite() {
  delete codec;
  delete desktop;
  AgentTest::TearDownTestSuite();
  fs::remove_all(folder());
}

void StreamTest::SetUp() {
  AgentTest::SetUp();
  desktop->clear();
  codec->clear();
  set_outputs({{0, 0, 640, 360}});
  agent_ = folder() + "/VantelinkAgent.exe";
  environment_ = {
      "WINEDLLOVERRIDES=mscoree,mshtml,winedbg.exe=;dxgi,d3d11=n,b",
      std::string(vantelink_doubles::kDesktopBoardVariable) + "=" + wine_path(folder() + "/desktop"),
      std::string(vantelink_doubles::kCodecBoardVariable) + "=" + wine_path(folder() + "/codec")};
}

void StreamTest::TearDown() {
  EXPECT_EQ((*desktop)->misuses, 0) << "the last was DesktopMisuse " << (*desktop)->last_misuse;
  AgentTest::TearDown();
}

void StreamTest::register_encoders(const std::string& kinds) {
  if (registered == kinds + ".") return;
  const std::string library = wine_path(std::string(kDoubles) + "h264.dll");
  ASSERT_EQ(desk->exec({"regsvr32", "/s", "/n", "/i:" + kinds, library}), 0);
  registered = kinds + ".";
}

void StreamTest::set_outputs(const std::vector<Area>& areas) {
  for (std::size_t i = 0; i < areas.size(); ++i) {
    vantelink_doubles::OutputCells& output = (*desktop)->outputs[i];
    output.adapter = i == 0 ? 0 : 1;
    output.left = areas[i].left;
    output.top = areas[i].top;
    output.width = areas[i].width;
    output.height = areas[i].height;
  }
  (*desktop)->output_count = static_cast<std::int32_t>(areas.size());
}

void StreamTest::send(Msg type, const std::string& payload) {
  peer_->send_envelope(type, kSession, payload);
}

void StreamTest::start_stream(const std::string& settings) {
  if (!peer_) {
    peer_ = start({}, environment_);
    peer_->read_until(Msg::Hello);
  }
  last_time_.reset();
  config_.clear();
  send(Msg::StreamStart, settings);
  send(Msg::CursorVisibility, R"({"show":0})");
}

StreamedFrame StreamTest::next_frame(Milliseconds timeout) {
  StreamedFrame frame;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - std::chrono::steady_clock::now());
    const Envelope envelope = peer_->read_envelope(std::max(left, Milliseconds(0)));
    if (envelope.type == static_cast<std::uint8_t>(Msg::StreamConfig)) {
      EXPECT_EQ(envelope.session_id, kSession);
      config_ = text_of(envelope);
      frame.configs.push_back(config_);
      decoder_.reset();
    }
    if (envelope.type != static_cast<std::uint8_t>(Msg::StreamFrame)) continue;
    EXPECT_EQ(envelope.session_id, kSession);
    EXPECT_NE(config_, "") << "a frame came before the first announcement";
    if (envelope.payload.size() <= kStampSize) throw std::runtime_error("a frame has no content");
    for (std::size_t i = 0; i < kStampSize; ++i)
      frame.time |= static_cast<std::int64_t>(envelope.payload[i]) << (8 * i);
    EXPECT_GT(frame.time, last_time_.value_or(-1));
    last_time_ = frame.time;
    frame.data.assign(envelope.payload.begin() + kStampSize, envelope.payload.end());
    if (config_.find(R"("codec":"h264")") == std::string::npos) return frame;
    frame.units = access_units(frame.data);
    for (const AccessUnit& unit : frame.units)
      EXPECT_EQ(unit.parameter_sets, unit.key);
    return frame;
  }
}

StreamedFrame StreamTest::next_announced() {
  StreamedFrame frame;
  do {
    frame = next_frame();
  } while (frame.configs.empty());
  return frame;
}

StreamedFrame StreamTest::next_announced(const std::string& config) {
  const StreamedFrame frame = next_announced();
  EXPECT_EQ(frame.configs, std::vector{config});
  return frame;
}

bool StreamTest::answers(Milliseconds timeout) {
  static int calls = 0;
  const std::string question = "there? " + std::to_string(++calls);
  send(Msg::Heartbeat, question);
  try {
    while (text_of(peer_->read_until(Msg::Heartbeat, timeout)) != question) {
    }
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

std::vector<std::uint32_t> StreamTest::check_pictures(const StreamedFrame& frame, std::uint32_t output) {
  constexpr double kLeastSimilarity = 30;  // decibels
  const bool jpeg = frame.units.empty();
  if (!decoder_) decoder_ = std::make_unique<VideoDecoder>(jpeg ? VideoCodec::Jpeg : VideoCodec::H264);
  std::vector<Bytes> parts;
  if (jpeg) parts.push_back(frame.data);
  for (const AccessUnit& unit : frame.units)
    parts.push_back(unit.bytes);
  std::vector<std::uint32_t> found;
  for (const Bytes& part : parts) {
    const Picture picture = decoder_->decode(part);
    const std::string size =
        R"("w":)" + std::to_string(picture.width) + R"(,"h":)" + std::to_string(picture.height) + ',';
    EXPECT_NE(config_.find(size), std::string::npos) << config_ << " announced a picture with " << size;
    found.push_back(number_of(picture));
    EXPECT_GT(similarity(picture, found.back(), output), kLeastSimilarity) << "picture " << found.back();
  }
  return found;
}

template class SharedBoard<DesktopBoard>;
template class SharedBoard<CodecBoard>;

}  // namespace vantelink_test
