// Invalid input: each endpoint refuses it with an error or closes the connection, and the relay works on.
#include <fstream>

#include "fakes/fakes.h"
#include "relay/relay_fixture.h"
#include "support/bytes/file_bytes.h"
#include "support/peers/raw_agent.h"

namespace vlk::relay {
namespace {

class HostileTest : public RelayTest {
 protected:
  void TearDown() override {
    // After each test, the relay must still answer.
    EXPECT_EQ(Browser(port_).request("GET", "/api/me", {}, log_in()).status, 200u);
    RelayTest::TearDown();
  }
};

TEST_F(HostileTest, ApiRequiresALogIn) {
  for (const char* target : {"/api/me", "/api/agents", "/api/nothing"}) {
    const auto answer = Browser(port_).request("GET", target);
    EXPECT_EQ(answer.status, 401u) << target;
    EXPECT_EQ(answer.body["error"], "Please log in.");
  }
  EXPECT_EQ(Browser(port_).request("GET", "/api/me", {}, "made-up").status, 401u);
  EXPECT_EQ(Browser(port_).request("GET", "/api/nothing", {}, log_in()).status, 404u);
}

TEST_F(HostileTest, LogInWithAWrongPasswordOrAnInvalidBodyIsRefused) {
  for (const char* body : {"", "{", "[]", "null", "{\"name\":5,\"password\":7}", "{\"name\":\"admin\"}"}) {
    EXPECT_EQ(Browser(port_).request("POST", "/api/login", body).status, 400u) << body;
  }
  const Json wrong = {{"name", "admin"}, {"password", "wrong"}};
  EXPECT_EQ(Browser(port_).request("POST", "/api/login", wrong.dump()).status, 401u);
  const Json unknown = {{"name", "nobody"}, {"password", "wrong"}};
  EXPECT_EQ(Browser(port_).request("POST", "/api/login", unknown.dump()).status, 401u);
  const std::string head = "POST /api/login HTTP/1.1\r\nHost: x\r\nContent-Length: ";
  EXPECT_EQ(Browser(port_).raw(head + "100000\r\n\r\n").rfind("HTTP/1.1 413", 0), 0u);
  EXPECT_EQ(Browser(port_).raw(head + "nonsense\r\n\r\n").rfind("HTTP/1.1 400", 0), 0u);
}

TEST_F(HostileTest, EleventhLogInAfterTenWrongPasswordsForANameIsRefused) {
  const Json wrong = {{"name", "guessed"}, {"password", "wrong"}};
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(Browser(port_).request("POST", "/api/login", wrong.dump()).status, 401u);
  EXPECT_EQ(Browser(port_).request("POST", "/api/login", wrong.dump()).status, 429u);
}

TEST_F(HostileTest, WrongPasswordsForSeveralNamesBlockTheAddressAndCorrectPasswordsDoNot) {
  stop();
  limits_.failures_per_address = 3;
  start();
  for (int i = 0; i < 5; ++i)
    EXPECT_NE(log_in(), "");
  const std::string cookie = log_in();
  const auto attempt = [&](const std::string& name) {
    return Browser(port_)
        .request("POST", "/api/login", Json{{"name", name}, {"password", "wrong"}}.dump())
        .status;
  };
  for (const char* name : {"a", "b", "c"})
    EXPECT_EQ(attempt(name), 401u);
  EXPECT_EQ(attempt("d"), 429u);
  EXPECT_EQ(log_in(), "");
  EXPECT_EQ(Browser(port_).request("GET", "/api/me", {}, cookie).status, 200u);
  stop();
  start();
}

TEST_F(HostileTest, RequestsFromOtherSitesAndRequestsWithoutALogInAreRefused) {
  const std::string cookie = log_in();
  EXPECT_EQ(Browser(port_).request("POST", "/api/logout", {}, cookie, "https://evil.example").status, 403u);
  unsigned status = 0;
  Browser browser(port_);
  EXPECT_FALSE(browser.open_console(cookie, status, "https://evil.example"));
  EXPECT_EQ(status, 403u);
  EXPECT_FALSE(browser.open_console("", status));
  EXPECT_EQ(status, 401u);
  EXPECT_TRUE(logged("another origin"));
}

TEST_F(HostileTest, LogOutEndsTheLogInAndClosesTheBrowsersConnection) {
  const std::string cookie = log_in();
  Browser browser(port_);
  unsigned status = 0;
  ASSERT_TRUE(browser.open_console(cookie, status));
  EXPECT_EQ(Browser(port_).request("POST", "/api/logout", {}, cookie).status, 200u);
  browser.wait_closed();
  EXPECT_EQ(Browser(port_).request("GET", "/api/me", {}, cookie).status, 401u);
}

TEST_F(HostileTest, PasswordChangeEndsTheRepresentativesOtherLogIns) {
  const std::string mine = log_in(), other = log_in();
  const auto change = [&](const char* from, const char* to) {
    return Browser(port_)
        .request("POST", "/api/password", Json{{"old", from}, {"new", to}}.dump(), mine)
        .status;
  };
  EXPECT_EQ(change(kPassword, "short"), 400u);
  EXPECT_EQ(change(kPassword, std::string(1025, 'x').c_str()), 400u);
  EXPECT_EQ(change("wrong", "long enough now"), 401u);
  EXPECT_EQ(change(kPassword, "long enough now"), 200u);
  EXPECT_EQ(Browser(port_).request("GET", "/api/me", {}, mine).status, 200u);
  EXPECT_EQ(Browser(port_).request("GET", "/api/me", {}, other).status, 401u);
  EXPECT_EQ(change("long enough now", kPassword), 200u);
}

TEST_F(HostileTest, InvalidHttpRequestsAreRefused) {
  for (const std::string& bytes : {std::string("nonsense\r\n\r\n"), std::string(5000, '\0'),
                                   "GET / HTTP/1.1\r\nX: " + std::string(20'000, 'x') + "\r\n\r\n"}) {
    const std::string answer = Browser(port_).raw(bytes);
    EXPECT_EQ(answer.find("200 OK"), std::string::npos);
  }
}

TEST_F(HostileTest, ConnectionIsClosedWhenARequestIsNotCompleteInTime) {
  const auto usual = limits_.handshake;
  on_relay([&] { limits_.handshake = std::chrono::milliseconds(100); });
  // On a busy machine the TLS handshake may take longer than the limit.
  EXPECT_TRUE(eventually([&] {
    try {
      return Browser(port_).raw("GET / HTTP/1.1\r\n").empty();
    } catch (const std::exception&) {
      return false;
    }
  }));
  on_relay([&] { limits_.handshake = usual; });
}

TEST_F(HostileTest, InvalidConsoleMessagesAreAnsweredAndTheConnectionStaysOpen) {
  auto browser = console();
  for (const Json& message :
       {Json(5), Json::array(), Json{{"type", 7}}, Json{{"type", "unknown"}}, Json{{"type", "open"}},
        Json{{"type", "open"}, {"agent", "nobody"}}, Json{{"type", "close"}},
        Json{{"type", "close"}, {"session", -1}}, Json{{"type", "close"}, {"session", 1e30}},
        Json{{"type", "ping"}}, Json{{"type", std::string(5000, 'x')}}}) {
    browser->send(message);
    EXPECT_FALSE(browser->read_text("error")["message"].get<std::string>().empty()) << message;
  }
  browser->send_envelope(Msg::InputEvent, 99, "x");
  EXPECT_EQ(browser->read_text("error")["message"], "There is no such session.");
}

TEST_F(HostileTest, ConsoleConnectionIsClosedAfterAMessageThatIsNotAnEnvelope) {
  auto browser = console();
  browser->send_bytes("short");
  EXPECT_EQ(browser->wait_closed(), 1003u);
  auto second = console();
  second->send_bytes(std::string(9 << 20, 'x'));
  EXPECT_EQ(second->wait_closed(), 1009u);
}

TEST_F(HostileTest, AgentsThatSendInvalidMessagesBeforeTheirLogInAreDisconnected) {
  using vantelink_test::RawAgent;
  const std::string hello = R"({"role":"agent"})";
  {
    RawAgent agent(port_);
    agent.send(Msg::Login, R"({"agent_id":"x","secret":"y"})");
    EXPECT_TRUE(agent.closed()) << "sent a log-in before the hello";
  }
  {
    RawAgent agent(port_);
    agent.send(Msg::Hello, R"({"role":"console"})");
    EXPECT_TRUE(agent.closed());
  }
  {
    RawAgent agent(port_);
    agent.send(Msg::Hello, hello);
    agent.send(Msg::StreamFrame, "picture");
    EXPECT_TRUE(agent.closed()) << "sent a frame before the log-in";
  }
  {
    RawAgent agent(port_);
    agent.send_bytes("not an envelope");
    EXPECT_TRUE(agent.closed());
  }
  {
    RawAgent agent(port_);
    agent.send(Msg::Hello, std::string(10'000, ' '));
    EXPECT_TRUE(agent.closed()) << "sent a message that is too large before the log-in";
  }
  {
    RawAgent agent(port_);
    agent.send(Msg::Hello, hello);
    agent.send(Msg::Login, R"({"agent_id":"unknown","secret":"y"})");
    const Envelope error = agent.read();
    EXPECT_EQ(error.type, 3);
    EXPECT_NE(std::string(error.payload.begin(), error.payload.end()).find("AUTH_FAILED"), std::string::npos);
    EXPECT_TRUE(agent.closed());
  }
}

TEST_F(HostileTest, AgentThatDoesNotLogInIsDisconnected) {
  const auto usual = limits_.handshake;
  vantelink_test::RawAgent agent(port_);
  on_relay([&] { limits_.handshake = std::chrono::milliseconds(100); });
  EXPECT_TRUE(agent.closed());
  on_relay([&] { limits_.handshake = usual; });
  EXPECT_TRUE(logged("no log-in in time"));
}

TEST_F(HostileTest, EnrolmentsFromOneAddressAreLimited) {
  stop();
  limits_.enrolments_per_address = 1;
  start();
  const auto agent = connect_agent("first");
  vantelink_test::RawAgent second(port_);
  second.send(Msg::Hello, R"({"role":"agent"})");
  second.send(Msg::Enroll, R"({"name":"second"})");
  EXPECT_EQ(second.read().type, 3);
  EXPECT_EQ(stored("SELECT id FROM machines").size(), 1u);
}

TEST_F(HostileTest, RefusedLogInsOfAgentsDoNotFillTheAuditTrail) {
  stop();
  limits_.refusals_per_address = 2;
  start();
  for (int i = 0; i < 4; ++i) {
    vantelink_test::RawAgent agent(port_);
    agent.send(Msg::Hello, R"({"role":"agent"})");
    agent.send(Msg::Login, R"({"agent_id":"unknown","secret":"y"})");
    EXPECT_TRUE(agent.closed());
  }
  EXPECT_EQ(stored("SELECT address FROM trail WHERE code = 'machine.login-refused'").size(), 2u);
}

// The identity that a new machine gets, as the fields of a log-in.
Json enrol(unsigned short port) {
  vantelink_test::RawAgent agent(port);
  agent.send(Msg::Hello, R"({"role":"agent"})");
  agent.send(Msg::Enroll, R"({"name":"first"})");
  const Envelope result = agent.read();
  const Json fields = Json::parse(result.payload);
  return {{"agent_id", fields["agent_id"]}, {"secret", fields["agent_secret"]}};
}

// Logs in under this name and returns what the relay answers.
Envelope answer_to_log_in(unsigned short port, Json identity, const std::string& name) {
  vantelink_test::RawAgent agent(port);
  agent.send(Msg::Hello, R"({"role":"agent"})");
  identity["name"] = name;
  agent.send(Msg::Login, identity.dump());
  return agent.read();
}

// Each log-in leaves rows in the audit trail, so a machine could fill the disk.
TEST_F(HostileTest, MachineThatLogsInTooOftenIsHeldBack) {
  stop();
  limits_.log_ins_per_machine = 2;
  start();
  const Json identity = enrol(port_);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(static_cast<Msg>(answer_to_log_in(port_, identity, "first").type), Msg::LoginResult);
  const Envelope refused = answer_to_log_in(port_, identity, "first");
  EXPECT_EQ(static_cast<Msg>(refused.type), Msg::Error);
  EXPECT_EQ(Json::parse(refused.payload)["code"], "TOO_MANY")
      << "AUTH_FAILED makes agents forget their identity";
  EXPECT_EQ(stored("SELECT id FROM trail WHERE code = 'machine.connected'").size(), 3u);
}

TEST_F(HostileTest, NewNamesAtLogInsAreLimited) {
  stop();
  limits_.renames_per_machine = 1;
  start();
  const Json identity = enrol(port_);
  for (const char* name : {"second", "third"})
    EXPECT_EQ(static_cast<Msg>(answer_to_log_in(port_, identity, name).type), Msg::LoginResult);
  EXPECT_EQ(stored("SELECT name FROM machines"), std::multiset<std::string>{"second"});
  EXPECT_EQ(stored("SELECT id FROM trail WHERE code = 'machine.renamed'").size(), 1u);
}

// Parsing oversized messages as JSON would take much memory and time.
TEST_F(HostileTest, OversizedMessagesOfAgentsAreIgnored) {
  vantelink_test::RawAgent agent(port_);
  agent.send(Msg::Hello, R"({"role":"agent"})");
  agent.send(Msg::Enroll, R"({"name":"before"})");
  for (const Msg type : {Msg::Heartbeat, Msg::NameUpdate})
    agent.send(type, R"({"name":"oversized","beat":1,"x":")" + std::string(5000, 'x') + "\"}");
  EXPECT_TRUE(logged("ignored an oversized message of type 4"));
  wait_for_machine("before", "online");
  agent.send(Msg::NameUpdate, R"({"name":"after"})");
  wait_for_machine("after", "online");
}

TEST_F(HostileTest, DatabaseContainsNoSecretInPlainText) {
  const auto agent = connect_agent("Sæfari");
  const std::string cookie = log_in();
  const std::string secret = vantelink_fakes::saved_config().agent_secret;
  ASSERT_EQ(secret.size(), 43u);
  stop();
  std::string all;
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    if (entry.is_regular_file()) all += vantelink_test::file_bytes(entry.path());
  }
  EXPECT_EQ(all.find(kPassword), std::string::npos);
  EXPECT_EQ(all.find(cookie), std::string::npos);
  EXPECT_EQ(all.find(secret), std::string::npos);
  EXPECT_NE(all.find("argon2id"), std::string::npos);
  start();
}

}  // namespace
}  // namespace vlk::relay
