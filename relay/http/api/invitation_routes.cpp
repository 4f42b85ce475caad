// Invitations: a link with which a new person chooses the password.
#include <algorithm>

#include "relay/base/secrets.h"
#include "relay/http/api/handlers.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr std::int64_t kLongestHours = 24 * 30;
constexpr std::size_t kMostInvitations = 1000;
constexpr std::int64_t kHour = 3600;

const Invitation* invitation_of(const Api& api, const std::string& token) {
  const auto& all = api.parts.people.all().invitations;
  const Bytes hash = hash_secret(token);
  const auto found = std::ranges::find_if(all, [&](const Invitation& invitation) {
    return same_hash(invitation.token_hash, hash) && wall_seconds() < invitation.expires_at;
  });
  return found == all.end() ? nullptr : &*found;
}

void join_teams(Database& database, PersonId person, const std::vector<TeamId>& teams) {
  for (Team& team : load_teams(database)) {
    if (std::ranges::count(teams, team.id) == 0) continue;
    team.members.push_back(person);
    update_team(database, team);
  }
}

}  // namespace

JsonReply list_invitations(Api& api, Call&) {
  Json list = Json::array();
  for (const Invitation& invitation : api.parts.people.all().invitations) {
    list.push_back({{"id", invitation.id},
                    {"name", invitation.name},
                    {"role", role_name(invitation.role)},
                    {"teams", invitation.teams},
                    {"expires_at", invitation.expires_at},
                    {"made_by", invitation.made_by}});
  }
  co_return Json{{"invitations", list}};
}

JsonReply invite(Api& api, Call& call) {
  Invitation invitation;
  invitation.name = name_in(call.body);
  if (api.parts.people.person_named(invitation.name))
    throw ApiError(HttpStatus::conflict, "Somebody has this name already.", "name-taken");
  if (api.parts.people.all().invitations.size() >= kMostInvitations)
    throw ApiError(HttpStatus::conflict, "There are too many open invitations.");
  const auto role = role_of(text_in(call.body, "role"));
  if (!role) throw ApiError(HttpStatus::bad_request, "There is no such role.");
  invitation.role = *role;
  invitation.teams = ids_in(call.body, "teams");
  for (const TeamId team : invitation.teams) {
    if (!api.parts.people.team(team)) throw ApiError(HttpStatus::bad_request, "There is no such team.");
  }
  const std::int64_t hours = number_in(call.body, "hours", 1, kLongestHours);
  const std::string token = random_token(kTokenBytes);
  invitation.token_hash = hash_secret(token);
  invitation.expires_at = wall_seconds() + hours * kHour;
  invitation.made_by = call.caller.name;
  const auto work = [invitation](Database& database) {
    for (const Invitation& old : load_invitations(database)) {
      if (old.expires_at <= wall_seconds()) remove_invitation(database, old.id);
    }
    (void)add_invitation(database, invitation);
  };
  const TrailEntry row = trail_entry<TrailKind::InvitationMade>(call.subject(), invitation.name,
                                                                role_name(invitation.role), hours);
  co_await change(api, work, row);
  co_return Json{{"token", token}};
}

JsonReply withdraw_invitation(Api& api, Call& call) {
  const std::int64_t id = id_of(call);
  const auto& all = api.parts.people.all().invitations;
  const auto found = std::ranges::find(all, id, &Invitation::id);
  if (found == all.end()) not_found();
  const auto work = [id](Database& database) {
    if (!remove_invitation(database, id)) not_found();
  };
  const TrailEntry row = trail_entry<TrailKind::InvitationWithdrawn>(call.subject(), found->name);
  co_await change(api, work, row);
  co_return Json::object();
}

JsonReply accept_invitation(Api& api, Call& call) {
  const std::string token = text_in(call.body, "token");
  const std::string unknown = "The invitation is unknown, was used before, or has expired.";
  const std::string attempts_name = "(invitation)";
  if (api.attempts.refused(attempts_name, call.source))
    throw ApiError(HttpStatus::too_many_requests, "Too many failures. Wait ten minutes and try again.");
  const Invitation* found = invitation_of(api, token);
  if (!found) {
    (void)api.attempts.add(attempts_name, call.source);
    throw ApiError(HttpStatus::not_found, unknown);
  }
  const Invitation invitation = *found;
  const std::string password = text_in(call.body, "password");
  require_good_password(password);
  Person person;
  person.name = invitation.name;
  person.role = invitation.role;
  person.password = co_await hashed(api, call, password);
  person.created_at = wall_seconds();
  const auto work = [person, invitation, unknown](Database& database) {
    if (!remove_invitation(database, invitation.id)) throw ApiError(HttpStatus::not_found, unknown);
    const auto id = add_person(database, person);
    if (!id) throw ApiError(HttpStatus::conflict, "Somebody has this name already.", "name-taken");
    join_teams(database, *id, invitation.teams);
  };
  const TrailEntry row = trail_entry<TrailKind::InvitationAccepted>(
      {.actor = person.name, .address = call.peer}, person.name, role_name(person.role));
  co_await change(api, work, row);
  co_return Json{{"name", person.name}};
}

}  // namespace vlk::relay
