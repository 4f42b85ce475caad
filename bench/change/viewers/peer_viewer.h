// Another program that sends the screen of an X display, and a viewer of the library libvncclient.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "viewers/peer_process.h"
#include "viewers/viewer.h"

struct _rfbClient;

namespace vantelink_bench {

class PeerViewer : public Viewer {
 public:
  // Starts the program on the display, and asks it for changes without pause, with the library's defaults of
  // quality and compression. Throws std::runtime_error when no connection is made.
  PeerViewer(const std::string& display, const Peer& peer);
  ~PeerViewer() override;
  PeerViewer(const PeerViewer&) = delete;
  PeerViewer& operator=(const PeerViewer&) = delete;

  std::vector<pid_t> processes() const override { return {process_.id()}; }
  double similarity(const vantelink_test::PngPicture& screen) const override;
  void press_key() override;

 private:
  void connect(unsigned short port);
  void run();
  static void on_update(_rfbClient* client);

  PeerProcess process_;
  _rfbClient* client_ = nullptr;
  mutable std::mutex mutex_;  // guards the client's picture
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace vantelink_bench
