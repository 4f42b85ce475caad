// The relay's session parts, fake machines and browsers, and the model beside them. Each step is carried out
// in the relay and in the model; then the two are compared.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "relay/session/model/expected.h"
#include "relay/session/model/fake_machine.h"
#include "relay/session/model/steps.h"
#include "relay/session/parts_fixture.h"

namespace vlk::relay::model {

// The sessions' time limits are hours, and a step passes a later time to the relay's own check of them. The
// pauses after a refusal to steer and between requests for key frames follow the real clock: the model leaves
// out a request that comes near the end of the first, and accepts either decision about the second.
class World : public PartsTest {
 public:
  // The seed chooses the limits and the people's rights.
  explicit World(std::uint64_t seed);
  // Carries out a step. Returns what is wrong after it, or an empty text.
  [[nodiscard]] std::string run(const Step& step);
  // What the last step did, with the numbers of the sessions.
  [[nodiscard]] const std::string& done() const { return done_; }

 private:
  static constexpr std::size_t kBrowsers = 9;
  static constexpr std::size_t kLogins = 7;
  // What a browser was told about a session.
  struct Known {
    std::string state;
    Rights rights = kNoRights;
    Rights granted = kNoRights;
    std::string viewers;
    std::string stream;
    std::string choices;
    bool streaming = false;
  };
  struct Browser {
    Console peer;
    std::map<std::uint32_t, Known> known;
  };
  struct Machine {
    std::string id;
    Agent peer;
    FakeMachine fake;
    Clock::time_point key_frame{};
  };
  struct Line {
    int code = 0;
    std::uint32_t session = 0;
    std::string payload;

    auto operator<=>(const Line&) const = default;
  };
  using Received = std::pair<std::size_t, Line>;  // with the number of the machine or browser

  void TestBody() override {}

  // Preparation.
  void set_limits(std::uint64_t seed);
  void apply_people();
  void apply_machine(std::size_t machine);

  // Steps of machines and administrators.
  void connect(std::size_t machine);
  void disconnect(std::size_t machine);
  void answer(std::size_t machine, std::uint32_t choice);
  void send_answer(std::size_t machine, std::uint32_t number, bool accepted);
  void decide(const Step& step);
  void change_rights(const Step& step);
  void end_login(std::size_t login);
  void tick(std::uint32_t choice);
  void restart_relay(bool clean);

  // Steps of browsers.
  void browse(std::size_t slot, std::size_t login);
  void drop(std::size_t slot);
  void open(std::size_t slot, std::size_t machine);
  void act(const Step& step);
  void act_with(Do what, std::size_t slot, std::uint32_t number, std::uint32_t other);
  void control(const Step& step, std::size_t slot, std::uint32_t number);
  void give_transfer(std::size_t slot, std::uint32_t number);
  void continue_transfer(std::size_t slot, std::uint32_t number, std::uint32_t id);
  void confirm_transfer(std::size_t slot, std::uint32_t number, std::uint32_t id);
  void send_from_browser(std::size_t slot, const Message& message);
  void send_from_machine(std::size_t machine, const Message& message);
  void show(Machine& machine, const Route& route, Bytes message);

  // What a step's numbers select.
  [[nodiscard]] std::uint32_t some_session(std::uint32_t choice) const;
  [[nodiscard]] std::uint32_t some_transfer(std::uint32_t session, std::uint32_t choice) const;
  [[nodiscard]] Message some_message(const Step& step, std::uint32_t session) const;

  // Takes what the relay has sent, and compares.
  void deliver();
  void receive_at_machine(std::size_t machine, const Line& line);
  void check_own_message(std::size_t machine, const Line& line);
  void receive_at_browser(std::size_t slot, const std::string& text);
  void check();
  void check_machine(std::size_t machine);
  void check_session(std::uint32_t number, const ExpectedSession& session);
  void check_browser(std::uint32_t number, const ExpectedSession& session);
  void check_ended();
  void check_received();
  void check_list();
  [[nodiscard]] std::string viewers_of(std::size_t machine) const;
  void require(bool good, const std::string& fault) {
    if (!good && fault_.empty()) fault_ = fault;
  }

  Expected expected_;
  std::array<Machine, kMachines> machines_;
  std::map<std::size_t, Browser> browsers_;
  std::array<unsigned, kLogins> generations_{};
  std::array<std::chrono::hours, 4> ranks_{};  // consent, held_stream, hold, lost_question
  std::size_t steps_ = 0;

  // Of the present step.
  std::string done_;
  std::string fault_;
  Do doing_{};
  std::array<std::set<std::uint32_t>, kMachines> watched_before_;
  std::optional<Received> forwarded_;   // a machine must get this message
  bool may_be_forwarded_ = false;       // it need not
  std::vector<Received> wanted_;        // browsers must get these messages
  std::vector<Received> received_;      // by browsers
  std::vector<Expected::Ended> ended_;  // reported to browsers
  std::optional<std::uint32_t> new_session_;
  std::string refusal_;
  std::optional<std::uint32_t> continued_;  // the number of the transfer
};

}  // namespace vlk::relay::model
