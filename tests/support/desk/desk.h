// A desk for a test: a private virtual Windows desktop that ends with the object, and with the test's
// process.
#pragma once

#include <string>
#include <vector>

namespace vantelink_test {

class Desk {
 public:
  enum class Kind {
    VirtualDesktop,    // Wine's own, with its taskbar
    NotificationArea,  // windows of X under a window manager, beside a notification area
  };
  // Throws std::runtime_error when there is none to be had.
  explicit Desk(Kind kind = Kind::VirtualDesktop);
  ~Desk();
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  // Runs a Windows program to its end; its exit status. `environment` holds NAME=VALUE texts.
  int exec(const std::vector<std::string>& program, const std::vector<std::string>& environment = {}) const;
  // Starts one; its process id on this host.
  int spawn(const std::vector<std::string>& program, const std::vector<std::string>& environment = {}) const;
  // Runs one that must succeed; what it printed.
  std::string output(const std::vector<std::string>& program) const;
  // Runs a command of the host, xdotool for instance, on the desk's display; what it printed.
  std::string host(const std::string& command) const;
  void shot(const std::string& file) const;  // a picture of the whole desktop, PNG

  // Sets a registry value of the agent's key.
  void set(const std::string& name, const std::string& type, const std::string& data) const;
  // The agent's key as `reg query` prints it.
  std::string settings() const;
  // What the debug log holds so far, with plain line feeds.
  std::string debug_log() const;

  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
};

// Runs a shell command; its output without the last line feed. Throws when it fails.
std::string run(const std::string& command);

}  // namespace vantelink_test
