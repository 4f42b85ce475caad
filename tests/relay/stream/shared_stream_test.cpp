// The one stream of a machine: what the machine is sent when sessions begin to watch, lead and end.
#include "relay/stream/shared_stream.h"

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using Json = nlohmann::json;

constexpr char kStart[] = R"({"monitor_id":1,"max_fps":30,"bitrate":1000})";

Lines lines(const SharedStream::Orders& orders) {
  Lines result;
  for (const SharedStream::Order& order : orders)
    result.push_back(std::to_string(static_cast<int>(order.type)) + "/" + std::to_string(order.session) +
                     " " + order.json);
  return result;
}

class SharedStreamTest : public testing::Test {
 protected:
  SharedStreamTest() { stream_.started(1, stream_choices(Json::parse(kStart))); }

  SharedStream stream_;
};

TEST_F(SharedStreamTest, JoiningSessionIsCountedAndTheLeaderLeadsOn) {
  EXPECT_EQ(lines(stream_.join(2)), (Lines{std::string("80/2 ") + kStart, std::string("80/1 ") + kStart}));
  EXPECT_EQ(stream_.leader(), 1u);
  EXPECT_TRUE(stream_.watched_by(2));
  EXPECT_TRUE(stream_.is_current(1));
  EXPECT_FALSE(stream_.is_current(2)) << "pictures of the stream that was replaced at once";
}

TEST_F(SharedStreamTest, RestartHasTheChoicesThatTheMachineForgets) {
  stream_.chosen(Msg::MonitorSelect, Json{{"monitor_id", 2}});
  stream_.chosen(Msg::CodecSelect, Json{{"codec", "mjpeg"}});
  stream_.chosen(Msg::CursorVisibility, Json{{"show", 0}});
  EXPECT_EQ(lines(stream_.restart()), (Lines{R"(80/1 {"monitor_id":2,"max_fps":30,"bitrate":1000})",
                                             R"(88/1 {"codec":"mjpeg"})", R"(89/1 {"show":0})"}));
  stream_.started(1, stream_choices(Json::parse(kStart)));
  EXPECT_EQ(lines(stream_.restart()), (Lines{std::string("80/1 ") + kStart})) << "a new start forgets them";
}

TEST_F(SharedStreamTest, LaterLeaderStartsTheStreamOnce) {
  (void)stream_.join(2);
  EXPECT_EQ(lines(stream_.lead(2)), (Lines{std::string("80/2 ") + kStart}));
  EXPECT_EQ(lines(stream_.lead(2)), Lines{});
  EXPECT_EQ(lines(stream_.lead(7)), Lines{}) << "the session does not watch";
  EXPECT_EQ(stream_.leader(), 2u);
}

TEST_F(SharedStreamTest, EndOfAnySessionStartsTheStreamAgainForTheOthers) {
  (void)stream_.join(2);
  (void)stream_.join(3);
  EXPECT_EQ(lines(stream_.stopped(2, 1)), (Lines{std::string("80/1 ") + kStart}));
  EXPECT_EQ(lines(stream_.stopped(9, 1)), (Lines{std::string("80/1 ") + kStart})) << "a withdrawn question";
  EXPECT_EQ(lines(stream_.stopped(1, 1)), (Lines{std::string("80/3 ") + kStart}));
  EXPECT_EQ(lines(stream_.stopped(3, 0)), Lines{});
  EXPECT_EQ(stream_.leader(), 0u);
}

TEST_F(SharedStreamTest, KeyFramesAreAskedForOnceASecondAndNoNeedIsLost) {
  const auto now = Clock::now();
  EXPECT_FALSE(stream_.key_frame_due(now));
  EXPECT_TRUE(stream_.need_key_frame(now));
  EXPECT_FALSE(stream_.need_key_frame(now + 999ms));
  EXPECT_TRUE(stream_.key_frame_due(now + 1s));
  EXPECT_FALSE(stream_.key_frame_due(now + 3s));
  EXPECT_TRUE(stream_.need_key_frame(now + 4s));
  EXPECT_FALSE(stream_.need_key_frame(now + 4s));
  (void)stream_.restart();
  EXPECT_FALSE(stream_.key_frame_due(now + 6s)) << "a new stream begins with a key frame";
}

TEST(StreamChoices, HaveTheAgentsDefaultsForWhatIsMissingOrInvalid) {
  for (const char* payload : {"{}", "null", "[1]", R"({"monitor_id":"1","max_fps":1.5,"bitrate":null})",
                              R"({"monitor_id":4294967296,"max_fps":-4294967296})"}) {
    const StreamChoices choices = stream_choices(Json::parse(payload));
    EXPECT_EQ(choices.monitor, 0) << payload;
    EXPECT_EQ(choices.max_fps, 15) << payload;
    EXPECT_EQ(choices.bitrate, 6'000'000) << payload;
  }
  EXPECT_EQ(stream_choices(Json::parse(R"({"max_fps":-5})")).max_fps, -5);
  SharedStream stream;
  for (const char* payload : {"null", "[]", "7", "{}"}) {
    for (const Msg type : {Msg::MonitorSelect, Msg::CodecSelect, Msg::CursorVisibility})
      stream.chosen(type, Json::parse(payload));
  }
  EXPECT_FALSE(stream.choices().jpeg);
}

}  // namespace
}  // namespace vlk::relay
