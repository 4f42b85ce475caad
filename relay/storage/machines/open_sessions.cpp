// Finds the sessions in the trail that have a beginning and no end.
#include "relay/storage/machines/open_sessions.h"

#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/tables.h"

namespace vlk::relay {
namespace {

constexpr std::string_view kStarted = rule_of(TrailKind::RelayStarted).code;
constexpr std::string_view kAsked = rule_of(TrailKind::SessionAsked).code;
constexpr std::string_view kAnswered = rule_of(TrailKind::SessionAnswered).code;
constexpr std::string_view kEnded = rule_of(TrailKind::SessionEnded).code;

// An engine may hold all rows of a result in memory.
constexpr int kRowsAtOnce = 500;

// The condition for rows of one relay.
std::string of_relay(Database& database) {
  return "coalesce(" + field_text(database.dialect(), "relay") + ", '') = ?";
}

// The sessions of earlier runs have ended: each start of the relay has written their ends.
std::int64_t start_of_last_run(Database& database, const std::string& relay) {
  const std::string sql = "SELECT coalesce(max(id), 0) FROM trail WHERE code = ? AND " + of_relay(database);
  Statement query(database, sql.c_str());
  query.bind(kStarted).bind(relay).step();
  return query.number(0);
}

// The row that the relay writes when it withdraws a request is not an answer.
bool has_answer(Database& database, std::int64_t session, std::int64_t asked_id) {
  const std::string sql = "SELECT 1 FROM trail WHERE code = ? AND id > ? AND session = ? AND " +
                          field_text(database.dialect(), "answer") + " <> 'none'";
  Statement query(database, sql.c_str());
  return query.bind(kAnswered).bind(asked_id).bind(session).step();
}

}  // namespace

std::vector<OpenQuestion> open_questions(Database& database, std::int64_t since) {
  std::vector<OpenQuestion> open;
  std::int64_t before = std::numeric_limits<std::int64_t>::max();
  for (bool more = true; more;) {
    more = false;
    Statement asked(database,
                    "SELECT id, time, machine, session FROM trail WHERE code = ? AND id < ? "
                    "ORDER BY id DESC LIMIT ?");
    asked.bind(kAsked).bind(before).bind(kRowsAtOnce);
    while (asked.step() && asked.number(1) >= since) {
      more = true;
      before = asked.number(0);
      const std::int64_t session = asked.number(3);
      if (!has_answer(database, session, before))
        open.push_back({asked.text(2), static_cast<std::uint32_t>(session)});
    }
  }
  return open;
}

void end_open_sessions(Database& database, const std::string& relay) {
  const std::int64_t start = start_of_last_run(database, relay);
  std::map<std::int64_t, TrailSubject> open;  // by the session's number
  const std::string sql =
      "SELECT session, actor, machine, address FROM trail WHERE code = ? AND id > ? AND " +
      of_relay(database) + " ORDER BY id";
  Statement asked(database, sql.c_str());
  asked.bind(kAsked).bind(start).bind(relay);
  while (asked.step()) {
    const std::int64_t number = asked.number(0);
    open[number] = {asked.text(1), asked.text(2), asked.text(3), static_cast<std::uint32_t>(number)};
  }
  Statement ended(database, "SELECT session FROM trail WHERE code = ? AND id > ?");
  ended.bind(kEnded).bind(start);
  while (ended.step())
    open.erase(ended.number(0));
  std::vector<TrailEntry> rows;
  rows.reserve(open.size());
  for (auto& entry : open)
    rows.push_back(trail_entry<TrailKind::SessionEnded>(std::move(entry.second), "relay-died", std::nullopt));
  append_trail(database, rows);
}

}  // namespace vlk::relay
