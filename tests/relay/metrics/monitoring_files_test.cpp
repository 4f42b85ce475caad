// The dashboard and the alert rules for operators name only metrics and labels that the relay has.
#include <set>

#include "relay/base/source_file.h"
#include "relay/metrics/operator_client.h"
#include "relay/metrics/patterns.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

// All that the pattern's first group matches in the text.
std::set<std::string> all_in(const std::string& text, const char* pattern) {
  std::set<std::string> found;
  const std::regex expression(pattern);
  for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at)
    found.insert((*at)[1]);
  return found;
}

class MonitoringFilesTest : public RelayTest {
 protected:
  void SetUp() override {
    operators_ = parse_operators_address("127.0.0.1:0");
    RelayTest::SetUp();
    metrics_ = ask_operators_port(server_->monitoring().port().value(), "/metrics").text;
  }
  // Checks what one file names, of which at least `least` metrics are expected.
  void check(const std::string& file, std::size_t least) const {
    const std::string text = source_file("packaging/monitoring/" + file);
    const auto named = all_in(text, "\\b(vantelink_relay_[a-z_]+)");
    const auto exposed = all_in(metrics_, "\n(vantelink_relay_[a-z_]+)[ {]");
    EXPECT_GE(named.size(), least) << file;
    for (const std::string& name : named)
      EXPECT_TRUE(exposed.contains(name)) << file << " names " << name;
    const auto values = all_in(metrics_, "[{,]([a-z]+=\"[a-z_]+\")");
    for (const std::string& label :
         all_in(std::regex_replace(text, std::regex("\\\\\""), "\""), "[{,]([a-z]+=\"[a-z_]+\")"))
      EXPECT_TRUE(values.contains(label) || label.starts_with("job=")) << file << " names " << label;
  }

  std::string metrics_;
};

TEST_F(MonitoringFilesTest, AlertRulesNameWhatTheRelayReports) {
  check("vantelink-relay-alerts.yml", 14);
}

TEST_F(MonitoringFilesTest, DashboardNamesWhatTheRelayReports) {
  check("vantelink-relay-dashboard.json", 30);
  const Json dashboard = Json::parse(source_file("packaging/monitoring/vantelink-relay-dashboard.json"));
  EXPECT_GE(dashboard["panels"].size(), 25u);
  // Whatever the relay reports is on a panel, so that nothing new is forgotten there.
  std::string expressions;
  for (const Json& panel : dashboard["panels"]) {
    for (const Json& target : panel["targets"])
      expressions += target["expr"].get<std::string>() + '\n';
  }
  for (const std::string& name : all_in(metrics_, "# TYPE (vantelink_relay_[a-z_]+)"))
    EXPECT_NE(expressions.find(name), std::string::npos) << name << " is on no panel";
}

}  // namespace
}  // namespace vlk::relay
