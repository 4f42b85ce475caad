// The relay's own authority as operators meet it: the program's starts, the command, and the check.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <gtest/gtest.h>

#include "relay/net/tls/own_certificate.h"
#include "relay/net/tls/pairs.h"
#include "relay/program/authority/command.h"
#include "relay/program/backup_fixture.h"
#include "relay/program/check/checks.h"
#include "relay/program/findings_text.h"
#include "support/peers/relay_process.h"
#include "support/waiting.h"

namespace vlk::relay {
namespace {

namespace fs = std::filesystem;
using vantelink_test::RelayProcess;

constexpr std::int64_t kDay = 24 * 3600;
constexpr std::int64_t kLife = 3652 * kDay;

class AuthorityCommandTest : public BackupTest {
 protected:
  AuthorityCommandTest() {
    fs::remove(next_files(data_).certificate);
    fs::remove(next_files(data_).key);
    options_.data = data_;
    options_.hosts = {"relay.example"};
  }
  // Carries out a step and returns what it printed, or the sentence with which it failed.
  std::string step(const std::string& name) {
    options_.step = name;
    std::ostringstream out;
    try {
      authority_command(options_, out);
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
    return out.str();
  }
  std::string checked() {
    Findings findings;
    check_certificate(options_, findings);
    return text_of(findings);
  }
  void expect_checked(const std::string& text) {
    const std::string all = checked();
    EXPECT_NE(all.find(text), std::string::npos) << all;
  }
  std::string file(const std::string& name) { return bytes_of(fs::path(data_) / name); }
  // The only file whose name begins and ends like this, or "".
  std::string kept(const std::string& begin) const {
    std::string found;
    for (const auto& entry : fs::directory_iterator(data_)) {
      const std::string name = entry.path().filename();
      if (!name.starts_with(begin)) continue;
      EXPECT_EQ(found, "");
      found = name;
    }
    return found;
  }
  std::string refusal(const std::string& host) const {
    return refusal_of(leaf_files(data_), trusted_files(data_).certificate, host, wall_seconds());
  }
  // Replaces the authority by one that was made so many seconds ago, and its leaf.
  void set_age(std::int64_t seconds) {
    const std::int64_t now = wall_seconds() - seconds;
    write_pair(trusted_files(data_), make_authority({"relay.example"}, now));
    static_cast<void>(OwnCertificate(data_, {"relay.example"}).prepare());
  }

  Options options_;
};

TEST_F(AuthorityCommandTest, PreparedAuthorityIsUsedOnlyWhenItIsRenewed) {
  const std::string before = file("relay-cert.pem");
  const std::string key = file("relay-key.pem");
  EXPECT_TRUE(
      step("prepare").starts_with("prepared: an authority for 127.0.0.1, localhost, relay.example, in "));
  const std::string next = file("relay-next-cert.pem");
  EXPECT_EQ(file("relay-cert.pem"), before);
  EXPECT_EQ(static_cast<unsigned>(fs::status(next_files(data_).key).permissions()), 0600u);
  expect_checked("ok: the authority " + data_ + "/relay-next-cert.pem is prepared");
  EXPECT_TRUE(step("prepare").starts_with("there is one already"));
  EXPECT_EQ(file("relay-next-cert.pem"), next);
  EXPECT_TRUE(step("renew").starts_with("renewed: the authority is in " + data_ + "/relay-cert.pem\n"));
  EXPECT_EQ(file("relay-cert.pem"), next);
  EXPECT_EQ(file(kept("relay-cert-before-")), before);
  EXPECT_EQ(file(kept("relay-key-before-")), key);
  EXPECT_EQ(static_cast<unsigned>(fs::status(fs::path(data_) / kept("relay-key-before-")).permissions()),
            0600u);
  EXPECT_FALSE(fs::exists(next_files(data_).certificate));
  static_cast<void>(OwnCertificate(data_, {"relay.example"}).prepare());
  EXPECT_EQ(refusal("relay.example"), "");
}

TEST_F(AuthorityCommandTest, RenewalForAnotherNamePermitsIt) {
  options_.hosts = {"relay.example", "new.example"};
  expect_checked("wrong: the authority " + data_ + "/relay-cert.pem does not permit new.example");
  EXPECT_TRUE(step("renew").starts_with("renewed: "));
  EXPECT_EQ(checked().find("wrong"), std::string::npos) << checked();
  static_cast<void>(OwnCertificate(data_, options_.hosts).prepare());
  EXPECT_EQ(refusal("new.example"), "");
}

TEST_F(AuthorityCommandTest, AuthorityThatWouldLockMachinesOutIsRefused) {
  const auto before = content_of(data_);
  options_.hosts = {"localhost"};
  EXPECT_EQ(step("renew"),
            "the relay's certificate is for relay.example; give all names of the relay with --host, or its "
            "settings with --config");
  EXPECT_EQ(content_of(data_), before);
  options_.hosts = {"relay.example"};
  EXPECT_TRUE(step("prepare").starts_with("prepared"));
  options_.hosts = {"new.example"};
  EXPECT_NE(step("renew").find("relay-next-cert.pem does not permit new.example"), std::string::npos);
  expect_checked("warning: the prepared authority " + data_ +
                 "/relay-next-cert.pem does not permit new.example");
  options_.certificate = options_.key = "/etc/x.pem";
  EXPECT_NE(step("renew").find("of --cert, and no authority of its own"), std::string::npos);
  options_.data = other_;
  EXPECT_NE(step("renew").find("there is no data folder"), std::string::npos);
  EXPECT_FALSE(fs::exists(other_));
}

TEST_F(AuthorityCommandTest, FilesThatTheSuperuserMakesBelongToTheRelaysUser) {
  constexpr uid_t kUser = 12345;
  if (::chown(data_.c_str(), kUser, static_cast<gid_t>(-1)) != 0) GTEST_SKIP() << "needs the superuser";
  ASSERT_TRUE(step("renew").starts_with("renewed"));
  for (const std::string& name : {std::string("relay-cert.pem"), std::string("relay-key.pem"),
                                  kept("relay-cert-before-"), kept("relay-key-before-")}) {
    struct stat status {};
    ASSERT_EQ(::stat((data_ + '/' + name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_uid, kUser) << name;
  }
}

TEST_F(AuthorityCommandTest, RenewalKeepsADamagedAuthorityToo) {
  overwrite_file(data_ + "/relay-cert.pem", "garbage");
  expect_checked("wrong: the certificate " + data_ + "/relay-cert.pem cannot be read");
  EXPECT_TRUE(step("renew").starts_with("renewed: "));
  EXPECT_EQ(file(kept("relay-cert-before-")), "garbage");
}

TEST_F(AuthorityCommandTest, CheckJudgesTheAuthoritysTimes) {
  EXPECT_EQ(checked().find("warning"), std::string::npos) << checked();
  expect_checked("ok: the authority " + data_ + "/relay-cert.pem is valid until ");
  expect_checked("ok: the authority permits relay.example\n");
  expect_checked("ok: the relay's certificate " + data_ + "/relay-leaf.pem is valid until ");
  set_age(kLife - 29 * kDay);
  expect_checked("for less than 30 days; make a new authority with: vantelink-relay authority prepare");
  EXPECT_EQ(checked().find("wrong"), std::string::npos) << checked();
  set_age(kLife + 60);
  expect_checked("wrong: the authority " + data_ + "/relay-cert.pem has expired on ");
  set_age(-2 * kDay);
  expect_checked("wrong: the authority " + data_ + "/relay-cert.pem is not valid before ");
}

TEST_F(AuthorityCommandTest, CheckWarnsOfALeafThatARunningRelayDidNotRenew) {
  static_cast<void>(
      OwnCertificate(data_, {"relay.example"}, [] { return wall_seconds() - 70 * kDay; }).prepare());
  expect_checked("ok: the next start of the relay makes " + data_ + "/relay-leaf.pem");
  {
    const FileLock relay = claim_for_relay(data_);
    expect_checked("warning: the relay's certificate " + data_ +
                   "/relay-leaf.pem has a third of its time left or less; restart the relay");
    static_cast<void>(OwnCertificate(data_, {"relay.example"}).prepare());
    options_.hosts.emplace_back("desk.relay.example");
    expect_checked("/relay-leaf.pem is for other names; restart the relay");
    fs::remove(data_ + "/relay-leaf.pem");
    expect_checked("wrong: the relay's certificate " + data_ + "/relay-leaf.pem cannot be read");
  }
  fs::remove(data_ + "/relay-cert.pem");
  expect_checked("ok: the next start of the relay makes an authority");
}

TEST_F(AuthorityCommandTest, CheckSaysWhatToDoAboutASelfSignedCertificate) {
  overwrite_pair(trusted_files(data_), make_test_pair(100 * kDay));
  options_.hosts = {"localhost"};
  expect_checked("warning: the certificate " + data_ +
                 "/relay-cert.pem is a self-signed one of an older version, and is not renewed; make a new "
                 "authority with: vantelink-relay authority prepare");
  EXPECT_EQ(checked().find("wrong"), std::string::npos) << checked();
}

TEST_F(AuthorityCommandTest, RestoredBackupHasTheAuthorityAndTheNextStartALeafOfIt) {
  const std::string authority = file("relay-cert.pem");
  const std::string key = file("relay-key.pem");
  static_cast<void>(backup());
  ASSERT_TRUE(step("renew").starts_with("renewed"));
  static_cast<void>(OwnCertificate(data_, {"relay.example"}).prepare());
  const BackupRestored restored = restore(data_, true);
  EXPECT_EQ(file("relay-cert.pem"), authority);
  EXPECT_EQ(file("relay-key.pem"), key);
  EXPECT_FALSE(fs::exists(leaf_files(data_).certificate)) << "it belongs to the other authority";
  EXPECT_TRUE(fs::exists(restored.kept + "/relay-leaf.pem"));
  static_cast<void>(OwnCertificate(data_, {"relay.example"}).prepare());
  EXPECT_EQ(refusal("relay.example"), "");
}

// The program itself.
class AuthorityProgramTest : public testing::Test {
 protected:
  int run(const std::string& arguments) {
    const std::string command =
        RelayProcess::program() + ' ' + arguments + " > " + folder_.path().string() + "/output 2>&1";
    const int status = std::system(command.c_str());
    output_ = folder_.read("output");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string refusal(const std::string& host) const {
    return refusal_of(leaf_files(data_), trusted_files(data_).certificate, host, wall_seconds());
  }

  vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path() / "data";
  std::string output_;
};

TEST_F(AuthorityProgramTest, RestartKeepsTheAuthorityAndARunningRelayUsesARenewedOne) {
  { const RelayProcess first(data_, {"--host", "relay.example"}); }
  const std::string authority = folder_.read("data/relay-cert.pem");
  const RelayProcess relay(data_, {"--host", "relay.example"});
  EXPECT_EQ(folder_.read("data/relay-cert.pem"), authority);
  const auto port = static_cast<unsigned short>(relay.port());
  const std::string leaf = served_certificate(port);
  EXPECT_TRUE(folder_.read("data/relay-leaf.pem").find(leaf) != std::string::npos);
  ASSERT_EQ(run("authority renew --data " + data_ + " --host relay.example"), 0) << output_;
  EXPECT_TRUE(vantelink_test::eventually([&] { return served_certificate(port) != leaf; }));
  EXPECT_EQ(refusal("relay.example"), "");
}

TEST_F(AuthorityProgramTest, DamagedAuthorityEndsTheStartWithASentence) {
  { const RelayProcess first(data_, {}); }
  overwrite_file(data_ + "/relay-key.pem", "garbage");
  EXPECT_EQ(run("--data " + data_ + " --address 127.0.0.1 --port 0"), 1);
  EXPECT_EQ(output_,
            "vantelink-relay: " + data_ +
                "/relay-key.pem cannot be read, or has no private key in PEM form; restore it from a "
                "backup\n");
  EXPECT_EQ(folder_.read("data/relay-key.pem"), "garbage");
}

TEST_F(AuthorityProgramTest, CommandNeedsAStepAndTakesOnlyItsOptions) {
  EXPECT_EQ(run("authority"), 2);
  EXPECT_EQ(output_, "vantelink-relay: authority needs the word prepare or renew.\n");
  EXPECT_EQ(run("authority reniew"), 2);
  EXPECT_EQ(run("authority renew --port 1"), 2);
  EXPECT_EQ(output_, "vantelink-relay: --port cannot be given with authority.\n");
  EXPECT_EQ(run("authority renew --data " + data_), 1);
  EXPECT_FALSE(fs::exists(data_));
}

}  // namespace
}  // namespace vlk::relay
