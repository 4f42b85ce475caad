// A viewer in Chromium: a node program of its own shows the picture and reports each display of the page.
#pragma once

#include <cstdio>
#include <optional>
#include <thread>

#include "viewers/agent_process.h"
#include "viewers/peer_process.h"
#include "viewers/viewer.h"

namespace vantelink_bench {

// Runs browser/viewer.mjs. Its lines are read on a thread.
class BrowserViewer : public Viewer {
 public:
  ~BrowserViewer() override;
  BrowserViewer(const BrowserViewer&) = delete;
  BrowserViewer& operator=(const BrowserViewer&) = delete;

  double similarity(const vantelink_test::PngPicture& screen) const override;
  void press_key() override { command("key"); }

 protected:
  // The relay that the program has started.
  struct RelayReady {
    unsigned short port = 0;
    pid_t process = 0;
    std::string certificate{};  // a path
  };

  BrowserViewer() = default;
  // Starts the program with these arguments; called once. Throws std::runtime_error if it cannot be started.
  void start(std::vector<std::string> arguments);
  RelayReady wait_for_relay() const;

 private:
  void run();
  void take(const std::string& line);
  void command(const std::string& line) const;

  std::string saved_picture_;  // a path
  pid_t process_ = -1;
  int commands_ = -1;           // the program's standard input
  std::FILE* lines_ = nullptr;  // its standard output
  mutable std::mutex mutex_;
  std::optional<RelayReady> ready_;  // guarded by mutex_
  int saved_ = 0;                    // how many pictures have been saved; guarded by mutex_
  std::thread thread_;
};

// The shipped executable, a relay and its console, all with their defaults.
class ConsoleViewer : public BrowserViewer {
 public:
  ConsoleViewer(const vantelink_test::Desk& desk, const CapturePath& path);
  std::vector<pid_t> processes() const override;

 private:
  AgentProcess agent_;
  pid_t relay_ = 0;
};

// Another program, and the distribution's noVNC.
class PeerPageViewer : public BrowserViewer {
 public:
  PeerPageViewer(const std::string& display, const Peer& peer);
  std::vector<pid_t> processes() const override { return {process_.id()}; }

 private:
  PeerProcess process_;
};

}  // namespace vantelink_bench
