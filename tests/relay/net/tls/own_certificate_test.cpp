// The files of the relay's own authority and its leaf, with a clock that the test sets.
#include "relay/net/tls/own_certificate.h"

#include <sys/stat.h>

#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "relay/net/tls/pairs.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kDay = 24 * 3600;
using Hosts = std::vector<std::string>;

class OwnCertificateTest : public testing::Test {
 protected:
  OwnCertificate relay(const Hosts& hosts = {"relay.example"}) const {
    return {data_, hosts, [this] { return now_; }};
  }
  // Starts a relay and expects no sentence for the operator.
  OwnCertificate started(const Hosts& hosts = {"relay.example"}) const {
    OwnCertificate own = relay(hosts);
    EXPECT_EQ(own.prepare(), Hosts{});
    return own;
  }
  // The second look after a change of the files has an effect.
  static OwnCertificate::State looked(OwnCertificate& own) {
    static_cast<void>(own.look());
    return own.look();
  }
  std::string trusted() const { return folder_.read("relay-cert.pem"); }
  std::string leaf() const { return folder_.read("relay-leaf.pem"); }
  Hosts leaf_names() const { return names_of(read_chain(data_ + "/relay-leaf.pem").at(0).get()); }
  unsigned mode(const char* name) const {
    return static_cast<unsigned>(fs::status(folder_.path() / name).permissions());
  }
  std::string refusal(const std::string& host) const {
    return refusal_of(leaf_files(data_), data_ + "/relay-cert.pem", host, now_);
  }
  std::map<std::string, std::string> content() const {
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::directory_iterator(folder_.path()))
      all[entry.path().filename()] = folder_.read(entry.path().filename());
    return all;
  }
  // Expects a start to fail with a sentence that contains `reason`, and to change no file.
  void expect_refused(const std::string& reason) const {
    const auto before = content();
    try {
      OwnCertificate own = relay();
      static_cast<void>(own.prepare());
      ADD_FAILURE() << "has started, but: " << reason;
    } catch (const std::runtime_error& refusal) {
      EXPECT_NE(std::string(refusal.what()).find(reason), std::string::npos) << refusal.what();
    }
    EXPECT_EQ(content(), before) << reason;
  }
  // Keeps the leaf from being written while it exists.
  fs::path obstacle() const { return folder_.path() / "relay-leaf.pem.new/x"; }

  const vantelink_test::TempFolder folder_;
  const std::string data_ = folder_.path();
  std::int64_t now_ = wall_seconds();
};

TEST_F(OwnCertificateTest, FirstStartMakesAnAuthorityAndALeafThatClientsAccept) {
  OwnCertificate own = started();
  EXPECT_EQ(mode("relay-cert.pem"), 0644u);
  EXPECT_EQ(mode("relay-key.pem"), 0600u);
  EXPECT_EQ(mode("relay-leaf.pem"), 0600u);
  EXPECT_EQ(content().size(), 3u);
  for (const char* host : {"relay.example", "localhost", "127.0.0.1"})
    EXPECT_EQ(refusal(host), "") << host;
  const OwnCertificate::State state = own.look();
  EXPECT_EQ(state.problem, "");
  EXPECT_EQ(state.authority_ends, now_ + 3652 * kDay);
}

TEST_F(OwnCertificateTest, RestartKeepsTheAuthorityAndMakesTheLeafAgain) {
  static_cast<void>(started());
  const std::string authority = trusted() + folder_.read("relay-key.pem");
  const std::string first = leaf();
  now_ += 3600;
  static_cast<void>(started());
  EXPECT_EQ(trusted() + folder_.read("relay-key.pem"), authority);
  EXPECT_NE(leaf(), first);
  EXPECT_EQ(refusal("relay.example"), "");
}

TEST_F(OwnCertificateTest, LeafIsMadeAgainWhenAThirdOfItsTimeIsLeft) {
  OwnCertificate own = started();
  const std::string first = leaf();
  const std::string authority = trusted();
  const std::int64_t end = now_ + 90 * kDay;
  // The leaf is valid for 91 days, one of them before it was made.
  now_ = end - 91 * kDay / 3 - 1;
  static_cast<void>(looked(own));
  EXPECT_EQ(leaf(), first);
  ++now_;
  EXPECT_EQ(own.look().problem, "");
  EXPECT_NE(leaf(), first);
  EXPECT_GT(end - now_, kCertificateWarning) << "before anybody is warned";
  EXPECT_EQ(end_of(read_chain(data_ + "/relay-leaf.pem").at(0).get()), now_ + 90 * kDay);
  EXPECT_EQ(trusted(), authority);
  const std::string second = leaf();
  static_cast<void>(looked(own));
  EXPECT_EQ(leaf(), second) << "once is enough";
}

TEST_F(OwnCertificateTest, LeafOfAnAuthorityThatEndsIsNotMadeAgainAndAgain) {
  OwnCertificate own = started();
  now_ += 3652 * kDay - 5 * kDay;
  static_cast<void>(looked(own));
  const std::string last = leaf();
  EXPECT_EQ(end_of(read_chain(data_ + "/relay-leaf.pem").at(0).get()), own.look().authority_ends);
  now_ += 4 * kDay;
  EXPECT_EQ(looked(own).problem, "");
  EXPECT_EQ(leaf(), last);
}

TEST_F(OwnCertificateTest, LeafThatWasMadeWithAFastClockIsMadeAgain) {
  OwnCertificate own = started();
  now_ -= 5 * kDay;
  static_cast<void>(looked(own));
  EXPECT_LE(begin_of(read_chain(data_ + "/relay-leaf.pem").at(0).get()), now_);
}

TEST_F(OwnCertificateTest, RenewalThatFailsIsReportedAndTriedAgain) {
  OwnCertificate own = started();
  const std::string first = leaf();
  fs::create_directories(obstacle());
  now_ += 61 * kDay;
  EXPECT_NE(looked(own).problem, "");
  EXPECT_EQ(leaf(), first);
  fs::remove_all(obstacle().parent_path());
  EXPECT_NE(own.look().problem, "") << "not at once again";
  now_ += 60;
  EXPECT_EQ(own.look().problem, "");
  EXPECT_NE(leaf(), first);
}

TEST_F(OwnCertificateTest, StartGoesOnWithAGoodLeafIfItCannotMakeAnother) {
  static_cast<void>(started());
  const std::string first = leaf();
  fs::create_directories(obstacle());
  OwnCertificate own = relay();
  const Hosts remarks = own.prepare();
  ASSERT_EQ(remarks.size(), 1u);
  EXPECT_TRUE(remarks[0].starts_with("The relay's certificate stays as it was: ")) << remarks[0];
  EXPECT_EQ(leaf(), first);
  now_ += 61 * kDay;
  OwnCertificate late = relay();
  EXPECT_THROW(static_cast<void>(late.prepare()), std::runtime_error);
}

TEST_F(OwnCertificateTest, NamesWithinTheConstraintsComeAndGo) {
  static_cast<void>(started({"relay.example", "192.0.2.7"}));
  const std::string authority = trusted();
  OwnCertificate own = started({"relay.example", "desk.relay.example"});
  EXPECT_EQ(leaf_names(), (Hosts{"127.0.0.1", "desk.relay.example", "localhost", "relay.example"}));
  EXPECT_EQ(refusal("desk.relay.example"), "");
  EXPECT_EQ(refusal("192.0.2.7"), "IP address mismatch");
  EXPECT_EQ(trusted(), authority);
  EXPECT_EQ(own.look().problem, "");
}

TEST_F(OwnCertificateTest, NameOutsideTheConstraintsIsReportedAndTheOthersStayInUse) {
  static_cast<void>(started());
  const std::string authority = trusted();
  OwnCertificate own = started({"relay.example", "new.example", "192.0.2.9"});
  EXPECT_EQ(own.look().problem,
            "the authority " + data_ +
                "/relay-cert.pem does not permit 192.0.2.9, new.example; make a new one for all names of "
                "--host with: vantelink-relay authority prepare");
  EXPECT_EQ(leaf_names(), (Hosts{"127.0.0.1", "localhost", "relay.example"}));
  EXPECT_EQ(refusal("relay.example"), "");
  EXPECT_EQ(trusted(), authority);
}

TEST_F(OwnCertificateTest, DamagedFilesEndTheStartAndAreLeftAsTheyAre) {
  static_cast<void>(started());
  const std::string certificate = data_ + "/relay-cert.pem";
  const std::string key = data_ + "/relay-key.pem";
  const TestPair good{trusted(), folder_.read("relay-key.pem")};
  overwrite_file(certificate, good.certificate.substr(0, 300));
  expect_refused(certificate +
                 " cannot be read, or has no certificate in PEM form; restore it from a backup");
  overwrite_file(certificate, good.certificate);
  overwrite_file(key, "garbage");
  expect_refused(key + " cannot be read, or has no private key in PEM form");
  overwrite_file(key, make_locked_key());
  expect_refused(key + " cannot be read, or has no private key");
  overwrite_file(key, make_test_pair(kDay).key);
  expect_refused("the certificate " + certificate + " does not belong to the key " + key);
  overwrite_file(key, good.key);
  ::chmod(key.c_str(), 0640);
  expect_refused("the private key " + key + " is open to other users");
  fs::remove(key);
  expect_refused(key + " is missing, though " + certificate + " exists");
  overwrite_file(key, good.key);
  fs::remove(certificate);
  expect_refused(certificate + " is missing, though " + key + " exists");
  overwrite_file(certificate, good.certificate);
  overwrite_file(data_ + "/relay-leaf.pem", "garbage");
  static_cast<void>(started());
  EXPECT_EQ(refusal("relay.example"), "") << "a leaf can be made again at any time";
}

TEST_F(OwnCertificateTest, DamageWhileTheRelayRunsIsReportedAndTheLeafStays) {
  OwnCertificate own = started();
  const std::string first = leaf();
  const std::string good = trusted();
  overwrite_file(data_ + "/relay-cert.pem", "garbage");
  EXPECT_EQ(own.look().problem, "") << "the files may be in the middle of a change";
  EXPECT_NE(own.look().problem.find("relay-cert.pem cannot be read"), std::string::npos);
  EXPECT_EQ(leaf(), first);
  overwrite_file(data_ + "/relay-cert.pem", good);
  EXPECT_EQ(looked(own).problem, "");
}

TEST_F(OwnCertificateTest, KeyOfAFirstStartThatWasCutOffIsReplaced) {
  overwrite_file(data_ + "/relay-key.pem", make_test_pair(kDay).key);
  static_cast<void>(started());
  EXPECT_EQ(refusal("relay.example"), "");
}

TEST_F(OwnCertificateTest, SelfSignedCertificateOfAnOlderVersionStaysInUse) {
  const TestPair old = make_test_pair(100 * kDay);
  overwrite_pair(trusted_files(data_), old);
  OwnCertificate own = relay({"relay.example"});
  const Hosts remarks = own.prepare();
  ASSERT_EQ(remarks.size(), 1u);
  EXPECT_NE(remarks[0].find("is a self-signed one of an older version; it is used until it ends at "),
            std::string::npos);
  EXPECT_NE(remarks[0].find("vantelink-relay authority prepare"), std::string::npos);
  EXPECT_EQ(trusted(), old.certificate);
  EXPECT_EQ(folder_.read("relay-key.pem"), old.key);
  EXPECT_EQ(pem_of(read_chain(data_ + "/relay-leaf.pem").at(0).get()), old.certificate);
  EXPECT_EQ(mode("relay-leaf.pem"), 0600u);
  EXPECT_EQ(own.look(), OwnCertificate::State{});
  // An operator may still replace the pair; the relay shows what is there.
  const TestPair other = make_test_pair(200 * kDay);
  overwrite_pair(trusted_files(data_), other);
  EXPECT_EQ(looked(own).problem, "");
  EXPECT_EQ(pem_of(read_chain(data_ + "/relay-leaf.pem").at(0).get()), other.certificate);
}

TEST_F(OwnCertificateTest, NewAuthorityIsUsedWithoutARestart) {
  OwnCertificate own = started();
  write_pair(trusted_files(data_), make_authority({"relay.example"}, now_));
  EXPECT_NE(refusal("relay.example"), "");
  EXPECT_EQ(looked(own).problem, "");
  EXPECT_EQ(refusal("relay.example"), "");
}

TEST_F(OwnCertificateTest, RenewalThatWasCutOffIsCompletedByTheNextStart) {
  static_cast<void>(started());
  write_pair(next_files(data_), make_authority({"relay.example"}, now_));
  const std::string next = folder_.read("relay-next-cert.pem");
  fs::rename(next_files(data_).key, trusted_files(data_).key);
  static_cast<void>(started());
  EXPECT_EQ(trusted(), next);
  EXPECT_EQ(refusal("relay.example"), "");
  EXPECT_FALSE(fs::exists(next_files(data_).certificate));
  write_pair(next_files(data_), make_authority({"relay.example"}, now_));
  fs::remove(next_files(data_).key);
  expect_refused("relay-next-key.pem is missing");
}

}  // namespace
}  // namespace vlk::relay
