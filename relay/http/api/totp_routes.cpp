// One-time codes: set up, confirm, remove.
#include "relay/http/api/handlers.h"
#include "relay/people/qr.h"
#include "relay/people/totp.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kMostPending = 1000;

const Person& person_of(const Api& api, const Call& call) {
  const Person* person = api.parts.people.person(call.caller.person);
  if (!person || person->disabled) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  return *person;
}

}  // namespace

JsonReply begin_totp(Api& api, Call& call) {
  if (!person_of(api, call).totp_secret.empty())
    throw ApiError(HttpStatus::conflict, "Codes are in use already; remove them first.");
  const Bytes secret = new_totp_secret();
  std::erase_if(api.pending_totp,
                [&](const auto& entry) { return !api.parts.logins.find(entry.first, wall_seconds()); });
  if (api.pending_totp.size() >= kMostPending) api.pending_totp.erase(api.pending_totp.begin());
  api.pending_totp[call.caller.token_hash] = secret;
  const std::string uri = totp_uri(secret, call.caller.name);
  co_return Json{{"secret", totp_secret_text(secret)}, {"uri", uri}, {"qr", qr_svg(uri)}};
}

JsonReply confirm_totp(Api& api, Call& call) {
  const auto pending = api.pending_totp.find(call.caller.token_hash);
  if (pending == api.pending_totp.end()) throw ApiError(HttpStatus::conflict, "Ask for a new QR code first.");
  const Bytes secret = pending->second;
  const auto step = accepted_totp_step(secret, text_in(call.body, "code"), wall_seconds(), 0);
  if (!step) throw ApiError(HttpStatus::unauthorized, "The code is wrong. Check the clock.", "wrong");
  const std::vector<std::string> codes = new_backup_codes();
  std::vector<Bytes> hashes;
  hashes.reserve(codes.size());
  for (const std::string& code : codes)
    hashes.push_back(backup_code_hash(call.caller.person, code));
  const auto work = [name = call.caller.name, secret, step, hashes](Database& database) {
    auto person = find_person(database, name);
    if (!person || !person->totp_secret.empty())
      throw ApiError(HttpStatus::conflict, "Codes are in use already; remove them first.");
    person->totp_secret = secret;
    person->totp_last_step = *step;
    update_person(database, *person);
    replace_backup_codes(database, person->id, hashes);
  };
  const TrailEntry row = trail_entry<TrailKind::TotpEnabled>(call.subject());
  co_await change(api, work, row);
  api.pending_totp.erase(call.caller.token_hash);
  if (call.caller.stage == LoginStage::TotpSetup) co_await move_to_stage(api, call, LoginStage::Full);
  co_return Json{{"backup_codes", codes}};
}

JsonReply remove_totp(Api& api, Call& call) {
  const Person& person = person_of(api, call);
  if (api.parts.people.totp_required(person.role))
    throw ApiError(HttpStatus::conflict, "Your role needs codes; an administrator can reset yours.");
  co_await check_password(api, call, call.caller.name, person.password, text_in(call.body, "password"));
  const auto work = [name = call.caller.name](Database& database) {
    auto stored = find_person(database, name);
    if (!stored) throw ApiError(HttpStatus::unauthorized, "Please log in.");
    stored->totp_secret.clear();
    stored->totp_last_step = 0;
    update_person(database, *stored);
    replace_backup_codes(database, stored->id, {});
  };
  const TrailEntry row = trail_entry<TrailKind::TotpRemoved>(call.subject(), call.caller.name);
  co_await change(api, work, row);
  co_return Json::object();
}

}  // namespace vlk::relay
