// What clients make of the leaves that an authority signs.
#include "relay/net/tls/authority.h"

#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include "relay/base/clock.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/net/tls/pairs.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kDay = 24 * 3600;
constexpr char kViolation[] = "permitted subtree violation";
using Hosts = std::vector<std::string>;

class AuthorityTest : public testing::Test {
 protected:
  // Why a client that trusts only the authority refuses a leaf for `names` under the name `host`.
  std::string refusal(const Hosts& names, const std::string& host, std::int64_t after = 0) {
    const CertificateFiles files{folder_.path() / "leaf.pem", folder_.path() / "leaf-key.pem"};
    write_pair(files, make_leaf(authority_.certificate, authority_.key, names, now_));
    const std::string trusted = folder_.path() / "trusted.pem";
    overwrite_file(trusted, pem_of(authority_.certificate.get()));
    return refusal_of(files, trusted, host, now_ + after);
  }

  const vantelink_test::TempFolder folder_;
  const std::int64_t now_ = wall_seconds();
  const Hosts hosts_{"Relay.Example", "192.0.2.7", "2001:DB8:0::1"};
  const CertificateAndKey authority_ = make_authority(hosts_, now_);
};

TEST_F(AuthorityTest, LeafIsAcceptedUnderEachOfItsNamesAndNoOther) {
  const Hosts names = names_for(hosts_);
  EXPECT_EQ(names, (Hosts{"127.0.0.1", "192.0.2.7", "2001:db8::1", "localhost", "relay.example"}));
  for (const std::string& name : names)
    EXPECT_EQ(refusal(names, name), "") << name;
  EXPECT_EQ(refusal(names, "other.example"), "hostname mismatch");
  EXPECT_EQ(refusal(names, "192.0.2.8"), "IP address mismatch");
}

TEST_F(AuthorityTest, LeafForAnyOtherNameIsRefusedBecauseOfTheConstraints) {
  for (const char* name :
       {"other.example", "notrelay.example", "example", "*.example", "192.0.2.8", "2001:db8::2"}) {
    EXPECT_EQ(refusal({name}, name), kViolation) << name;
    // One name that is not permitted spoils the others.
    EXPECT_EQ(refusal({"relay.example", name}, "relay.example"), kViolation) << name;
  }
  EXPECT_EQ(refusal({"desk.relay.example"}, "desk.relay.example"), "");
}

TEST_F(AuthorityTest, ExpiredLeafIsRefused) {
  EXPECT_EQ(refusal({"relay.example"}, "relay.example", 90 * kDay - 60), "");
  EXPECT_EQ(refusal({"relay.example"}, "relay.example", 90 * kDay + 60), "certificate has expired");
  EXPECT_EQ(refusal({"relay.example"}, "relay.example", -kDay + 60), "") << "a clock may be slow";
}

TEST_F(AuthorityTest, LeafOfAnotherAuthorityOfTheSameNameIsRefusedAndTwoAuthoritiesCanBeTrusted) {
  const CertificateAndKey other = make_authority(hosts_, now_);
  const CertificateFiles files{folder_.path() / "leaf.pem", folder_.path() / "leaf-key.pem"};
  write_pair(files, make_leaf(other.certificate, other.key, {"relay.example"}, now_));
  const std::string trusted = folder_.path() / "trusted.pem";
  overwrite_file(trusted, pem_of(authority_.certificate.get()));
  EXPECT_NE(refusal_of(files, trusted, "relay.example", now_), "");
  EXPECT_FALSE(has_signed(authority_.certificate, read_chain(files.certificate).front()));
  EXPECT_TRUE(has_signed(other.certificate, read_chain(files.certificate).front()));
  overwrite_file(trusted, pem_of(authority_.certificate.get()) + pem_of(other.certificate.get()));
  EXPECT_EQ(refusal_of(files, trusted, "relay.example", now_), "");
}

TEST_F(AuthorityTest, AuthoritySignsLeavesOfServersOnlyForTenYears) {
  X509* const certificate = authority_.certificate.get();
  EXPECT_TRUE(is_authority(certificate));
  EXPECT_EQ(X509_get_pathlen(certificate), 0);
  EXPECT_EQ(X509_get_key_usage(certificate), static_cast<unsigned>(KU_KEY_CERT_SIGN | KU_CRL_SIGN));
  EXPECT_EQ(X509_get_extended_key_usage(certificate), static_cast<unsigned>(XKU_SSL_SERVER));
  const int constraints = X509_get_ext_by_NID(certificate, NID_name_constraints, -1);
  ASSERT_GE(constraints, 0);
  EXPECT_EQ(X509_EXTENSION_get_critical(X509_get_ext(certificate, constraints)), 1);
  EXPECT_EQ(end_of(certificate), now_ + 3652 * kDay);
  const CertificateAndKey leaf = make_leaf(authority_.certificate, authority_.key, {"localhost"}, now_);
  EXPECT_FALSE(is_authority(leaf.certificate.get()));
  EXPECT_EQ(X509_get_extended_key_usage(leaf.certificate.get()), static_cast<unsigned>(XKU_SSL_SERVER));
  EXPECT_EQ(EVP_PKEY_get_bits(leaf.key.get()), 256);
}

TEST_F(AuthorityTest, LeafEndsWithItsAuthorityAtTheLatest) {
  const std::int64_t late = end_of(authority_.certificate.get()) - 10 * kDay;
  const CertificateAndKey leaf = make_leaf(authority_.certificate, authority_.key, {"localhost"}, late);
  EXPECT_EQ(end_of(leaf.certificate.get()), end_of(authority_.certificate.get()));
}

// permits() agrees with what clients do.
TEST_F(AuthorityTest, PermitsWhatClientsAccept) {
  for (const char* name :
       {"relay.example", "RELAY.example", "desk.relay.example", "*.relay.example", "norelay.example",
        "example", "192.0.2.7", "192.0.2.8", "2001:db8::1", "2001:db8::2", "localhost", "::1"})
    EXPECT_EQ(permits(authority_.certificate, name),
              refusal({"relay.example", name}, "relay.example").empty())
        << name;
  overwrite_file(folder_.path() / "free.pem", make_test_pair(kDay).certificate);
  const std::vector<Certificate> free = read_chain(folder_.path() / "free.pem");
  EXPECT_TRUE(permits(free.at(0), "any.example")) << "there are no constraints";
}

TEST_F(AuthorityTest, HostsThatCannotBeNamesAreRefused) {
  for (const char* host : {"", "two words", "a,DNS:b", "a/b", "a;b"})
    EXPECT_THROW(static_cast<void>(make_authority({host}, now_)), std::runtime_error) << host;
}

}  // namespace
}  // namespace vlk::relay
