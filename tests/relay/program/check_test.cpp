// What a check of the set-up finds, and that it changes nothing.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <openssl/bio.h>
#include <openssl/pem.h>

#include "relay/program/backup_fixture.h"
#include "relay/program/check/checks.h"
#include "relay/program/findings_text.h"
#include "support/certificates.h"

namespace vlk::relay {
namespace {

namespace fs = std::filesystem;
using tcp = boost::asio::ip::tcp;
using vantelink_test::TestAuthority;

constexpr long kDay = 24 * 3600;

class CheckTest : public BackupTest {
 protected:
  using Check = void (*)(const Options&, Findings&);

  CheckTest() {
    options_.data = data_;
    options_.hosts = {"relay.example"};
  }

  // The findings of a check, one a line as the command prints them.
  std::string found(Check check) {
    Findings findings;
    check(options_, findings);
    return text_of(findings);
  }
  void expect_found(Check check, const std::string& text) {
    const std::string all = found(check);
    EXPECT_NE(all.find(text), std::string::npos) << all;
  }

  void change_folder(const std::string& sql) { change(data_ + "/relay.db", sql); }

  vantelink_test::TempFolder files_;
  Options options_;
};

TEST_F(CheckTest, WholeFolderIsAllWellAndIsNotChanged) {
  const auto before = content_of(data_);
  for (const Check check : {check_data_folder, check_database, check_certificate}) {
    const std::string all = found(check);
    EXPECT_EQ(all.find("wrong"), std::string::npos) << all;
    EXPECT_EQ(all.find("warning"), std::string::npos) << all;
    EXPECT_NE(all, "");
  }
  EXPECT_EQ(content_of(data_), before);
  options_.data = folder_.path() / "missing";
  EXPECT_TRUE(found(check_data_folder).starts_with("ok: there is no data folder"));
  EXPECT_TRUE(found(check_database).starts_with("ok: there is no database yet"));
  EXPECT_TRUE(found(check_certificate).starts_with("ok: the next start of the relay makes"));
  EXPECT_FALSE(fs::exists(options_.data));
}

TEST_F(CheckTest, FilesThatOthersCanOpenAreFound) {
  ::chmod((data_ + "/trail-key.pem").c_str(), 0640);
  expect_found(check_data_folder,
               "wrong: the file " + data_ + "/trail-key.pem is open to other users (mode 0640); run");
  ::chmod(data_.c_str(), 0755);
  expect_found(check_data_folder,
               "wrong: the data folder " + data_ + " is open to other users (mode 0755); run");
}

TEST_F(CheckTest, FilesOfAnotherUserAreFound) {
  if (::chown((data_ + "/relay.db").c_str(), 12345, static_cast<gid_t>(-1)) != 0)
    GTEST_SKIP() << "needs the superuser";
  expect_found(check_data_folder,
               "wrong: " + data_ + "/relay.db does not belong to the user of the data folder");
}

TEST_F(CheckTest, RestoreThatWasCutOffIsFound) {
  static_cast<void>(make_draft(data_));
  commit_draft(data_, {}, "kept");
  expect_found(check_data_folder, "is not complete; start the relay");
}

TEST_F(CheckTest, VersionOfTheDatabaseIsJudged) {
  change_folder("PRAGMA user_version = 2");
  expect_found(check_database, "warning: the database was written by an older version");
  change_folder("PRAGMA user_version = 5");
  expect_found(check_database, "wrong: the database was written by a newer version");
}

TEST_F(CheckTest, DamagedDatabaseIsFound) {
  std::string bytes = folder_.read("data/relay.db");
  bytes.replace(4096, bytes.size() - 4096, bytes.size() - 4096, '\xa5');
  folder_.write("data/relay.db", bytes);
  expect_found(check_database, "wrong: the database " + data_ + "/relay.db");
  expect_found(check_database, "restore a backup");
  folder_.write("data/relay.db", "no database at all, but a text");
  expect_found(check_database, "wrong: the database " + data_ + "/relay.db cannot be read");
}

TEST_F(CheckTest, ClockBeforeTheNewestRowIsFound) {
  change_folder("DROP TRIGGER trail_changed; UPDATE trail SET time = time + 60000 WHERE id = 3");
  expect_found(check_database, "wrong: the clock says ");
  expect_found(check_database, "before the newest row of the audit trail");
}

TEST_F(CheckTest, DatabaseThatIsLockedForLongIsFound) {
  Database writer(data_ + "/relay.db");
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // A lock of this process would not be seen by this process.
    Database other(data_ + "/relay.db");
    other.execute("BEGIN IMMEDIATE");
    ::kill(::getpid(), SIGSTOP);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, WUNTRACED);
  expect_found(check_database, "wrong: process " + std::to_string(child) + " has locked the database");
  ::kill(child, SIGKILL);
  ::waitpid(child, &status, 0);
  expect_found(check_database, "is whole");
}

class CertificateCheckTest : public CheckTest {
 protected:
  CertificateCheckTest() : identity_(authority_.issue({"relay.example"})) {
    options_.certificate = files_.path() / "chain.pem";
    options_.key = files_.path() / "key.pem";
    set_times(-kDay, 100 * kDay);
    write_key(*identity_.key);
  }

  // Seconds from now. The check does not look at signatures.
  void set_times(long begin, long end) {
    adjust(*identity_.certificate, begin, end);
    write_chain(pem() + issuer());
  }
  static void adjust(X509& certificate, long begin, long end) {
    const auto set = [&certificate](int (*store)(X509*, const ASN1_TIME*), long seconds) {
      ASN1_TIME* time = X509_gmtime_adj(nullptr, seconds);
      store(&certificate, time);
      ASN1_TIME_free(time);
    };
    set(X509_set1_notBefore, begin);
    set(X509_set1_notAfter, end);
    i2d_re_X509_tbs(&certificate, nullptr);  // a certificate that was read keeps its bytes otherwise
  }
  void write_chain(const std::string& text) { files_.write("chain.pem", text); }
  void write_key(EVP_PKEY& key) {
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_PrivateKey(bio, &key, nullptr, nullptr, 0, nullptr, nullptr);
    files_.write("key.pem", text_of(bio));
    ::chmod(options_.key.c_str(), 0600);
  }
  std::string pem() { return pem(*identity_.certificate); }
  static std::string pem(X509& certificate) {
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, &certificate);
    return text_of(bio);
  }
  // The issuer's certificate, which lives as long as a relay's does here.
  std::string issuer() { return pem(*long_lived_issuer()); }
  vantelink_test::Certificate long_lived_issuer() {
    const std::string text = authority_.pem();
    BIO* bio = BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
    vantelink_test::Certificate certificate(PEM_read_bio_X509(bio, nullptr, nullptr, nullptr), &X509_free);
    BIO_free(bio);
    adjust(*certificate, -kDay, 1000 * kDay);
    return certificate;
  }
  static std::string text_of(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    std::string text(data, static_cast<std::size_t>(size));
    BIO_free(bio);
    return text;
  }

  TestAuthority authority_;
  TestAuthority::Identity identity_;
};

TEST_F(CertificateCheckTest, GoodCertificateIsWell) {
  const std::string all = found(check_certificate);
  EXPECT_TRUE(all.starts_with("ok: the certificate ")) << all;
  EXPECT_NE(all.find("ok: the certificate is for relay.example\n"), std::string::npos) << all;
  EXPECT_EQ(all.find("warning: "), std::string::npos) << all;
  EXPECT_EQ(all.find("wrong: "), std::string::npos) << all;
}

TEST_F(CertificateCheckTest, TimesAreJudged) {
  set_times(-kDay, 29 * kDay);
  expect_found(check_certificate, "for less than 30 days");
  EXPECT_EQ(found(check_certificate).find("wrong"), std::string::npos);
  set_times(-kDay, -60);
  expect_found(check_certificate, " has expired on ");
  set_times(kDay, 2 * kDay);
  expect_found(check_certificate, " is not valid before ");
}

TEST_F(CertificateCheckTest, OrderOfTheChainIsJudged) {
  write_chain(pem());
  expect_found(check_certificate, "has no certificate of the issuer");
  write_chain(pem() + pem(*TestAuthority::issue_self_signed({"x.example"}).certificate));
  expect_found(check_certificate, "warning: certificate 2 in ");
  write_chain(issuer() + pem());
  expect_found(check_certificate, "wrong: the relay's own certificate is not the first one");
}

TEST_F(CertificateCheckTest, FilesThatCannotBeUsedAreFound) {
  write_chain("no certificate");
  expect_found(check_certificate, "wrong: the certificate " + options_.certificate + " cannot be read");
  write_chain(pem() + issuer());
  write_key(*authority_.issue({"relay.example"}).key);
  expect_found(check_certificate, " does not belong to the key ");
  files_.write("key.pem", "no key");
  expect_found(check_certificate, "wrong: the private key " + options_.key + " cannot be read");
  write_key(*identity_.key);
  ::chmod(options_.key.c_str(), 0644);
  expect_found(check_certificate, "wrong: the private key " + options_.key + " is open to other users");
}

TEST_F(CertificateCheckTest, NamesAreJudgedIfTheyWereGiven) {
  options_.hosts = {"relay.example", "other.example", "192.0.2.1"};
  expect_found(check_certificate, "ok: the certificate is for relay.example\n");
  expect_found(check_certificate, "is not for other.example");
  expect_found(check_certificate, "is not for 192.0.2.1");
  options_.hosts = {"localhost"};
  EXPECT_EQ(found(check_certificate).find("wrong"), std::string::npos);
}

TEST_F(CheckTest, PortIsFreeOrItsOwnerIsNamed) {
  options_.address = "127.0.0.1";
  boost::asio::io_context context;
  tcp::acceptor taken(context, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0));
  options_.port = taken.local_endpoint().port();
  const std::string self = "(process " + std::to_string(::getpid()) + ")";
  expect_found(check_port, "wrong: port " + std::to_string(options_.port) + " of 127.0.0.1 is used by ");
  expect_found(check_port, self + "; end it, or choose another port");
  {
    const FileLock relay = claim_for_relay(data_);
    expect_found(check_port, "ok: port " + std::to_string(options_.port) +
                                 " of 127.0.0.1 is used by the relay of this data folder " + self);
  }
  taken.close();
  EXPECT_EQ(found(check_port), "ok: port " + std::to_string(options_.port) + " of 127.0.0.1 is free\n");
  options_.address = "192.0.2.1";
  expect_found(check_port, "wrong: 192.0.2.1 is not an address of this machine");
  options_.address = "here";
  expect_found(check_port, "wrong: \"here\" is not an IP address");
}

TEST_F(CheckTest, NamesLeadToThisMachineOrElsewhere) {
  options_.hosts = {"localhost", "192.0.2.1", "name.invalid"};
  expect_found(check_names, "ok: localhost leads to this machine\n");
  expect_found(check_names, "warning: 192.0.2.1 leads to 192.0.2.1, which is not an address of this machine");
  expect_found(check_names, "wrong: the name name.invalid does not resolve");
}

TEST_F(CheckTest, SpaceAndDescriptorsAreJudged) {
  options_.spools_mib = 16'777'216;
  expect_found(check_disk, "warning: the disk of ");
  options_.connections = 1'000'000'000;
  expect_found(check_descriptors, "wrong: the relay needs 1125000064 file descriptors");
  options_.connections = 64;
  EXPECT_TRUE(found(check_descriptors).starts_with("ok: "));
}

TEST_F(CheckTest, FoldersAreJudged) {
  options_.console = folder_.path();
  options_.updates = data_ + "/updates";
  expect_found(check_folders, "wrong: the console's folder " + options_.console + " has no index.html");
  expect_found(check_folders, "ok: there is no update");
  options_.update_key = data_ + "/relay-cert.pem";
  expect_found(check_folders, options_.update_key);
  options_.trail_log = "/nonexistent/trail";
  expect_found(check_folders, "wrong: the trail's log /nonexistent/trail cannot be written");
}

TEST_F(CheckTest, MistypedVariablesAreFound) {
  ::setenv("VANTELINK_RELAY_PROT", "1", 1);
  ::setenv("VANTELINK_RELAY_PORT", "1", 1);
  Findings findings;
  check_environment(findings);
  ::unsetenv("VANTELINK_RELAY_PROT");
  ::unsetenv("VANTELINK_RELAY_PORT");
  ASSERT_EQ(findings.list().size(), 1u);
  EXPECT_NE(findings.list().front().text.find("VANTELINK_RELAY_PROT"), std::string::npos);
}

}  // namespace
}  // namespace vlk::relay
