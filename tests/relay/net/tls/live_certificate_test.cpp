// A relay whose certificate is replaced while it runs.
#include "relay/net/tls/live_certificate.h"

#include <sys/stat.h>

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "relay/base/clock.h"
#include "relay/net/tls/pairs.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kDay = 24 * 3600;
constexpr char kLoaded[] = "the certificate was loaded again";
constexpr char kStays[] = "the certificate stays as it was, because ";

class LiveCertificateTest : public RelayTest {
 protected:
  bool serves(const TestPair& pair) {
    return eventually([&] { return served_certificate(port_) == pair.certificate; });
  }
  std::size_t lines_with(const std::string& text) {
    const std::lock_guard<std::mutex> guard(log_lock_);
    std::size_t count = 0;
    for (auto at = log_text_.find(text); at != std::string::npos; at = log_text_.find(text, at + 1))
      ++count;
    return count;
  }
  static void answers(Browser& browser) {
    browser.send({{"type", "ping"}, {"id", 7}});
    EXPECT_EQ(browser.read_text("pong")["id"], 7);
  }

  const TestPair pair_ = make_test_pair(90 * kDay);
};

TEST_F(LiveCertificateTest, RenamedFilesAreServedToNewConnectionsAndOldOnesGoOn) {
  const auto before = console();
  rename_over(certificate_.certificate, pair_.certificate);
  rename_over(certificate_.key, pair_.key);
  EXPECT_TRUE(serves(pair_));
  answers(*before);
  answers(*console());
  EXPECT_TRUE(logged(kLoaded));
}

TEST_F(LiveCertificateTest, LinksThatPointElsewhereAreNoticed) {
  const CertificateFiles newer{folder_ / "cert-2.pem", folder_ / "key-2.pem"};
  overwrite_pair(newer, pair_);
  for (const auto& [link, target] :
       {std::pair(certificate_.certificate, newer.certificate), std::pair(certificate_.key, newer.key)}) {
    std::filesystem::create_symlink(target, link + ".new");
    std::filesystem::rename(link + ".new", link);
  }
  EXPECT_TRUE(serves(pair_));
}

TEST_F(LiveCertificateTest, KeyWithAPasswordIsRefused) {
  const std::string old = served_certificate(port_);
  overwrite_pair(certificate_, {pair_.certificate, make_locked_key()});
  EXPECT_TRUE(logged("cannot use the private key " + certificate_.key));
  EXPECT_EQ(served_certificate(port_), old);
}

TEST_F(LiveCertificateTest, KeyThatComesFirstIsReportedOnceAndTheOldPairStays) {
  const std::string old = served_certificate(port_);
  overwrite_file(certificate_.key, pair_.key);
  ASSERT_TRUE(logged(std::string(kStays) + "cannot use the private key " + certificate_.key));
  EXPECT_EQ(served_certificate(port_), old);
  // The same problem with other files is not reported again: the next one is the second line.
  overwrite_file(certificate_.key, make_test_pair(kDay).key);
  on_relay([&] { server_->reload_certificate(); });
  overwrite_file(certificate_.certificate, "garbage");
  ASSERT_TRUE(logged(std::string(kStays) + "cannot use the certificate " + certificate_.certificate));
  EXPECT_EQ(lines_with(kStays), 2u) << log_text_;
  overwrite_pair(certificate_, pair_);
  EXPECT_TRUE(serves(pair_));
}

TEST_F(LiveCertificateTest, PairsThatCannotBeUsedLeaveTheOldOneInUse) {
  const std::string old = served_certificate(port_);
  overwrite_pair(certificate_, make_test_pair(-60, -kDay));
  EXPECT_TRUE(logged(" ended at "));
  overwrite_pair(certificate_, make_test_pair(kDay, 3600));
  EXPECT_TRUE(logged("is valid only from "));
  ::chmod(certificate_.key.c_str(), 0644);
  overwrite_file(certificate_.certificate, pair_.certificate);
  EXPECT_TRUE(logged("because the private key " + certificate_.key));
  std::filesystem::remove(certificate_.key);
  EXPECT_TRUE(logged(certificate_.key + " is not a file"));
  overwrite_file(certificate_.certificate, std::string((1u << 20) + 1, 'x'));
  EXPECT_TRUE(logged(certificate_.certificate + " is too large"));
  EXPECT_EQ(served_certificate(port_), old);
}

TEST_F(LiveCertificateTest, ReloadReadsFilesThatHaveNotChanged) {
  on_relay([&] { server_->reload_certificate(); });
  EXPECT_TRUE(logged(kLoaded));
}

TEST_F(LiveCertificateTest, CertificateThatEndsSoonIsWarnedOfAtTheStart) {
  stop();
  overwrite_pair(certificate_, make_test_pair(12 * kDay + 3600));
  start();
  EXPECT_TRUE(logged("the certificate ends in 12 days, at ")) << log_text_;
}

TEST(CertificateWarningTest, ComesOnceADayFromThirtyDaysBeforeTheEnd) {
  const vantelink_test::TempFolder folder;
  const CertificateFiles files{folder.path() / "cert.pem", folder.path() / "key.pem"};
  overwrite_pair(files, make_test_pair(60 * kDay));
  std::string lines;
  const Log log([&](std::string_view line) { lines.append(line).append("\n"); });
  boost::asio::io_context loop;
  LiveCertificate certificate(files, std::chrono::hours(1), loop.get_executor(), log);
  const std::int64_t end = certificate.ends();
  EXPECT_NEAR(static_cast<double>(end), static_cast<double>(wall_seconds() + 60 * kDay), 60);
  certificate.tick(end - 30 * kDay - 1);
  EXPECT_EQ(lines, "");
  certificate.tick(end - 30 * kDay);
  EXPECT_NE(lines.find("ends in 30 days"), std::string::npos) << lines;
  lines.clear();
  certificate.tick(end - 29 * kDay - 1);
  EXPECT_EQ(lines, "");
  certificate.tick(end - 29 * kDay);
  EXPECT_NE(lines.find("ends in 29 days"), std::string::npos) << lines;
  certificate.tick(end);
  EXPECT_NE(lines.find("the certificate ended at "), std::string::npos) << lines;
}

}  // namespace
}  // namespace vlk::relay
