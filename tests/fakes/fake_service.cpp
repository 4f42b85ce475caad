// The console session's process, and the machine's restart, without a system behind them.
#include "fakes/fakes.h"
#include "system/reboot.h"
#include "system/session_launcher.h"

namespace vlk::agent {

using vantelink_fakes::note;
using vantelink_fakes::script;

bool reboot_machine() {
  note("reboot_machine");
  return script().simulate_reboot;
}

void ProcessCloser::operator()(void* process) const {
  note("close " + *static_cast<std::string*>(process));
  delete static_cast<std::string*>(process);
}

std::uint32_t active_console_session() {
  return script().console_session ? script().console_session() : 1;
}

UniqueProcess launch_in_console_session() {
  std::string name = script().launch ? script().launch() : "child";
  note(name.empty() ? "launch failed" : "launch " + name);
  return UniqueProcess(name.empty() ? nullptr : new std::string(std::move(name)));
}

void terminate_process(void* process) {
  note("terminate " + *static_cast<std::string*>(process));
}

Wake wait_for_stop_or_child(void* stop_event, void* child, std::uint32_t timeout_ms) {
  note("wait " + *static_cast<std::string*>(stop_event) +
       (child != nullptr ? " or " + *static_cast<std::string*>(child) : "") + ' ' +
       std::to_string(timeout_ms));
  return script().wait ? script().wait() : Wake::Stop;
}

}  // namespace vlk::agent
