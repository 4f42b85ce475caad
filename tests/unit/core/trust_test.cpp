// Whom the link trusts.
#include <gtest/gtest.h>

#include "unit/core/link_fixture.h"

namespace vlk::agent {
namespace {

class TrustTest : public LinkTest {
 protected:
  // Whether a client connects to a server with those options.
  bool connects(const ScriptedServer::Options& options) {
    ScriptedServer server(authority(), options);
    make_client(server);
    client_->start();
    const bool result = server.accept()->handshake();
    client_.reset();
    return result;
  }
};

TEST_F(TrustTest, RootOfTheSystemStoreAloneIsEnough) {
  EXPECT_TRUE(connects({}));
}

TEST_F(TrustTest, ServerWithoutAKnownRootIsRefused) {
  vantelink_fakes::script().roots.clear();
  EXPECT_FALSE(connects({}));
  vantelink_fakes::script().roots = {TestAuthority().der()};
  EXPECT_FALSE(connects({}));
}

TEST_F(TrustTest, CorruptAndDoubleRootsAreSkippedAndTheOthersTaken) {
  std::vector<unsigned char> cut = authority().der();
  cut.resize(cut.size() / 2);
  vantelink_fakes::script().roots = {{}, {0x30, 0x03, 1, 2, 3}, cut, authority().der(), authority().der()};
  EXPECT_TRUE(connects({}));
}

TEST_F(TrustTest, CertificateOfAnotherHostIsRefused) {
  EXPECT_FALSE(connects({.names = {"elsewhere.example"}}));
}

TEST_F(TrustTest, WildcardForPartOfALabelIsRefused) {
  EXPECT_FALSE(connects({.names = {"local*"}}));
}

TEST_F(TrustTest, OldTlsIsRefusedAndTheNewTwoAreTaken) {
  EXPECT_FALSE(connects({.lowest_version = TLS1_VERSION, .highest_version = TLS1_1_VERSION}));
  EXPECT_TRUE(connects({.highest_version = TLS1_2_VERSION}));
  EXPECT_TRUE(connects({.lowest_version = TLS1_3_VERSION}));
}

}  // namespace
}  // namespace vlk::agent
