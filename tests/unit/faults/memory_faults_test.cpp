// TLS with each allocation of OpenSSL failing once. The agent handles no failure of an allocation of its own.
#include <cstdlib>
#include <future>

#include <gtest/gtest.h>

#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "unit/faults/failing_calls_seam.h"
#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::descriptors;
using vantelink_test::FailingCalls;
using vantelink_test::FailNth;

constexpr int kMostCalls = 5000;

class MemoryFaultsTest : public LinkTest {
 protected:
  void SetUp() override {
    LinkTest::SetUp();
    // Reading the host's own roots would allocate some hundred thousand times.
    ::setenv("SSL_CERT_FILE", "/dev/null", 1);
    ::setenv("SSL_CERT_DIR", "/dev/null", 1);
  }
  void TearDown() override {
    ::unsetenv("SSL_CERT_FILE");
    ::unsetenv("SSL_CERT_DIR");
    LinkTest::TearDown();
  }

  // Whether a client with this context connects to a server.
  static bool greets(std::uint16_t port, SSL_CTX* context) {
    const SocketHandle socket = connect_socket("localhost", port);
    const bool result = TlsConnection(context, socket, "localhost").connect();
    close_socket(socket);
    return result;
  }
};

TEST_F(MemoryFaultsTest, ContextIsNullOrUsableForAHandshakeThatMayFail) {
  ScriptedServer server(authority());
  ASSERT_TRUE(build_tls_context());
  const std::size_t open = descriptors();
  int missing = 0, refused = 0;
  const int runs = vantelink_test::fail_each_call(
      [&](FailNth& fail) {
        FailingCalls calls(CallGroup::Memory, CallFault::Error, fail);
        const SslContext context = std::async(std::launch::async, build_tls_context).get();
        calls.stop();
        auto greeted = std::async(std::launch::async, greets, server.port(), context.get());
        (void)server.accept()->handshake();
        const bool good = greeted.get();
        EXPECT_FALSE(!context && good);
        EXPECT_TRUE(good || fail.reached());
        missing += static_cast<int>(!context);
        refused += static_cast<int>(context && !good);
        EXPECT_EQ(descriptors(), open);
      },
      kMostCalls);
  EXPECT_GT(missing, 10);
  std::printf("%d contexts were missing, %d trusted no server; ", missing, refused);
  vantelink_test::report_failed_calls(runs);
}

}  // namespace
}  // namespace vlk::agent
