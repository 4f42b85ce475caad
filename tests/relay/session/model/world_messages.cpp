// Messages of sessions, in both directions. The relay's connections do the same with each decision of the
// router.
#include <array>
#include <iterator>

#include "relay/session/model/world.h"

namespace vlk::relay::model {
namespace {

// Each code of the protocol, and some that it does not have. Frequent ones stand more than once.
constexpr std::array kCodes{80,  80,  80,  80,  80, 80, 81, 81, 84, 85,  85,  86,  86,  86,  86,  86,
                            87,  87,  88,  88,  89, 89, 90, 96, 98, 98,  99,  99,  99,  100, 100, 100,
                            101, 101, 112, 114, 1,  3,  4,  16, 17, 18,  19,  20,  65,  67,  68,  70,
                            82,  83,  91,  97,  0,  7,  79, 92, 95, 102, 111, 113, 115, 200};
constexpr std::array kMachineCodes{82, 83, 83, 83, 83, 83, 83, 87, 87, 91,  97,  100, 100, 101, 101, 80, 81,
                                   84, 85, 86, 88, 89, 90, 96, 98, 99, 112, 114, 65,  70,  0,   7,   79, 200};

constexpr std::size_t kData = 4;  // bytes of the file in each chunk

}  // namespace

std::uint32_t World::some_transfer(std::uint32_t session, std::uint32_t choice) const {
  const auto found = expected_.sessions.find(session);
  if (found == expected_.sessions.end() || found->second.transfers.empty() || choice % 8 == 0) return choice;
  const auto& all = found->second.transfers;
  return std::next(all.begin(), static_cast<std::ptrdiff_t>(choice / 8 % all.size()))->first;
}

Message World::some_message(const Step& step, std::uint32_t session) const {
  const bool machine = step.what == Do::FromMachine;
  const std::uint32_t choice = step.c % 1024;
  const int code =
      machine ? kMachineCodes.at(choice % kMachineCodes.size()) : kCodes.at(choice % kCodes.size());
  return {code, session, step.c / 1024 % 1024, some_transfer(session, step.c / 1024)};
}

void World::give_transfer(std::size_t slot, std::uint32_t number) {
  ExpectedSession* session = expected_.of_browser(slot, number);
  if (!session || !session->running || !(expected_.rights(number) & (kFilesUp | kFilesDown))) return;
  session->transfers[parts_->transfers.give(number)] = {};
}

// The browser gets what it has not confirmed of the download.
void World::continue_transfer(std::size_t slot, std::uint32_t number, std::uint32_t id) {
  const Console peer = browsers_.at(slot).peer;
  ExpectedTransfer* transfer = expected_.continues(slot, number, id);
  const Line chunk{100, number, payload_of({100, number, 0, id}, true)};
  const Line end{101, number, payload_of({101, number, 0, id}, true)};
  if (transfer && transfer->kept()) {
    transfer->waits = false;
    for (std::size_t i = transfer->confirmed; i < transfer->chunks; ++i)
      wanted_.emplace_back(slot, chunk);
    if (transfer->stage == TransferStage::Sent) wanted_.emplace_back(slot, end);
  }
  continued_.reset();
  parts_->sessions.continue_transfer(*peer, number, id, transfer ? kData * transfer->confirmed : 0);
  const auto deadline = Clock::now() + std::chrono::seconds{10};
  // The disk is read meanwhile.
  do {
    deliver();
    settle();
  } while (received_.size() < wanted_.size() && Clock::now() < deadline);
  require(continued_.has_value() == (transfer != nullptr), "the transfer should continue, or should not");
}

// The browser has all that the machine has sent of the download.
void World::confirm_transfer(std::size_t slot, std::uint32_t number, std::uint32_t id) {
  ExpectedTransfer* transfer = expected_.continues(slot, number, id);
  if (!transfer || !transfer->kept()) return;
  transfer->confirmed = transfer->chunks;
  parts_->downloads.stored(number, id, kData * transfer->chunks);
  const bool over = parts_->downloads.finish(number, id);
  require(over == (transfer->stage == TransferStage::Sent), "the download is over, or is not");
  if (!over) return;
  parts_->transfers.forget(number, id);
  expected_.of_browser(slot, number)->transfers.erase(id);
}

void World::send_from_browser(std::size_t slot, const Message& message) {
  done_ += ", type " + std::to_string(message.code) + ", value " + std::to_string(message.value % 6);
  const Console peer = browsers_.at(slot).peer;
  const auto session = expected_.sessions.find(message.session);
  const std::size_t machine = session == expected_.sessions.end() ? 0 : session->second.machine;
  const std::string payload = payload_of(message, false);
  Bytes bytes = envelope_of(static_cast<Msg>(message.code), message.session, payload);
  const Ruling ruling = expected_.from_browser(slot, message);
  const Route route = parts_->router.route_from_browser(*peer, bytes);
  const bool key_frame = message.code == 84 && ruling == Ruling::Pass;
  const auto matches = [&](Ruling expected, Route::Kind kind) {
    return (ruling == expected) == (route.kind == kind);
  };
  require(matches(Ruling::Refuse, Route::Kind::Refuse), "the message should be refused, or should not");
  require(matches(Ruling::Watch, Route::Kind::ForRelay), "the message asks to watch, or does not");
  require(key_frame || matches(Ruling::Pass, Route::Kind::Forward), "the message should pass, or should not");
  if (ruling == Ruling::Pass) {
    forwarded_ = Received{machine, Line{message.code, message.session, payload}};
    may_be_forwarded_ = key_frame;
  }
  if (route.kind == Route::Kind::ForRelay) parts_->sessions.watch(message.session);
  if (route.kind != Route::Kind::Forward) return;
  route.to->send_binary(hold(std::move(bytes), {}));
  if (const Session* of = parts_->sessions.find(message.session))
    Sessions::send_orders(*of->agent, route.then);
  if (route.stream_changed) parts_->sessions.report_stream(message.session);
}

void World::send_from_machine(std::size_t index, const Message& message) {
  Machine& machine = machines_[index];
  if (!machine.peer) return;
  done_ += ": " + machine.id + ", session " + std::to_string(message.session) + ", type " +
           std::to_string(message.code);
  const std::string payload = payload_of(message, true);
  for (const auto& [slot, number] : expected_.from_machine(index, message, machine.fake.streaming))
    wanted_.emplace_back(slot, Line{message.code, number, payload});
  Bytes bytes = envelope_of(static_cast<Msg>(message.code), message.session, payload);
  const Route route = parts_->router.route_from_agent(*machine.peer, bytes);
  require(wanted_.empty() || route.kind == Route::Kind::Forward, "the message should pass to a browser");
  if (route.kind != Route::Kind::Forward) return;
  require(route.picture || route.download != 0 || !wanted_.empty(), "the message should not pass");
  if (route.picture) return show(machine, route, std::move(bytes));
  if (route.download != 0) {
    const auto held = hold(std::move(bytes), {});
    if (message.code == 100) return parts_->downloads.add_chunk(message.session, route.download, held);
    return parts_->downloads.add_end(message.session, route.download, held);
  }
  require(route.to != nullptr, "a message that is not a picture has no receiver");
  if (route.to) route.to->send_binary(hold(std::move(bytes), {}), message.session);
}

void World::show(Machine& machine, const Route& route, Bytes message) {
  const auto bytes = hold(std::move(message), {});
  machine.peer->recent.add(bytes, *route.picture, parts_->recent_pictures);
  bool needed = route.key_frame_needed;
  parts_->sessions.each_viewer(*machine.peer, route.header.session, [&](const Session& viewer) {
    const auto header = header_for(*bytes, viewer.number);
    if (!viewer.console->channel->send_picture(bytes, viewer.number, *route.picture, header)) needed = true;
  });
  SharedStream& stream = machine.peer->stream;
  const auto now = Clock::now();
  if (needed ? stream.need_key_frame(now) : stream.key_frame_due(now))
    machine.peer->channel->send_binary(json_envelope(Msg::KeyframeRequest, route.header.session, "{}"));
}

}  // namespace vlk::relay::model
