// The records of the audit trail.
#pragma once

#include <string>

namespace vlk::relay {

// One row. Fields that do not apply are empty.
struct AuditRecord {
  std::string event;
  std::string representative;
  std::string agent;
  std::string address;
  std::string detail;
};

// The event of a row whose other fields come from the session that it belongs to.
struct AuditNote {
  std::string event;
  std::string detail;
};

}  // namespace vlk::relay
