// What the relay reports about itself while machines and people use it.
#include <array>
#include <set>
#include <sstream>

#include "relay/metrics/operator_client.h"
#include "relay/metrics/patterns.h"
#include "relay/net/tls/pairs.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"
#include "relay/storage/test_database.h"
#include "relay/storage/trail/chain.h"

namespace vlk::relay {
namespace {

class MetricsTest : public RelayTest {
 protected:
  void SetUp() override {
    operators_ = parse_operators_address("127.0.0.1:0");
    limits_.database_answer = std::chrono::milliseconds(50);
    RelayTest::SetUp();
  }
  OperatorAnswer ask(const std::string& path) const {
    return ask_operators_port(server_->monitoring().port().value(), path);
  }
  // The value of a metric, whose name is given without its begin; -1 if there is none.
  double value(const std::string& name) const {
    const auto values = metric_values(ask("/metrics").text);
    const auto found = values.find("vantelink_relay_" + name);
    return found == values.end() ? -1 : found->second;
  }
  bool becomes(const std::string& name, double expected) const {
    const bool became = eventually([&] { return value(name) == expected; });
    if (!became) ADD_FAILURE() << name << " is " << value(name) << ", not " << expected;
    return became;
  }
  bool exceeds(const std::string& name, double least) const {
    return eventually([&] { return value(name) > least; });
  }
};

TEST_F(MetricsTest, TextIsWellFormedAndEachMetricIsExplained) {
  const OperatorAnswer answer = ask("/metrics");
  EXPECT_NE(answer.head.find("Content-Type: text/plain; version=0.0.4"), std::string::npos) << answer.head;
  const std::regex sample(
      R"((vantelink_relay_[a-z_]+)(\{[a-z]+="[^"]*"(,[a-z]+="[^"]*")*\})? -?[0-9.e+\-]+)");
  const std::regex note(R"(# (HELP|TYPE) (vantelink_relay_[a-z_]+) .+)");
  std::set<std::string> helped;
  std::istringstream lines(answer.text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch found;
    if (std::regex_match(line, found, note)) {
      EXPECT_NE(found[1] == "HELP", helped.contains(found[2])) << line;
      helped.insert(found[2]);
      continue;
    }
    ASSERT_TRUE(std::regex_match(line, found, sample)) << line;
    const std::string name = std::regex_replace(found[1].str(), std::regex("_(bucket|count|sum)$"), "");
    EXPECT_TRUE(helped.contains(name)) << line;
  }
  EXPECT_GT(helped.size(), 30u);
  const auto values = metric_values(answer.text);
  EXPECT_EQ(values.at("vantelink_relay_build_info{version=\"0.1.0\"}"), 1);
  EXPECT_NEAR(values.at("vantelink_relay_start_time_seconds"), static_cast<double>(wall_seconds()), 60);
  EXPECT_GT(values.at("vantelink_relay_resident_memory_bytes"), 1e6);
  EXPECT_GT(values.at("vantelink_relay_open_descriptors"), 5);
  EXPECT_GT(values.at("vantelink_relay_disk_free_bytes{folder=\"data\"}"), 0);
  EXPECT_GT(values.at("vantelink_relay_disk_free_bytes{folder=\"spool\"}"), 0);
  EXPECT_GT(values.at("vantelink_relay_certificate_end_seconds{certificate=\"relay\"}"), 89.0 * 24 * 3600);
}

TEST_F(MetricsTest, MachinesBrowsersSessionsAndTheirMessagesAreCounted) {
  const auto agent = connect_agent("desk of ada");
  EXPECT_TRUE(becomes("agents_online", 1));
  EXPECT_TRUE(becomes("machines{state=\"approved\"}", 1));
  EXPECT_TRUE(becomes("enrolments_total{result=\"stored\"}", 1));
  const auto browser = console();
  EXPECT_TRUE(becomes("browsers", 1));
  EXPECT_TRUE(becomes("connections{standing=\"known\"}", 2));
  browser->open_session(wait_for_machine("desk of ada", "online")["id"]);
  EXPECT_TRUE(becomes("sessions{state=\"accepted\"}", 1));
  for (const char* name : {"messages_total{peer=\"agent\",direction=\"in\",kind=\"other\"}",
                           "messages_total{peer=\"agent\",direction=\"out\",kind=\"other\"}",
                           "messages_total{peer=\"browser\",direction=\"in\",kind=\"other\"}",
                           "message_bytes_total{peer=\"browser\",direction=\"out\",kind=\"other\"}",
                           "trail_rows_total{result=\"stored\"}", "database_job_seconds_count",
                           "loop_lag_seconds_count", "log_lines_total{result=\"written\"}",
                           "message_memory_limit_bytes", "spool_limit_bytes", "database_jobs_limit"})
    EXPECT_TRUE(exceeds(name, 0)) << name;
  const auto values = metric_values(ask("/metrics").text);
  for (const char* name : {"messages_total", "message_bytes_total"})
    for (const char* peer : {"agent", "browser"})
      for (const char* way : {"in", "out"})
        for (const char* kind : {"picture", "bulk", "other"}) {
          const std::string series = std::string("vantelink_relay_") + name + "{peer=\"" + peer +
                                     "\",direction=\"" + way + "\",kind=\"" + kind + "\"}";
          EXPECT_TRUE(values.contains(series)) << series;
        }
  const std::string text = ask("/metrics").text;
  EXPECT_EQ(text.find("desk of ada"), std::string::npos);
  EXPECT_EQ(text.find("admin"), std::string::npos);
  EXPECT_EQ(text.find("127.0.0.1"), std::string::npos);
}

TEST_F(MetricsTest, FurtherMachinesAddNoLines) {
  const auto names = [&] {
    std::set<std::string> all;
    for (const auto& [name, number] : metric_values(ask("/metrics").text))
      all.insert(name);
    return all;
  };
  const auto before = names();
  const auto one = connect_agent("one");
  const auto two = connect_agent("two");
  EXPECT_EQ(names(), before);
}

TEST_F(MetricsTest, FailuresOfStrangersAreCounted) {
  EXPECT_EQ(value("log_ins_total{result=\"wrong\"}"), 0);
  const Json wrong = {{"name", "admin"}, {"password", "not the password"}};
  Browser(port_).request("POST", "/api/login", wrong.dump());
  EXPECT_EQ(value("log_ins_total{result=\"wrong\"}"), 1);
  log_in();
  EXPECT_EQ(value("log_ins_total{result=\"right\"}"), 1);
  exchange(port_, "no handshake of TLS\r\n\r\n");
  EXPECT_TRUE(becomes("handshakes_failed_total", 1));
}

TEST_F(MetricsTest, CertificateThatWasLoadedAgainIsCounted) {
  overwrite_pair(certificate_, make_test_pair(1000));
  EXPECT_TRUE(becomes("certificate_reloads_total{result=\"used\"}", 1));
  EXPECT_LE(value("certificate_end_seconds{certificate=\"relay\"}"), 1000);
  EXPECT_GT(value("certificate_end_seconds{certificate=\"relay\"}"), 900);
  overwrite_file(certificate_.certificate, "garbage");
  EXPECT_TRUE(becomes("certificate_reloads_total{result=\"failed\"}", 1));
}

TEST_F(MetricsTest, RelayWhoseDatabaseIsSilentIsAliveAndNotReady) {
  {
    const auto held = hold_database(1);
    const OperatorAnswer answer = ask("/readyz");
    EXPECT_EQ(answer.status, 503u);
    EXPECT_EQ(answer.text, "The database does not answer.\n");
    for (int i = 0; i < 20; ++i)
      EXPECT_EQ(ask("/readyz").status, 503u);
    EXPECT_LT(value("database_jobs"), 10) << "further questions wait for the first one's job";
    EXPECT_EQ(ask("/healthz").status, 200u);
  }
  EXPECT_TRUE(eventually([&] { return ask("/readyz").status == 200; }));
}

TEST_F(MetricsTest, RelayWithAFullDiskOrAnEndedCertificateIsNotReady) {
  on_relay([&] { limits_.least_free = std::uint64_t{1} << 60; });
  EXPECT_EQ(ask("/readyz").status, 503u);
  EXPECT_NE(ask("/readyz").text.find("MiB are free for the database"), std::string::npos);
  stop();
  overwrite_pair(certificate_, make_test_pair(-60, -3600));
  start();
  const std::string text = ask("/readyz").text;
  EXPECT_TRUE(text.starts_with("The certificate has ended.\nLess than ")) << text;
}

TEST_F(MetricsTest, StatusIsForAdministratorsAlone) {
  Browser browser(port_);
  EXPECT_EQ(browser.request("GET", "/api/status").status, 401u);
  const Json status = browser.request("GET", "/api/status", {}, log_in()).body;
  EXPECT_EQ(status["version"], "0.1.0");
  EXPECT_EQ(status["machines"]["online"], 0);
  EXPECT_EQ(status["certificate"]["ends_soon"], false);
  EXPECT_TRUE(status["certificate"]["problem"].is_null());
  EXPECT_TRUE(status["backup"].is_null());
  EXPECT_GT(status["memory"]["resident"].get<double>(), 1e6);
  EXPECT_GT(status["disk"]["data_free"].get<double>(), 0);
}

TEST_F(MetricsTest, StatusHasTheTimeOfTheLastBackup) {
  RELAY_SKIP_WITHOUT_SQLITE();
  const std::string login = log_in();
  const auto backup = [&] { return Browser(port_).request("GET", "/api/status", {}, login).body["backup"]; };
  const std::int64_t before = wall_seconds();
  Store other(database_in(folder_));  // as the command for backups does in another process
  append_trail(other.database(),
               std::array{trail_entry<TrailKind::BackupMade>({.actor = kTrailCommandLine}, "/backup", 4)});
  EXPECT_TRUE(eventually([&] { return backup().is_number(); }));
  EXPECT_GE(backup(), before);
  stop();
  start();
  EXPECT_TRUE(eventually([&] { return backup().is_number(); })) << "known after a start too";
}

}  // namespace
}  // namespace vlk::relay
