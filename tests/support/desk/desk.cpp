// Runs tools/desk for each operation.
#include "support/desk/desk.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace vantelink_test {
namespace {

constexpr char kAgentKey[] = "HKCU\\Software\\Maravek\\Vantelink";

std::string quoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text)
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + "'";
}

std::string tool(const std::string& verb) {
  return quoted(VANTELINK_SOURCE_DIR "/tools/desk") + ' ' + verb + ' ';
}

std::string joined(const std::vector<std::string>& words, const std::string& prefix = {}) {
  std::string text;
  for (const std::string& word : words)
    text += prefix + quoted(word) + ' ';
  return text;
}

}  // namespace

std::string wine_path(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return "Z:" + path;
}

std::string run(const std::string& command) {
  std::FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 4096> buffer;
  while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    output.append(buffer.data(), count);
  }
  if (const int status = ::pclose(pipe); status != 0) {
    throw std::runtime_error(command + " ended with status " + std::to_string(WEXITSTATUS(status)) + ": " +
                             output);
  }
  if (!output.empty() && output.back() == '\n') output.pop_back();
  return output;
}

Desk::Desk(Kind kind)
    : folder_(run(tool("start --owner " + std::to_string(::getpid())) +
                  (kind == Kind::NotificationArea ? " --tray" : ""))) {}

Desk::~Desk() {
  (void)std::system((tool("stop") + quoted(folder_)).c_str());
}

int Desk::exec(const std::vector<std::string>& program, const std::vector<std::string>& environment) const {
  const std::string command =
      tool("exec") + joined(environment, "--env ") + quoted(folder_) + ' ' + joined(program);
  const int status = std::system((command + " > " + quoted(folder_ + "/exec.out") + " 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int Desk::spawn(const std::vector<std::string>& program, const std::vector<std::string>& environment) const {
  return std::atoi(
      run(tool("spawn") + joined(environment, "--env ") + quoted(folder_) + ' ' + joined(program)).c_str());
}

std::string Desk::output(const std::vector<std::string>& program) const {
  return run(tool("exec") + quoted(folder_) + ' ' + joined(program));
}

std::string Desk::host(const std::string& command) const {
  return run(". " + quoted(folder_ + "/env") + "; " + command);
}

void Desk::screenshot(const std::string& file) const {
  run(tool("shot") + quoted(folder_) + ' ' + quoted(file));
}

void Desk::set(const std::string& name, const std::string& type, const std::string& data) const {
  if (exec({"reg", "add", kAgentKey, "/v", name, "/t", type, "/d", data, "/f"}) != 0) {
    throw std::runtime_error("cannot set the registry value " + name);
  }
}

std::string Desk::settings() const {
  return run(tool("exec") + quoted(folder_) + ' ' + joined({"reg", "query", kAgentKey}) +
             " 2>/dev/null || true");
}

std::string Desk::debug_log() const {
  // The carriage returns at the line ends are removed.
  return run("cat " + quoted(folder_) +
             "/prefix/drive_c/users/*/Temp/vlkagent.log 2>/dev/null | tr -d '\\r'") +
         '\n';
}

}  // namespace vantelink_test
