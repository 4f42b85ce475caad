// Reads the query of a request for the trail, and builds the reply.
#include "relay/http/trail_routes.h"

#include <array>
#include <charconv>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/storage/trail/chain.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

constexpr char kRetryAfter[] = "1";  // seconds

std::optional<unsigned> hex_digit(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return std::nullopt;
}

// The text of a query's value; nothing if an escape is wrong.
std::optional<std::string> decoded(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i] == '+' ? ' ' : text[i];
      continue;
    }
    if (i + 2 >= text.size()) return std::nullopt;
    const auto high = hex_digit(text[i + 1]);
    const auto low = hex_digit(text[i + 2]);
    if (!high || !low) return std::nullopt;
    result += static_cast<char>(*high << 4 | *low);
    i += 2;
  }
  return result;
}

std::optional<std::int64_t> number_of(const std::string& text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < 0 || number > (std::int64_t{1} << 53))
    return std::nullopt;
  return number;
}

// Stores one value of the query. Returns false if it is wrong.
bool store(TrailQuery& query, std::string_view name, const std::string& value) {
  TrailFilter& filter = query.filter;
  if (name == "person") filter.person = value;
  if (name == "machine") filter.machine = value;
  if (name == "kind") filter.kind = value;
  if (name == "text") filter.text = value;
  if (name == "format") query.format = value;
  if (name != "from" && name != "to" && name != "before" && name != "limit") return true;
  const auto number = number_of(value);
  if (!number) return false;
  if (name == "from") filter.from_ms = *number;
  if (name == "to") filter.to_ms = *number;
  if (name == "before") query.before = *number;
  if (name == "limit") query.limit = static_cast<std::size_t>(*number);
  return name != "limit" || (*number >= 1 && *number <= static_cast<std::int64_t>(kLargestPage));
}

nlohmann::ordered_json json_of(const TrailRow& row) {
  const TrailSubject& subject = row.entry.subject;
  nlohmann::ordered_json json = {{"id", row.id},
                                 {"time", row.entry.time_ms},
                                 {"code", row.entry.code},
                                 {"actor", subject.actor},
                                 {"machine", subject.machine},
                                 {"address", subject.address},
                                 {"session", nullptr},
                                 {"fields", nlohmann::ordered_json::parse(row.entry.fields, nullptr, false)}};
  if (subject.session) json["session"] = *subject.session;
  return json;
}

Reply busy_reply(const Request& request, const char* sentence) {
  Reply reply = error_reply(request, HttpStatus::service_unavailable, sentence);
  reply.set(http::field::retry_after, kRetryAfter);
  return reply;
}

// The filter as a text for the row about an export.
std::string description(std::string_view target) {
  const std::size_t begin = target.find('?');
  return begin == std::string_view::npos ? std::string() : std::string(target.substr(begin + 1));
}

}  // namespace

TrailQuery read_trail_query(std::string_view target) {
  TrailQuery query;
  std::string_view rest = target.substr(std::min(target.find('?'), target.size()));
  while (!rest.empty()) {
    rest.remove_prefix(1);
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(pair.size());
    const std::size_t equals = pair.find('=');
    const auto value = decoded(equals == std::string_view::npos ? "" : pair.substr(equals + 1));
    if (!value) query.fault = "The query has a wrong escape.";
    // An empty field of a form is no filter.
    if (!value || value->empty()) continue;
    const std::string_view name = pair.substr(0, equals);
    if (!store(query, name, *value)) query.fault = "The value of \"" + std::string(name) + "\" is wrong.";
  }
  if (query.fault.empty()) query.fault = filter_fault(query.filter);
  return query;
}

asio::awaitable<Reply> TrailRoutes::page(const Request& request) {
  const TrailQuery query = read_trail_query(request.target());
  if (!query.fault.empty()) co_return error_reply(request, HttpStatus::bad_request, query.fault);
  TrailPage page;
  try {
    page = co_await reader_.page(query.filter, query.before, query.limit);
  } catch (const TrailBusy& busy) {
    co_return busy_reply(request, busy.what());
  }
  nlohmann::ordered_json body = {
      {"rows", nlohmann::ordered_json::array()}, {"more", page.next != 0}, {"next", page.next}};
  for (const TrailRow& row : page.rows) {
    auto json = json_of(row);
    if (const MachineRecord* machine = machines_.find(row.entry.subject.machine))
      json["machine_name"] = machine->name;
    body["rows"].push_back(std::move(json));
  }
  co_return make_reply(request, HttpStatus::ok, "application/json",
                       body.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

asio::awaitable<Reply> TrailRoutes::begin_export(const Request& request, const std::string& person,
                                                 const std::string& address) {
  const TrailQuery query = read_trail_query(request.target());
  if (!query.fault.empty()) co_return error_reply(request, HttpStatus::bad_request, query.fault);
  const auto format = trail_format(query.format);
  if (!format) co_return error_reply(request, HttpStatus::bad_request, "The format is csv or jsonl.");
  const auto row = trail_entry<TrailKind::TrailExported>({.actor = person, .address = address}, query.format,
                                                         description(request.target()));
  std::shared_ptr<TrailExport> made;
  try {
    const auto append = [row](Store& stored) { append_trail(stored.database(), std::span(&row, 1)); };
    co_await database_.run(append);
    made = co_await reader_.begin_export(*format, query.filter);
  } catch (const TrailBusy& busy) {
    co_return busy_reply(request, busy.what());
  }
  const bool csv = *format == TrailFormat::Csv;
  Reply reply =
      make_reply(request, HttpStatus::ok, csv ? "text/csv; charset=utf-8" : "application/jsonl", {});
  reply.set(http::field::content_disposition,
            std::string("attachment; filename=\"trail.") + (csv ? "csv" : "jsonl") + '"');
  reply.body().pieces = [this, made]() { return reader_.next_piece(made); };
  reply.content_length(boost::none);
  reply.chunked(true);
  co_return reply;
}

}  // namespace vlk::relay
