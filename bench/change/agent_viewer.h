// The shipped executable on a desk, and a viewer that is its server.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include "e2e/support/video.h"
#include "support/desk/desk.h"
#include "support/peers/scripted_server.h"
#include "viewer.h"

namespace vantelink_bench {

// A way by which the agent captures the screen. In the texts of environment and helper, {folder} stands for
// the folder of the agent's executable, and {windows-folder} for the same folder as programs under Wine see
// it.
struct CapturePath {
  std::string name{};
  std::vector<std::string> environment{};  // of the agent: NAME=VALUE
  std::vector<std::string> files{};        // copied into the agent's folder; paths in this source tree
  // A program of this host, as a path in this source tree, and its arguments. It is started on the desk's
  // display before the agent, and has to print a line when it is ready. Empty for none.
  std::vector<std::string> helper{};
};

// What the viewer asks of the agent.
struct StreamWish {
  std::string codec{};  // as CodecSelect names it: h264 or mjpeg
  int pictures_a_second = 0;
};

class AgentViewer : public Viewer {
 public:
  // Throws std::runtime_error when the agent does not start or sends another codec than asked for.
  AgentViewer(const vantelink_test::Desk& desk, const CapturePath& path, const StreamWish& wish);
  ~AgentViewer() override;
  AgentViewer(const AgentViewer&) = delete;
  AgentViewer& operator=(const AgentViewer&) = delete;

  std::vector<pid_t> processes() const override { return processes_; }
  double similarity(const vantelink_test::PngPicture& screen) const override;
  void press_key() override;

 private:
  void start_helper(const CapturePath& path);
  void run(const std::string& codec);
  void take(const vlk::Envelope& envelope, const std::string& codec);
  void decode(const vlk::Envelope& envelope);

  const vantelink_test::Desk& desk_;
  std::string folder_;
  vantelink_test::TestAuthority authority_;
  vantelink_test::ScriptedServer server_{authority_};
  std::vector<pid_t> processes_;  // the agent is the last
  std::mutex connection_mutex_;
  std::unique_ptr<vantelink_test::ServerConnection> connection_;  // guarded by connection_mutex_
  std::optional<vantelink_test::VideoDecoder> decoder_;
  std::uint64_t bytes_ = 0;
  mutable std::mutex mutex_;
  vantelink_test::Picture picture_;  // guarded by mutex_
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace vantelink_bench
