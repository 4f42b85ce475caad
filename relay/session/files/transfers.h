// File transfers between browsers and machines: their numbers, what a browser may send for each, and which
// uploads a machine still has open.
//
// An agent accepts any transfer number, and keeps an upload's file open until it receives the upload's end
// message, even after the session and the connection have ended. So the relay assigns the numbers and makes
// sure that each machine receives the end messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/base/clock.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/storage/trail/entry.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// The decision about a browser's message.
struct TransferRuling {
  enum class Kind {
    Pass,     // the message goes to the machine; it may have been rewritten
    Swallow,  // the message is dropped without an answer
    Refuse,   // the message is dropped, and the browser receives the error `refusal`
  };
  Kind kind = Kind::Pass;
  std::string refusal;               // a sentence
  std::uint32_t transfer = 0;        // the transfer's number, or 0 if the message has none
  std::uint32_t index = 0;           // of a chunk that passes, as send_to_machine counts chunks
  std::optional<TrailEntry> note{};  // a row for the audit trail
};

// Used on the relay's one thread.
class Transfers {
 public:
  // The first transfer gets the number after `start`.
  explicit Transfers(std::uint32_t start) : last_(start) {}

  // Assigns a number to a new transfer of the session and returns it. The process assigns each number once.
  // Returns 0 if the session has kOpenPerSession open transfers.
  [[nodiscard]] std::uint32_t give(std::uint32_t session);

  // Decides whether a browser's message is sent to the machine. A JSON message that passes is replaced by one
  // with only the checked values, because the agent's JSON reader searches the text for keys and could find
  // other values in the original.
  [[nodiscard]] TransferRuling from_browser(std::uint32_t session, Msg type, Bytes& message);
  // The decision about a machine's message.
  struct Delivery {
    bool wanted = true;                // false if the message is not sent to the browser
    std::uint32_t download = 0;        // the number of the download to which the message belongs, or 0
    std::optional<TrailEntry> note{};  // a row for the audit trail
  };
  [[nodiscard]] Delivery from_agent(std::uint32_t session, Msg type, const Bytes& message);

  // The relay cannot keep what the machine sends of this download, which is dropped from now on.
  void give_up(std::uint32_t session, std::uint32_t download);
  // The browser has the whole download, which the machine has ended.
  void forget(std::uint32_t session, std::uint32_t download);
  struct Open {
    std::uint32_t number = 0;
    bool upload = false;
    std::string path{};       // shortened
    std::uint64_t size = 0;   // of an upload, as the browser stated it
    std::uint64_t bytes = 0;  // of an upload, from the browser
  };
  // The session's transfers that have begun, until the browser knows their end.
  [[nodiscard]] std::vector<Open> open(std::uint32_t session) const;
  // The downloads that were ended early, and that the machine still sends.
  [[nodiscard]] std::vector<std::uint32_t> unwanted(std::uint32_t session) const;

  // Records that so many bytes of an open upload were taken from the queue to the machine again.
  void take_back(std::uint32_t session, std::uint32_t upload, std::uint64_t bytes);
  // The session's uploads that have begun and not ended.
  [[nodiscard]] std::vector<std::uint32_t> open_uploads(std::uint32_t session) const;

  struct Leftovers {
    std::vector<std::uint32_t> uploads;  // uploads whose files the machine still has open
    std::vector<TrailEntry> notes;
  };
  // Removes the transfers of a session that ended. The caller sends the machine an end message for each of
  // the returned uploads.
  [[nodiscard]] Leftovers end_session(std::uint32_t session);

  struct Cut {
    std::vector<std::uint32_t> uploads;  // the caller sends the machine an end message for each
    std::vector<std::uint32_t> downloads;
    std::vector<TrailEntry> notes;
  };
  // Ends the session's open uploads or downloads, or both. The machine may go on to send a download, which is
  // dropped.
  [[nodiscard]] Cut cut(std::uint32_t session, bool uploads, bool downloads);

  // Remembers that the machine must receive the end messages of these uploads. The caller sends them at `now`
  // or, if the machine is not connected, after its next log-in. A message can be lost when a connection ends,
  // so each end message stays owed until the machine has answered a later heartbeat.
  void owe(const std::string& agent, const std::vector<std::uint32_t>& uploads, Clock::time_point now);
  // The uploads whose end messages the machine is owed. The caller sends the messages again at `now`.
  [[nodiscard]] std::vector<std::uint32_t> owed(const std::string& agent, Clock::time_point now);
  // Removes the end messages that were sent before `sent_at`, because the machine has read them.
  void settle(const std::string& agent, Clock::time_point sent_at);

  static constexpr std::size_t kOpenPerSession = 1024;
  static constexpr std::size_t kOwedPerAgent = 4 * kOpenPerSession;
  static constexpr std::size_t kLongestEnd = 4096;   // bytes of a machine's end message of a download
  static constexpr std::size_t kLongestPath = 4096;  // bytes of a path in the audit trail

 private:
  struct Transfer {
    // Given: numbered but not begun. Unwanted: a download whose further chunks are dropped. Sent: a download
    // that the machine has ended, but not all of which the browser has.
    enum class State { Given, Download, Unwanted, Sent, Upload };
    State state = State::Given;
    bool failed = false;  // of an unwanted download: the relay could not keep it
    std::uint64_t bytes = 0;
    std::uint32_t chunks = 0;             // of an upload, to the machine
    std::string path{};                   // shortened
    std::optional<std::uint64_t> size{};  // of an upload, as the browser stated it
  };
  struct Owed {
    std::uint32_t upload = 0;
    Clock::time_point sent_at;
  };
  using Numbers = std::map<std::uint32_t, Transfer>;

  [[nodiscard]] Transfer* find(std::uint32_t session, std::uint32_t number);
  [[nodiscard]] std::vector<std::uint32_t> all_with(std::uint32_t session, Transfer::State state) const;
  static TrailEntry end_note(std::uint32_t number, const Transfer& transfer, const char* how);
  static TransferRuling begin(std::uint32_t session, Numbers& numbers, Msg type, Bytes& message);
  static TransferRuling chunk(Numbers& numbers, const Bytes& message);
  static TransferRuling end(std::uint32_t session, Numbers& numbers, Bytes& message);

  const ThreadChecker thread_;
  std::map<std::uint32_t, Numbers> sessions_;      // by session number
  std::map<std::string, std::vector<Owed>> owed_;  // by agent id
  std::uint32_t last_;
};

inline constexpr std::size_t kChunkHeader =
    8;  // bytes: the transfer's number and the chunk's index, u32 each

// The bytes of the file in a chunk that has a whole header.
[[nodiscard]] std::uint64_t chunk_bytes(const Bytes& message);

// True for the types of messages that belong to a transfer.
[[nodiscard]] bool is_transfer(Msg type);

// The transfer's number in a message that belongs to a transfer; nothing if the message has none.
[[nodiscard]] std::optional<std::uint32_t> transfer_number(Msg type, const Bytes& message);

// The end message of an upload, for the machine.
[[nodiscard]] std::shared_ptr<const Bytes> upload_end(std::uint32_t session, std::uint32_t transfer);

}  // namespace vlk::relay
