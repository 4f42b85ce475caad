// Fakes of the console session's process and of the machine's restart.
#include "fakes/fakes.h"
#include "system/reboot.h"
#include "system/session_launcher.h"

namespace vlk::agent {

struct ChildProcess {
  std::string name;
};

using vantelink_fakes::note;
using vantelink_fakes::script;

bool reboot_machine() {
  note("reboot_machine");
  return script().simulate_reboot;
}

void ChildProcessDeleter::operator()(ChildProcess* process) const {
  note("close " + process->name);
  delete process;
}

std::uint32_t active_console_session() {
  return script().console_session ? script().console_session() : 1;
}

UniqueProcess launch_in_console_session() {
  std::string name = script().launch ? script().launch() : "child";
  note(name.empty() ? "launch failed" : "launch " + name);
  return UniqueProcess(name.empty() ? nullptr : new ChildProcess{std::move(name)});
}

void terminate_process(ChildProcess& process) {
  note("terminate " + process.name);
}

WaitResult wait_for_stop_or_child(StopEvent& stop_event, ChildProcess* child, std::uint32_t timeout_ms) {
  note("wait " + stop_event.name + (child != nullptr ? " or " + child->name : "") + ' ' +
       std::to_string(timeout_ms));
  return script().wait ? script().wait() : WaitResult::Stop;
}

}  // namespace vlk::agent
