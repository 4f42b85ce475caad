// Starts the agent and the helper of its way of capturing.
#include "viewers/agent_process.h"

#include <signal.h>

#include <filesystem>
#include <stdexcept>

#include "e2e/support/agent_fixture.h"

namespace vantelink_bench {
namespace {

namespace fs = std::filesystem;
using namespace vantelink_test;

constexpr char kSettings[] = "HKCU\\Software\\Maravek\\Vantelink";

std::string filled(std::string text, const std::string& folder) {
  for (const auto& [name, value] :
       {std::pair<std::string, std::string>{"{folder}", folder}, {"{windows-folder}", wine_path(folder)}}) {
    for (std::size_t at = 0; (at = text.find(name)) != std::string::npos;)
      text.replace(at, name.size(), value);
  }
  return text;
}

}  // namespace

AgentProcess::AgentProcess(const Desk& desk, const CapturePath& path)
    : desk_(desk), path_(path), folder_(desk.folder() + "/agent") {
  fs::remove_all(folder_);
  fs::create_directories(folder_);
  fs::copy_file(kAgent, folder_ + "/VantelinkAgent.exe");
  for (const std::string& file : path.files) {
    const fs::path from = fs::path(VANTELINK_SOURCE_DIR) / file;
    fs::copy_file(from, fs::path(folder_) / from.filename());
  }
  // A new machine, which asks nobody about a session.
  (void)desk.exec({"reg", "delete", kSettings, "/f"});
  if (desk.exec({"reg", "add", kSettings, "/v", "Unattended", "/t", "REG_DWORD", "/d", "1", "/f"}) != 0)
    throw std::runtime_error("the agent's settings cannot be written");
  if (!path.helper.empty()) start_helper();
}

AgentProcess::~AgentProcess() {
  for (const pid_t process : processes_)
    ::kill(process, SIGKILL);
}

void AgentProcess::start(unsigned short port, const std::string& authority) {
  std::vector<std::string> environment = {"SSL_CERT_FILE=" + authority};
  for (const std::string& variable : path_.environment)
    environment.push_back(filled(variable, folder_));
  processes_.push_back(desk_.spawn({folder_ + "/VantelinkAgent.exe", "--host", "localhost", "--port",
                                    std::to_string(port), "--unattended"},
                                   environment));
}

void AgentProcess::start_helper() {
  std::string command = "'" VANTELINK_SOURCE_DIR "/";
  for (const std::string& word : path_.helper)
    command += filled(word, folder_) + "' '";
  command.pop_back();
  const std::string output = folder_ + "/helper.out";
  processes_.push_back(std::stoi(
      desk_.host(command + "> '" + output + "' 2> '" + folder_ + "/helper.err' < /dev/null & echo $!")));
  // The shell makes the file a little later.
  if (!eventually([&] { return fs::exists(output) && fs::file_size(output) > 0; }))
    throw std::runtime_error(path_.helper[0] + " does not become ready");
}

}  // namespace vantelink_bench
