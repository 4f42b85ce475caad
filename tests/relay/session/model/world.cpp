// Preparation, the dispatch of steps, and what the relay has sent.
#include "relay/session/model/world.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <random>

namespace vlk::relay::model {
namespace {

constexpr std::chrono::hours kUnit{10};

std::string person_name(std::size_t person) {
  return "person " + std::to_string(person);
}

}  // namespace

World::World(std::uint64_t seed) {
  set_limits(seed);
  std::mt19937_64 random(seed);
  for (std::size_t person = 0; person < kPeople; ++person) {
    expected_.people[person].administrator = person < 2;
    for (Rights& given : expected_.people[person].given)
      given = random() % 5 == 0 ? static_cast<Rights>(random() % 128) : kAllRights;
  }
  expected_.four_eyes[1] = random() % 2 == 0;
  for (std::size_t machine = 0; machine < kMachines; ++machine) {
    machines_[machine].id = "m" + std::to_string(machine);
    expected_.machines[machine].group = machine % kGroups;
    const MachineRecord record{machines_[machine].id, machines_[machine].id, "machine", "windows", "hw", 1};
    database_.run_and_wait([&](Store& store) { add_machine(store.database(), record); });
  }
  restart();
  apply_people();
}

void World::set_limits(std::uint64_t seed) {
  std::mt19937_64 random(seed + 1);
  std::array<int, 4> order{1, 2, 3, 4};
  std::ranges::shuffle(order, random);
  for (std::size_t i = 0; i < order.size(); ++i)
    ranks_[i] = order[i] * kUnit;
  limits_.consent = ranks_[0];
  limits_.held_stream = ranks_[1];
  if (random() % 8 == 0) ranks_[2] = std::chrono::hours{0};  // sessions are not held
  limits_.hold = ranks_[2];
  limits_.lost_question = ranks_[3];
  limits_.question_window = std::chrono::hours{100};
  limits_.refused_questions = random() % 4 == 0 ? 6 : 1'000'000;
  expected_.most_refused = limits_.refused_questions;
  limits_.cuts_per_machine = limits_.resumes_per_machine = 1'000'000;
  limits_.changes_of_steering = 1'000'000;
  limits_.sessions_per_machine = kMostSessionsOfMachine;
  limits_.sessions_per_login = kMostSessionsOfLogin;
  for (auto* limit : {&limits_.agent_silence, &limits_.slow_browser, &limits_.browser_ping,
                      &limits_.idle_browser, &limits_.browser_alive})
    *limit = std::chrono::hours{1000};
}

void World::apply_people() {
  People::Contents all;
  for (std::size_t group = 0; group < kGroups; ++group)
    all.groups.push_back({.id = static_cast<GroupId>(group) + 1,
                          .name = "group " + std::to_string(group),
                          .four_eyes = expected_.four_eyes[group]});
  for (std::size_t person = 0; person < kPeople; ++person) {
    const ExpectedPerson& expected = expected_.people[person];
    Person record;
    record.id = static_cast<PersonId>(person) + 1;
    record.name = person_name(person);
    record.role = expected.administrator ? Role::Administrator : Role::Representative;
    record.disabled = expected.disabled;
    all.people.push_back(record);
    for (std::size_t group = 0; group < kGroups; ++group)
      all.rights.push_back({static_cast<GroupId>(group) + 1, record.id, std::nullopt, expected.given[group]});
  }
  parts_->people.replace(std::move(all));
  for (std::size_t machine = 0; machine < kMachines; ++machine)
    apply_machine(machine);
  expected_.refresh();
}

void World::apply_machine(std::size_t machine) {
  const ExpectedMachine& expected = expected_.machines[machine];
  parts_->machines.change(machines_[machine].id, [&](MachineRecord& record) {
    record.group = static_cast<GroupId>(expected.group) + 1;
    record.state = expected.blocked       ? MachineState::Blocked
                   : expected.quarantined ? MachineState::Quarantined
                                          : MachineState::Approved;
  });
  parts_->sessions.refresh_rights();
}

std::string World::run(const Step& step) {
  doing_ = step.what;
  done_ = name_of(step.what);
  fault_.clear();
  forwarded_.reset();
  may_be_forwarded_ = false;
  wanted_.clear();
  received_.clear();
  ended_.clear();
  expected_.ended.clear();
  for (std::size_t machine = 0; machine < kMachines; ++machine)
    watched_before_[machine] = expected_.watching(machine);
  const std::size_t machine = step.a % kMachines;
  if (step.what == Do::Connect) {
    if (!machines_[machine].peer) connect(machine);
  } else if (step.what == Do::Replace) {
    if (machines_[machine].peer) connect(machine);
  } else if (step.what == Do::Disconnect) {
    disconnect(machine);
  } else if (step.what == Do::Answer) {
    answer(machine, step.b);
  } else if (step.what == Do::ForgedAnswer) {
    send_answer(machine, some_session(step.b), step.c % 2 == 0);
  } else if (step.what >= Do::Browse && step.what <= Do::Transfer) {
    act(step);
  } else {
    decide(step);
  }
  deliver();
  check();
  if (++steps_ % 512 == 0) settle();
  return fault_;
}

namespace {

std::optional<std::pair<int, std::uint32_t>> numbers_of(const std::string& line) {
  int code = 0;
  std::uint32_t session = 0;
  const char* end = line.data() + line.size();
  const auto first = std::from_chars(line.data(), end, code);
  if (first.ec != std::errc{} || first.ptr == end) return std::nullopt;
  const auto second = std::from_chars(first.ptr + 1, end, session);
  if (second.ec != std::errc{}) return std::nullopt;
  return std::pair{code, session};
}

}  // namespace

void World::deliver() {
  const auto line_of = [](const std::string& text) {
    const auto numbers = numbers_of(text);
    return numbers ? Line{numbers->first, numbers->second, text.substr(text.find(' ') + 1)} : Line{};
  };
  for (std::size_t machine = 0; machine < kMachines; ++machine) {
    if (!machines_[machine].peer) continue;
    for (const std::string& text : sent(*machines_[machine].peer->channel))
      receive_at_machine(machine, line_of(text));
  }
  for (const auto& [slot, browser] : browsers_) {
    for (const std::string& text : sent(*browser.peer->channel)) {
      if (text.starts_with('{')) {
        receive_at_browser(slot, text);
      } else {
        received_.emplace_back(slot, line_of(text));
      }
    }
  }
  require(!forwarded_ || may_be_forwarded_, "a message that is allowed did not reach the machine");
  forwarded_.reset();
}

void World::receive_at_machine(std::size_t machine, const Line& line) {
  const bool same = forwarded_ && forwarded_->first == machine && forwarded_->second.code == line.code &&
                    forwarded_->second.session == line.session &&
                    (is_transfer_code(line.code) || forwarded_->second.payload == line.payload);
  if (same) {
    forwarded_.reset();
  } else {
    check_own_message(machine, line);
  }
  if (line.code == 84) {
    const auto now = Clock::now();
    require(now - machines_[machine].key_frame >= std::chrono::seconds{1},
            "key frames are requested more often than once a second");
    machines_[machine].key_frame = now;
  }
  require(machines_[machine].fake.receive(line.code, line.session, line.payload).empty(),
          "a second box is shown on " + machines_[machine].id);
}

}  // namespace vlk::relay::model
