// The shipped executable on a desk, and a viewer that is its server.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include "e2e/support/video.h"
#include "support/peers/scripted_server.h"
#include "viewers/agent_process.h"
#include "viewers/viewer.h"

namespace vantelink_bench {

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

  std::vector<pid_t> processes() const override { return agent_.processes(); }
  double similarity(const vantelink_test::PngPicture& screen) const override;
  void press_key() override;

 private:
  void run(const std::string& codec);
  void take(const vlk::Envelope& envelope, const std::string& codec);
  void decode(const vlk::Envelope& envelope);

  vantelink_test::TestAuthority authority_;
  vantelink_test::ScriptedServer server_{authority_};
  AgentProcess agent_;
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
