// Checks the console's folder, the updates and the trail's log.
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include <boost/asio/io_context.hpp>
#include <nlohmann/json.hpp>

#include "relay/base/log.h"
#include "relay/http/console/console_files.h"
#include "relay/http/updates/updates.h"
#include "relay/program/check/checks.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

void check_console(const Options& options, Findings& findings) {
  if (options.console.empty()) return;
  try {
    (void)console_files_in(options.console);
    findings.ok("the console's folder " + options.console + " can be read");
  } catch (const std::runtime_error& failure) {
    findings.wrong(failure.what());
  }
}

void check_updates(const Options& options, Findings& findings) {
  try {
    boost::asio::io_context context;
    const Log log([](std::string_view) {});
    const Updates updates({.folder = options.updates, .key = options.update_key}, context.get_executor(),
                          log);
    const nlohmann::json report = updates.report();
    if (report["problem"].is_string()) {
      findings.warning("no update is offered to agents: " + report["problem"].get<std::string>());
    } else if (!report["offered"].empty()) {
      findings.ok("version " + report["offered"][0]["version"].get<std::string>() + " is offered to agents");
    } else {
      findings.ok("there is no update for agents in " + options.updates);
    }
  } catch (const std::runtime_error& failure) {
    findings.wrong(failure.what());
  }
}

void check_trail_log(const Options& options, Findings& findings) {
  if (options.trail_log.empty()) return;
  const fs::path file = fs::absolute(options.trail_log);
  std::error_code error;
  const bool writable = ::access(file.parent_path().c_str(), W_OK | X_OK) == 0 &&
                        (!fs::exists(file, error) || ::access(file.c_str(), W_OK) == 0);
  if (writable) return findings.ok("the trail's log " + file.string() + " can be written");
  findings.wrong("the trail's log " + file.string() +
                 " cannot be written; let the relay's user write its folder, or check --trail-log");
}

}  // namespace

void check_folders(const Options& options, Findings& findings) {
  check_console(options, findings);
  check_updates(options, findings);
  check_trail_log(options, findings);
}

}  // namespace vlk::relay
