// A machine and a representative's browser that carry out what an input says, and the checks after each step.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "input.h"
#include "world/world.h"

namespace vlk::relay::fuzz {

using vlk::fuzz::Input;

// After each step: what reached the browser or the machine belongs to an accepted session with the right to
// it. At the end: the trail has a row for everything that passed, and its chain fits.
class SessionScript {
 public:
  // With `agent` the machine sends most of the messages, otherwise the browser.
  SessionScript(Input& input, bool agent) : input_(input), agent_leads_(agent) {}

  void run();

 private:
  void step();
  void lead();
  void agent_sends_known();
  void agent_sends_any();
  void browser_sends_known();
  void browser_sends_any();
  void browser_sends_control();
  void decide();
  void reconnect();
  void pass_time();

  [[nodiscard]] World::Line connect_agent();
  void settle();
  void check_sessions();
  void read_agent();
  void read_browser();
  void check_to_agent(const Bytes& message);
  void check_to_browser(const Bytes& message);
  void note_text(const std::string& text);
  [[nodiscard]] bool allowed(const EnvelopeHeader& header, const Bytes& message, bool to_machine);
  void finish();
  void check_trail();

  // The number of a session: 0, one that was requested, or any small number.
  [[nodiscard]] std::uint32_t session();
  [[nodiscard]] std::uint32_t transfer();

  World world_;
  Input& input_;
  const bool agent_leads_;
  std::vector<std::shared_ptr<bool>> served_;  // of the agents' connections
  World::Line agent_ = connect_agent();
  World::Line browser_ = world_.connect_browser();
  bool browser_reads_ = true;
  bool was_slow_ = false;                 // the browser has let messages wait
  std::vector<std::uint32_t> sessions_;   // that were requested, in order
  std::vector<std::uint32_t> transfers_;  // that were given
  // The rights that a session has had while it was accepted: messages may wait for a browser that does not
  // read.
  std::map<std::uint32_t, Rights> past_rights_;
  std::map<std::string, std::int64_t> passed_;  // messages that need a row, by the row's code
};

}  // namespace vlk::relay::fuzz
