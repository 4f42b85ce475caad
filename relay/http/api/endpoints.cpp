// The table of the console's JSON requests.
#include "relay/http/api/endpoints.h"

#include "relay/http/api/handlers.h"

namespace vlk::relay {
namespace {

using boost::beast::http::verb;

constexpr std::string_view kPlaceholder = "{}";

constexpr Endpoint kEndpoints[] = {
    // Log-in
    {verb::post, "/api/login", kNobodyYet, kEveryone, log_in},
    {verb::post, "/api/login/code", kTotpStage, kEveryone, log_in_with_code},
    {verb::post, "/api/login/ticket", kNobodyYet, kEveryone, log_in_with_ticket},
    {verb::get, "/api/me", kEachStage, kEveryone, who_am_i},
    {verb::post, "/api/logout", kEachStage, kEveryone, log_out},
    {verb::post, "/api/password", kPasswordStage | kFullStage, kEveryone, change_password},
    {verb::post, "/api/step-up", kFullStage, kEveryone, step_up},
    {verb::post, "/api/totp/begin", kTotpSetupStage | kFullStage, kEveryone, begin_totp},
    {verb::post, "/api/totp/confirm", kTotpSetupStage | kFullStage, kEveryone, confirm_totp},
    {verb::post, "/api/totp/remove", kFullStage, kEveryone, remove_totp},
    {verb::post, "/api/invitations/accept", kNobodyYet, kEveryone, accept_invitation},
    // People
    {verb::get, "/api/people", kFullStage, kAdministrators, list_people},
    {verb::post, "/api/people", kFullStage, kAdministrators, add_person_route},
    {verb::patch, "/api/people/{}", kFullStage, kAdministrators, change_person},
    {verb::delete_, "/api/people/{}", kFullStage, kAdministrators, remove_person_route},
    {verb::post, "/api/people/{}/password", kFullStage, kAdministrators, reset_password},
    {verb::post, "/api/people/{}/totp-reset", kFullStage, kAdministrators, reset_totp},
    {verb::post, "/api/people/{}/end-logins", kFullStage, kAdministrators, end_logins_of},
    {verb::get, "/api/invitations", kFullStage, kAdministrators, list_invitations},
    {verb::post, "/api/invitations", kFullStage, kAdministrators, invite},
    {verb::delete_, "/api/invitations/{}", kFullStage, kAdministrators, withdraw_invitation},
    // Teams and groups
    {verb::get, "/api/teams", kFullStage, kAdministrators, list_teams},
    {verb::post, "/api/teams", kFullStage, kAdministrators, add_team_route},
    {verb::patch, "/api/teams/{}", kFullStage, kAdministrators, change_team},
    {verb::delete_, "/api/teams/{}", kFullStage, kAdministrators, remove_team_route},
    {verb::get, "/api/groups", kFullStage, kAdministrators, list_groups},
    {verb::post, "/api/groups", kFullStage, kAdministrators, add_group_route},
    {verb::patch, "/api/groups/{}", kFullStage, kAdministrators, change_group},
    {verb::delete_, "/api/groups/{}", kFullStage, kAdministrators, remove_group_route},
    {verb::put, "/api/groups/{}/rights", kFullStage, kAdministrators, set_rights},
    // Machines and sessions
    {verb::get, "/api/agents", kFullStage, kAdministrators | kRepresentatives, list_agents},
    {verb::delete_, "/api/agents/{}", kFullStage, kAdministrators | kRepresentatives, forget_agent},
    {verb::get, "/api/machines", kFullStage, kAdministrators, list_machines},
    {verb::post, "/api/machines/approve", kFullStage, kAdministrators, approve_machines},
    {verb::post, "/api/machines/refuse", kFullStage, kAdministrators, refuse_machines},
    {verb::post, "/api/machines/block", kFullStage, kAdministrators, block_machines},
    {verb::post, "/api/machines/unblock", kFullStage, kAdministrators, unblock_machines},
    {verb::post, "/api/machines/quarantine", kFullStage, kAdministrators, quarantine_machines},
    {verb::post, "/api/machines/release", kFullStage, kAdministrators, release_machines},
    {verb::post, "/api/machines/disconnect", kFullStage, kAdministrators, disconnect_machines},
    {verb::post, "/api/machines/move", kFullStage, kAdministrators, move_machines},
    {verb::post, "/api/machines/remove", kFullStage, kAdministrators, remove_machines},
    {verb::get, "/api/enrolment", kFullStage, kAdministrators, list_enrolment},
    {verb::post, "/api/enrolment", kFullStage, kAdministrators, open_enrolment},
    {verb::delete_, "/api/enrolment/{}", kFullStage, kAdministrators, close_enrolment},
    {verb::get, "/api/sessions", kFullStage, kAdministrators, list_sessions},
    {verb::delete_, "/api/sessions/{}", kFullStage, kAdministrators, end_session},
    {verb::get, "/api/logins", kFullStage, kEveryone, list_logins},
    {verb::delete_, "/api/logins/{}", kFullStage, kEveryone, end_login},
    {verb::post, "/api/tickets", kFullStage, kAdministrators | kRepresentatives, give_ticket},
    {verb::get, "/api/updates", kFullStage, kAdministrators, list_updates},
    // The trail, which HttpApi answers itself
    {verb::get, "/api/trail", kFullStage, kAdministrators | kAuditors, nullptr},
    {verb::get, "/api/trail/export", kFullStage, kAdministrators | kAuditors, nullptr},
    // The relay itself
    {verb::get, "/api/status", kFullStage, kAdministrators, show_status},
    // Settings
    {verb::get, "/api/settings", kFullStage, kAdministrators, show_settings},
    {verb::patch, "/api/settings", kFullStage, kAdministrators, change_settings},
};

// Takes the text up to the next slash off the front of `rest`.
std::string_view take_part(std::string_view& rest) {
  const std::size_t slash = rest.find('/');
  const std::string_view part = rest.substr(0, slash);
  rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  return part;
}

bool matches(std::string_view pattern, std::string_view path, std::string& key) {
  if (path.ends_with('/')) return false;
  while (!pattern.empty() && !path.empty()) {
    const std::string_view expected = take_part(pattern);
    const std::string_view part = take_part(path);
    if (expected == kPlaceholder) {
      key = part;
    } else if (expected != part) {
      return false;
    }
  }
  return pattern.empty() && path.empty();
}

}  // namespace

std::span<const Endpoint> endpoints() {
  return kEndpoints;
}

const Endpoint* find_endpoint(verb method, std::string_view path, std::string& key) {
  for (const Endpoint& endpoint : kEndpoints) {
    if (endpoint.method == method && matches(endpoint.path, path, key)) return &endpoint;
  }
  return nullptr;
}

}  // namespace vlk::relay
