// The envelope: its bytes, its limits and its errors.
#include "wire/messages.h"

#include <string_view>

#include <gtest/gtest.h>

#include "wire/message_frame.h"
#include "wire/websocket.h"

namespace vlk {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes header(std::uint32_t length, std::uint8_t type = 4) {
  Bytes bytes(kEnvelopeHeaderSize);
  write_envelope_header(bytes.data(), type, 7, 0x01020304, length);
  return bytes;
}

TEST(Envelope, HelloMessageConsistsOfTenHeaderBytesAndItsText) {
  constexpr std::string_view kText = R"({"role":"agent","client_version":"0.1.0-scaffold","os":"windows"})";
  const Bytes bytes =
      encode_envelope(Msg::Hello, 0, reinterpret_cast<const unsigned char*>(kText.data()), kText.size(), 1);
  EXPECT_EQ(kText.size(), 65u);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 10), (Bytes{1, 1, 0, 0, 0, 0, 0, 0, 0, 0x41}));
  EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(bytes.data()) + 10, 65), kText);
  EXPECT_EQ(bytes.size(), 75u);
}

TEST(Envelope, HeaderIsBigEndian) {
  EXPECT_EQ(header(0x0A0B0C0D), (Bytes{4, 7, 1, 2, 3, 4, 0x0A, 0x0B, 0x0C, 0x0D}));
}

TEST(Envelope, HeaderWithoutAPayloadIsDecodedAndATruncatedHeaderIsNot) {
  Envelope envelope;
  const Bytes bytes = header(0);
  for (std::size_t length = 0; length < 10; ++length) {
    EXPECT_FALSE(decode_envelope(bytes.data(), length, envelope)) << length;
  }
  ASSERT_TRUE(decode_envelope(bytes.data(), 10, envelope));
  EXPECT_EQ(envelope.type, 4);
  EXPECT_EQ(envelope.flags, 7);
  EXPECT_EQ(envelope.session_id, 0x01020304u);
  EXPECT_TRUE(envelope.payload.empty());
}

TEST(Envelope, PayloadIsLimitedToEightMebibytes) {
  Envelope envelope;
  for (const std::uint32_t length : {0x800000u, 0x800001u}) {
    Bytes bytes = header(length);
    bytes.resize(10 + length, 0xAB);
    EXPECT_EQ(decode_envelope(bytes.data(), bytes.size(), envelope), length == 0x800000u) << length;
  }
  EXPECT_EQ(envelope.payload.size(), 0x800000u);
}

TEST(Envelope, TruncatedMessagesAreRefusedAndExtraBytesIgnored) {
  Bytes bytes = header(20);
  for (int i = 0; i < 20; ++i)
    bytes.push_back(static_cast<std::uint8_t>(i));
  Envelope envelope;
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    // A copy in memory of exactly its size, so that a sanitizer reports a read past its end.
    const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(decode_envelope(cut.data(), cut.size(), envelope)) << length;
  }
  bytes.insert(bytes.end(), {1, 2, 3});
  ASSERT_TRUE(decode_envelope(bytes.data(), bytes.size(), envelope));
  EXPECT_EQ(envelope.payload, Bytes(bytes.begin() + 10, bytes.begin() + 30));
}

TEST(Envelope, LargestPayloadLengthDoesNotOverflowTheSizeCheck) {
  Envelope envelope;
  const Bytes bytes = header(0xFFFFFFFF);
  EXPECT_FALSE(decode_envelope(bytes.data(), bytes.size(), envelope));
}

TEST(MessageFrame, ContainsTheMaskedEnvelopeForEveryPayloadLength) {
  for (const unsigned length : {0u, 1u, 6u, 7u, 31u, 32u, 100u, 115u, 116u, 65525u, 65526u, 300000u}) {
    Bytes payload(length);
    for (std::size_t i = 0; i < length; ++i)
      payload[i] = static_cast<std::uint8_t>(i * 7 + 3);
    const WireBytes frame = encode_message_frame(Msg::StreamFrame, 0xFFFFFFFF, payload.data(), length, 0);
    WsParser parser;
    parser.feed(frame.data.get(), frame.size);
    const auto parsed = parser.next();
    ASSERT_TRUE(parsed.has_value()) << length;
    EXPECT_EQ(parsed->opcode, kWsBinary);
    EXPECT_EQ(parsed->payload, encode_envelope(Msg::StreamFrame, 0xFFFFFFFF, payload.data(), length, 0))
        << length;
    EXPECT_NE(frame.data[1] & 0x80, 0) << "frames to the server are masked";
  }
}

}  // namespace
}  // namespace vlk
