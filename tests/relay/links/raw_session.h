// An accepted session between the test's browser and an agent whose messages are written by the test.
#pragma once

#include <string>

#include "relay/browser.h"
#include "support/peers/raw_agent.h"

namespace vlk::relay {

class RawSession {
 public:
  RawSession(unsigned short port, Browser& browser) : agent_(port) {
    agent_.send(Msg::Hello, R"({"role":"agent"})");
    agent_.send(Msg::Enroll, R"({"name":"Raw","machine_name":"Raw","os":"windows","hw_id":"x"})");
    const Envelope enrolled = read(Msg::EnrollResult);
    browser.send({{"type", "open"}, {"agent", Json::parse(enrolled.payload)["agent_id"]}});
    number_ = read(Msg::SessionRequest).session_id;
    send(Msg::SessionAccept, "{}");
    browser.accepted_session();
  }

  void send(Msg type, const std::string& payload) {
    const auto bytes = encode_envelope(type, number_, reinterpret_cast<const unsigned char*>(payload.data()),
                                       payload.size(), 0);
    agent_.send_bytes({bytes.begin(), bytes.end()});
  }

  Envelope read(Msg type) {
    for (;;) {
      Envelope envelope = agent_.read();
      if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
    }
  }

  [[nodiscard]] std::uint32_t number() const { return number_; }
  [[nodiscard]] vantelink_test::RawAgent& agent() { return agent_; }

 private:
  vantelink_test::RawAgent agent_;
  std::uint32_t number_ = 0;
};

}  // namespace vlk::relay
