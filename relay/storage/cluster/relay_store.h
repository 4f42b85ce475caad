// The relays that share a database, which machine is connected to which of them, and the tickets with which a
// browser moves from one to another.
//
// Several relays need a PostgreSQL server. Times are those of its clock, in seconds since 1970, so the clocks
// of the relays need not agree.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/storage/database.h"

namespace vlk::relay {

struct RelayRow {
  std::int64_t id = 0;
  std::string name{};
  std::string address{};  // where browsers reach it: https://HOST:PORT
  bool draining = false;  // machines and browsers are moved away from it
};

// All functions are to be called inside a transaction and throw DatabaseError.

// Adds the relay, or takes its row over from an earlier run with the same name, of which no machine is
// connected any more. Returns its id.
[[nodiscard]] std::int64_t join_relays(Database& database, const std::string& name,
                                       const std::string& address);
// Notes that the relay lives. Returns false if others have taken it for dead and removed it.
[[nodiscard]] bool note_life(Database& database, const RelayRow& relay);
// Removes the relays that have not noted their life for so long, with all that was said of their machines.
// Returns their names.
std::vector<std::string> remove_silent_relays(Database& database, std::int64_t seconds);
void leave_relays(Database& database, std::int64_t id);
[[nodiscard]] std::vector<RelayRow> load_relays(Database& database);

// Which relay a machine is connected to.
struct PresenceRow {
  std::string machine{};
  std::int64_t relay = 0;
};
[[nodiscard]] std::vector<PresenceRow> load_presence(Database& database);
// Stores that machines are connected to the relay, or are not any more, and reports both to the other relays.
// A machine that has connected to another relay meanwhile stays with that one.
void store_presence(Database& database, std::int64_t relay, const std::vector<std::string>& came,
                    const std::vector<std::string>& gone);

// Asks the other relays to cut the connections of machines.
void report_disconnection(Database& database, std::int64_t relay, const std::vector<std::string>& machines);

// What store_presence() and report_disconnection() report: the relay's id, and the ids of machines. Nothing
// for another text.
struct PresenceNews {
  std::int64_t relay = 0;
  std::vector<std::string> came{};
  std::vector<std::string> gone{};
  std::vector<std::string> cut{};
};
[[nodiscard]] std::optional<PresenceNews> read_presence_news(std::string_view text);

// Lets a browser continue at another relay with its log-in. Used once, within kTicketSeconds.
struct Ticket {
  std::int64_t relay = 0;  // where it is valid
  std::int64_t login = 0;  // id of the log-in whose owner it lets in
  std::string home{};      // the origin of the page that asked for it
};
inline constexpr std::int64_t kTicketSeconds = 20;
// At most so many tickets of a log-in are valid at a time.
inline constexpr std::int64_t kTicketsPerLogin = 10;
// Removes the tickets that nobody used in time. Returns false if the log-in has too many.
[[nodiscard]] bool add_ticket(Database& database, const Bytes& token_hash, const Ticket& ticket);
// Removes the ticket, and those that nobody used in time. Returns it if it is valid for this relay.
[[nodiscard]] std::optional<Ticket> take_ticket(Database& database, const Bytes& token_hash,
                                                std::int64_t relay);

}  // namespace vlk::relay
