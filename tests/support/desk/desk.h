// A desk: a private virtual display with a private Wine prefix, on which a test runs Windows programs. It
// ends on destruction, and at the latest when the test's process ends.
#pragma once

#include <string>
#include <vector>

namespace vantelink_test {

class Desk {
 public:
  enum class Kind {
    VirtualDesktop,    // Wine's virtual desktop with its taskbar
    NotificationArea,  // X windows under a window manager, and a notification area
  };
  // Throws std::runtime_error when the desk cannot be started.
  explicit Desk(Kind kind = Kind::VirtualDesktop);
  ~Desk();
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  // Runs a Windows program to its end and returns its exit status. `environment` holds NAME=VALUE texts.
  [[nodiscard]] int exec(const std::vector<std::string>& program,
                         const std::vector<std::string>& environment = {}) const;
  // Starts a Windows program and returns its process id on this host.
  int spawn(const std::vector<std::string>& program, const std::vector<std::string>& environment = {}) const;
  // Runs a Windows program and returns its output; throws std::runtime_error when it fails.
  std::string output(const std::vector<std::string>& program) const;
  // Runs a shell command of this host, for instance xdotool, with the desk's display and prefix in its
  // environment, and returns its output; throws std::runtime_error when it fails.
  std::string host(const std::string& command) const;
  void screenshot(const std::string& file) const;  // saves the whole display as PNG

  // Sets a value of the agent's registry key.
  void set(const std::string& name, const std::string& type, const std::string& data) const;
  // The agent's registry key as `reg query` prints it; empty when there is no such key.
  std::string settings() const;
  // The agent's debug log so far, with lines that end in a plain line feed.
  std::string debug_log() const;

  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
};

// A path of this host as programs under Wine see it: drive Z and backslashes.
std::string wine_path(std::string path);

// Runs a shell command and returns its output without the last line feed; throws std::runtime_error when it
// fails.
std::string run(const std::string& command);

}  // namespace vantelink_test
