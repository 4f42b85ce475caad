// File transfers between browsers and machines: their numbers, what a browser may send for each, and which
// uploads a machine still has open.
//
// An agent accepts any transfer number, and keeps an upload's file open until it is told of the upload's end,
// even after the session and the connection. So the relay gives out the numbers and makes sure that each end
// is sent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/base/clock.h"
#include "relay/base/thread_checker.h"
#include "relay/storage/audit_record.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// The decision about a browser's message. Its note is a "download", "upload" or "upload-end".
struct TransferRuling {
  enum class Kind {
    Pass,     // goes to the machine; the message may have been rewritten
    Swallow,  // ends here
    Refuse,   // ends here; the browser is told `refusal`
  };
  Kind kind = Kind::Pass;
  std::string refusal;         // a sentence
  std::uint32_t transfer = 0;  // the transfer's number, or 0 if the message names none
  std::optional<AuditNote> note{};
};

// Used on the relay's one thread.
class Transfers {
 public:
  // The first transfer gets the number after `start`.
  explicit Transfers(std::uint32_t start) : last_(start) {}

  // A number for one transfer of the session, never given before by this relay process; 0 when the session
  // has kOpenPerSession transfers open.
  [[nodiscard]] std::uint32_t give(std::uint32_t session);

  // Decides about a browser's message. A JSON message that passes is rewritten, so that the agent's reader,
  // which searches the text for keys, finds exactly what was checked here.
  [[nodiscard]] TransferRuling from_browser(std::uint32_t session, Msg type, Bytes& message);
  // Whether a browser still wants a machine's message, and a "download-end" for the audit trail.
  struct Delivery {
    bool wanted = true;
    std::optional<AuditNote> note{};
  };
  [[nodiscard]] Delivery from_agent(std::uint32_t session, Msg type, const Bytes& message);

  struct Leftovers {
    std::vector<std::uint32_t> uploads;  // whose files the machine still has open
    std::vector<AuditNote> notes;
  };
  // Forgets the transfers of a session that ended. The caller tells the machine of the open uploads' ends.
  [[nodiscard]] Leftovers end_session(std::uint32_t session);

  // Uploads whose end the machine is told at `now` or, if it is not connected, later. A message can be lost
  // with its connection, so each end is owed until the machine has answered a later heartbeat.
  void owe(const std::string& agent, const std::vector<std::uint32_t>& uploads, Clock::time_point now);
  // All ends that the machine is owed. The caller sends them again at `now`.
  [[nodiscard]] std::vector<std::uint32_t> owed(const std::string& agent, Clock::time_point now);
  // The machine has read everything that was sent before `sent_at`.
  void settle(const std::string& agent, Clock::time_point sent_at);

  static constexpr std::size_t kOpenPerSession = 1024;
  static constexpr std::size_t kOwedPerAgent = 4 * kOpenPerSession;
  static constexpr std::size_t kLongestEnd = 4096;   // bytes of a machine's message that a download ended
  static constexpr std::size_t kLongestPath = 4096;  // bytes of a path in the audit trail

 private:
  struct Transfer {
    // An Unwanted one is a download that the browser cancelled.
    enum class State { Given, Download, Unwanted, Upload };
    State state = State::Given;
    std::uint64_t bytes = 0;
  };
  struct Owed {
    std::uint32_t upload;
    Clock::time_point sent_at;
  };
  using Numbers = std::map<std::uint32_t, Transfer>;

  static TransferRuling begin(std::uint32_t session, Numbers& numbers, Msg type, Bytes& message);
  static TransferRuling chunk(Numbers& numbers, const Bytes& message);
  static TransferRuling end(std::uint32_t session, Numbers& numbers, Bytes& message);

  const ThreadChecker thread_;
  std::map<std::uint32_t, Numbers> sessions_;
  std::map<std::string, std::vector<Owed>> owed_;  // by agent
  std::uint32_t last_;
};

// True for the types of messages that belong to a transfer.
[[nodiscard]] bool is_transfer(Msg type);

// The message that tells a machine that an upload ended.
[[nodiscard]] std::shared_ptr<const Bytes> upload_end(std::uint32_t session, std::uint32_t transfer);

}  // namespace vlk::relay
