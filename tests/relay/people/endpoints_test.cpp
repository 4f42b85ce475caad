// Who may use which request: each endpoint, times each role, times each stage of a log-in.
#include "relay/http/api/endpoints.h"

#include "relay/people/api_fixture.h"

namespace vlk::relay {
namespace {

constexpr Role kRoles[] = {Role::Administrator, Role::Representative, Role::Auditor};
constexpr LoginStage kStages[] = {LoginStage::Password, LoginStage::Totp, LoginStage::TotpSetup,
                                  LoginStage::Full};

// The requests that more than administrators with a full log-in may make, written out again, so that a wrong
// entry in the table is found. All others are for administrators with a full log-in.
const std::map<std::string, std::pair<unsigned, unsigned>> kOpenToMore = {
    {"POST /api/login", {kNobodyYet, kEveryone}},
    {"POST /api/login/code", {kTotpStage, kEveryone}},
    {"POST /api/login/ticket", {kNobodyYet, kEveryone}},
    {"POST /api/tickets", {kFullStage, kAdministrators | kRepresentatives}},
    {"GET /api/me", {kEachStage, kEveryone}},
    {"POST /api/logout", {kEachStage, kEveryone}},
    {"POST /api/password", {kPasswordStage | kFullStage, kEveryone}},
    {"POST /api/step-up", {kFullStage, kEveryone}},
    {"POST /api/totp/begin", {kTotpSetupStage | kFullStage, kEveryone}},
    {"POST /api/totp/confirm", {kTotpSetupStage | kFullStage, kEveryone}},
    {"POST /api/totp/remove", {kFullStage, kEveryone}},
    {"POST /api/invitations/accept", {kNobodyYet, kEveryone}},
    {"GET /api/agents", {kFullStage, kAdministrators | kRepresentatives}},
    {"DELETE /api/agents/{}", {kFullStage, kAdministrators | kRepresentatives}},
    {"GET /api/trail", {kFullStage, kAdministrators | kAuditors}},
    {"GET /api/trail/export", {kFullStage, kAdministrators | kAuditors}},
    {"GET /api/logins", {kFullStage, kEveryone}},
    {"DELETE /api/logins/{}", {kFullStage, kEveryone}},
};

class EndpointsTest : public ApiTest {
 protected:
  EndpointsTest() {
    for (const Role role : kRoles)
      add(std::string(role_name(role)), role);
  }
  static std::string method_of(const Endpoint& endpoint) {
    return std::string(boost::beast::http::to_string(endpoint.method));
  }
  static std::string target_of(const Endpoint& endpoint) {
    std::string path(endpoint.path);
    if (const auto at = path.find("{}"); at != std::string::npos) path.replace(at, 2, "999999");
    return path;
  }
};

TEST_F(EndpointsTest, EachRequestIsOpenToTheExpectedStagesAndRoles) {
  std::size_t open_to_more = 0;
  for (const Endpoint& endpoint : endpoints()) {
    const std::string name = method_of(endpoint) + ' ' + std::string(endpoint.path);
    const auto found = kOpenToMore.find(name);
    open_to_more += found != kOpenToMore.end() ? 1 : 0;
    const auto expected = found == kOpenToMore.end()
                              ? std::pair<unsigned, unsigned>(kFullStage, kAdministrators)
                              : found->second;
    EXPECT_EQ(endpoint.stages, expected.first) << name;
    EXPECT_EQ(endpoint.roles, expected.second) << name;
  }
  EXPECT_EQ(open_to_more, kOpenToMore.size());
}

TEST_F(EndpointsTest, RequestIsRefusedUnlessRoleAndStageAllowIt) {
  for (const Endpoint& endpoint : endpoints()) {
    for (const Role role : kRoles) {
      for (const LoginStage stage : kStages) {
        const std::string who(role_name(role));
        const Answer answer = call(method_of(endpoint), target_of(endpoint), {}, log_in_as(who, stage));
        const std::string name = method_of(endpoint) + ' ' + target_of(endpoint) + ' ' + who + ' ' +
                                 std::string(stage_name(stage));
        const bool open = endpoint.stages == kNobodyYet;
        const std::string code = answer.body.value("code", "");
        if (open || ((endpoint.stages & bit_of(stage)) && (endpoint.roles & bit_of(role)))) {
          EXPECT_TRUE(code != "stage" && code != "role") << name;
          EXPECT_TRUE(answer.status != 401 || code == "wrong" || code.empty()) << name;
        } else {
          EXPECT_EQ(answer.status, 403u) << name;
          EXPECT_EQ(code, endpoint.stages & bit_of(stage) ? "role" : "stage") << name;
        }
      }
    }
  }
}

TEST_F(EndpointsTest, NoRequestButTheThreeToGetInIsAnsweredWithoutALogIn) {
  for (const Endpoint& endpoint : endpoints()) {
    if (endpoint.stages == kNobodyYet) continue;
    EXPECT_EQ(call(method_of(endpoint), target_of(endpoint)).status, 401u) << endpoint.path;
  }
  EXPECT_EQ(call("GET", "/api/setup").status, 401u);
  EXPECT_EQ(call("GET", "/api/setup", {}, log_in_as("root")).status, 404u);
}

TEST_F(EndpointsTest, RequestOfAnotherSiteIsRefused) {
  Request request = request_for("POST", "/api/logout", {}, log_in_as("root"));
  request.set(boost::beast::http::field::origin, "https://elsewhere");
  auto answer = boost::asio::co_spawn(io_, answer_to(request, "10.0.0.9"), boost::asio::use_future);
  run_until([&] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
  EXPECT_EQ(answer.get().status, 403u);
}

TEST_F(EndpointsTest, PathsMatchWholePartsOnly) {
  std::string key;
  using boost::beast::http::verb;
  EXPECT_TRUE(find_endpoint(verb::patch, "/api/people/7", key));
  EXPECT_EQ(key, "7");
  for (const char* path : {"/api/people/", "/api/people/7/", "/api/people/7/8", "/api", "/api/peoplex"})
    EXPECT_FALSE(find_endpoint(verb::patch, path, key)) << path;
}

}  // namespace
}  // namespace vlk::relay
