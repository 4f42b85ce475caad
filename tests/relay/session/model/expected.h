// What the relay's sessions should be, by the documents of the protocol: a model without connections,
// messages and time. It is written apart from the relay's own code.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "relay/base/clock.h"
#include "relay/session/model/wire.h"

namespace vlk::relay::model {

inline constexpr std::size_t kMachines = 3;
inline constexpr std::size_t kPeople = 5;
inline constexpr std::size_t kGroups = 2;
inline constexpr std::size_t kMostSessionsOfMachine = 4;
inline constexpr std::size_t kMostSessionsOfLogin = 2;

struct ExpectedPerson {
  bool administrator = false;
  bool disabled = false;
  std::array<Rights, kGroups> given{};
};

enum class TransferStage : std::uint8_t { Given, Download, Unwanted, Sent, Upload };

struct ExpectedTransfer {
  TransferStage stage = TransferStage::Given;
  bool waits = false;         // of a download: the browser has come back and has not continued it
  std::size_t chunks = 0;     // of a download: those that the machine has sent
  std::size_t confirmed = 0;  // of these

  [[nodiscard]] bool kept() const { return stage == TransferStage::Download || stage == TransferStage::Sent; }
};

struct ExpectedSession {
  std::size_t machine = 0;
  std::size_t person = 0;
  std::string login{};
  std::optional<std::size_t> browser{};  // none while it is away
  bool running = false;                  // the machine has accepted
  std::uint64_t asks = 0;                // when it asked to steer, counted; 0 if it does not
  std::optional<Clock::time_point> refused{};
  bool watches = false;
  bool stopped = false;  // while the browser is away: the stream was stopped
  Rights settled = kNoRights;
  std::map<std::uint32_t, ExpectedTransfer> transfers{};
  std::string choices{};

  [[nodiscard]] bool accepted() const { return running && browser; }
};

struct ExpectedMachine {
  struct Box {
    std::uint32_t session = 0;
    bool ended = false;
  };
  std::size_t group = 0;
  bool connected = false;
  bool quarantined = false;
  bool blocked = false;
  std::uint32_t steering = 0;
  Shown shown{};
  std::optional<Box> box{};
  std::size_t refused = 0;  // questions that did not lead to a session
};

// The limits that are over in a tick.
struct Expired {
  bool consent = false;
  bool held_stream = false;
  bool hold = false;
  bool lost_question = false;
};

enum class Ruling : std::uint8_t { Refuse, Drop, Pass, Watch };

class Expected {
 public:
  using Sessions = std::map<std::uint32_t, ExpectedSession>;
  // The browser, the session, and the reason for its end.
  using Ended = std::tuple<std::size_t, std::uint32_t, std::string>;
  struct Browser {
    std::size_t person = 0;
    std::string login{};
  };
  struct Opening {
    std::string refusal{};                   // the code; empty if not refused
    std::optional<std::uint32_t> resumed{};  // instead of a new session
  };

  // Rights. A session that does not steer sees and moves files; without a second pair of eyes it only sees.
  [[nodiscard]] Rights granted(std::size_t person, std::size_t machine) const;
  [[nodiscard]] Rights rights(std::uint32_t number) const;
  [[nodiscard]] bool eyes_missing(std::size_t machine) const;
  [[nodiscard]] std::vector<std::uint32_t> running_on(std::size_t machine) const;
  [[nodiscard]] std::set<std::uint32_t> watching(std::size_t machine) const;
  [[nodiscard]] bool is_seen(std::size_t machine) const;
  [[nodiscard]] ExpectedSession* of_browser(std::size_t browser, std::uint32_t number);

  Opening open(std::size_t browser, std::size_t machine);
  void opened(std::size_t browser, std::size_t machine, std::uint32_t number);
  // True if the browser now has the session.
  bool resume(std::size_t browser, std::uint32_t number);
  void close(std::size_t browser, std::uint32_t number);
  void drop(std::size_t browser, bool held);
  void answer(std::size_t machine, std::uint32_t number, bool accepted);
  void end(std::uint32_t number, const std::string& reason);
  void end_all_on(std::size_t machine, const std::string& reason);
  void end_all_of(const std::string& login, const std::string& reason);
  void disconnect(std::size_t machine, const std::string& reason);
  void refresh();
  void tick(const Expired& expired);
  void restart();

  void steer(std::size_t browser, std::uint32_t number);
  void hand_over(std::size_t browser, std::uint32_t number, std::uint32_t to);
  void refuse_steering(std::size_t browser, std::uint32_t number, std::uint32_t to);
  void take_over(std::size_t browser, std::uint32_t number);

  // The transfer that the browser can continue, or null.
  [[nodiscard]] ExpectedTransfer* continues(std::size_t browser, std::uint32_t number,
                                            std::uint32_t transfer);
  Ruling from_browser(std::size_t browser, const Message& message);
  // The browsers that get the message, and the session that it has there. `streaming` is the session of the
  // machine's stream.
  std::vector<std::pair<std::size_t, std::uint32_t>> from_machine(std::size_t machine, const Message& message,
                                                                  std::uint32_t streaming);

  std::array<ExpectedPerson, kPeople> people{};
  std::array<bool, kGroups> four_eyes{};
  std::array<ExpectedMachine, kMachines> machines{};
  std::map<std::size_t, Browser> browsers{};
  Sessions sessions{};
  std::vector<Ended> ended{};  // in this step, and reported to a browser that is there
  std::size_t most_refused = 0;
  // The log-in and the reason of the sessions that have ended since the start of the relay.
  std::map<std::uint32_t, std::pair<std::string, std::string>> endings{};

 private:
  void settle(std::size_t machine);
  void set_steering(std::size_t machine, std::uint32_t number);
  [[nodiscard]] std::string refusal(const Browser& browser, std::size_t machine) const;
  Ruling about_stream(ExpectedSession& session, const Message& message);
  static void wait_for_continuation(ExpectedSession& session);
  // Whether the message of a machine reaches the session's browser, as far as its transfer decides.
  static bool delivers(ExpectedSession& session, const Message& message);
  static Ruling about_transfer(ExpectedSession& session, const Message& message);

  std::uint64_t requests_ = 0;
};

}  // namespace vlk::relay::model
