// Sessions that begin, are held, and end.
#include "relay/session/model/expected.h"

#include <algorithm>

namespace vlk::relay::model {

std::vector<std::uint32_t> Expected::running_on(std::size_t machine) const {
  std::vector<std::uint32_t> numbers;
  for (const auto& [number, session] : sessions) {
    if (session.machine == machine && session.running) numbers.push_back(number);
  }
  return numbers;
}

std::set<std::uint32_t> Expected::watching(std::size_t machine) const {
  std::set<std::uint32_t> numbers;
  for (const auto& [number, session] : sessions) {
    if (session.machine == machine && session.watches) numbers.insert(number);
  }
  return numbers;
}

bool Expected::is_seen(std::size_t machine) const {
  return std::ranges::any_of(watching(machine),
                             [&](std::uint32_t number) { return sessions.at(number).accepted(); });
}

ExpectedSession* Expected::of_browser(std::size_t browser, std::uint32_t number) {
  const auto found = sessions.find(number);
  return found != sessions.end() && found->second.browser == browser ? &found->second : nullptr;
}

std::string Expected::refusal(const Browser& browser, std::size_t machine) const {
  const ExpectedMachine& asked = machines[machine];
  if (asked.blocked || !(granted(browser.person, machine) & kSee)) return "unknown";
  if (asked.quarantined) return "quarantined";
  if (!asked.connected) return "offline";
  std::size_t of_machine = 0;
  std::size_t of_login = 0;
  for (const auto& [number, session] : sessions) {
    if (session.machine == machine && session.person == browser.person) return "in-use";
    of_machine += session.machine == machine ? 1 : 0;
    of_login += session.login == browser.login ? 1 : 0;
  }
  if (of_machine >= kMostSessionsOfMachine || of_login >= kMostSessionsOfLogin) return "too-many";
  if (asked.box) return "asked-already";
  return asked.refused >= most_refused ? "asked-too-often" : "";
}

Expected::Opening Expected::open(std::size_t browser, std::size_t machine) {
  const Browser& who = browsers.at(browser);
  const auto own = std::ranges::find_if(sessions, [&](const auto& entry) {
    return entry.second.machine == machine && entry.second.person == who.person;
  });
  if (own != sessions.end() && !own->second.browser) {
    const std::uint32_t number = own->first;
    if (own->second.login == who.login) {
      (void)resume(browser, number);
      return {.resumed = number};
    }
    end(number, "moved");
  }
  return {.refusal = refusal(who, machine)};
}

void Expected::opened(std::size_t browser, std::size_t machine, std::uint32_t number) {
  const Browser& who = browsers.at(browser);
  sessions[number] = {.machine = machine, .person = who.person, .login = who.login, .browser = browser};
  machines[machine].box = {number, false};
  settle(machine);
}

bool Expected::resume(std::size_t browser, std::uint32_t number) {
  const auto found = sessions.find(number);
  const std::string& login = browsers.at(browser).login;
  if (found == sessions.end() || found->second.login != login) {
    const auto ending = endings.find(number);
    const bool known = ending != endings.end() && ending->second.first == login;
    ended.emplace_back(browser, number, known ? ending->second.second : "gone");
    return false;
  }
  ExpectedSession& session = found->second;
  if (session.browser == browser) return false;
  if (session.browser) ended.emplace_back(*session.browser, number, "moved");
  if (session.browser) wait_for_continuation(session);
  session.browser = browser;
  session.stopped = false;
  settle(session.machine);
  return true;
}

void Expected::close(std::size_t browser, std::uint32_t number) {
  const auto found = sessions.find(number);
  if (found == sessions.end()) return;
  const bool held = !found->second.browser && found->second.login == browsers.at(browser).login;
  if (held || found->second.browser == browser) end(number, "closed");
}

void Expected::wait_for_continuation(ExpectedSession& session) {
  for (auto& [number, transfer] : session.transfers)
    transfer.waits = true;
}

void Expected::drop(std::size_t browser, bool held) {
  std::vector<std::uint32_t> numbers;
  for (const auto& [number, session] : sessions) {
    if (session.browser == browser) numbers.push_back(number);
  }
  for (const std::uint32_t number : numbers) {
    ExpectedSession& session = sessions.at(number);
    session.browser.reset();
    wait_for_continuation(session);
    if (held) {
      settle(session.machine);
    } else {
      end(number, "browser-gone");
    }
  }
  browsers.erase(browser);
}

void Expected::answer(std::size_t machine, std::uint32_t number, bool accepted) {
  ExpectedMachine& asked = machines[machine];
  if (asked.box && asked.box->session == number) {
    if (!accepted && !asked.box->ended) ++asked.refused;
    asked.box.reset();
  }
  const auto found = sessions.find(number);
  if (found == sessions.end() || found->second.machine != machine || found->second.running) return;
  if (!accepted) return end(number, "declined");
  const bool first = running_on(machine).empty();
  found->second.watches = !watching(machine).empty();
  found->second.running = true;
  if (first) asked.steering = number;
  settle(machine);
}

void Expected::end(std::uint32_t number, const std::string& reason) {
  const ExpectedSession session = sessions.at(number);
  sessions.erase(number);
  endings[number] = {session.login, reason};
  ExpectedMachine& machine = machines[session.machine];
  if (machine.box && machine.box->session == number && !machine.box->ended) {
    machine.box->ended = true;
    ++machine.refused;
  }
  if (session.browser) ended.emplace_back(*session.browser, number, reason);
  settle(session.machine);
}

void Expected::end_all_on(std::size_t machine, const std::string& reason) {
  const Sessions all = sessions;
  for (const auto& [number, session] : all) {
    if (session.machine == machine) end(number, reason);
  }
}

void Expected::end_all_of(const std::string& login, const std::string& reason) {
  const Sessions all = sessions;
  for (const auto& [number, session] : all) {
    if (session.login == login) end(number, reason);
  }
}

void Expected::disconnect(std::size_t machine, const std::string& reason) {
  end_all_on(machine, reason);
  machines[machine].connected = false;
}

void Expected::refresh() {
  const Sessions all = sessions;
  for (const auto& [number, session] : all) {
    if (!(granted(session.person, session.machine) & kSee)) end(number, "no-right");
  }
  for (std::size_t machine = 0; machine < kMachines; ++machine)
    settle(machine);
}

void Expected::tick(const Expired& expired) {
  for (ExpectedMachine& machine : machines) {
    if (expired.lost_question && machine.box && machine.box->ended) machine.box.reset();
  }
  Sessions all = sessions;
  for (const auto& [number, session] : all) {
    if (expired.consent && !session.running) end(number, "no-answer");
  }
  all = sessions;
  for (const auto& [number, session] : all) {
    if (expired.hold && !session.browser) end(number, "browser-gone");
  }
  if (!expired.held_stream) return;
  for (auto& [number, session] : sessions) {
    if (!session.running || session.browser || session.stopped || is_seen(session.machine)) continue;
    session.stopped = true;
    session.watches = false;
  }
}

void Expected::restart() {
  sessions.clear();
  endings.clear();
  browsers.clear();
  for (ExpectedMachine& machine : machines) {
    machine.connected = false;
    machine.steering = 0;
    machine.refused = 0;
    machine.box.reset();
  }
}

}  // namespace vlk::relay::model
