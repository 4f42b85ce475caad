// The statements on the tables of relays, presence and tickets.
#include "relay/storage/cluster/relay_store.h"

#include <algorithm>
#include <charconv>

#include "relay/storage/engine/text_array.h"

namespace vlk::relay {
namespace {

constexpr char kNow[] = "extract(epoch FROM clock_timestamp())::bigint";
// A notification has less than 8,000 bytes; a machine's id has at most 64.
constexpr std::size_t kLongestReport = 7'800;

class Report {
 public:
  Report(Database& database, std::int64_t relay)
      : database_(database), head_(std::to_string(relay)), text_(head_) {}
  void add(char sign, const std::string& id) {
    if (text_.size() + id.size() + 2 > kLongestReport) send();
    text_ += ' ';
    text_ += sign;
    text_ += id;
  }
  void send() {
    if (text_.size() == head_.size()) return;
    Statement(database_, "SELECT pg_notify('vantelink_presence_' || md5(current_schema()), ?)")
        .bind(text_)
        .run();
    text_ = head_;
  }

 private:
  Database& database_;
  const std::string head_;
  std::string text_;
};

void remove_old_tickets(Database& database) {
  Statement(database, ("DELETE FROM tickets WHERE expires_at <= " + std::string(kNow)).c_str()).run();
}

}  // namespace

std::int64_t join_relays(Database& database, const std::string& name, const std::string& address) {
  const std::string now(kNow);
  Statement joined(
      database, ("INSERT INTO relays(name, address, started_at, heard_at) VALUES(?, ?, " + now + ", " + now +
                 ") ON CONFLICT(name) DO UPDATE SET address = excluded.address, draining = 0, "
                 "started_at = excluded.started_at, heard_at = excluded.heard_at RETURNING id")
                    .c_str());
  if (!joined.bind(name).bind(address).step()) throw DatabaseError("The relay cannot join the others.");
  const std::int64_t id = joined.number(0);
  Statement(database, "DELETE FROM presence WHERE relay = ?").bind(id).run();
  return id;
}

// The column `draining` is named only if it changes: each statement that names it is reported to all relays.
bool note_life(Database& database, const RelayRow& relay) {
  const std::string heard = "UPDATE relays SET heard_at = " + std::string(kNow);
  Statement(database, (heard + " WHERE id = ? AND draining = ?").c_str())
      .bind(relay.id)
      .bind(relay.draining)
      .run();
  if (database.changes() > 0) return true;
  Statement(database, (heard + ", draining = ? WHERE id = ?").c_str())
      .bind(relay.draining)
      .bind(relay.id)
      .run();
  return database.changes() > 0;
}

// Relays are looked for first, because a deletion is reported even if it removes nothing.
std::vector<std::string> remove_silent_relays(Database& database, std::int64_t seconds) {
  const std::string silent = " FROM relays WHERE heard_at < " + std::string(kNow) + " - ?::bigint";
  if (!Statement(database, ("SELECT 1" + silent).c_str()).bind(seconds).step()) return {};
  Statement removed(database, ("DELETE" + silent + " RETURNING name").c_str());
  removed.bind(seconds);
  std::vector<std::string> names;
  while (removed.step())
    names.push_back(removed.text(0));
  return names;
}

void leave_relays(Database& database, std::int64_t id) {
  Statement(database, "DELETE FROM relays WHERE id = ?").bind(id).run();
}

std::vector<RelayRow> load_relays(Database& database) {
  Statement query(database, "SELECT id, name, address, draining FROM relays ORDER BY id");
  std::vector<RelayRow> result;
  while (query.step())
    result.push_back({query.number(0), query.text(1), query.text(2), query.number(3) != 0});
  return result;
}

std::vector<PresenceRow> load_presence(Database& database) {
  Statement query(database, "SELECT machine, relay FROM presence");
  std::vector<PresenceRow> result;
  while (query.step())
    result.push_back({query.text(0), query.number(1)});
  return result;
}

void store_presence(Database& database, std::int64_t relay, const std::vector<std::string>& came,
                    const std::vector<std::string>& gone) {
  Report report(database, relay);
  if (!gone.empty()) {
    Statement(database, "DELETE FROM presence WHERE relay = ? AND machine = ANY(?::text[])")
        .bind(relay)
        .bind(text_array(gone))
        .run();
  }
  if (!came.empty()) {
    Statement(database,
              "INSERT INTO presence(machine, relay) SELECT unnest(?::text[]), ? "
              "ON CONFLICT(machine) DO UPDATE SET relay = excluded.relay")
        .bind(text_array(came))
        .bind(relay)
        .run();
  }
  for (const std::string& id : gone)
    report.add('-', id);
  for (const std::string& id : came)
    report.add('+', id);
  report.send();
}

void report_disconnection(Database& database, std::int64_t relay, const std::vector<std::string>& machines) {
  Report report(database, relay);
  for (const std::string& id : machines)
    report.add('!', id);
  report.send();
}

std::optional<PresenceNews> read_presence_news(std::string_view text) {
  PresenceNews news;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, news.relay);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(at - text.data()));
  while (!text.empty()) {
    const std::size_t size = std::min(text.find(' ', 1), text.size());
    if (size < 3 || text[0] != ' ') return std::nullopt;
    auto* const machines = text[1] == '+'   ? &news.came
                           : text[1] == '-' ? &news.gone
                           : text[1] == '!' ? &news.cut
                                            : nullptr;
    if (!machines) return std::nullopt;
    machines->emplace_back(text.substr(2, size - 2));
    text.remove_prefix(size);
  }
  return news;
}

bool add_ticket(Database& database, const Bytes& token_hash, const Ticket& ticket) {
  remove_old_tickets(database);
  Statement valid(database, "SELECT count(*) FROM tickets WHERE login = ?");
  if (valid.bind(ticket.login).step() && valid.number(0) >= kTicketsPerLogin) return false;
  const std::string sql =
      "INSERT INTO tickets(token_hash, relay, login, home, expires_at) VALUES(?, ?, ?, ?, " +
      std::string(kNow) + " + ?::bigint)";
  Statement(database, sql.c_str())
      .bind(token_hash)
      .bind(ticket.relay)
      .bind(ticket.login)
      .bind(ticket.home)
      .bind(kTicketSeconds)
      .run();
  return true;
}

std::optional<Ticket> take_ticket(Database& database, const Bytes& token_hash, std::int64_t relay) {
  remove_old_tickets(database);
  Statement taken(database, "DELETE FROM tickets WHERE token_hash = ? AND relay = ? RETURNING login, home");
  if (!taken.bind(token_hash).bind(relay).step()) return std::nullopt;
  return Ticket{relay, taken.number(0), taken.text(1)};
}

}  // namespace vlk::relay
