// The WebSocket frames of pieces that are written together.
#include "relay/net/queue/frame_batch.h"

#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

std::string joined(const FrameBatch& batch) {
  std::string all;
  for (const auto& buffer : batch.buffers())
    all.append(static_cast<const char*>(buffer.data()), buffer.size());
  return all;
}

// What one outbox's message with this content becomes, when all its pieces are written together.
std::string written(Division division, const std::string& content, bool text = false) {
  Outbox outbox(division);
  outbox.add(Lane::Bulk,
             {.text = text, .bytes = std::make_shared<const Bytes>(content.begin(), content.end())});
  FrameBatch batch(division.parts);
  while (auto piece = outbox.take())
    batch.add(std::move(*piece));
  const std::string all = joined(batch);
  EXPECT_EQ(batch.bytes(), all.size());
  return all;
}

std::string bytes(std::string_view text) {
  return std::string(text);
}

TEST(FrameBatchTest, WholeMessageIsOneFrameWhoseLengthHasOneThreeOrNineBytes) {
  using namespace std::string_view_literals;
  EXPECT_EQ(written({}, "abc"), bytes("\x82\x03"sv) + "abc");
  EXPECT_EQ(written({}, "abc", true), bytes("\x81\x03"sv) + "abc");
  EXPECT_EQ(written({}, ""), bytes("\x82\0"sv));
  const std::string short_one(125, 'x'), longer(126, 'x'), longest_of_two(65'535, 'x'), long_one(65'536, 'x');
  EXPECT_EQ(written({}, short_one), bytes("\x82\x7D"sv) + short_one);
  EXPECT_EQ(written({}, longer), bytes("\x82\x7E\0\x7E"sv) + longer);
  EXPECT_EQ(written({}, longest_of_two), bytes("\x82\x7E\xFF\xFF"sv) + longest_of_two);
  EXPECT_EQ(written({}, long_one), bytes("\x82\x7F\0\0\0\0\0\1\0\0"sv) + long_one);
}

TEST(FrameBatchTest, PiecesAreFragmentsOfOneMessage) {
  using namespace std::string_view_literals;
  EXPECT_EQ(written({false, 2}, "abcde", true), bytes("\1\2ab\0\2cd\x80\1e"sv));
}

TEST(FrameBatchTest, PartsAreMessagesWithAHeaderOfTheirOwn) {
  using namespace std::string_view_literals;
  EXPECT_EQ(written({true, 2}, "abcde"), bytes("\x82\4\0\x31"
                                               "ab"
                                               "\x82\4\0\x30"
                                               "cd"
                                               "\x82\3\0\x32"
                                               "e"sv));
  EXPECT_EQ(written({true, 2}, "abc", true), bytes("\x82\4\0\x35"
                                                   "ab"
                                                   "\x82\3\0\x36"
                                                   "c"sv));
  EXPECT_EQ(written({true, 8}, "abc", true), bytes("\x81\3"
                                                   "abc"sv));
}

TEST(FrameBatchTest, SharedMessageHasTheHeaderOfItsReceiver) {
  using namespace std::string_view_literals;
  Outbox outbox({});
  const std::string content = "0123456789rest";
  outbox.add(Lane::Urgent, {.bytes = std::make_shared<const Bytes>(content.begin(), content.end()),
                            .header = OutgoingHeader{'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J'}});
  FrameBatch batch(true);
  batch.add(*outbox.take());
  EXPECT_EQ(joined(batch), bytes("\x82\x0E"sv) + "ABCDEFGHIJrest");
}

}  // namespace
}  // namespace vlk::relay
