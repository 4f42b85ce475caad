// Which messages pass with which rights, and what a change of rights does to a running session.
#include "relay/session/parts_fixture.h"
#include "relay/wire/console_messages.h"

namespace vlk::relay {
namespace {

using Kind = Route::Kind;

struct Direction {
  const char* to_machine;  // the rights that each let the message pass, or "" if none does
  const char* to_browser;
};

// What each right is for, written out again, so that a wrong entry in the table of rights.h is found.
const std::map<Msg, Direction> kExpected = {
    {Msg::StreamStart, {"see", ""}},
    {Msg::StreamStop, {"see", ""}},
    {Msg::StreamConfig, {"", "see"}},
    {Msg::StreamFrame, {"", "see"}},
    {Msg::KeyframeRequest, {"see", ""}},
    {Msg::MonitorSelect, {"see", ""}},
    {Msg::InputEvent, {"control", ""}},
    {Msg::ClipboardData, {"clipboard", "clipboard"}},
    {Msg::CodecSelect, {"see", ""}},
    {Msg::CursorVisibility, {"see", ""}},
    {Msg::ThumbnailRequest, {"see", ""}},
    {Msg::Thumbnail, {"", "see"}},
    {Msg::DirListRequest, {"files-up files-down", ""}},
    {Msg::DirListResult, {"", "files-up files-down"}},
    {Msg::DownloadRequest, {"files-down", ""}},
    {Msg::UploadBegin, {"files-up", ""}},
    {Msg::FileChunk, {"files-up", "files-down"}},
    {Msg::FileTransferEnd, {"files-up files-down", "files-up files-down"}},
    {Msg::Reboot, {"restart", ""}},
    {Msg::SecureAttention, {"restart", ""}},
};

// True if one of the rights is named in `names`.
bool one_of(const std::string& names, Rights rights) {
  for (const std::string& name : right_names(rights)) {
    if ((' ' + names + ' ').find(' ' + name + ' ') != std::string::npos) return true;
  }
  return false;
}

class RightsTest : public PartsTest {
 protected:
  RightsTest() : ada_(person("ada", Role::Representative)), agent_(log_in("a")), browser_(browse("ada")) {
    give_rights(ada_, kAllRights);
    session_ = accepted(browser_, agent_);
  }

  Kind from_agent(Msg type, const std::string& payload = {}) {
    Bytes message = envelope_of(type, session_, payload);
    return parts_->router.route_from_agent(*agent_, message).kind;
  }
  Route from_browser(Msg type, const std::string& payload = {}) {
    Bytes message = envelope_of(type, session_, payload);
    return parts_->router.route_from_browser(*browser_, message);
  }
  // A number of a new transfer as the members of a request.
  std::string transfer() {
    number_ = parts_->transfers.give(session_);
    return R"({"transfer_id":)" + std::to_string(number_) + R"(,"path":"a"})";
  }
  // Begins a download or an upload and returns its number in the payload of a chunk.
  std::string begin(Msg type) {
    EXPECT_EQ(from_browser(type, transfer()).kind, Kind::Forward);
    std::string chunk;
    for (int shift = 24; shift >= 0; shift -= 8)
      chunk += static_cast<char>(number_ >> shift);
    return chunk + std::string(4, '\0') + "data";
  }
  bool refused_with_code(const Route& route) {
    return route.kind == Kind::Refuse && route.code == kNoRightCode && route.agent == "a";
  }

  PersonId ada_;
  Agent agent_;
  Console browser_;
  std::uint32_t session_ = 0;
  std::uint32_t number_ = 0;
};

// Each set of rights that a person can have, times all 256 message codes, in both directions.
TEST_F(RightsTest, EachMessagePassesWithItsRightAndWithNoOther) {
  for (Rights rights = 0; rights <= kAllRights; ++rights) {
    for (int code = 0; code < 256; ++code) {
      const auto type = static_cast<Msg>(code);
      const auto found = kExpected.find(type);
      const Direction none{"", ""};
      const Direction& expected = found == kExpected.end() ? none : found->second;
      const Rights seen = (rights & kSee) ? rights : 0;
      EXPECT_EQ(allows_to_machine(rights, type, {}), one_of(expected.to_machine, seen))
          << code << ' ' << rights;
      EXPECT_EQ(allows_to_browser(rights, type, {}), one_of(expected.to_browser, seen))
          << code << ' ' << rights;
    }
  }
}

TEST_F(RightsTest, RouterRefusesABrowserEachMessageForWhichTheRightIsMissing) {
  for (Rights rights = kSee; rights <= kAllRights; rights += 2) {
    give_rights(ada_, rights);
    for (const auto& [type, expected] : kExpected) {
      if (*expected.to_machine == '\0') continue;
      const Route route = from_browser(type);
      if (one_of(expected.to_machine, rights)) {
        EXPECT_FALSE(refused_with_code(route)) << static_cast<int>(type) << ' ' << rights;
      } else {
        EXPECT_TRUE(refused_with_code(route)) << static_cast<int>(type) << ' ' << rights;
        EXPECT_EQ(route.to, nullptr);
      }
    }
  }
}

TEST_F(RightsTest, RouterDropsEachMessageOfAMachineForWhichTheRightIsMissing) {
  for (Rights rights = kSee; rights <= kAllRights; rights += 2) {
    give_rights(ada_, rights);
    for (const auto& [type, expected] : kExpected) {
      if (*expected.to_browser == '\0') continue;
      const bool passes = one_of(expected.to_browser, rights);
      EXPECT_EQ(from_agent(type), passes ? Kind::Forward : Kind::Swallow)
          << static_cast<int>(type) << ' ' << rights;
    }
  }
}

TEST_F(RightsTest, FilesInAClipboardNeedTheRightToMoveFilesToo) {
  const std::string files("\3\0\0\0\0", 5);
  give_rights(ada_, kSee | kClipboard | kFilesUp);
  EXPECT_EQ(from_browser(Msg::ClipboardData, files).kind, Kind::Forward);
  EXPECT_EQ(from_agent(Msg::ClipboardData, files), Kind::Swallow);
  give_rights(ada_, kSee | kClipboard | kFilesDown);
  EXPECT_TRUE(refused_with_code(from_browser(Msg::ClipboardData, files)));
  EXPECT_EQ(from_agent(Msg::ClipboardData, files), Kind::Forward);
  EXPECT_EQ(from_browser(Msg::ClipboardData, "\1text").kind, Kind::Forward);
}

TEST_F(RightsTest, ChangedRightsAreSentToTheBrowserOfARunningSession) {
  give_rights(ada_, kSee | kControl);
  const Lines lines = sent_but_lists(*browser_->channel);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines.front()), (Json{{"type", "session"},
                                              {"session", session_},
                                              {"agent", "a"},
                                              {"state", "accepted"},
                                              {"rights", {"see", "control"}}}));
  give_rights(ada_, kSee | kControl);
  EXPECT_TRUE(sent_but_lists(*browser_->channel).empty()) << "nothing has changed";
}

TEST_F(RightsTest, SessionEndsAtOnceWithoutTheRightToSee) {
  give_rights(ada_, kAllRights & ~kSee);
  const Lines lines = sent_but_lists(*browser_->channel);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines.front()).value("reason", ""), "no-right");
  EXPECT_EQ(sent(*agent_->channel), (Lines{"70/" + std::to_string(session_) + " {}"}));
  EXPECT_EQ(parts_->sessions.find(session_), nullptr);
}

TEST_F(RightsTest, RequestThatWaitsForTheMachineEndsToo) {
  parts_->sessions.close(*browser_, session_);
  const std::uint32_t asked = ask(browser_, agent_);
  give_rights(ada_, kNoRights);
  EXPECT_EQ(parts_->sessions.find(asked), nullptr);
}

TEST_F(RightsTest, DisabledPersonLosesRunningSessions) {
  People::Contents all = parts_->people.all();
  all.people.front().disabled = true;
  parts_->people.replace(all);
  EXPECT_EQ(parts_->sessions.find(session_), nullptr);
}

TEST_F(RightsTest, DownloadUnderWayIsCutWhenItsRightIsTakenAway) {
  const std::string chunk = begin(Msg::DownloadRequest);
  EXPECT_EQ(from_agent(Msg::FileChunk, chunk), Kind::Forward);
  give_rights(ada_, kSee | kFilesUp);
  EXPECT_EQ(from_agent(Msg::FileChunk, chunk), Kind::Swallow);
  const Lines lines = sent_but_lists(*browser_->channel);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(Json::parse(lines.back()).value("code", ""), "no-right");
  EXPECT_EQ(Json::parse(lines.back()).value("transfer", 0u), number_);
  give_rights(ada_, kAllRights);
  EXPECT_EQ(from_agent(Msg::FileChunk, chunk), Kind::Swallow) << "the file would have a gap";
}

TEST_F(RightsTest, UploadUnderWayIsEndedAtTheMachineWhenItsRightIsTakenAway) {
  const std::string chunk = begin(Msg::UploadBegin);
  EXPECT_EQ(from_browser(Msg::FileChunk, chunk).kind, Kind::Forward);
  give_rights(ada_, kSee | kFilesDown);
  EXPECT_EQ(sent(*agent_->channel), (Lines{"101/" + std::to_string(session_) +
                                           " {\"transfer_id\":" + std::to_string(number_) + "}"}));
  const Route refused = from_browser(Msg::FileChunk, chunk);
  EXPECT_TRUE(refused_with_code(refused));
  EXPECT_EQ(refused.transfer, number_);
}

TEST_F(RightsTest, TransfersOfASessionWhoseBrowserIsAwayAreCutToo) {
  const std::string down = begin(Msg::DownloadRequest);
  parts_->downloads.add_chunk(session_, number_,
                              std::make_shared<const Bytes>(envelope_of(Msg::FileChunk, session_, down)));
  (void)begin(Msg::UploadBegin);
  (void)sent(*agent_->channel);
  parts_->sessions.hold_all_of(*browser_, Clock::now());
  EXPECT_EQ(parts_->transfers.open(session_).size(), 2u);
  EXPECT_GT(spools_.used(), 0u);
  give_rights(ada_, kSee);
  EXPECT_TRUE(parts_->transfers.open(session_).empty());
  EXPECT_EQ(spools_.used(), 0u);
  EXPECT_EQ(sent(*agent_->channel), (Lines{"101/" + std::to_string(session_) +
                                           " {\"transfer_id\":" + std::to_string(number_) + "}"}));
}

TEST_F(RightsTest, RoomOfADownloadIsFreeAfterTheEndOfItsSession) {
  const std::string down = begin(Msg::DownloadRequest);
  const Bytes message = envelope_of(Msg::FileChunk, session_, down);
  parts_->downloads.add_chunk(session_, number_, std::make_shared<const Bytes>(message));
  EXPECT_GT(spools_.used(), 0u);
  parts_->sessions.close(*browser_, session_);
  EXPECT_EQ(spools_.used(), 0u);
}

}  // namespace
}  // namespace vlk::relay
