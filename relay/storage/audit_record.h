// The records of the audit trail.
#pragma once

#include <string>

namespace vlk::relay {

// One row of the audit trail. Fields that do not apply are empty.
struct AuditRecord {
  std::string event;
  std::string representative;
  std::string agent;
  std::string address;
  std::string detail;
};

// A row about a session, without the fields that are copied from the session.
struct AuditNote {
  std::string event;
  std::string detail;
};

}  // namespace vlk::relay
