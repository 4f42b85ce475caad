// The rows about clipboards, and their limit.
#include "relay/session/trail/clip_notes.h"

#include <algorithm>

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class ClipNotesTest : public PartsTest {
 protected:
  void pass(int count, Clock::time_point now) {
    for (int i = 0; i < count; ++i)
      notes_.note(session_, "down", {"text", 10, 0, {}}, now);
  }
  std::ptrdiff_t rows_of_clips() {
    const Lines lines = audited();
    return std::ranges::count(lines, R"(clip.sent/7 {"direction":"down","kind":"text","bytes":10})");
  }

  const Session session_{7, log_in("a"), browse("ada")};
  ClipNotes notes_{parts_->audit};
  const Clock::time_point start_ = Clock::now();
};

TEST_F(ClipNotesTest, EachClipOfAMinuteHasARowUpToTheLimit) {
  pass(120, start_);
  EXPECT_EQ(rows_of_clips(), 120);
  notes_.end(session_);
  EXPECT_EQ(audited().size(), 120u);
}

TEST_F(ClipNotesTest, FurtherClipsOfTheMinuteAreCountedInOneRowBeforeTheNext) {
  pass(150, start_);
  EXPECT_EQ(audited().size(), 120u);
  pass(1, start_ + ClipNotes::kInterval);
  const Lines lines = audited();
  ASSERT_EQ(lines.size(), 122u);
  EXPECT_EQ(lines[120], R"(clip.counted/7 {"count":30,"bytes":300})");
  EXPECT_EQ(rows_of_clips(), 121);
}

TEST_F(ClipNotesTest, EndOfTheSessionWritesWhatWasCounted) {
  pass(121, start_);
  notes_.end(session_);
  notes_.end(session_);
  const Lines lines = audited();
  ASSERT_EQ(lines.size(), 121u);
  EXPECT_EQ(lines.back(), R"(clip.counted/7 {"count":1,"bytes":10})");
}

TEST_F(ClipNotesTest, EachSessionHasALimitOfItsOwn) {
  const Session other{8, log_in("b"), browse("ada")};
  pass(120, start_);
  notes_.note(other, "up", {"files", 30, 1, {"a.txt"}}, start_);
  EXPECT_EQ(audited().back(),
            R"(clip.sent/8 {"direction":"up","kind":"files","bytes":30,"files":1,"names":["a.txt"]})");
}

TEST_F(ClipNotesTest, RowOfTheCountComesBeforeThatOfTheSessionsEnd) {
  const auto browser = browse("ada");
  const auto agent = log_in("b");
  const std::uint32_t number = accepted(browser, agent);
  for (int i = 0; i < 125; ++i) {
    Bytes message = envelope_of(Msg::ClipboardData, number, "\1text");
    ASSERT_EQ(parts_->router.route_from_browser(*browser, message).kind, Route::Kind::Forward);
  }
  parts_->sessions.close(*browser, number);
  const Lines lines = audited();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_TRUE(lines[lines.size() - 2].ends_with(R"( {"count":5,"bytes":25})")) << lines[lines.size() - 2];
  EXPECT_TRUE(lines.back().starts_with("session.ended")) << lines.back();
}

}  // namespace
}  // namespace vlk::relay
