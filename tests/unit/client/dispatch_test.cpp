// The effect of each message from the server on the features, the callbacks and the connection.
#include <algorithm>

#include <gtest/gtest.h>

#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;

using DispatchTest = OnlineTest;

TEST_F(DispatchTest, SessionRequestIsPassedToTheUserAndTheAnswerIsSent) {
  peer_->send_envelope(Msg::SessionRequest, 7, R"({"rep_name":"Jón"})");
  peer_->send_envelope(Msg::SessionRequest, 8, "{}");
  peer_->settle();
  const Lines lines = log_.lines();
  EXPECT_EQ(Lines(lines.end() - 2, lines.end()), (Lines{"request 7 Jón", "request 8 A representative"}));
  client_->accept_session(7);
  const Envelope accept = peer_->read_until(Msg::SessionAccept);
  EXPECT_EQ(accept.session_id, 7u);
  EXPECT_EQ(accept.flags, 1);
  EXPECT_EQ(text_of(accept), R"({"session":7})");
  client_->reject_session(0xFFFFFFFF, "declined");
  const Envelope reject = peer_->read_until(Msg::SessionReject);
  EXPECT_EQ(reject.session_id, 0xFFFFFFFFu);
  EXPECT_EQ(text_of(reject), R"({"session":4294967295,"reason":"declined"})");
}

TEST_F(DispatchTest, UnattendedMachineAcceptsASessionWithoutAskingTheUser) {
  client_->set_unattended(true);
  peer_->send_envelope(Msg::SessionRequest, 9, R"({"rep_name":"Jón"})");
  peer_->send_envelope(Msg::Heartbeat, 0, "after");
  EXPECT_EQ(peer_->read_envelope().type, 67) << "the answer to the request comes first";
  peer_->settle();
  for (const std::string& line : log_.lines())
    EXPECT_EQ(line.find("request"), std::string::npos);
}

TEST_F(DispatchTest, StreamStartMessageRunsTheStepsOfTheStartInOrder) {
  script().open = [](std::int32_t) { return true; };
  peer_->send_envelope(Msg::StreamStart, 5, R"({"monitor_id":0,"max_fps":25,"bitrate":123})");
  ASSERT_TRUE(log_.wait_for("status 3 1"));
  const Lines lines = vantelink_fakes::journal();
  const auto at = [&](const char* line) { return std::find(lines.begin(), lines.end(), line); };
  EXPECT_LT(at("EnumerateMonitors"), at("SetActiveMonitorRect 0 0 1280 720"));
  EXPECT_LT(at("SetActiveMonitorRect 0 0 1280 720"), at("SetInputSessionActive true"));
  EXPECT_LT(at("SetInputSessionActive true"), at("SetClipboardSessionActive true"));
  EXPECT_LT(at("SetClipboardSessionActive true"), lines.end());
  ASSERT_TRUE(vantelink_fakes::wait_for("AcquireFrame 40"));
}

TEST_F(DispatchTest, StreamStartMessageWithoutSettingsUsesTheDefaultsAndJpegQuality70) {
  peer_->send_envelope(Msg::StreamStart, 5, "");
  ASSERT_TRUE(vantelink_fakes::wait_for("EncodeJpeg 8 4 32 70"));
  EXPECT_EQ(count("Init 8 4 15 6000000"), 1u);
  EXPECT_EQ(peer_->read_until(Msg::StreamConfig).session_id, 5u);
}

TEST_F(DispatchTest, StreamOfAnUnknownMonitorStartsAndKeepsTheInputRectangle) {
  for (const char* text : {R"({"monitor_id":99})", R"({"monitor_id":1})", R"({"monitor_id":-1})"}) {
    vantelink_fakes::clear_journal();
    peer_->send_envelope(Msg::StreamStart, 5, text);
    peer_->settle();
    EXPECT_EQ(count("SetActiveMonitorRect 0 0 1280 720"), 0u) << text;
    EXPECT_EQ(count("SetInputSessionActive true"), 1u);
    ASSERT_TRUE(vantelink_fakes::wait_for("CaptureGdi"));
    const std::string number(text + std::string_view(R"({"monitor_id":)").size());
    EXPECT_GE(count("Open " + number.substr(0, number.size() - 1)), 1u) << "the stream decides what it shows";
  }
}

TEST_F(DispatchTest, MonitorNumberIsTakenAsItsLowest32Bits) {
  script().open = [](std::int32_t) { return true; };
  peer_->send_envelope(Msg::StreamStart, 5, R"({"monitor_id":4294967296})");
  ASSERT_TRUE(vantelink_fakes::wait_for("Open 0"));
  EXPECT_EQ(count("SetActiveMonitorRect 0 0 1280 720"), 1u);
  vantelink_fakes::clear_journal();
  peer_->send_envelope(Msg::StreamStart, 5, R"({"monitor_id":4294967297})");
  ASSERT_TRUE(vantelink_fakes::wait_for("Open 1"));
  EXPECT_EQ(count("SetActiveMonitorRect 0 0 1280 720"), 0u);
}

TEST_F(DispatchTest, SecondStreamReplacesTheFirstAndBothSessionsAreCounted) {
  peer_->send_envelope(Msg::StreamStart, 1, "");
  peer_->send_envelope(Msg::StreamStart, 2, "");
  ASSERT_TRUE(log_.wait_for("status 3 2"));
  EXPECT_EQ(count("~ScreenCapturer"), 1u) << "the first stream has ended";
  peer_->send_envelope(Msg::StreamStop, 1, "");
  ASSERT_TRUE(log_.wait_for("status 3 1", 2));
  EXPECT_EQ(count("~ScreenCapturer"), 2u) << "the end of either session ends the stream";
  EXPECT_EQ(count("SetInputSessionActive false"), 1u);
  EXPECT_EQ(count("SetClipboardSessionActive false"), 1u);
  peer_->send_envelope(Msg::StreamStop, 2, "");
  ASSERT_TRUE(log_.wait_for("status 2 0"));
  for (const std::string& line : log_.lines())
    EXPECT_EQ(line.find("ended"), std::string::npos);
}

TEST_F(DispatchTest, SessionThatStartsTwoStreamsIsCountedOnce) {
  peer_->send_envelope(Msg::StreamStart, 1, "");
  peer_->send_envelope(Msg::StreamStart, 1, "");
  ASSERT_TRUE(log_.wait_for("status 3 1", 2));
}

TEST_F(DispatchTest, EndOfAnUnknownSessionStopsTheStreamAndIsReported) {
  peer_->send_envelope(Msg::StreamStart, 1, "");
  peer_->send_envelope(Msg::SessionEnd, 77, "");
  ASSERT_TRUE(log_.wait_for("status 3 1", 2));
  const Lines lines = log_.lines();
  EXPECT_EQ(Lines(lines.end() - 2, lines.end()), (Lines{"ended 77", "status 3 1"}));
  EXPECT_EQ(count("SetClipboardSessionActive false"), 1u);
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
  client_->send_clipboard(reinterpret_cast<const unsigned char*>("lost"), 4);
  peer_->settle();
  for (const Envelope& one : peer_->received())
    EXPECT_NE(one.type, 87);
}

TEST_F(DispatchTest, EndOfTheConnectionStopsTheStreamAndDisablesInputAndClipboard) {
  peer_->send_envelope(Msg::StreamStart, 1, "");
  ASSERT_TRUE(log_.wait_for("status 3 1"));
  peer_->close();
  ASSERT_TRUE(log_.wait_for("status 0 0"));
  EXPECT_EQ(count("~ScreenCapturer"), 1u);
  EXPECT_EQ(count("SetInputSessionActive false"), 1u);
  EXPECT_EQ(count("SetClipboardSessionActive false"), 1u);
  auto again = server_.accept_upgraded();
  again->read_until(Msg::Login);
  again->send_envelope(Msg::StreamStart, 2, "");
  EXPECT_TRUE(log_.wait_for("status 3 1", 2)) << "the count of sessions starts again at 1";
}

TEST_F(DispatchTest, MonitorCanChangeWhileTheStreamRuns) {
  script().open = [](std::int32_t) { return true; };
  script().init = [] { return true; };
  peer_->send_envelope(Msg::StreamStart, 1, R"({"max_fps":200})");
  ASSERT_TRUE(vantelink_fakes::wait_for("Open 0"));
  peer_->send_envelope(Msg::MonitorSelect, 99, R"({"monitor_id":3})");
  ASSERT_TRUE(vantelink_fakes::wait_for("Open 3"));
  peer_->send_envelope(Msg::MonitorSelect, 99, "");
  ASSERT_TRUE(vantelink_fakes::wait_for("Open 0", 2));
}

TEST_F(DispatchTest, CodecAndPointerCanChangeWhileTheStreamRuns) {
  script().init = [] { return true; };
  peer_->send_envelope(Msg::StreamStart, 1, R"({"max_fps":200})");
  ASSERT_TRUE(vantelink_fakes::wait_for("Encode"));
  peer_->send_envelope(Msg::CodecSelect, 1, R"({"codec":"mjpeg"})");
  ASSERT_TRUE(vantelink_fakes::wait_for("EncodeJpeg 8 4 32 70"));
  const std::size_t inits = count("Init 8 4 200 6000000");
  peer_->send_envelope(Msg::CodecSelect, 1, "");
  ASSERT_TRUE(vantelink_fakes::wait_for("Init 8 4 200 6000000", inits + 1)) << "h264 is the default";
  peer_->send_envelope(Msg::CursorVisibility, 1, R"({"show":false})");
  const std::size_t drawn = count("Draw 0 0");
  ASSERT_TRUE(vantelink_fakes::wait_for("Draw 0 0", drawn + 5)) << "only the number 0 hides the pointer";
  peer_->send_envelope(Msg::CursorVisibility, 1, R"({"show":0})");
  peer_->settle();
  const std::size_t encoded = count("Encode");
  ASSERT_TRUE(vantelink_fakes::wait_for("Encode", encoded + 3));
  const std::size_t hidden = count("Draw 0 0");
  ASSERT_TRUE(vantelink_fakes::wait_for("Encode", encoded + 8));
  EXPECT_EQ(count("Draw 0 0"), hidden);
}

TEST_F(DispatchTest, KeyFramesAreEncodedOnRequestAndAfterTheSwitchBackToH264) {
  script().init = [] { return true; };
  // The time never changes, so that no key frame becomes due.
  const Clock real = steady_clock();
  make_client(
      server_, true,
      {[] { return std::int64_t{0}; }, [real](std::int64_t) { real.sleep_until(real.now() + 1000000); }});
  peer_ = connect(server_);
  const auto encode_three_more = [] { return vantelink_fakes::wait_for("Encode", count("Encode") + 3); };
  peer_->send_envelope(Msg::StreamStart, 1, "");
  ASSERT_TRUE(encode_three_more());
  EXPECT_EQ(count("Encode key"), 1u);
  peer_->send_envelope(Msg::KeyframeRequest, 1, "");
  ASSERT_TRUE(vantelink_fakes::wait_for("Encode key", 2));
  ASSERT_TRUE(encode_three_more());
  EXPECT_EQ(count("Encode key"), 2u);
  peer_->send_envelope(Msg::CodecSelect, 1, R"({"codec":"mjpeg"})");
  ASSERT_TRUE(vantelink_fakes::wait_for("EncodeJpeg 8 4 32 70"));
  const std::size_t keys = count("Encode key");
  peer_->send_envelope(Msg::CodecSelect, 1, "");
  EXPECT_TRUE(vantelink_fakes::wait_for("Encode key", keys + 2))
      << "the new encoder session begins with a key frame, and the switch requests another";
}

TEST_F(DispatchTest, InputAndSecureAttentionRequestsArePassedToTheInjectorUnchecked) {
  peer_->send_envelope(Msg::InputEvent, 99, std::string("\x01\x03\x78\x00", 4), 0);
  peer_->send_envelope(Msg::InputEvent, 99, "", 0);
  peer_->send_envelope(Msg::SecureAttention, 0, "");
  peer_->settle();
  EXPECT_EQ(vantelink_fakes::journal(),
            (Lines{"InjectInputBatch 4", "InjectInputBatch 0", "SendSecureAttention"}));
}

TEST_F(DispatchTest, SimulatedRestartEndsTheConnectionAndTheClientReconnects) {
  peer_->send_envelope(Msg::Reboot, 0, "");
  EXPECT_TRUE(peer_->wait_closed());
  EXPECT_EQ(count("reboot_machine"), 1u);
  server_.accept_upgraded()->read_until(Msg::Login);
  EXPECT_TRUE(log_.wait_for("status 0 0"));
}

TEST_F(DispatchTest, MessagesAfterASimulatedRestartAreIgnored) {
  const auto envelope = [](Msg type) {
    return encode_frame(kWsBinary, encode_envelope(type, 0, nullptr, 0, kBinaryPayload).data(),
                        kEnvelopeHeaderSize, false);
  };
  std::vector<std::uint8_t> both = envelope(Msg::Reboot);
  const std::vector<std::uint8_t> second = envelope(Msg::SecureAttention);
  both.insert(both.end(), second.begin(), second.end());
  peer_->send(both);
  EXPECT_TRUE(peer_->wait_closed());
  server_.accept_upgraded()->read_until(Msg::Login);
  EXPECT_EQ(count("SendSecureAttention"), 0u);
}

TEST_F(DispatchTest, RealRestartDoesNotEndTheConnection) {
  script().simulate_reboot = false;
  peer_->send_envelope(Msg::Reboot, 77, R"({"ignored":1})");
  peer_->settle();
  EXPECT_EQ(vantelink_fakes::journal(), (Lines{"reboot_machine"}));
}

TEST_F(DispatchTest, ReceivedClipboardContentReachesTheCallbackEvenWithoutASession) {
  peer_->send_envelope(Msg::ClipboardData, 3, std::string(5000, 'c'), 0);
  EXPECT_TRUE(log_.wait_for("clipboard 5000")) << "even without any session";
}

TEST_F(DispatchTest, EachThumbnailIsSentInAMessageWithTheNumberOfAllThumbnails) {
  script().thumbnails.assign(3, MonitorThumbnail{0, 320, 180, std::vector<std::uint8_t>(320 * 180 * 4)});
  script().thumbnails[1].id = 1;
  script().thumbnails[2].id = 2;
  int calls = 0;
  script().jpeg = [&] { return ++calls == 2 ? std::vector<std::uint8_t>() : std::vector<std::uint8_t>{'J'}; };
  peer_->send_envelope(Msg::ThumbnailRequest, 12, "");
  for (const char id : {'\0', '\2'}) {
    const Envelope one = peer_->read_until(Msg::Thumbnail);
    EXPECT_EQ(one.session_id, 12u);
    EXPECT_EQ(one.flags, 0);
    EXPECT_EQ(text_of(one), std::string({id, '\3', '\x40', '\x01', '\xB4', '\0', 'J'}));
  }
  EXPECT_EQ(count("CaptureThumbnails 320"), 1u);
  EXPECT_EQ(count("EncodeJpeg 320 180 1280 80"), 3u);
}

TEST_F(DispatchTest, NewIdentityIsStoredAtOnceAndUsedByTheNextConnection) {
  peer_->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"new","agent_secret":"s3"})");
  ASSERT_TRUE(log_.wait_for("notice Registered with Maravek"));
  EXPECT_EQ(count("save_config new/s3"), 1u);
  peer_->settle();
  EXPECT_EQ(log_.lines().back(), "notice Registered with Maravek")
      << "the status changes only with the result of a log-in";
  peer_->close();
  EXPECT_NE(
      text_of(server_.accept_upgraded()->read_until(Msg::Login)).find(R"("agent_id":"new","secret":"s3")"),
      std::string::npos);
}

TEST_F(DispatchTest, EmptyEnrolmentResultStoresAnEmptyIdentityAndTheClientEnrolsAgain) {
  peer_->send_envelope(Msg::EnrollResult, 0, "");
  ASSERT_TRUE(log_.wait_for("notice Registered with Maravek"));
  EXPECT_EQ(count("save_config /"), 1u);
  peer_->close();
  server_.accept_upgraded()->read_until(Msg::Enroll);
}

TEST_F(DispatchTest, FailedAuthenticationDeletesTheIdentityBeforeTheNextConnection) {
  peer_->send_envelope(Msg::Error, 0, R"({"code":"AUTH_FAILED"})");
  EXPECT_TRUE(peer_->wait_closed());
  EXPECT_TRUE(log_.wait_for("notice error"));
  EXPECT_EQ(count("save_config /"), 1u);
  EXPECT_EQ(vantelink_fakes::saved_config().agent_id, "");
  server_.accept_upgraded()->read_until(Msg::Enroll);
}

TEST_F(DispatchTest, ErrorsOtherThanAuthFailedAreReportedAndKeepTheIdentity) {
  peer_->send_envelope(Msg::Error, 0, R"({"code":"AUTH_FAILED2","message":"try later"})");
  peer_->send_envelope(Msg::Error, 0, "");
  peer_->settle();
  EXPECT_TRUE(log_.wait_for("notice try later"));
  EXPECT_TRUE(log_.wait_for("notice error"));
  EXPECT_EQ(count("save_config /"), 0u);
}

TEST_F(DispatchTest, ReceivedMessagesOfOutgoingTypesAndOfUnknownTypesAreIgnored) {
  for (int code = 0; code < 256; ++code) {
    const bool known =
        std::string("\3\4\21\23\101\106\120\121\124\125\126\127\130\131\132\140\142\143\144\145\160\162")
            .find(static_cast<char>(code)) != std::string::npos;
    if (!known) peer_->send_envelope(static_cast<Msg>(code), 1, "{}");
  }
  peer_->settle();
  EXPECT_TRUE(vantelink_fakes::journal().empty());
  EXPECT_EQ(log_.lines().back(), "status 1 0");
}

TEST_F(DispatchTest, StreamSettingsReceivedWithoutAStreamDoNothing) {
  for (const Msg type : {Msg::KeyframeRequest, Msg::MonitorSelect, Msg::CodecSelect, Msg::CursorVisibility}) {
    peer_->send_envelope(type, 1, R"({"monitor_id":1,"codec":"mjpeg","show":0})");
  }
  peer_->settle();
  EXPECT_TRUE(vantelink_fakes::journal().empty());
}

}  // namespace
}  // namespace vlk::agent
