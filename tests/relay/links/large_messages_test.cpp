// Large messages of machines: which ones reach the browser, what happens to the others, and how other
// messages pass them.
#include <algorithm>
#include <array>

#include "relay/links/raw_session.h"
#include "relay/relay_fixture.h"
#include "wire/big_endian.h"

namespace vlk::relay {
namespace {

using vantelink_test::RawAgent;

class LargeMessagesTest : public RelayTest {
 protected:
  static constexpr std::size_t kMiB = 1u << 20;

  // A payload with which the whole envelope has `size` bytes.
  static std::string payload_for(std::size_t size) { return std::string(size - kEnvelopeHeaderSize, 'x'); }

  // Sends the beginning of an envelope that declares `size` bytes: its header and `sent` bytes of its
  // payload.
  static void begin(RawAgent& agent, Msg type, std::uint32_t session, std::uint32_t size, std::size_t sent) {
    // A binary frame with a 64-bit length, and a masking key that leaves the payload unchanged.
    constexpr unsigned char kFinalBinary = 0x82, kMaskedLongLength = 0xFF;
    std::array<unsigned char, 14> frame{kFinalBinary, kMaskedLongLength};
    put_u32_be(&frame[6], size);
    std::array<unsigned char, kEnvelopeHeaderSize> header{};
    write_envelope_header(header.data(), static_cast<std::uint8_t>(type), 0, session,
                          size - static_cast<std::uint32_t>(kEnvelopeHeaderSize));
    agent.send_raw({frame.begin(), frame.end()});
    agent.send_raw({header.begin(), header.end()});
    for (const std::string piece(64 * 1024, 'x'); sent > 0; sent -= std::min(sent, piece.size()))
      agent.send_raw(piece);
  }
};

TEST_F(LargeMessagesTest, LargestMessageIsDeliveredAndALargerOneIsReportedWhileTheMachineStaysConnected) {
  const std::size_t largest = 2 * kMiB;
  on_relay([&] { limits_.agent_message = largest; });
  auto browser = console();
  RawSession session(port_, *browser);
  session.send(Msg::DirListResult, payload_for(largest));
  EXPECT_EQ(browser->read_binary().size, largest);
  // A console that asked again after each refusal would get the same answer.
  for (int i = 0; i < 3; ++i) {
    session.send(Msg::DirListResult, payload_for(largest + 1));
    EXPECT_EQ(browser->read_text("too-large"), (Json{{"type", "too-large"},
                                                     {"session", session.number()},
                                                     {"message", static_cast<int>(Msg::DirListResult)},
                                                     {"bytes", largest + 1}}));
  }
  session.send(Msg::DirListResult, "small");
  EXPECT_EQ(browser->read_binary().size, kEnvelopeHeaderSize + 5);
}

TEST_F(LargeMessagesTest, MessageThatIsTooLargeIsReportedBeforeItHasArrivedAndIsNotHeld) {
  auto browser = console();
  RawSession session(port_, *browser);
  const std::size_t before = settled_heap();
  const std::uint32_t size = 300 * kMiB;
  begin(session.agent(), Msg::DirListResult, session.number(), size, 32 * kMiB);
  EXPECT_EQ(browser->read_text("too-large")["bytes"], size);
  EXPECT_LT(settled_heap(), before + 4 * kMiB);
}

TEST_F(LargeMessagesTest, LargeMessageOfAMachineWithoutASessionIsNotHeld) {
  RawAgent agent(port_);
  agent.send(Msg::Hello, R"({"role":"agent"})");
  agent.send(Msg::Enroll, R"({"name":"Raw"})");
  wait_for_machine("Raw", "online");
  const std::size_t before = settled_heap();
  begin(agent, Msg::ClipboardData, 7, 64 * kMiB, 32 * kMiB);
  EXPECT_LT(settled_heap(), before + 4 * kMiB);
}

TEST_F(LargeMessagesTest, MessageIsNoLongerHeldWhenItsSessionEndsWhileItArrives) {
  auto browser = console();
  RawSession session(port_, *browser);
  const std::size_t before = settled_heap();
  begin(session.agent(), Msg::ClipboardData, session.number(), 64 * kMiB, 32 * kMiB);
  EXPECT_GT(settled_heap(), before + 30 * kMiB);
  browser->send({{"type", "close"}, {"session", session.number()}});
  browser->read_text("session");
  session.agent().send_raw(std::string(64 * 1024, 'x'));
  EXPECT_TRUE(eventually([&] { return heap_bytes() < before + 4 * kMiB; }));
}

TEST_F(LargeMessagesTest, MessageWithAWrongLengthEndsTheConnectionAlsoWhenItIsDropped) {
  auto browser = console();
  RawSession session(port_, *browser);
  std::string message(kEnvelopeHeaderSize + 5, 'x');
  auto* header = reinterpret_cast<unsigned char*>(message.data());
  write_envelope_header(header, static_cast<std::uint8_t>(Msg::DirListResult), 0, session.number(),
                        UINT32_MAX);
  session.agent().send_bytes(message);
  EXPECT_TRUE(session.agent().closed());
  EXPECT_TRUE(logged("not an envelope"));
}

TEST_F(LargeMessagesTest, PicturesOvertakeALargeMessageAndOtherMessagesDoNot) {
  auto browser = console(4096);
  RawSession session(port_, *browser);
  const std::size_t large = 8 * kMiB;
  session.send(Msg::ClipboardData, payload_for(large));
  session.send(Msg::StreamFrame, "picture");
  session.agent().send(Msg::NameUpdate, R"({"name":"Done"})");
  wait_for_machine("Done", "session");  // the relay has read the messages before
  session.send(Msg::ClipboardData, "small");
  EXPECT_EQ(browser->read_binary().type, Msg::StreamFrame);
  EXPECT_EQ(browser->read_binary().size, large);
  EXPECT_EQ(browser->read_binary().size, kEnvelopeHeaderSize + 5);
}

}  // namespace
}  // namespace vlk::relay
