// WebSocket framing, from whole frames to single bytes, and the errors that it deliberately accepts.
#include "wire/websocket.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

namespace vlk {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes pattern(std::size_t length) {
  Bytes bytes(length);
  for (std::size_t i = 0; i < length; ++i)
    bytes[i] = static_cast<std::uint8_t>(i * 31 + 5);
  return bytes;
}

Bytes frame(std::uint8_t opcode, const Bytes& payload, bool fin = true, bool masked = false) {
  Bytes bytes = encode_frame(opcode, payload.data(), payload.size(), masked);
  if (!fin) bytes[0] &= 0x7F;
  return bytes;
}

void feed(WsParser& parser, const Bytes& bytes) {
  parser.feed(bytes.data(), bytes.size());
}

TEST(Base64, PadsTheTextToAMultipleOfFourCharacters) {
  const auto encode = [](std::string_view text) {
    return base64_encode(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  };
  EXPECT_EQ(encode(""), "");
  EXPECT_EQ(encode("f"), "Zg==");
  EXPECT_EQ(encode("fo"), "Zm8=");
  EXPECT_EQ(encode("foo"), "Zm9v");
  EXPECT_EQ(encode("\xFF\xFE\xFD\xFC"), "//79/A==");
}

TEST(Upgrade, RequestHasSevenLinesAndNamesTheHostWithoutAPort) {
  std::string key;
  const std::string request = build_upgrade_request("relay.example", "/link", key);
  EXPECT_EQ(request,
            "GET /link HTTP/1.1\r\nHost: relay.example\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Key: " +
                key +
                "\r\nSec-WebSocket-Version: 13\r\n"
                "Sec-WebSocket-Protocol: vantelink.v1\r\n\r\n");
  EXPECT_EQ(key.size(), 24u);
  EXPECT_EQ(key.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"), 22u);
  EXPECT_EQ(key.substr(22), "==");
  std::string other;
  (void)build_upgrade_request("relay.example", "/link", other);
  EXPECT_NE(key, other);
}

TEST(Upgrade, Digits101AnywhereInTheResponseCountAsSuccess) {
  EXPECT_TRUE(upgrade_accepted("HTTP/1.1 101 Switching Protocols\r\n\r\n"));
  EXPECT_TRUE(upgrade_accepted("HTTP/1.1 403 Forbidden\r\nX-Trace: 51015\r\n\r\n"));
  EXPECT_FALSE(upgrade_accepted("HTTP/1.1 403 Forbidden\r\n\r\n"));
}

TEST(Frame, LengthIsWrittenInTheShortestForm) {
  const std::pair<std::size_t, std::size_t> sizes[] = {{0, 2}, {125, 2}, {126, 4}, {65535, 4}, {65536, 10}};
  for (const auto& [length, header] : sizes) {
    const Bytes plain = frame(kWsBinary, pattern(length));
    EXPECT_EQ(plain.size(), header + length);
    EXPECT_EQ(plain[0], 0x82);
    EXPECT_EQ(plain[1], header == 2 ? length : header == 4 ? 126u : 127u);
    const Bytes masked = frame(kWsBinary, pattern(length), true, true);
    EXPECT_EQ(masked.size(), header + 4 + length);
    EXPECT_EQ(masked[1], plain[1] | 0x80);
  }
  const Bytes large = frame(kWsBinary, pattern(65536));
  EXPECT_EQ(Bytes(large.begin() + 2, large.begin() + 10), (Bytes{0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST(Mask, EqualsMaskingByteByByteAtEveryLengthAndPhase) {
  const unsigned char key[4] = {0x12, 0xFE, 0x00, 0x99};
  for (std::size_t length = 0; length < 140; ++length) {
    for (std::size_t phase = 0; phase < 8; ++phase) {
      const Bytes source = pattern(length);
      Bytes target(length + 1, 0xEE);
      apply_mask(target.data(), source.data(), length, key, phase);
      for (std::size_t i = 0; i < length; ++i)
        ASSERT_EQ(target[i], source[i] ^ key[(i + phase) % 4]);
      ASSERT_EQ(target[length], 0xEE);
    }
  }
}

TEST(Parser, ReturnsAFrameOnceHoweverItIsSplit) {
  for (const unsigned length : {0u, 5u, 125u, 126u, 300u, 65535u, 65536u}) {
    for (const bool masked : {false, true}) {
      const Bytes bytes = frame(kWsBinary, pattern(length), true, masked);
      const std::size_t last_split = std::min<std::size_t>(bytes.size(), 24);
      for (std::size_t split = 1; split < last_split; ++split) {
        WsParser parser;
        parser.feed(bytes.data(), split);
        ASSERT_FALSE(parser.next()) << length << " split at " << split;
        parser.feed(bytes.data() + split, bytes.size() - split);
        const auto result = parser.next();
        ASSERT_TRUE(result) << length << " split at " << split;
        ASSERT_EQ(result->payload, pattern(length));
        ASSERT_FALSE(parser.next());
        ASSERT_FALSE(parser.failed);
      }
    }
  }
}

TEST(Parser, ReturnsFramesReceivedByteByByte) {
  WsParser parser;
  Bytes stream = frame(kWsText, pattern(130), true, true);
  const Bytes second = frame(kWsBinary, {}, true, true);
  EXPECT_EQ(second.size(), 6u) << "a masked frame without payload still contains its masking key";
  stream.insert(stream.end(), second.begin(), second.end());
  std::vector<WsFrame> frames;
  for (const std::uint8_t byte : stream) {
    parser.feed(&byte, 1);
    while (auto one = parser.next())
      frames.push_back(*one);
  }
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].opcode, kWsText);
  EXPECT_EQ(frames[0].payload, pattern(130));
  EXPECT_TRUE(frames[1].payload.empty());
}

TEST(Parser, FailsForALengthAboveTheLimitAndWaitsForAFrameOfExactlyTheLimit) {
  const Bytes too_large = {0x82, 127, 0, 0, 0, 0, 1, 0, 0, 1};
  WsParser parser;
  feed(parser, too_large);
  EXPECT_FALSE(parser.next());
  EXPECT_TRUE(parser.failed);
  WsParser patient;
  feed(patient, {0x82, 127, 0, 0, 0, 0, 1, 0, 0, 0});
  EXPECT_FALSE(patient.next());
  EXPECT_FALSE(patient.failed);
  WsParser huge;
  feed(huge, {0x82, 127, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
  EXPECT_FALSE(huge.next());
  EXPECT_TRUE(huge.failed);
}

TEST(Parser, ReturnsAFrameOfExactlyTheLimit) {
  constexpr std::size_t kLimit = 0x1000000;
  const Bytes bytes = frame(kWsBinary, pattern(kLimit), true, true);
  WsParser parser;
  parser.feed(bytes.data(), bytes.size() - 1);
  EXPECT_FALSE(parser.next());
  parser.feed(&bytes.back(), 1);
  const auto result = parser.next();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->payload.size(), kLimit);
  EXPECT_TRUE(result->payload == pattern(kLimit));
  EXPECT_FALSE(parser.failed);
}

TEST(Parser, AllowsControlFramesBetweenFragments) {
  WsParser parser;
  feed(parser, frame(kWsText, {1, 2}, false));
  EXPECT_FALSE(parser.next());
  feed(parser, frame(kWsPing, {9}));
  EXPECT_EQ(parser.next()->opcode, kWsPing);
  feed(parser, frame(kWsContinuation, {3}, false));
  EXPECT_FALSE(parser.next());
  feed(parser, frame(kWsContinuation, {4}));
  const auto message = parser.next();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->opcode, kWsText);
  EXPECT_TRUE(message->fin);
  EXPECT_EQ(message->payload, (Bytes{1, 2, 3, 4}));
}

TEST(Parser, ReturnsControlFramesWithoutTheFinalBitAndStartsNoMessageWithThem) {
  for (const std::uint8_t opcode : {kWsClose, kWsPing, kWsPong}) {
    WsParser parser;
    feed(parser, frame(opcode, {7}, false));
    const auto control = parser.next();
    ASSERT_TRUE(control) << int{opcode};
    EXPECT_EQ(control->opcode, opcode);
    EXPECT_FALSE(control->fin);
    EXPECT_EQ(control->payload, Bytes{7});
    feed(parser, frame(kWsContinuation, {1}));
    EXPECT_FALSE(parser.next());
    EXPECT_TRUE(parser.failed) << "a control frame does not begin a message";
  }
}

TEST(Parser, FailsForAContinuationFrameWithoutAStartedMessage) {
  WsParser parser;
  feed(parser, frame(kWsContinuation, {1}));
  EXPECT_FALSE(parser.next());
  EXPECT_TRUE(parser.failed);
}

TEST(Parser, SecondFragmentedMessageDiscardsTheFirst) {
  WsParser parser;
  feed(parser, frame(kWsText, {1}, false));
  feed(parser, frame(kWsBinary, {2}, false));
  feed(parser, frame(kWsContinuation, {3}));
  const auto message = parser.next();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->opcode, kWsBinary);
  EXPECT_EQ(message->payload, (Bytes{2, 3}));
}

TEST(Parser, UnfragmentedDataFrameDoesNotAffectAFragmentedMessage) {
  WsParser parser;
  feed(parser, frame(kWsText, {1}, false));
  feed(parser, frame(kWsBinary, {2}));
  EXPECT_EQ(parser.next()->payload, Bytes{2});
  feed(parser, frame(kWsContinuation, {3}));
  EXPECT_EQ(parser.next()->payload, (Bytes{1, 3}));
}

TEST(Parser, ReservedOpcodesCountAsDataAndReservedBitsAreIgnored) {
  WsParser parser;
  Bytes bytes = frame(3, {7});
  bytes[0] |= 0x70;
  feed(parser, bytes);
  EXPECT_EQ(parser.next()->opcode, 3);
}

TEST(Parser, ErasesConsumedBytesOnceTheyExceedTheThreshold) {
  WsParser parser;
  for (int i = 0; i < 3; ++i)
    feed(parser, frame(kWsBinary, pattern(30000)));
  (void)parser.next();
  (void)parser.next();
  EXPECT_EQ(parser.pos, 2u * 30004) << "nothing is erased below the threshold";
  (void)parser.next();
  EXPECT_EQ(parser.pos, 0u);
  EXPECT_TRUE(parser.buffer.empty());
}

TEST(Parser, NeverReturnsMoreBytesThanItReceivedOfRandomBytes) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    std::mt19937 random(seed);
    WsParser parser;
    std::size_t given = 0;
    while (given < (1u << 20) && !parser.failed) {
      Bytes piece(random() % 2048 + 1);
      for (std::uint8_t& byte : piece)
        byte = static_cast<std::uint8_t>(random());
      feed(parser, piece);
      given += piece.size();
      while (const auto one = parser.next())
        EXPECT_LE(one->payload.size(), given);
    }
    EXPECT_LE(parser.pos, parser.buffer.size());
  }
}

}  // namespace
}  // namespace vlk
