// The findings of a check as the command prints them.
#pragma once

#include <string>

#include "relay/program/check/findings.h"

namespace vlk::relay {

// One finding a line.
inline std::string text_of(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings.list()) {
    text += finding.level == Finding::Level::Ok        ? "ok: "
            : finding.level == Finding::Level::Warning ? "warning: "
                                                       : "wrong: ";
    text += finding.text + '\n';
  }
  return text;
}

}  // namespace vlk::relay
