// A connection that the relay closes because of a bad message: it is cleared away, whatever else has arrived.
#include "relay/relay_fixture.h"
#include "relay/server.h"
#include "support/peers/raw_agent.h"

namespace vlk::relay {
namespace {

using vantelink_test::RawAgent;

class FurtherFramesTest : public RelayTest {
 protected:
  std::size_t connections() {
    std::size_t count = 0;
    on_relay([&] { count = server_->connections(); });
    return count;
  }
};

// A masked frame without content.
std::string empty_frame(int opcode) {
  return {static_cast<char>(0x80 | opcode), static_cast<char>(0x80), 0, 0, 0, 0};
}

TEST_F(FurtherFramesTest, ConnectionEndsWhenFurtherFramesFollowABadMessageInTheSameBytes) {
  const std::string bad = empty_frame(vlk::kWsBinary);
  const std::string invalid = empty_frame(3);  // an opcode that no frame has
  for (const std::string& further : {empty_frame(vlk::kWsClose), invalid, empty_frame(vlk::kWsPing) + invalid,
                                     bad, bad + bad + empty_frame(vlk::kWsClose)}) {
    std::vector<std::unique_ptr<RawAgent>> agents;
    for (int i = 0; i < 20; ++i) {
      agents.push_back(std::make_unique<RawAgent>(port_));
      agents.back()->send_raw(bad + further);
    }
    EXPECT_TRUE(eventually([&] { return connections() == 0; })) << connections() << " remain";
  }
}

}  // namespace
}  // namespace vlk::relay
