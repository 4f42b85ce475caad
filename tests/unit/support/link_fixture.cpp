// Fixtures with an AgentClient and a real TLS peer.
#include "unit/support/link_fixture.h"

#include <algorithm>

namespace vlk::agent {

AgentCallbacks CallbackLog::callbacks() {
  AgentCallbacks result;
  result.on_status = [this](Status status, int count) {
    note("status " + std::to_string(static_cast<int>(status)) + ' ' + std::to_string(count));
  };
  result.on_notice = [this](std::string text) { note("notice " + text); };
  result.on_session_request = [this](std::uint32_t session, std::string name) {
    note("request " + std::to_string(session) + ' ' + name);
  };
  result.on_clipboard = [this](std::vector<std::uint8_t> bytes) {
    note("clipboard " + std::to_string(bytes.size()));
  };
  result.on_session_ended = [this](std::uint32_t session) { note("ended " + std::to_string(session)); };
  return result;
}

void CallbackLog::note(std::string line) {
  const std::lock_guard<std::mutex> guard(lock_);
  lines_.push_back(std::move(line));
  noted_.notify_all();
}

std::vector<std::string> CallbackLog::lines() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return lines_;
}

void CallbackLog::clear() {
  const std::lock_guard<std::mutex> guard(lock_);
  lines_.clear();
}

bool CallbackLog::wait_for(const std::string& line, std::size_t times) const {
  std::unique_lock<std::mutex> guard(lock_);
  return noted_.wait_for(guard, kPatience, [&] {
    return static_cast<std::size_t>(std::count(lines_.begin(), lines_.end(), line)) >= times;
  });
}

RecordedClock::RecordedClock(std::size_t limit) : state_(std::make_shared<State>()) {
  state_->limit = limit;
}

RecordedClock::~RecordedClock() {
  release();
}

Clock RecordedClock::clock() {
  return {[state = state_] {
            const std::lock_guard<std::mutex> guard(state->lock);
            return state->time;
          },
          [state = state_](std::int64_t deadline) {
            std::unique_lock<std::mutex> guard(state->lock);
            state->sleeps.push_back((deadline - state->time) / 1000000);
            state->time = deadline;
            state->changed.notify_all();
            state->changed.wait(guard, [&] { return state->sleeps.size() <= state->limit; });
          }};
}

std::vector<std::int64_t> RecordedClock::sleeps() const {
  const std::lock_guard<std::mutex> guard(state_->lock);
  return state_->sleeps;
}

bool RecordedClock::wait_for_sleeps(std::size_t count) const {
  std::unique_lock<std::mutex> guard(state_->lock);
  return state_->changed.wait_for(guard, kPatience, [&] { return state_->sleeps.size() >= count; });
}

void RecordedClock::release() {
  const std::lock_guard<std::mutex> guard(state_->lock);
  state_->limit = ~std::size_t{0};
  state_->changed.notify_all();
}

void LinkTest::SetUp() {
  // The environment may name another certificate store, but these tests trust only their own authority.
  ::unsetenv("SSL_CERT_FILE");
  ::unsetenv("SSL_CERT_DIR");
  vantelink_fakes::reset();
  vantelink_fakes::script().roots = {authority().der()};
}

void LinkTest::TearDown() {
  client_.reset();
}

const TestAuthority& LinkTest::authority() {
  static const TestAuthority kAuthority;
  return kAuthority;
}

void LinkTest::make_client(const ScriptedServer& server, bool enrolled, Clock clock) {
  config_.display_name = "Skúta \"Sæfari\"";
  config_.server_host = "localhost";
  config_.server_port = server.port();
  if (enrolled) {
    config_.agent_id = "id-1";
    config_.agent_secret = "secret-1";
  }
  client_ = std::make_unique<AgentClient>(config_, log_.callbacks(), std::move(clock));
}

std::unique_ptr<ServerConnection> LinkTest::connect(ScriptedServer& server) {
  if (!client_) make_client(server);
  client_->start();
  auto connection = server.accept_upgraded();
  connection->read_until(Msg::Login);
  return connection;
}

void OnlineTest::SetUp() {
  LinkTest::SetUp();
  peer_ = connect(server_);
}

void OnlineTest::TearDown() {
  LinkTest::TearDown();
  peer_.reset();
}

}  // namespace vlk::agent
