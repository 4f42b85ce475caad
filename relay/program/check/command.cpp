// Makes all checks and prints what they found.
#include "relay/program/check/command.h"

#include <ostream>

#include "relay/program/check/checks.h"

namespace vlk::relay {
namespace {

const char* word_of(Finding::Level level) {
  switch (level) {
    case Finding::Level::Ok:
      return "ok: ";
    case Finding::Level::Warning:
      return "warning: ";
    default:
      return "wrong: ";
  }
}

}  // namespace

int check_command(const Options& options, std::ostream& out) {
  Findings findings;
  check_environment(findings);
  check_data_folder(options, findings);
  check_database(options, findings);
  check_certificate(options, findings);
  check_names(options, findings);
  check_port(options, findings);
  check_descriptors(options, findings);
  check_disk(options, findings);
  check_clock(findings);
  check_folders(options, findings);
  bool wrong = false;
  for (const Finding& finding : findings.list()) {
    out << word_of(finding.level) << finding.text << '\n';
    wrong = wrong || finding.level == Finding::Level::Wrong;
  }
  return wrong ? 1 : 0;
}

}  // namespace vlk::relay
