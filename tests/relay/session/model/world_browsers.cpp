// Steps of browsers: connections, and the control messages about sessions.
#include <iterator>

#include <nlohmann/json.hpp>

#include "relay/session/model/world.h"

namespace vlk::relay::model {

std::uint32_t World::some_session(std::uint32_t choice) const {
  const auto nth = [&](const auto& all) {
    return std::next(all.begin(), static_cast<std::ptrdiff_t>(choice / 8 % all.size()))->first;
  };
  if (choice % 8 == 0 && !expected_.endings.empty()) return nth(expected_.endings);
  if (choice % 8 == 1 || expected_.sessions.empty()) return choice;
  return nth(expected_.sessions);
}

void World::browse(std::size_t slot, std::size_t login) {
  const std::size_t person = login % kPeople;
  const std::string name = "login " + std::to_string(login) + "." + std::to_string(generations_[login]);
  const auto peer = std::make_shared<ConsolePeer>();
  peer->channel = std::make_shared<Channel>(io_.get_executor(), limits_.queue_bytes);
  peer->address = "10.0.0.2:2000";
  peer->representative = "person " + std::to_string(person);
  peer->person = static_cast<PersonId>(person) + 1;
  peer->login = Bytes(name.begin(), name.end());
  parts_->browsers.add(peer);
  browsers_[slot].peer = peer;
  expected_.browsers[slot] = {person, name};
}

void World::drop(std::size_t slot) {
  const Console peer = browsers_.at(slot).peer;
  peer->channel->cut("test");
  browsers_.erase(slot);
  expected_.drop(slot, limits_.hold.count() != 0);
  parts_->sessions.hold_all_of(*peer, Clock::now());
  parts_->browsers.remove(peer);
}

void World::open(std::size_t slot, std::size_t machine) {
  new_session_.reset();
  refusal_.clear();
  const Expected::Opening opening = expected_.open(slot, machine);
  parts_->sessions.open(browsers_.at(slot).peer, machines_[machine].id);
  const bool asks = opening.refusal.empty() && !opening.resumed;
  // The new session is in the model when the machine gets the request.
  deliver();
  require(new_session_.has_value() == asks,
          "the request for a session should " +
              (asks ? std::string("reach the machine") : "be refused: " + opening.refusal));
  if (new_session_) {
    expected_.opened(slot, machine, *new_session_);
    done_ += ": " + std::to_string(*new_session_) + " of person " +
             std::to_string(expected_.browsers.at(slot).person) + " with " + machines_[machine].id;
    require(machines_[machine].fake.box == *new_session_, "the machine's user is not asked");
  }
  require(refusal_ == opening.refusal,
          "the request is refused because of \"" + refusal_ + "\" instead of \"" + opening.refusal + "\"");
}

// Selects a browser, and most often a session that it has.
void World::act(const Step& step) {
  if (step.what == Do::Browse) {
    if (const std::size_t slot = step.a % kBrowsers; !browsers_.contains(slot))
      browse(slot, step.b % kLogins);
    return;
  }
  if (step.what == Do::FromMachine) {
    const std::size_t machine = step.a % kMachines;
    const std::uint32_t streaming = machines_[machine].fake.streaming;
    const bool of_stream = streaming != 0 && step.b % 4 == 0;
    return send_from_machine(machine, some_message(step, of_stream ? streaming : some_session(step.b)));
  }
  if (browsers_.empty()) return;
  std::size_t slot =
      std::next(browsers_.begin(), static_cast<std::ptrdiff_t>(step.a / 8 % browsers_.size()))->first;
  if (step.what == Do::Drop) return drop(slot);
  if (step.what == Do::Open) return open(slot, step.b % kMachines);
  const std::uint32_t number = some_session(step.b);
  const auto session = expected_.sessions.find(number);
  if (step.what == Do::Resume) {
    // Most often by a browser of the same log-in.
    for (const auto& [other, browser] : expected_.browsers) {
      if (step.a % 8 != 0 && session != expected_.sessions.end() && browser.login == session->second.login)
        slot = other;
    }
  } else if (step.a % 8 != 0 && session != expected_.sessions.end() && session->second.browser) {
    slot = *session->second.browser;
  }
  done_ += ": browser " + std::to_string(slot) + ", session " + std::to_string(number);
  control(step, slot, number);
}

void World::control(const Step& step, std::size_t slot, std::uint32_t number) {
  const Console peer = browsers_.at(slot).peer;
  switch (step.what) {
    case Do::Resume:
      expected_.resume(slot, number);
      return parts_->sessions.resume(peer, number);
    case Do::Close:
      expected_.close(slot, number);
      return parts_->sessions.close(*peer, number);
    case Do::Choices: {
      const std::string choices = Json{{"monitor", step.c % 3}}.dump();
      if (ExpectedSession* session = expected_.of_browser(slot, number)) {
        session->choices = choices;
        browsers_.at(slot).known[number].choices = choices;
      }
      return parts_->sessions.keep_choices(*peer, number, choices);
    }
    case Do::Cut: {
      const ExpectedSession* session = expected_.of_browser(slot, number);
      if (!session || !session->running) return parts_->sessions.cut(*peer, number);
      const std::size_t machine = session->machine;
      parts_->sessions.cut(*peer, number);
      require(machines_[machine].peer->channel->closing(), "the machine's connection is not cut");
      return disconnect(machine);
    }
    case Do::FromBrowser:
      return send_from_browser(slot, some_message(step, number));
    case Do::Transfer:
      return give_transfer(slot, number);
    case Do::Continue:
      return continue_transfer(slot, number, some_transfer(number, step.c));
    case Do::Confirm:
      return confirm_transfer(slot, number, some_transfer(number, step.c));
    default:
      return act_with(step.what, slot, number, some_session(step.c));
  }
}

void World::act_with(Do what, std::size_t slot, std::uint32_t number, std::uint32_t other) {
  ConsolePeer& peer = *browsers_.at(slot).peer;
  // Most often, the other session is one with the same machine.
  const auto session = expected_.sessions.find(number);
  if (session != expected_.sessions.end() && other % 4 != 0) {
    const auto running = expected_.running_on(session->second.machine);
    if (!running.empty()) other = running[other % running.size()];
  }
  if (what == Do::HandOver || what == Do::RefuseSteering) done_ += " to " + std::to_string(other);
  switch (what) {
    case Do::Steer: {
      const bool known = session != expected_.sessions.end();
      // The pause after a refusal follows the real clock.
      if (known && session->second.refused &&
          Clock::now() - *session->second.refused > std::chrono::seconds{25})
        return;
      expected_.steer(slot, number);
      return parts_->sessions.ask_to_steer(peer, number);
    }
    case Do::HandOver:
      expected_.hand_over(slot, number, other);
      return parts_->sessions.hand_over(peer, number, other);
    case Do::RefuseSteering:
      expected_.refuse_steering(slot, number, other);
      return parts_->sessions.refuse_steering(peer, number, other);
    default:
      expected_.take_over(slot, number);
      return parts_->sessions.take_over(peer, number);
  }
}

}  // namespace vlk::relay::model
