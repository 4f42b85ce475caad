// What the handlers of the console's JSON requests share.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/awaitable.hpp>
#include <nlohmann/json.hpp>

#include "relay/admission/admission.h"
#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/http/api/attempts.h"
#include "relay/http/api/password_work.h"
#include "relay/http/replies.h"
#include "relay/http/updates/updates.h"
#include "relay/session/parts.h"
#include "relay/storage/trail/chain.h"

namespace vlk::relay {

using Json = nlohmann::json;
using JsonReply = boost::asio::awaitable<Json>;

// Because of the prefix, browsers accept the cookie only from this host itself, over TLS and for all paths.
inline constexpr char kLoginCookie[] = "__Host-vantelink_session";

// A request that is refused, with a sentence for the person.
struct ApiError : std::runtime_error {
  ApiError(HttpStatus status_, const std::string& sentence, std::string code_ = {}, int retry_after_ = 0)
      : std::runtime_error(sentence), status(status_), code(std::move(code_)), retry_after(retry_after_) {}
  HttpStatus status;
  std::string code;     // for the console's code, or empty
  int retry_after = 0;  // seconds, or 0
};

// The person whose log-in a request belongs to.
struct Caller {
  PersonId person = 0;
  std::string name{};
  Role role = Role::Representative;
  LoginStage stage = LoginStage::Full;
  Bytes token_hash{};
};

// One request while it is handled.
struct Call {
  const Request& request;
  std::string peer;                     // the browser's address with port
  std::string source;                   // its address without the port
  Json body{};                          // an object, or null
  std::string key{};                    // what stands for {} in the endpoint's path
  Caller caller{};                      // set unless the endpoint needs no log-in
  std::optional<std::string> cookie{};  // the Set-Cookie header of the reply

  [[nodiscard]] TrailSubject subject() const { return {.actor = caller.name, .address = peer}; }
};

// Used on the relay's one thread.
struct Api {
  Parts& parts;
  Admission& admission;
  const Updates& updates;
  const Log& log;
  const Limits& limits;
  Attempts attempts;
  PasswordWork passwords{};
  // Used to verify passwords for unknown names, so that the time taken does not show which names exist.
  std::string no_user_hash;
  std::function<Json()> status{};  // returns the relay's status; may be null
  // Secrets that were shown but not confirmed by a code yet, by the hash of the log-in's token.
  std::map<Bytes, Bytes> pending_totp{};
};

// Members of the request's body. A text that is missing is empty; the others throw ApiError.
[[nodiscard]] std::string text_in(const Json& body, const char* key);
[[nodiscard]] std::vector<std::int64_t> ids_in(const Json& body, const char* key);
[[nodiscard]] bool flag_in(const Json& body, const char* key, bool otherwise);
[[nodiscard]] std::int64_t number_in(const Json& body, const char* key, std::int64_t least,
                                     std::int64_t most);
// The name of a new person, team or group in the body. Throws ApiError if it is not valid.
[[nodiscard]] std::string name_in(const Json& body);
// The number in the request's path. Throws ApiError if it is not one.
[[nodiscard]] std::int64_t id_of(const Call& call);
[[noreturn]] void not_found();

// Runs `work(Database&)`, writes the rows to the trail, and applies what changed, all or nothing. Throws
// ApiError if no administrator would be left, and what `work` throws.
template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&, Database&>> change(Api& api, Work work,
                                                                      std::vector<TrailEntry> rows);
// The same with one row.
template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&, Database&>> change(Api& api, Work work,
                                                                      const TrailEntry& row) {
  return change(api, std::move(work), std::vector<TrailEntry>(1, row));
}
void require_administrator(const People::Contents& contents);

// Hashes a password in its turn. Throws ApiError if the queue is full.
[[nodiscard]] boost::asio::awaitable<std::string> hashed(Api& api, const Call& call, std::string password);
// Throws ApiError unless the password is that of the person. `person` is null for an unknown name.
[[nodiscard]] boost::asio::awaitable<void> check_password(Api& api, const Call& call, const std::string& name,
                                                          std::string hash, std::string password);
// Throws ApiError unless the code is the person's TOTP code or an unused backup code, which it uses up.
[[nodiscard]] boost::asio::awaitable<void> check_code(Api& api, const Call& call, PersonId person,
                                                      std::string code);

template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&, Database&>> change(Api& api, Work work,
                                                                      std::vector<TrailEntry> rows) {
  using Result = std::invoke_result_t<Work&, Database&>;
  const auto finish = [rows](Database& database) {
    append_trail(database, rows);
    auto contents = People::load(database);
    require_administrator(contents);
    return contents;
  };
  if constexpr (std::is_void_v<Result>) {
    const auto job = [work, finish](Store& store) {
      work(store.database());
      return finish(store.database());
    };
    auto contents = co_await api.parts.database.run(job);
    api.parts.people.replace(std::move(contents));
  } else {
    const auto job = [work, finish](Store& store) {
      Result result = work(store.database());
      return std::pair(std::move(result), finish(store.database()));
    };
    auto stored = co_await api.parts.database.run(job);
    api.parts.people.replace(std::move(stored.second));
    co_return std::move(stored.first);
  }
}

}  // namespace vlk::relay
