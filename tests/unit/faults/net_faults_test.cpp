// A TLS connection with each call below it going wrong once.
#include <chrono>
#include <future>
#include <set>
#include <tuple>

#include <gtest/gtest.h>

#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "unit/faults/failing_calls_seam.h"
#include "unit/support/link_fixture.h"
#include "unit/support/threads.h"

namespace vlk::agent {
namespace {

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::descriptors;
using vantelink_test::FailingCalls;
using vantelink_test::FailNth;
using vantelink_test::threads;

const std::string kRequest = "GET / HTTP/1.1\r\n\r\n";
const std::string kPayload(100'000, 'p');  // two batches of records
const std::string kAll = "connected greeted asked answered said heard ended";

// The fault, and the highest version of TLS.
class NetFaultsTest : public LinkTest, public testing::WithParamInterface<std::tuple<CallFault, int>> {
 protected:
  // Waits for bytes until `heard` has a size. False at the end of the connection.
  static bool hear(TlsConnection& connection, std::size_t size, std::string& heard) {
    while (heard.size() < size) {
      unsigned char buffer[2048];
      const std::ptrdiff_t count = connection.read(buffer, sizeof buffer);
      if (count < 1) return false;
      heard.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(count));
    }
    return true;
  }

  // The agent's side: connects, sends a request and a frame, and reads the answer to each. Returns the steps
  // that succeeded.
  static std::string talk(std::uint16_t port, SSL_CTX* context) {
    const SocketHandle handle = connect_socket("localhost", port);
    if (handle == kInvalidSocket) return "";
    send_at_once(handle);
    SharedSocket socket;
    socket.set(handle);
    const std::string steps = "connected" + speak(handle, context);
    socket.close();
    return steps;
  }
  static std::string speak(SocketHandle socket, SSL_CTX* context) {
    TlsConnection connection(context, socket, "localhost");
    if (!connection.connect()) return "";
    std::string heard;
    if (!connection.write(reinterpret_cast<const unsigned char*>(kRequest.data()), kRequest.size()))
      return " greeted";
    if (!hear(connection, 1, heard)) return " greeted asked";
    const std::vector<std::uint8_t> frame = encode_frame(
        kWsBinary, reinterpret_cast<const unsigned char*>(kPayload.data()), kPayload.size(), true);
    if (!connection.write(frame.data(), frame.size())) return " greeted asked answered";
    if (!hear(connection, heard.size() + kPayload.size(), heard)) return " greeted asked answered said";
    EXPECT_TRUE(heard.ends_with(kPayload));
    connection.shutdown();
    return " greeted asked answered said heard ended";
  }

  // The server's side, which returns when the client has ended the connection.
  static void answer(ServerConnection& peer) {
    if (!peer.handshake()) return;
    try {
      peer.upgrade();
      const WsFrame frame = peer.read_frame();
      EXPECT_TRUE(frame.payload == std::vector<std::uint8_t>(kPayload.begin(), kPayload.end()));
      peer.send_frame(kWsBinary, kPayload);
    } catch (const std::runtime_error&) {
      return;  // the client has ended the connection earlier
    }
    EXPECT_TRUE(peer.wait_closed());
  }

  // Lets both sides talk. Returns the client's steps.
  static std::string converse(SSL_CTX* context, int version) {
    ScriptedServer server(authority(), {.highest_version = version});
    auto steps = std::async(std::launch::async, talk, server.port(), context);
    while (!server.has_client(Milliseconds(1)) &&
           steps.wait_for(Milliseconds(0)) != std::future_status::ready) {
    }
    if (server.has_client(Milliseconds(0))) answer(*server.accept());
    EXPECT_EQ(steps.wait_for(kPatience), std::future_status::ready);
    return steps.get();
  }

  // Checks the steps against the call that failed.
  static void check(const std::string& failed, int version, const std::string& steps) {
    // The calls of sending: the first and the last message of the handshake, the request, the frame in two
    // batches, and the end of the connection.
    const bool old = version == TLS1_2_VERSION;
    const std::map<std::string, std::string> sends = {
        {"send 1", "connected"},
        // TLS 1.3 is complete for the client when it sends its last message; then only the request fails.
        {"send 2", old ? "connected" : "connected greeted"},
        {"send 3", "connected greeted"},
        {"send 4", "connected greeted asked answered"},
        {"send 5", "connected greeted asked answered"},
        {"send 6", kAll}};
    if (failed == "getaddrinfo 1") {
      EXPECT_EQ(steps, "");
    } else if (failed.starts_with("send")) {
      ASSERT_TRUE(sends.contains(failed)) << failed;
      EXPECT_EQ(steps, sends.at(failed)) << failed;
    } else if (failed.starts_with("recv")) {
      const std::set<std::string> waiting = {"connected", "connected greeted asked",
                                             "connected greeted asked answered said"};
      EXPECT_TRUE(waiting.contains(steps)) << failed << ": " << steps;
    } else {
      // A failure of socket, connect, setsockopt or close, or none: there are further addresses, and the rest
      // is ignored.
      EXPECT_EQ(steps, kAll) << failed;
    }
  }
};

TEST_P(NetFaultsTest, FailureEndsTheConnectionAtItsStepAndEverythingElseIsHandled) {
  const CallFault fault = std::get<0>(GetParam());
  const int version = std::get<1>(GetParam());
  const SslContext context = build_tls_context();
  ASSERT_EQ(converse(context.get(), version), kAll);
  const std::size_t open = descriptors(), running = threads();
  std::set<std::string> failed;
  const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
    FailingCalls calls(CallGroup::Network, fault, fail);
    const std::string steps = converse(context.get(), version);
    if (fault == CallFault::Interrupted || fault == CallFault::Short) {
      EXPECT_EQ(steps, kAll) << calls.failed_with_number();
    } else {
      check(calls.failed_with_number(), version, steps);
    }
    EXPECT_EQ(descriptors(), open) << calls.failed_with_number();
    EXPECT_EQ(threads(), running);
    failed.insert(calls.failed());
  });
  EXPECT_TRUE(failed.contains("recv"));
  EXPECT_EQ(failed.contains("send"), fault != CallFault::Ended);
  EXPECT_EQ(failed.contains("connect"), fault == CallFault::Error);
  vantelink_test::report_failed_calls(runs);
}

INSTANTIATE_TEST_SUITE_P(Faults, NetFaultsTest,
                         testing::Combine(testing::Values(CallFault::Error, CallFault::TryAgain,
                                                          CallFault::Interrupted, CallFault::Short,
                                                          CallFault::Ended),
                                          testing::Values(TLS1_2_VERSION, TLS1_3_VERSION)));

}  // namespace
}  // namespace vlk::agent
