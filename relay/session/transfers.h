// Files on their way between browsers and machines: the numbers that tell them apart, what a browser may send
// for each, and which uploads a machine still has open.
//
// An agent takes any number from anybody and keeps an upload open until it is told that it ended, also beyond
// the session and the connection. So the relay hands out the numbers and sees to the ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "relay/base/limits.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// What a session leaves in the audit trail: one line, without whom it is about.
struct AuditNote {
  std::string event;  // of transfers "download", "download-end", "upload" or "upload-end"
  std::string detail;
};

// What is to become of a browser's message.
struct TransferRuling {
  enum class Kind {
    Pass,     // on to the machine; the message may have been written anew
    Swallow,  // dealt with here
    Refuse,
  };
  Kind kind = Kind::Pass;
  std::string refusal;         // a sentence for the browser
  std::uint32_t transfer = 0;  // that it is about, if known
  std::optional<AuditNote> note{};
};

// Used on the relay's one thread.
class Transfers {
 public:
  // Numbers rise from behind `start`.
  explicit Transfers(std::uint32_t start) : last_(start) {}

  // A number for one transfer of the session, never given before in the relay's life; 0 when the session has
  // kOpenPerSession of them open.
  std::uint32_t give(std::uint32_t session);

  // A browser's message about a transfer. Those in JSON are written anew, in a form that the agent's reader
  // cannot take for anything else than what was judged here.
  TransferRuling from_browser(std::uint32_t session, Msg type, Bytes& message);
  // A machine's message about a transfer: whether the browser still wants it, and an end for the audit trail.
  struct Delivery {
    bool wanted = true;
    std::optional<AuditNote> note{};
  };
  Delivery from_agent(std::uint32_t session, Msg type, const Bytes& message);

  struct Leftovers {
    std::vector<std::uint32_t> uploads;  // that the machine still holds open
    std::vector<AuditNote> notes;
  };
  // Forgets the session's transfers.
  Leftovers end_session(std::uint32_t session);

  // Uploads that ended, of which the machine is told `now` or, when it is away, later. What is sent can get
  // lost with its connection, so each is owed until the machine has shown that it read on.
  void owe(const std::string& agent, const std::vector<std::uint32_t>& uploads, Clock::time_point now);
  // All that a machine is owed, to be told anew `now`.
  std::vector<std::uint32_t> owed(const std::string& agent, Clock::time_point now);
  // The machine has read what was sent before `told`.
  void settle(const std::string& agent, Clock::time_point told);

  static constexpr std::size_t kOpenPerSession = 1024;
  static constexpr std::size_t kOwedPerAgent = 4 * kOpenPerSession;
  static constexpr std::size_t kLongestEnd = 4096;   // bytes of a machine's word that a download is over
  static constexpr std::size_t kLongestPath = 4096;  // bytes that the audit trail keeps

 private:
  struct Transfer {
    enum class State { Given, Download, Unwanted, Upload };
    State state = State::Given;
    std::uint64_t bytes = 0;
  };
  struct Owed {
    std::uint32_t upload;
    Clock::time_point told;
  };
  using Numbers = std::map<std::uint32_t, Transfer>;

  static TransferRuling begin(std::uint32_t session, Numbers& numbers, Msg type, Bytes& message);
  static TransferRuling chunk(Numbers& numbers, const Bytes& message);
  static TransferRuling end(std::uint32_t session, Numbers& numbers, Bytes& message);

  std::map<std::uint32_t, Numbers> sessions_;
  std::map<std::string, std::vector<Owed>> owed_;  // by agent
  std::uint32_t last_;
};

// Whether messages of that type are about a transfer.
bool is_transfer(Msg type);

// Tells a machine that an upload is over.
std::shared_ptr<const Bytes> upload_end(std::uint32_t session, std::uint32_t transfer);

}  // namespace vlk::relay
