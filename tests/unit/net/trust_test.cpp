// The certificates and TLS versions that a connection accepts.
#include <cstdlib>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

class TrustTest : public LinkTest {
 protected:
  // Whether a client can connect to a server with these options.
  bool connects(const ScriptedServer::Options& options) {
    ScriptedServer server(authority(), options);
    make_client(server);
    client_->start();
    const bool result = server.accept()->handshake();
    client_.reset();
    return result;
  }
};

TEST_F(TrustTest, ServerWithARootOfTheSystemStoreIsAccepted) {
  EXPECT_TRUE(connects({}));
}

TEST_F(TrustTest, ServerWithoutAKnownRootIsRefused) {
  vantelink_fakes::script().roots.clear();
  EXPECT_FALSE(connects({}));
  vantelink_fakes::script().roots = {TestAuthority().der()};
  EXPECT_FALSE(connects({}));
}

TEST_F(TrustTest, CorruptAndDuplicateRootCertificatesAreSkipped) {
  std::vector<unsigned char> cut = authority().der();
  cut.resize(cut.size() / 2);
  vantelink_fakes::script().roots = {{}, {0x30, 0x03, 1, 2, 3}, cut, authority().der(), authority().der()};
  EXPECT_TRUE(connects({}));
}

TEST_F(TrustTest, CertificateOfAnotherHostIsRefused) {
  EXPECT_FALSE(connects({.names = {"elsewhere.example"}}));
}

TEST_F(TrustTest, WildcardInACertificateIsAcceptedOnlyAsAWholeLabel) {
  const SslContext context = build_tls_context();
  for (const auto& [name, good] : {std::pair("*.maravek.example", true), {"rel*.maravek.example", false}}) {
    ScriptedServer server(authority(), {.names = {name}});
    const SocketHandle socket = connect_socket("localhost", server.port());
    ASSERT_NE(socket, kInvalidSocket);
    auto peer = server.accept();
    std::thread far_end([&] { (void)peer->handshake(); });
    EXPECT_EQ(TlsConnection(context.get(), socket, "relay.maravek.example").connect(), good) << name;
    far_end.join();
    close_socket(socket);
  }
}

TEST_F(TrustTest, HandshakeFailsWithoutATlsContext) {
  ScriptedServer server(authority());
  const SocketHandle socket = connect_socket("localhost", server.port());
  EXPECT_FALSE(TlsConnection(nullptr, socket, "localhost").connect());
  close_socket(socket);
}

TEST_F(TrustTest, OnlyTls12AndTls13AreAccepted) {
  // Tests the context's own limit, because the library's defaults may refuse the old versions too.
  EXPECT_EQ(SSL_CTX_get_min_proto_version(build_tls_context().get()), TLS1_2_VERSION);
  EXPECT_FALSE(connects({.lowest_version = TLS1_VERSION, .highest_version = TLS1_1_VERSION}));
  EXPECT_TRUE(connects({.highest_version = TLS1_2_VERSION}));
  EXPECT_TRUE(connects({.lowest_version = TLS1_3_VERSION}));
}

// The statement under test exits, so it runs in a process of its own.
TEST(TrustDeathTest, ExitOfTheProgramDoesNotCleanUpOpenSsl) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto exit_after_use = [] {
    (void)build_tls_context();
    OPENSSL_atexit([] { std::_Exit(1); });
    std::exit(0);
  };
  EXPECT_EXIT(exit_after_use(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vlk::agent
