// Which browsers receive the list of machines, and which are closed when a log-in ends.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using BrowsersTest = PartsTest;

TEST_F(BrowsersTest, NewBrowserReceivesTheListOfMachinesAtOnce) {
  log_in("a");
  const auto browser = browse("ada");
  const Lines lines = sent(*browser->channel);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines[0])["type"], "agents");
  EXPECT_EQ(Json::parse(lines[0])["agents"][0]["id"], "a");
}

TEST_F(BrowsersTest, NewerListOfMachinesReplacesAnOlderListInTheQueue) {
  const auto browser = browse("ada");
  parts_->browsers.refuse(*browser, "No.");
  parts_->browsers.send_list(Json::array({1}));
  parts_->browsers.send_list(Json::array({2}));
  EXPECT_EQ(sent(*browser->channel),
            (Lines{R"({"message":"No.","type":"error"})", R"({"agents":[2],"type":"agents"})"}));
}

TEST_F(BrowsersTest, RefusalContainsTheMachinesIdAndFurtherFields) {
  const auto browser = browse("ada");
  parts_->browsers.refuse(*browser, "No.", "a", {{"transfer", 5}});
  EXPECT_EQ(sent_but_lists(*browser->channel),
            (Lines{R"({"agent":"a","message":"No.","transfer":5,"type":"error"})"}));
  EXPECT_TRUE(logged("refused a request of ada: No."));
}

TEST_F(BrowsersTest, EndOfALogInClosesOnlyTheBrowsersWithThisLogIn) {
  const auto first = browse("ada"), second = browse("ada"), other = browse("ben");
  second->login = {9};
  parts_->browsers.end_login({9});
  EXPECT_FALSE(first->channel->closing());
  EXPECT_TRUE(second->channel->closing());
  EXPECT_FALSE(other->channel->closing());
}

TEST_F(BrowsersTest, EndingOtherLogInsClosesTheRepresentativesBrowsersWithThoseLogIns) {
  const auto first = browse("ada"), second = browse("ada"), other = browse("ben");
  second->login = {9};
  parts_->browsers.end_other_logins("ada", {9});
  EXPECT_TRUE(first->channel->closing());
  EXPECT_FALSE(second->channel->closing());
  EXPECT_FALSE(other->channel->closing());
}

TEST_F(BrowsersTest, ClosingAllBrowsersSendsEachBrowserTheGivenCloseCode) {
  const auto browser = browse("ada");
  parts_->browsers.close_all(CloseCode::GoingAway, "the relay stops");
  ASSERT_TRUE(browser->channel->close_request());
  EXPECT_EQ(browser->channel->close_request()->code, CloseCode::GoingAway);
  EXPECT_FALSE(browser->channel->is_cut());
}

}  // namespace
}  // namespace vlk::relay
