// A session ends when what passes in it cannot be recorded.
#include <array>

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

struct Recorded {
  const char* name = "";
  Msg type{};
  const char* payload = "";  // T stands for the number of a transfer
  bool from_browser = true;
};

constexpr Recorded kRecorded[] = {
    {"restart", Msg::Reboot, "{}"},
    {"ctrl_alt_del", Msg::SecureAttention, "{}"},
    {"clip_to_the_machine", Msg::ClipboardData, "\1text"},
    {"clip_to_the_browser", Msg::ClipboardData, "\1text", false},
    {"folder", Msg::DirListRequest, R"({"path":"C:\\"})"},
    {"upload", Msg::UploadBegin, R"({"transfer_id":T,"path":"C:\\a","size":1})"},
    {"download", Msg::DownloadRequest, R"({"transfer_id":T,"path":"C:\\a"})"},
};

class EvidenceTest : public PartsTest, public testing::WithParamInterface<Recorded> {};

TEST_P(EvidenceTest, SessionEndsWhenTheRowCannotBeWritten) {
  const auto agent = log_in("a");
  const auto browser = browse("ada");
  const std::uint32_t number = accepted(browser, agent);
  std::string payload = GetParam().payload;
  if (const auto at = payload.find('T'); at != std::string::npos)
    payload.replace(at, 1, std::to_string(parts_->transfers.give(number)));
  settle();
  break_audit_trail();
  Bytes message = envelope_of(GetParam().type, number, payload);
  const Route route = GetParam().from_browser ? parts_->router.route_from_browser(*browser, message)
                                              : parts_->router.route_from_agent(*agent, message);
  EXPECT_EQ(route.kind, Route::Kind::Forward);
  EXPECT_NE(parts_->sessions.find(number), nullptr);
  settle();
  EXPECT_EQ(parts_->sessions.find(number), nullptr);
  bool told = false;
  for (const std::string& line : sent_but_lists(*browser->channel))
    told = told || Json::parse(line, nullptr, false).value("reason", "") == "no-evidence";
  EXPECT_TRUE(told);
}

INSTANTIATE_TEST_SUITE_P(Messages, EvidenceTest, testing::ValuesIn(kRecorded),
                         [](const auto& tested) { return std::string(tested.param.name); });

class EvidenceOfSessionsTest : public PartsTest {};

TEST_F(EvidenceOfSessionsTest, AcceptanceThatCannotBeRecordedEndsTheSession) {
  const auto agent = log_in("a");
  const auto browser = browse("ada");
  const std::uint32_t number = ask(browser, agent);
  settle();
  break_audit_trail();
  parts_->sessions.accept(*agent, number);
  settle();
  EXPECT_EQ(parts_->sessions.find(number), nullptr);
}

TEST_F(EvidenceOfSessionsTest, NameOfAMachineStaysWhenItsChangeCannotBeRecorded) {
  const auto agent = log_in("a");
  const std::string before = parts_->machines.find("a")->name;
  break_audit_trail();
  parts_->machines.rename(*agent, "another");
  settle();
  EXPECT_EQ(parts_->machines.find("a")->name, before);
}

}  // namespace
}  // namespace vlk::relay
