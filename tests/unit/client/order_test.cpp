// The order of the steps at the start of a stream, at the end of a session and at the end of a connection.
// The features' calls and the client's callbacks are recorded in one list. At each step the tests also try
// what the client can send.
#include <algorithm>
#include <map>
#include <mutex>

#include <gtest/gtest.h>

#include "unit/support/link_fixture.h"
#include "unit/support/threads.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::note;
using Lines = std::vector<std::string>;

constexpr char kInputOn[] = "SetInputSessionActive true";
constexpr char kInputOff[] = "SetInputSessionActive false";
constexpr char kClipboardOn[] = "SetClipboardSessionActive true";
constexpr char kClipboardOff[] = "SetClipboardSessionActive false";
constexpr char kStreamEnded[] = "~ScreenCapturer";

class OrderTest : public LinkTest {
 protected:
  void SetUp() override {
    LinkTest::SetUp();
    make_client(server_);
    AgentCallbacks callbacks;
    callbacks.on_status = [](Status status, int count) {
      note("status " + std::to_string(static_cast<int>(status)) + ' ' + std::to_string(count));
    };
    callbacks.on_session_ended = [](std::uint32_t session) { note("ended " + std::to_string(session)); };
    client_ = std::make_unique<AgentClient>(config_, std::move(callbacks));
    peer_ = connect(server_);
    ASSERT_TRUE(vantelink_fakes::wait_for("status 1 0", 2));
    vantelink_fakes::clear_journal();
  }
  void TearDown() override {
    client_->stop();  // may call the watcher, which uses the client
    LinkTest::TearDown();
    peer_.reset();
  }

  // Sends a clip with the line's text, and counts the threads, when one of the lines is about to be recorded.
  void try_at(const Lines& lines) {
    vantelink_fakes::watch([this, lines](const std::string& line) {
      if (std::find(lines.begin(), lines.end(), line) == lines.end()) return;
      client_->send_clipboard(reinterpret_cast<const unsigned char*>(line.data()), line.size());
      const std::lock_guard<std::mutex> guard(lock_);
      threads_at_[line] = vantelink_test::threads();
      sent_at_[line] = client_->send_text(Msg::NameUpdate, 0, line);
    });
  }
  void start_stream(std::uint32_t session) {
    peer_->send_envelope(Msg::StreamStart, session, R"({"max_fps":100})");
    ASSERT_TRUE(vantelink_fakes::wait_for("CaptureGdi"));
    ASSERT_TRUE(vantelink_fakes::wait_for("status 3 1"));
  }
  // The recorded lines without those of the running stream.
  static Lines steps() {
    Lines found;
    for (const std::string& line : vantelink_fakes::journal()) {
      if (line == kStreamEnded || line.starts_with("SetInput") || line.starts_with("SetClipboard") ||
          line.starts_with("SetActive") || line.starts_with("status") || line.starts_with("ended") ||
          line == "EnumerateMonitors") {
        found.push_back(line);
      }
    }
    return found;
  }
  // The clips that the server has received, with their sessions.
  [[nodiscard]] Lines clips() const {
    Lines found;
    for (const Envelope& one : peer_->received()) {
      if (one.type == static_cast<std::uint8_t>(Msg::ClipboardData))
        found.push_back(std::to_string(one.session_id) + ' ' + text_of(one));
    }
    return found;
  }

  ScriptedServer server_{authority()};
  std::unique_ptr<ServerConnection> peer_;
  std::mutex lock_;
  std::map<std::string, std::size_t> threads_at_;
  std::map<std::string, bool> sent_at_;
};

TEST_F(OrderTest, StreamStartsAfterInputTheStreamingSessionAndTheClipboard) {
  const std::size_t threads_before = vantelink_test::threads();
  try_at({kInputOn, kClipboardOn, "status 3 1"});
  start_stream(5);
  EXPECT_EQ(steps().front(), "EnumerateMonitors");
  peer_->settle();
  EXPECT_EQ(clips(), (Lines{std::string("5 ") + kClipboardOn, "5 status 3 1"}))
      << "the streaming session is set between input and clipboard";
  const std::lock_guard<std::mutex> guard(lock_);
  EXPECT_EQ(threads_at_[kInputOn], threads_before);
  EXPECT_EQ(threads_at_[kClipboardOn], threads_before) << "the stream's thread starts before the clipboard";
  EXPECT_EQ(threads_at_["status 3 1"], threads_before + 1);
}

TEST_F(OrderTest, EndOfASessionDisablesInputAndClipboardBeforeItStopsTheStreamAndReportsTheStatusLast) {
  for (const Msg message : {Msg::SessionEnd, Msg::StreamStop}) {
    start_stream(5);
    vantelink_fakes::clear_journal();
    peer_->forget_received();
    try_at({kInputOff, kClipboardOff, kStreamEnded});
    peer_->send_envelope(message, 5, "");
    ASSERT_TRUE(vantelink_fakes::wait_for("status 2 0"));
    Lines expected = {kInputOff, kClipboardOff, kStreamEnded, "status 2 0"};
    if (message == Msg::SessionEnd) expected.insert(expected.begin(), "ended 5");
    EXPECT_EQ(steps(), expected);
    peer_->settle();
    EXPECT_EQ(clips(), (Lines{std::string("5 ") + kInputOff, std::string("5 ") + kClipboardOff}))
        << "the streaming session is cleared after the clipboard and before the stream ends";
    vantelink_fakes::clear_journal();
  }
}

TEST_F(OrderTest, EndOfAConnectionStopsTheStreamFirstAndSendsItsLastBytesBeforeItClosesTheSocket) {
  start_stream(5);
  vantelink_fakes::clear_journal();
  try_at({kStreamEnded, kInputOff, kClipboardOff, "status 0 0"});
  peer_->end_sending();
  ASSERT_TRUE(vantelink_fakes::wait_for("status 0 0"));
  const Lines seen = steps();
  EXPECT_EQ(Lines(seen.begin(), seen.begin() + 4),
            (Lines{kStreamEnded, kInputOff, kClipboardOff, "status 0 0"}));
  EXPECT_TRUE(peer_->wait_closed());
  EXPECT_TRUE(peer_->client_ended_sending()) << "the socket was closed without close_notify";
  EXPECT_EQ(clips(), (Lines{std::string("5 ") + kStreamEnded, std::string("5 ") + kInputOff,
                            std::string("5 ") + kClipboardOff}))
      << "the connection and the streaming session exist until the clipboard is disabled";
  const std::lock_guard<std::mutex> guard(lock_);
  EXPECT_TRUE(sent_at_[kClipboardOff]);
  EXPECT_FALSE(sent_at_["status 0 0"]);
}

}  // namespace
}  // namespace vlk::agent
