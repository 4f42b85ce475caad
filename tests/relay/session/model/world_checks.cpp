// Compares the relay, the machines and the browsers with the model.
#include <algorithm>

#include "relay/session/model/world.h"

namespace vlk::relay::model {
namespace {

std::string text_of(const Shown& shown) {
  return std::to_string(shown.monitor) + " " + std::to_string(shown.max_fps) + " " +
         std::to_string(shown.bitrate) + (shown.jpeg ? " mjpeg" : " h264") +
         (shown.pointer ? " pointer" : "");
}

std::string viewer(std::uint32_t number, const std::string& name, bool steers, bool asks, bool control,
                   bool away) {
  return std::to_string(number) + " " + name + (steers ? " steers" : "") + (asks ? " asks" : "") +
         (control ? " control" : "") + (away ? " away" : "") + "\n";
}

Rights rights_in(const Json& names) {
  Rights rights = kNoRights;
  for (const Json& name : names)
    rights |= right_of_name(name.get<std::string>()).value_or(kSee);
  return rights;
}

std::string at(std::uint32_t number) {
  return " (session " + std::to_string(number) + ")";
}

}  // namespace

// A message that the relay sends by itself, and no browser.
void World::check_own_message(std::size_t machine, const Line& line) {
  const FakeMachine& fake = machines_[machine].fake;
  const auto found = expected_.sessions.find(line.session);
  const bool running = found != expected_.sessions.end() && found->second.running;
  bool good = false;
  if (line.code == 80 || line.code == 88 || line.code == 89) {
    good =
        watched_before_[machine].contains(line.session) || expected_.watching(machine).contains(line.session);
  } else if (line.code == 81) {
    good = running && !found->second.browser;
  } else if (line.code == 84) {
    good = running && doing_ == Do::FromMachine;
  } else if (line.code == 86) {
    const auto down = fake.pressed.find(line.session);
    good = down != fake.pressed.end();
    for (std::size_t i = 1; good && i + 2 < line.payload.size(); i += 3)
      good = line.payload[i + 2] == 0 && down->second.contains(line.payload[i + 1]);
  } else if (line.code == 101) {
    good = line.session == 0 || fake.uploads.contains(Json::parse(line.payload).value("transfer_id", 0u));
  } else if (line.code == 65) {
    good = doing_ == Do::Open;
  } else {
    good = line.code == 70 || line.code == 4;
  }
  require(good, "the machine got a message of type " + std::to_string(line.code) + " that nobody may send" +
                    at(line.session));
}

void World::receive_at_browser(std::size_t slot, const std::string& text) {
  if (text.find(R"("type":"agents)") != text.npos || text.find(R"("type":"waiting")") != text.npos) return;
  const Json message = Json::parse(text);
  const std::string type = message.value("type", "");
  if (type == "continued") continued_ = message["transfer"];
  if (type == "error") refusal_ = message.value("code", "");
  const std::uint32_t number = message.value("session", 0u);
  Known& known = browsers_.at(slot).known[number];
  if (type == "viewers") {
    known.viewers.clear();
    for (const Json& entry : message["viewers"])
      known.viewers += viewer(entry["session"], entry["name"], entry["steers"], entry["asks"],
                              entry["control"], entry["away"]);
    known.viewers += message["four_eyes_missing"] == true ? "four eyes" : "";
    const Json& stream = message["stream"];
    known.stream = text_of({stream["monitor"], stream["max_fps"], stream["bitrate"],
                            stream["codec"] == "mjpeg", stream["pointer"]});
  }
  if (type != "session") return;
  known.state = message["state"];
  if (known.state == "ended") {
    ended_.emplace_back(slot, number, message["reason"]);
    browsers_.at(slot).known.erase(number);
    return;
  }
  if (known.state == "waiting" && !message.contains("resumed")) new_session_ = number;
  if (message.contains("streaming")) known.streaming = message["streaming"];
  if (message.contains("resumed")) known.choices = message.value("choices", Json()).dump();
  if (!message.contains("rights")) return;
  known.rights = rights_in(message["rights"]);
  known.granted = message.contains("granted") ? rights_in(message["granted"]) : known.rights;
}

void World::check() {
  require(parts_->sessions.all().size() == expected_.sessions.size(), "the number of sessions differs");
  for (std::size_t machine = 0; machine < kMachines; ++machine)
    check_machine(machine);
  for (const auto& [number, session] : expected_.sessions)
    check_session(number, session);
  check_ended();
  check_received();
  if (steps_ % 16 == 0) check_list();
}

void World::check_machine(std::size_t index) {
  const Machine& machine = machines_[index];
  if (!machine.peer) return;
  const ExpectedMachine& expected = expected_.machines[index];
  const FakeMachine& fake = machine.fake;
  const auto watching = expected_.watching(index);
  require(machine.peer->steering == expected.steering, "another session steers " + machine.id);
  require(fake.active == watching,
          "the user of " + machine.id + " is shown other sessions than those that watch");
  require(watching.empty() == (fake.streaming == 0),
          "no stream runs on " + machine.id + ", or one for nobody");
  if (!watching.empty()) {
    require(watching.contains(fake.streaming), "the stream has the session of one who does not watch");
    require(!watching.contains(expected.steering) || fake.streaming == expected.steering,
            "the stream does not have the session that steers");
    require(machine.peer->stream.leader() == fake.streaming,
            "the relay expects the stream of another session");
    require(fake.shown == expected.shown,
            "the stream shows " + text_of(fake.shown) + " instead of " + text_of(expected.shown));
  }
  for (const auto& [number, buttons] : fake.pressed) {
    const auto found = expected_.sessions.find(number);
    require(found != expected_.sessions.end() && found->second.accepted() &&
                (expected_.rights(number) & kControl),
            "a button stays down" + at(number));
  }
  std::set<std::uint32_t> uploads;
  for (const auto& [number, session] : expected_.sessions) {
    for (const auto& [id, transfer] : session.transfers) {
      if (session.machine == index && transfer.stage == TransferStage::Upload) uploads.insert(id);
    }
  }
  require(fake.uploads == uploads, "other uploads are open on " + machine.id);
}

std::string World::viewers_of(std::size_t machine) const {
  std::string text;
  for (const std::uint32_t number : expected_.running_on(machine)) {
    const ExpectedSession& session = expected_.sessions.at(number);
    const bool control = (expected_.granted(session.person, machine) & kControl) != 0;
    text +=
        viewer(number, "person " + std::to_string(session.person),
               expected_.machines[machine].steering == number, session.asks != 0, control, !session.browser);
  }
  return text + (expected_.eyes_missing(machine) ? "four eyes" : "");
}

void World::check_session(std::uint32_t number, const ExpectedSession& session) {
  const Session* actual = parts_->sessions.find(number);
  require(actual != nullptr, "a session is missing" + at(number));
  if (!actual) return;
  require(actual->running() == session.running, "the session's state differs" + at(number));
  require(actual->accepted() == session.accepted(), "the session is held, or should be" + at(number));
  require(actual->rights == expected_.rights(number), "the session's rights differ" + at(number));
  if (session.browser) check_browser(number, session);
}

void World::check_browser(std::uint32_t number, const ExpectedSession& session) {
  const auto& all = browsers_.at(*session.browser).known;
  const auto found = all.find(number);
  require(found != all.end(), "the browser does not know its session" + at(number));
  if (found == all.end()) return;
  const Known& known = found->second;
  require(known.state == (session.running ? "accepted" : "waiting"),
          "the browser knows another state" + at(number));
  if (!session.running) return;
  require(known.rights == expected_.rights(number), "the browser knows other rights" + at(number));
  require(known.granted == expected_.granted(session.person, session.machine),
          "the browser knows other rights as granted" + at(number));
  require(known.viewers == viewers_of(session.machine), "the browser knows other viewers" + at(number) +
                                                            ":\n" + known.viewers + "instead of\n" +
                                                            viewers_of(session.machine));
  if (session.watches)
    require(known.stream == text_of(expected_.machines[session.machine].shown),
            "the browser knows another stream" + at(number));
  if (!known.choices.empty() && !session.choices.empty())
    require(known.choices == session.choices, "the browser got other choices" + at(number));
}

void World::check_ended() {
  std::erase_if(expected_.ended, [&](const auto& entry) { return !browsers_.contains(std::get<0>(entry)); });
  std::ranges::sort(expected_.ended);
  std::ranges::sort(ended_);
  if (expected_.ended == ended_) return;
  std::string text = "browsers were told other ends:";
  for (const auto& [slot, number, reason] : ended_)
    text += " " + reason + at(number);
  text += ", instead of:";
  for (const auto& [slot, number, reason] : expected_.ended)
    text += " " + reason + at(number);
  require(false, text);
}

// Only pictures reach a browser without a message of the machine: the recent ones, when it begins to watch.
void World::check_received() {
  if (doing_ == Do::FromMachine) {
    std::ranges::sort(received_);
    std::ranges::sort(wanted_);
    return require(received_ == wanted_, "a machine's message reached other browsers than it should");
  }
  if (doing_ == Do::Continue)
    return require(received_ == wanted_, "a browser did not get the rest of its download in order");
  for (const auto& [slot, line] : received_) {
    const ExpectedSession* session = expected_.of_browser(slot, line.session);
    require(is_picture(line.code) && session && session->running && session->watches,
            "a browser got a message that no machine has sent" + at(line.session));
  }
}

void World::check_list() {
  for (std::size_t index = 0; index < kMachines; ++index) {
    std::string shown;
    std::size_t count = 0;
    for (const auto& [number, session] : expected_.sessions) {
      if (session.machine != index) continue;
      if (++count == 1 || number == expected_.machines[index].steering)
        shown = "person " + std::to_string(session.person);
    }
    const Json entry = Json::parse(parts_->machines.entry(machines_[index].id));
    const Json& representative = entry["representative"];
    require(representative == (count == 0 ? Json() : Json(shown)), "the list names another representative");
    require(entry["others"] == (count == 0 ? 0 : count - 1), "the list counts other sessions");
  }
}

}  // namespace vlk::relay::model
