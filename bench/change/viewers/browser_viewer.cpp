// Starts the node program and reads its lines.
#include "viewers/browser_viewer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/waiting.h"

namespace vantelink_bench {
namespace {

using vantelink_test::eventually;
using Pipe = std::array<int, 2>;  // the end to read from, and the end to write to

Pipe opened_pipe() {
  Pipe ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("a pipe cannot be opened");
  return ends;
}

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

}  // namespace

void BrowserViewer::start(std::vector<std::string> arguments) {
  ::signal(SIGPIPE, SIG_IGN);  // a program that has ended is reported by command()
  const Pipe input = opened_pipe(), output = opened_pipe();
  commands_ = input[1];
  lines_ = ::fdopen(output[0], "r");
  posix_spawn_file_actions_t actions{};
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  arguments.insert(arguments.begin(), {"node", VANTELINK_SOURCE_DIR "/bench/change/browser/viewer.mjs"});
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (std::string& word : arguments)
    words.push_back(word.data());
  words.push_back(nullptr);
  const int error = ::posix_spawnp(&process_, "node", &actions, nullptr, words.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(input[0]);
  ::close(output[1]);
  if (error != 0) throw std::runtime_error("node cannot be started");
  saved_picture_ =
      std::filesystem::temp_directory_path() / ("change-bench-" + std::to_string(process_) + ".png");
  thread_ = std::thread([this] { run(); });
}

// The program ends when its input does, with its browser and its relay.
BrowserViewer::~BrowserViewer() {
  if (commands_ >= 0) ::close(commands_);
  if (thread_.joinable()) thread_.join();
  if (process_ > 0) ::waitpid(process_, nullptr, 0);
  if (lines_ != nullptr) std::fclose(lines_);
  std::error_code ignored;
  std::filesystem::remove(saved_picture_, ignored);
}

BrowserViewer::RelayReady BrowserViewer::wait_for_relay() const {
  std::optional<RelayReady> ready;
  const bool is_ready = eventually([&] {
    received();  // throws if the program has failed
    const std::lock_guard lock(mutex_);
    ready = ready_;
    return ready.has_value();
  });
  if (!is_ready) throw std::runtime_error("the browser's viewer starts no relay");
  return *ready;
}

void BrowserViewer::run() {
  char* line = nullptr;
  std::size_t size = 0;
  while (::getline(&line, &size, lines_) > 0)
    take(line);
  std::free(line);  // NOLINT(cppcoreguidelines-no-malloc): getline allocates it
}

void BrowserViewer::take(const std::string& line) {
  std::istringstream words(line);
  std::string what;
  words >> what;
  const std::lock_guard lock(mutex_);
  if (what == "display") {
    Moment picture;
    long nanoseconds = 0;
    Received so_far;
    words >> picture.number >> nanoseconds >> so_far.pictures >> so_far.bytes;
    picture.time = Clock::time_point(std::chrono::nanoseconds(nanoseconds));
    see(picture, so_far);
  } else if (what == "relay") {
    RelayReady ready;
    words >> ready.port >> ready.process >> ready.certificate;
    ready_ = ready;
  } else if (what == "saved") {
    ++saved_;
  } else {
    fail("the browser's viewer: " + line);
  }
}

void BrowserViewer::command(const std::string& line) const {
  const std::string whole = line + '\n';
  if (::write(commands_, whole.data(), whole.size()) != static_cast<ssize_t>(whole.size()))
    throw std::runtime_error("the browser's viewer has ended");
}

double BrowserViewer::similarity(const vantelink_test::PngPicture& screen) const {
  const auto saved = [this] {
    const std::lock_guard lock(mutex_);
    return saved_;
  };
  const int before = saved();
  command("save " + saved_picture_);
  if (!eventually([&] { return saved() > before; })) throw std::runtime_error("the browser saves no picture");
  const vantelink_test::PngPicture picture = vantelink_test::decode_png(contents(saved_picture_));
  if (picture.width != screen.width || picture.height != screen.height)
    throw std::runtime_error("the browser's picture has another size than the screen");
  return likeness(screen, reinterpret_cast<const std::uint8_t*>(picture.pixels.data()));
}

ConsoleViewer::ConsoleViewer(const vantelink_test::Desk& desk, const CapturePath& path) : agent_(desk, path) {
  start({"console"});
  const RelayReady relay = wait_for_relay();
  relay_ = relay.process;
  agent_.start(relay.port, relay.certificate);
}

std::vector<pid_t> ConsoleViewer::processes() const {
  std::vector<pid_t> processes = agent_.processes();
  processes.push_back(relay_);
  return processes;
}

PeerPageViewer::PeerPageViewer(const std::string& display, const Peer& peer) : process_(display, peer) {
  start({"vnc", std::to_string(process_.port())});
}

}  // namespace vantelink_bench
