// Steps of machines, administrators, the clock and the relay's own restart.
#include "relay/session/model/world.h"
#include "relay/storage/machines/open_sessions.h"

namespace vlk::relay::model {

// Ends an older connection, as the relay's side of an agent's connection does.
void World::connect(std::size_t index) {
  Machine& machine = machines_[index];
  ExpectedMachine& expected = expected_.machines[index];
  if (expected.blocked) return;
  const auto peer = PartsTest::connect();
  const auto older = parts_->machines.log_in(peer, machine.id);
  require(older == machine.peer, "the relay had another connection of " + machine.id);
  if (older) {
    parts_->sessions.end_all_of(*older, "replaced");
    older->channel->cut("replaced");
    parts_->machines.remove_connection(older);
    expected_.disconnect(index, "replaced");
    machine.fake.disconnect();
  }
  machine.peer = peer;
  machine.key_frame = {};
  expected.connected = true;
  for (const std::uint32_t upload : parts_->transfers.owed(machine.id, Clock::now()))
    peer->channel->send_binary(upload_end(0, upload));
}

void World::disconnect(std::size_t index) {
  Machine& machine = machines_[index];
  if (!machine.peer) return;
  machine.peer->channel->cut("test");
  parts_->sessions.end_all_of(*machine.peer, "agent-gone");
  parts_->machines.remove_connection(machine.peer);
  expected_.disconnect(index, "agent-gone");
  machine.fake.disconnect();
  machine.peer.reset();
}

// The local user answers a box, or not; a box that was closed is answered first.
void World::answer(std::size_t index, std::uint32_t choice) {
  FakeMachine& fake = machines_[index].fake;
  if (!fake.withdrawn.empty()) {
    const std::uint32_t number = fake.withdrawn.front();
    fake.withdrawn.pop_front();
    return send_answer(index, number, false);
  }
  if (!fake.box || choice % 5 == 4) return;
  const std::uint32_t number = *fake.box;
  fake.box.reset();
  send_answer(index, number, choice % 5 != 3);
}

void World::send_answer(std::size_t index, std::uint32_t number, bool accepted) {
  const Agent& peer = machines_[index].peer;
  if (!peer) return;  // the answer is lost
  if (machines_[index].fake.box == number) machines_[index].fake.box.reset();
  done_ += std::string(accepted ? ": accepts " : ": rejects ") + std::to_string(number);
  Bytes message = envelope_of(accepted ? Msg::SessionAccept : Msg::SessionReject, number, "{}");
  require(parts_->router.route_from_agent(*peer, message).kind == Route::Kind::ForRelay,
          "an answer is not for the relay");
  const auto before = expected_.sessions.find(number);
  const bool asked = before != expected_.sessions.end() && before->second.machine == index &&
                     !before->second.running && accepted;
  expected_.answer(index, number, accepted);
  if (accepted) {
    parts_->sessions.accept(*peer, number);
  } else {
    parts_->sessions.reject(*peer, number);
  }
  deliver();
  if (!asked || !expected_.sessions.at(number).browser) return;
  const ExpectedSession& session = expected_.sessions.at(number);
  require(browsers_.at(*session.browser).known[number].streaming == session.watches,
          "the browser was not told whether a stream runs");
}

void World::decide(const Step& step) {
  const std::size_t index = step.a % kMachines;
  ExpectedMachine& machine = expected_.machines[index];
  switch (step.what) {
    case Do::Rights:
    case Do::Role:
    case Do::FourEyes:
    case Do::Disable:
      return change_rights(step);
    case Do::EndLogin:
      return end_login(step.a % kLogins);
    case Do::EndForAdministrator: {
      const std::uint32_t number = some_session(step.a);
      if (expected_.sessions.contains(number)) expected_.end(number, "ended-by-administrator");
      (void)parts_->sessions.end_for_administrator(number, "eva");
      return;
    }
    case Do::Quarantine:
      machine.quarantined = !machine.quarantined && step.b % 3 == 0;
      if (machine.quarantined && machine.connected) {
        expected_.end_all_on(index, "quarantined");
        parts_->sessions.end_all_of(*machines_[index].peer, "quarantined", true);
      }
      return apply_machine(index);
    case Do::Block:
      machine.blocked = !machine.blocked && step.b % 3 == 0;
      if (machine.blocked && machine.connected) {
        expected_.end_all_on(index, "blocked");
        parts_->sessions.end_all_of(*machines_[index].peer, "blocked");
        disconnect(index);
      }
      return apply_machine(index);
    case Do::Move:
      machine.group = step.b % kGroups;
      apply_machine(index);
      return expected_.refresh();
    case Do::Tick:
      return tick(step.b);
    default:
      return restart_relay(step.a % 2 == 0);
  }
}

void World::change_rights(const Step& step) {
  const std::size_t index = step.a % kPeople;
  ExpectedPerson& person = expected_.people[index];
  if (step.what == Do::FourEyes) expected_.four_eyes[step.a % kGroups] = step.b % 2 == 0;
  if (step.what == Do::Role) person.administrator = step.b % 3 == 0;
  if (step.what == Do::Rights) {
    const Rights some = (step.c / 4 % 128) | (step.c / 512 % 4 == 0 ? kNoRights : Rights{kSee});
    person.given[step.b % kGroups] = step.c % 3 == 0 ? some : kAllRights;
  }
  if (step.what == Do::Disable) person.disabled = !person.disabled && step.b % 2 == 0;
  apply_people();
  if (step.what != Do::Disable || !person.disabled) return;
  for (std::size_t login = index; login < kLogins; login += kPeople)
    end_login(login);
}

void World::end_login(std::size_t login) {
  const std::string name = "login " + std::to_string(login) + "." + std::to_string(generations_[login]++);
  const Bytes token(name.begin(), name.end());
  expected_.end_all_of(name, "login-ended");
  parts_->sessions.end_all_of(token, "login-ended");
  parts_->browsers.end_login(token, "test");
  deliver();
  check_ended();  // the browsers leave now
  expected_.ended.clear();
  ended_.clear();
  for (std::size_t slot = 0; slot < kBrowsers; ++slot) {
    if (browsers_.contains(slot) && expected_.browsers.at(slot).login == name) drop(slot);
  }
}

void World::tick(std::uint32_t choice) {
  const auto later = std::chrono::hours{10} * static_cast<int>(choice / 5 % 3 == 0 ? choice % 5 : choice % 2);
  const Expired expired{ranks_[0] <= later, ranks_[1] <= later, ranks_[2] <= later, ranks_[3] <= later};
  done_ += ", " + std::to_string(later.count()) + " h later";
  if (expired.lost_question) {
    for (std::size_t index = 0; index < kMachines; ++index) {
      const auto& box = expected_.machines[index].box;
      if (box && box->ended) machines_[index].fake.box.reset();  // nobody answers it any more
    }
  }
  expected_.tick(expired);
  parts_->watchdog.tick(Clock::now() + later + std::chrono::minutes{1});
  for (const Machine& machine : machines_) {
    if (machine.peer) parts_->transfers.settle(machine.id, Clock::now());  // it has returned a heartbeat
  }
}

// Machines and browsers lose their connections. What is stored has survived: the questions whose boxes may
// stand.
void World::restart_relay(bool clean) {
  if (clean) {
    const auto all = expected_.sessions;
    for (const auto& [number, session] : all)
      expected_.end(number, "relay-stopped");
    parts_->sessions.end_all("relay-stopped");
    deliver();
    check();
    expected_.ended.clear();
    ended_.clear();
  }
  browsers_.clear();
  for (Machine& machine : machines_) {
    machine.peer.reset();
    machine.fake.disconnect();
    machine.fake.uploads.clear();  // the end messages that were owed are forgotten
  }
  restart();
  const auto questions =
      database_.run_and_wait([](Store& store) { return open_questions(store.database(), 0); });
  expected_.restart();
  for (const OpenQuestion& question : questions) {
    for (std::size_t index = 0; index < kMachines; ++index) {
      if (machines_[index].id == question.machine)
        expected_.machines[index].box = ExpectedMachine::Box{question.session, true};
    }
  }
  parts_->sessions.restore_questions(questions);
  apply_people();
}

}  // namespace vlk::relay::model
