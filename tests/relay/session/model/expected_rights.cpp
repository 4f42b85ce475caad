// Who steers, what each session may do, and which messages pass.
#include <algorithm>
#include <chrono>

#include "relay/session/model/expected.h"

namespace vlk::relay::model {

Rights Expected::granted(std::size_t person, std::size_t machine) const {
  const ExpectedPerson& who = people[person];
  if (who.disabled) return kNoRights;
  return who.administrator ? kAllRights : effective(who.given[machines[machine].group]);
}

bool Expected::eyes_missing(std::size_t machine) const {
  if (!four_eyes[machines[machine].group]) return false;
  std::set<std::size_t> present;
  for (const auto& [number, session] : sessions) {
    if (session.machine == machine && session.accepted()) present.insert(session.person);
  }
  return present.size() < 2;
}

// The right to remove the machine from the list has no effect in a session, so nothing limits it.
Rights Expected::rights(std::uint32_t number) const {
  const ExpectedSession& session = sessions.at(number);
  if (!session.running) return kNoRights;
  const Rights all = granted(session.person, session.machine);
  if (eyes_missing(session.machine)) return all & (kSee | kForget);
  if (machines[session.machine].steering == number) return all;
  return all & (kSee | kFilesUp | kFilesDown | kForget);
}

void Expected::set_steering(std::size_t machine, std::uint32_t number) {
  machines[machine].steering = number;
  sessions.at(number).asks = 0;
}

// Brings up to date what depends on the machine's other sessions.
void Expected::settle(std::size_t machine) {
  const auto running = running_on(machine);
  std::uint32_t& steering = machines[machine].steering;
  if (std::ranges::find(running, steering) == running.end()) {
    steering = 0;
    std::uint64_t earliest = 0;
    std::uint32_t next = 0;
    for (const std::uint32_t number : running) {
      const ExpectedSession& session = sessions.at(number);
      if (!session.browser || session.asks == 0 || (next != 0 && session.asks > earliest)) continue;
      next = number;
      earliest = session.asks;
    }
    if (next != 0) set_steering(machine, next);
  }
  for (const std::uint32_t number : running) {
    ExpectedSession& session = sessions.at(number);
    const Rights now = rights(number);
    const Rights lost = session.settled & ~now;
    session.settled = now;
    std::erase_if(session.transfers, [&](const auto& entry) {
      const TransferStage stage = entry.second.stage;
      return ((lost & kFilesUp) && stage == TransferStage::Upload) ||
             ((lost & kFilesDown) && stage == TransferStage::Sent);
    });
    for (auto& [id, transfer] : session.transfers) {
      if ((lost & kFilesDown) && transfer.stage == TransferStage::Download)
        transfer.stage = TransferStage::Unwanted;
    }
  }
}

void Expected::steer(std::size_t browser, std::uint32_t number) {
  ExpectedSession* session = of_browser(browser, number);
  if (!session || !session->running) return;
  const std::size_t machine = session->machine;
  const std::uint32_t steering = machines[machine].steering;
  if (steering == number) return;
  const auto found = sessions.find(steering);
  bool free = found == sessions.end() || !found->second.browser;
  if (!free) {
    // Between two people without the right to control, nobody is preferred.
    const Rights theirs = granted(found->second.person, machine);
    free = !(theirs & kControl) && (granted(session->person, machine) & kControl);
  }
  if (free) {
    set_steering(machine, number);
  } else if (!session->refused && session->asks == 0) {
    session->asks = ++requests_;
  }
  settle(machine);
}

void Expected::hand_over(std::size_t browser, std::uint32_t number, std::uint32_t to) {
  const ExpectedSession* session = of_browser(browser, number);
  if (!session || machines[session->machine].steering != number) return;
  const auto next = sessions.find(to);
  if (next == sessions.end() || next->second.machine != session->machine || !next->second.accepted()) return;
  set_steering(session->machine, to);
  settle(session->machine);
}

void Expected::refuse_steering(std::size_t browser, std::uint32_t number, std::uint32_t to) {
  const ExpectedSession* session = of_browser(browser, number);
  if (!session || machines[session->machine].steering != number) return;
  const auto asking = sessions.find(to);
  if (asking == sessions.end() || asking->second.machine != session->machine || asking->second.asks == 0)
    return;
  asking->second.asks = 0;
  asking->second.refused = Clock::now();
}

void Expected::take_over(std::size_t browser, std::uint32_t number) {
  const ExpectedSession* session = of_browser(browser, number);
  if (!session || !session->running || !people[session->person].administrator) return;
  set_steering(session->machine, number);
  settle(session->machine);
}

Ruling Expected::from_browser(std::size_t browser, const Message& message) {
  ExpectedSession* session = of_browser(browser, message.session);
  if (!session || !session->running || !exists_to_machine(message.code)) return Ruling::Refuse;
  if (!allowed_to_machine(message, rights(message.session))) return Ruling::Refuse;
  if (is_transfer_code(message.code)) return about_transfer(*session, message);
  return about_stream(*session, message);
}

// Messages that are not about the stream pass.
Ruling Expected::about_stream(ExpectedSession& session, const Message& message) {
  Shown& shown = machines[session.machine].shown;
  const bool streams = !watching(session.machine).empty();
  const bool chooses = !streams || machines[session.machine].steering == message.session;
  switch (message.code) {
    case 80:
      session.watches = true;
      if (!chooses) return Ruling::Watch;
      shown = shown_by_start(message);
      break;
    case 81:
      session.watches = false;
      break;
    case 85:
      if (chooses) shown.monitor = static_cast<int>(message.value % 3);
      return chooses ? Ruling::Pass : Ruling::Drop;
    case 88:
      if (chooses) shown.jpeg = message.value % 2 == 1;
      return chooses ? Ruling::Pass : Ruling::Drop;
    case 89:
      if (chooses) shown.pointer = message.value % 2 == 1;
      return chooses ? Ruling::Pass : Ruling::Drop;
    default:
      break;
  }
  return Ruling::Pass;
}

Ruling Expected::about_transfer(ExpectedSession& session, const Message& message) {
  const auto found = session.transfers.find(message.transfer);
  if (found == session.transfers.end()) return Ruling::Refuse;
  TransferStage& stage = found->second.stage;
  if (message.code == 98 || message.code == 99) {
    if (stage != TransferStage::Given) return Ruling::Refuse;
    found->second.waits = false;
    stage = message.code == 99 ? TransferStage::Upload : TransferStage::Download;
    return Ruling::Pass;
  }
  const bool upload = stage == TransferStage::Upload;
  if (message.code == 100) return upload ? Ruling::Pass : Ruling::Refuse;
  if (stage == TransferStage::Download) {
    stage = TransferStage::Unwanted;
  } else if (stage != TransferStage::Unwanted) {
    session.transfers.erase(found);
  }
  return upload ? Ruling::Pass : Ruling::Drop;
}

std::vector<std::pair<std::size_t, std::uint32_t>> Expected::from_machine(std::size_t machine,
                                                                          const Message& message,
                                                                          std::uint32_t streaming) {
  const auto found = sessions.find(message.session);
  if (found == sessions.end() || found->second.machine != machine || !found->second.running) return {};
  ExpectedSession& session = found->second;
  const bool allowed = allowed_to_browser(message, rights(message.session));
  std::vector<std::pair<std::size_t, std::uint32_t>> receivers;
  if (const auto viewers = watching(machine); is_picture(message.code) && !viewers.empty()) {
    for (const std::uint32_t number : viewers) {
      const ExpectedSession& viewer = sessions.at(number);
      if (message.session == streaming && viewer.browser) receivers.emplace_back(*viewer.browser, number);
    }
    return receivers;
  }
  const bool wanted = delivers(session, message);
  if (wanted && allowed && session.browser) receivers.emplace_back(*session.browser, message.session);
  return receivers;
}

bool Expected::delivers(ExpectedSession& session, const Message& message) {
  if (!is_transfer_code(message.code)) return true;
  const auto found = session.transfers.find(message.transfer);
  if (found == session.transfers.end()) return true;
  ExpectedTransfer& transfer = found->second;
  const bool wanted = transfer.stage != TransferStage::Unwanted;
  const bool kept = transfer.stage == TransferStage::Download;
  if (message.code == 100) {
    if (kept) ++transfer.chunks;
    return wanted && !(kept && transfer.waits);
  }
  if (message.code != 101) return true;
  const bool reaches = !(kept && transfer.waits);
  if (kept) transfer.stage = TransferStage::Sent;
  if (!wanted) session.transfers.erase(found);
  return reaches;
}

ExpectedTransfer* Expected::continues(std::size_t browser, std::uint32_t number, std::uint32_t transfer) {
  ExpectedSession* session = of_browser(browser, number);
  if (!session || !session->running) return nullptr;
  const auto found = session->transfers.find(transfer);
  if (found == session->transfers.end()) return nullptr;
  return found->second.kept() || found->second.stage == TransferStage::Upload ? &found->second : nullptr;
}

}  // namespace vlk::relay::model
