// The handlers of the console's JSON requests, by topic. endpoints.cpp says who may call which.
#pragma once

#include "relay/http/api/api.h"

namespace vlk::relay {

// login_routes.cpp
[[nodiscard]] JsonReply log_in(Api& api, Call& call);
[[nodiscard]] JsonReply log_in_with_ticket(Api& api, Call& call);
[[nodiscard]] JsonReply log_in_with_code(Api& api, Call& call);
[[nodiscard]] JsonReply log_out(Api& api, Call& call);
[[nodiscard]] JsonReply who_am_i(Api& api, Call& call);
[[nodiscard]] JsonReply change_password(Api& api, Call& call);
[[nodiscard]] JsonReply step_up(Api& api, Call& call);

// totp_routes.cpp
[[nodiscard]] JsonReply begin_totp(Api& api, Call& call);
[[nodiscard]] JsonReply confirm_totp(Api& api, Call& call);
[[nodiscard]] JsonReply remove_totp(Api& api, Call& call);

// people_routes.cpp
[[nodiscard]] JsonReply list_people(Api& api, Call& call);
[[nodiscard]] JsonReply add_person_route(Api& api, Call& call);
[[nodiscard]] JsonReply change_person(Api& api, Call& call);
[[nodiscard]] JsonReply remove_person_route(Api& api, Call& call);
[[nodiscard]] JsonReply reset_password(Api& api, Call& call);
[[nodiscard]] JsonReply reset_totp(Api& api, Call& call);
[[nodiscard]] JsonReply end_logins_of(Api& api, Call& call);

// invitation_routes.cpp
[[nodiscard]] JsonReply list_invitations(Api& api, Call& call);
[[nodiscard]] JsonReply invite(Api& api, Call& call);
[[nodiscard]] JsonReply withdraw_invitation(Api& api, Call& call);
[[nodiscard]] JsonReply accept_invitation(Api& api, Call& call);

// group_routes.cpp
[[nodiscard]] JsonReply list_teams(Api& api, Call& call);
[[nodiscard]] JsonReply add_team_route(Api& api, Call& call);
[[nodiscard]] JsonReply change_team(Api& api, Call& call);
[[nodiscard]] JsonReply remove_team_route(Api& api, Call& call);
[[nodiscard]] JsonReply list_groups(Api& api, Call& call);
[[nodiscard]] JsonReply add_group_route(Api& api, Call& call);
[[nodiscard]] JsonReply change_group(Api& api, Call& call);
[[nodiscard]] JsonReply remove_group_route(Api& api, Call& call);
[[nodiscard]] JsonReply set_rights(Api& api, Call& call);

// session_routes.cpp
[[nodiscard]] JsonReply give_ticket(Api& api, Call& call);
[[nodiscard]] JsonReply list_updates(Api& api, Call& call);
[[nodiscard]] JsonReply list_agents(Api& api, Call& call);
[[nodiscard]] JsonReply forget_agent(Api& api, Call& call);
[[nodiscard]] JsonReply list_sessions(Api& api, Call& call);
[[nodiscard]] JsonReply end_session(Api& api, Call& call);
[[nodiscard]] JsonReply list_logins(Api& api, Call& call);
[[nodiscard]] JsonReply end_login(Api& api, Call& call);
[[nodiscard]] JsonReply show_status(Api& api, Call& call);
[[nodiscard]] JsonReply show_settings(Api& api, Call& call);
[[nodiscard]] JsonReply change_settings(Api& api, Call& call);

// machine_routes.cpp
[[nodiscard]] JsonReply list_machines(Api& api, Call& call);
[[nodiscard]] JsonReply approve_machines(Api& api, Call& call);
[[nodiscard]] JsonReply refuse_machines(Api& api, Call& call);
[[nodiscard]] JsonReply block_machines(Api& api, Call& call);
[[nodiscard]] JsonReply unblock_machines(Api& api, Call& call);
[[nodiscard]] JsonReply quarantine_machines(Api& api, Call& call);
[[nodiscard]] JsonReply release_machines(Api& api, Call& call);
[[nodiscard]] JsonReply disconnect_machines(Api& api, Call& call);
[[nodiscard]] JsonReply move_machines(Api& api, Call& call);
[[nodiscard]] JsonReply remove_machines(Api& api, Call& call);
[[nodiscard]] JsonReply list_enrolment(Api& api, Call& call);
[[nodiscard]] JsonReply open_enrolment(Api& api, Call& call);
[[nodiscard]] JsonReply close_enrolment(Api& api, Call& call);

// The stage that follows once the password, and the code if there is one, were right.
[[nodiscard]] LoginStage stage_after_code(const People& people, const Person& person);
// Moves the caller's log-in to a stage, in the database and in memory. A full log-in gets its full time.
[[nodiscard]] boost::asio::awaitable<void> move_to_stage(Api& api, Call& call, LoginStage stage);
// Throws ApiError unless the password may be a new one.
void require_good_password(const std::string& password);

}  // namespace vlk::relay
