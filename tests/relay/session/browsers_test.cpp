// Which browsers receive the list of machines, and which are closed when a log-in ends.
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class BrowsersTest : public PartsTest {
 protected:
  // The next message to the browser that is about the list of machines; null if nothing is queued.
  static Json next(const Console& browser) {
    const Lines lines = sent(*browser->channel);
    return lines.empty() ? Json() : Json::parse(lines.at(0));
  }
  static std::vector<std::string> ids(const Json& machines) {
    std::vector<std::string> result;
    for (const Json& machine : machines)
      result.push_back(machine["id"]);
    return result;
  }
  // The number of waiting machines in the messages to the browser; null if they name none.
  static Json waiting(const Console& browser) {
    Json count;
    for (const std::string& line : sent(*browser->channel)) {
      const Json message = Json::parse(line);
      if (message["type"] == "waiting") count = message["count"];
    }
    return count;
  }
  void set_state(const std::string& id, MachineState state) {
    parts_->machines.change(id, [&](MachineRecord& machine) { machine.state = state; });
    parts_->browsers.send_changes();
  }
  // A view of the machines whose ids are in `ids`, in which each machine has the member "mark".
  static std::shared_ptr<const MachineView> view(const std::string& ids, int mark) {
    return std::make_shared<MachineView>(
        MachineView{ids + std::to_string(mark), [=](const MachineRecord& record, std::string& fields) {
                      fields = "\"mark\":" + std::to_string(mark);
                      return ids.find(record.id) != std::string::npos;
                    }});
  }
};
using Ids = std::vector<std::string>;

TEST_F(BrowsersTest, NewBrowserReceivesTheListOfMachinesAtOnce) {
  log_in("a");
  const Json list = next(browse("ada"));
  EXPECT_EQ(list["type"], "agents");
  EXPECT_TRUE(list["version"].is_number_unsigned());
  EXPECT_EQ(ids(list["agents"]), Ids{"a"});
}

TEST_F(BrowsersTest, MachinesThatWereStoredAtTheStartAreNotSentAsChanges) {
  log_in("a");
  restart();
  const auto browser = browse("ada");
  EXPECT_EQ(ids(next(browser)["agents"]), Ids{"a"});
  parts_->browsers.send_changes();
  EXPECT_TRUE(next(browser).is_null()) << "the first list had this machine";
}

TEST_F(BrowsersTest, OnlyChangedMachinesAreSentWithTheNextVersion) {
  const auto agent = log_in("a");
  log_in("b");
  const auto browser = browse("ada");
  parts_->browsers.send_changes();
  const Lines first = sent(*browser->channel);
  const std::uint64_t version = Json::parse(first.back())["version"];
  parts_->machines.rename(*agent, "new");
  parts_->machines.rename(*agent, "newer");
  parts_->browsers.send_changes();
  const Json change = next(browser);
  EXPECT_EQ(change["type"], "agents-changed");
  EXPECT_EQ(change["version"], version + 1);
  EXPECT_EQ(ids(change["changed"]), Ids{"a"});
  EXPECT_EQ(change["changed"][0]["name"], "newer");
  EXPECT_EQ(change["removed"], Json::array());
  parts_->browsers.send_changes();
  EXPECT_TRUE(next(browser).is_null()) << "nothing is sent without a change";
}

TEST_F(BrowsersTest, ForgottenMachineIsRemovedFromEveryListThatHadIt) {
  const auto agent = log_in("a");
  const auto early = browse("ada");
  parts_->browsers.send_changes();
  (void)sent(*early->channel);
  parts_->machines.remove_connection(agent);
  const auto row = trail_entry<TrailKind::MachineForgotten>({.machine = "a"}, "name");
  ASSERT_EQ(result_of(parts_->machines.forget("a", row)), Machines::Forgotten::Done);
  const auto late = browse("ada");
  EXPECT_EQ(next(late)["agents"], Json::array());
  parts_->browsers.send_changes();
  EXPECT_EQ(next(early)["removed"], Json::array({"a"}));
}

TEST_F(BrowsersTest, BrowsersShareTheTextOfEachChangeAndOfTheWholeList) {
  log_in("a");
  const auto first = browse("ada"), second = browse("ben");
  const auto whole = first->channel->take(), again = second->channel->take();
  EXPECT_EQ(whole->message, again->message);
  parts_->browsers.send_changes();
  const auto change = first->channel->take(), same = second->channel->take();
  ASSERT_TRUE(change && same);
  EXPECT_EQ(change->message, same->message);
}

TEST_F(BrowsersTest, BrowserThatAsksForTheListReceivesItInsteadOfQueuedChanges) {
  log_in("a");
  const auto browser = browse("ada");
  parts_->browsers.send_changes();
  parts_->browsers.send_list(*browser);
  const Lines lines = sent(*browser->channel);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Json::parse(lines[0])["type"], "agents");
  parts_->machines.set_representative("a", "ada");
  parts_->browsers.send_changes();
  EXPECT_EQ(next(browser)["version"], Json::parse(lines[0])["version"].get<std::uint64_t>() + 1);
}

TEST_F(BrowsersTest, BrowserThatReadsNothingIsSentTheWholeListLaterInsteadOfManyChanges) {
  const auto agent = log_in("a");
  const auto slow = browse("ada"), quick = browse("ben");
  for (int i = 0; i < 5000; ++i) {
    parts_->machines.rename(*agent, std::to_string(i));
    parts_->browsers.send_changes();
    (void)sent(*quick->channel);
  }
  EXPECT_LT(slow->channel->queued_bytes(Lane::Control, kListTag), 70'000u);
  (void)sent(*slow->channel);
  parts_->browsers.send_changes();
  const Json list = next(slow);
  EXPECT_EQ(list["type"], "agents");
  EXPECT_EQ(list["agents"][0]["name"], "4999");
  parts_->machines.rename(*agent, "last");
  parts_->browsers.send_changes();
  const Json change = next(slow);
  EXPECT_EQ(change["version"], list["version"].get<std::uint64_t>() + 1);
  EXPECT_EQ(next(quick)["version"], change["version"]);
}

TEST_F(BrowsersTest, ViewShowsItsMachinesOnly) {
  const auto agent = log_in("a");
  log_in("b");
  const auto browser = browse("ada");
  (void)sent(*browser->channel);
  parts_->browsers.set_view(*browser, view("a", 1));
  const Json list = next(browser);
  EXPECT_EQ(ids(list["agents"]), Ids{"a"});
  EXPECT_EQ(list["agents"][0]["mark"], 1);
  parts_->browsers.send_changes();
  EXPECT_EQ(ids(next(browser)["changed"]), Ids{"a"});
  parts_->machines.set_representative("b", "ben");
  parts_->browsers.send_changes();
  EXPECT_TRUE(next(browser).is_null()) << "the machine is not in the view";
  parts_->browsers.set_view(*browser, view("ab", 2));
  const Json wider = next(browser);
  EXPECT_EQ(ids(wider["agents"]), (Ids{"a", "b"}));
  EXPECT_EQ(wider["agents"][1]["mark"], 2);
}

TEST_F(BrowsersTest, MachineThatLeavesAViewIsRemovedFromItsLists) {
  const auto agent = log_in("a");
  const auto browser = browse("ada");
  bool shown = true;
  parts_->browsers.set_view(*browser, std::make_shared<MachineView>(MachineView{
                                          "key", [&](const MachineRecord&, std::string&) { return shown; }}));
  parts_->browsers.send_changes();
  (void)sent(*browser->channel);
  shown = false;
  parts_->machines.rename(*agent, "new");
  parts_->browsers.send_changes();
  EXPECT_EQ(next(browser)["removed"], Json::array({"a"}));
}

TEST_F(BrowsersTest, OnlyAdministratorsAreToldHowManyMachinesWait) {
  log_in("a");
  log_in("b");
  set_state("a", MachineState::Waiting);
  const auto ada = browse("ada"), ben = browse("ben");
  person("ben", Role::Representative);
  give_rights(ben->person, kAllRights);
  for (const auto& browser : {ada, ben})
    parts_->browsers.set_view(*browser, parts_->view_of(browser->person));
  EXPECT_EQ(waiting(ada), 1);
  EXPECT_EQ(waiting(ben), nullptr);
  set_state("b", MachineState::Waiting);
  EXPECT_EQ(waiting(ada), 2);
  EXPECT_EQ(waiting(ben), nullptr);
  parts_->machines.set_representative("a", "ada");
  parts_->browsers.send_changes();
  EXPECT_EQ(waiting(ada), nullptr) << "the number has not changed";
  set_state("a", MachineState::Approved);
  EXPECT_EQ(waiting(ada), 1);
  person("ben", Role::Administrator);
  EXPECT_EQ(waiting(ben), 1) << "the person became an administrator";
}

TEST_F(BrowsersTest, NewBrowserOfAnAdministratorIsToldHowManyMachinesWait) {
  log_in("a");
  set_state("a", MachineState::Waiting);
  const auto browser = browse("ada");
  parts_->browsers.remove(browser);
  (void)sent(*browser->channel);
  browser->view = parts_->view_of(browser->person);
  parts_->browsers.add(browser);
  EXPECT_EQ(waiting(browser), 1);
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
  parts_->browsers.end_login({9}, "the log-in ended");
  EXPECT_FALSE(first->channel->closing());
  EXPECT_TRUE(second->channel->closing());
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
