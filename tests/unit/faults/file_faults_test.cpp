// Listings, uploads and downloads of a connected client with each call below them going wrong once, or from
// one call on.
#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "support/peers/file_requests.h"
#include "support/temp_folder.h"
#include "support/waiting.h"
#include "unit/faults/failing_calls_seam.h"
#include "unit/support/link_fixture.h"
#include "unit/support/threads.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::descriptors;
using vantelink_test::eventually;
using vantelink_test::FailingCalls;
using vantelink_test::FailNth;
using vantelink_test::FileRequests;
using vantelink_test::TempFolder;
using vantelink_test::threads;

constexpr std::size_t kChunk = 262144;  // bytes of a file in one message
constexpr char kSuccess[] = R"({"transfer_id":7,"ok":true})";

class FileFaultsTest : public OnlineTest,
                       public testing::WithParamInterface<CallFault>,
                       protected FileRequests {
 protected:
  FileFaultsTest() : FileRequests(peer_) {}

  void SetUp() override {
    OnlineTest::SetUp();
    peer_->settle();
    open_ = descriptors();
    running_ = threads();
  }

  // Repeats `work`, which returns when the client is done, with each call failing. Then calls `check` with
  // the name and number of the failed call, which are empty in the last run.
  template <typename Work, typename Check>
  void fail_each(Work work, Check check) {
    std::set<std::string> failed;
    const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
      std::string call;
      {
        FailingCalls calls(CallGroup::Files, GetParam(), fail);
        work();
        // The thread of a download ends after its last message.
        EXPECT_TRUE(eventually([&] { return threads() == running_; }));
        calls.stop();
        call = calls.failed_with_number();
        failed.insert(calls.failed());
      }
      const testing::ScopedTrace trace(__FILE__, __LINE__, call);
      check(call);
      EXPECT_EQ(descriptors(), open_);
    });
    EXPECT_EQ(failed, expected_);
    vantelink_test::report_failed_calls(runs);
  }
  // The names of the calls that the test expects to have failed; the empty one is that of the last run.
  void expect(std::set<std::string> any_fault, const std::set<std::string>& complete_failure) {
    expected_ = std::move(any_fault);
    if (GetParam() != CallFault::Short) expected_.insert(complete_failure.begin(), complete_failure.end());
    expected_.insert("");
  }

  static bool shortened() { return GetParam() == CallFault::Short; }
  static bool stays() { return GetParam() == CallFault::StaysFailing; }

  const TempFolder folder_;
  std::size_t open_ = 0, running_ = 0;
  std::set<std::string> expected_;
};

TEST_P(FileFaultsTest, DownloadEndsAtAFailureToReadAsAtTheEndOfTheFile) {
  const std::string bytes = std::string(kChunk, 'a') + std::string(kChunk, 'b') + "cd";
  folder_.write("file", bytes);
  expect({"fread"}, {"fopen", "fclose"});
  std::string received, end;
  const auto download = [&] {
    peer_->forget_received();
    ask(Msg::DownloadRequest, folder_.windows_path("file"), 7);
    end = text_of(peer_->read_until(Msg::FileTransferEnd));
    received.clear();
    for (const Envelope& one : peer_->received()) {
      if (one.type == static_cast<std::uint8_t>(Msg::FileChunk)) received += text_of(one).substr(8);
    }
  };
  fail_each(download, [&](const std::string& failed) {
    const std::size_t half = shortened() ? 1 : 0;
    const std::map<std::string, std::size_t> sizes = {{"fopen 1", 0},
                                                      {"fread 1", half * kChunk / 2},
                                                      {"fread 2", kChunk + half * kChunk / 2},
                                                      {"fread 3", 2 * kChunk + half * 2}};
    const auto size = sizes.find(failed);
    EXPECT_TRUE(received == bytes.substr(0, size == sizes.end() ? bytes.size() : size->second));
    EXPECT_EQ(end, failed == "fopen 1" ? R"({"transfer_id":7,"ok":false,"error":"cannot open"})" : kSuccess);
  });
}

TEST_P(FileFaultsTest, UploadContinuesAfterAFailureAndKeepsWhatWasWritten) {
  expect({"fwrite"}, {"fopen", "fclose", "mkdir"});
  std::size_t answers = 0;
  const auto upload = [&] {
    std::filesystem::remove_all(folder_.path() / "outer");
    peer_->forget_received();
    ask(Msg::UploadBegin, folder_.windows_path("outer\\inner\\file"), 7);
    for (const char* const part : {"one.", "two.", "three."})
      chunk(7, part);
    end(7);
    peer_->settle();
    answers = peer_->received().size();
  };
  fail_each(upload, [&](const std::string& failed) {
    EXPECT_EQ(answers, 1u) << "only the heartbeat is answered";
    // The path has folders above the test's own, which exist already.
    const std::string outer = (folder_.path() / "outer").string();
    const auto depth = std::count(outer.begin(), outer.end(), '/');
    std::map<std::string, std::string> contents = {{"fwrite 1", shortened() ? "on"
                                                                              "two.three."
                                                                : stays()   ? ""
                                                                            : "two.three."},
                                                   {"fwrite 2", shortened() ? "one."
                                                                              "tw"
                                                                              "three."
                                                                : stays()   ? "one."
                                                                            : "one.three."},
                                                   {"fwrite 3", shortened() ? "one.two."
                                                                              "thr"
                                                                            : "one.two."}};
    const bool exists = failed != "fopen 1" && failed != "mkdir " + std::to_string(depth) &&
                        failed != "mkdir " + std::to_string(depth + 1) &&
                        !(stays() && failed.starts_with("mkdir"));
    ASSERT_EQ(std::filesystem::exists(folder_.path() / "outer/inner/file"), exists);
    if (!exists) return;
    EXPECT_EQ(folder_.read("outer/inner/file"),
              contents.contains(failed) ? contents.at(failed) : "one.two.three.");
  });
}

TEST_P(FileFaultsTest, ListingHasTheEntriesBeforeAFailure) {
  if (shortened()) GTEST_SKIP() << "no call of a listing moves bytes";
  for (const char* const name : {"a", "b", "c", "d"})
    folder_.write(name, name);
  expect({}, {"opendir", "readdir", "fstatat"});
  const auto listing_of = [&] {
    ask(Msg::DirListRequest, folder_.windows_path());
    return text_of(peer_->read_until(Msg::DirListResult));
  };
  const std::string complete = listing_of();
  const std::string entries_key = "\"entries\":[";
  const std::size_t start = complete.find(entries_key) + entries_key.size();
  std::string listing;
  fail_each([&] { listing = listing_of(); },
            [&](const std::string& failed) {
              std::istringstream words(failed);
              std::string name;
              int number = 0;
              words >> name >> number;
              if (name.empty() || (name == "fstatat" && !stays())) {
                EXPECT_EQ(listing, complete) << "a failed stat is repeated without following a link";
                return;
              }
              // The two entries "." and ".." are listed nowhere, but they are read.
              ASSERT_TRUE(listing.ends_with("]}"));
              listing.resize(listing.size() - 2);
              EXPECT_TRUE(complete.starts_with(listing)) << listing;
              EXPECT_NE(listing, complete);
              const auto count =
                  std::count(listing.begin() + static_cast<std::ptrdiff_t>(start), listing.end(), '{');
              if (name == "opendir") {
                EXPECT_EQ(count, 0);
              } else {
                EXPECT_LE(count, number - 1);
                EXPECT_GE(count, number - 3);
              }
            });
}

std::string name_of(const testing::TestParamInfo<CallFault>& info) {
  switch (info.param) {
    case CallFault::Error:
      return "Error";
    case CallFault::StaysFailing:
      return "StaysFailing";
    default:
      return "Short";
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, FileFaultsTest,
                         testing::Values(CallFault::Error, CallFault::StaysFailing, CallFault::Short),
                         name_of);

}  // namespace
}  // namespace vlk::agent
