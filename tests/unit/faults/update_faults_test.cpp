// The fetch of the manifest and of the installer with each call below it going wrong once.
#include <chrono>
#include <future>

#include <gtest/gtest.h>

#include "support/peers/scripted_server.h"
#include "unit/faults/failing_calls_seam.h"
#include "unit/support/threads.h"
#include "update/update.h"

namespace vlk::agent {
namespace {

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::descriptors;
using vantelink_test::FailingCalls;
using vantelink_test::FailNth;
using vantelink_test::kPatience;
using vantelink_test::Milliseconds;
using vantelink_test::ScriptedServer;
using vantelink_test::TestAuthority;
using vantelink_test::threads;

const std::string kHead = "HTTP/1.1 200 OK\r\n\r\n";

// A call that a signal interrupts is not among the faults: the agent's own system interrupts none.
class UpdateFaultsTest : public testing::TestWithParam<CallFault> {
 protected:
  // Runs `work(port)` against a server that answers a request with these pieces, each in a record of its own.
  // Returns the result of `work`, and in `asked` whether a request has reached the server.
  template <typename Work>
  static auto served(const std::vector<std::string>& pieces, Work work, bool& asked) {
    static const TestAuthority authority;
    ScriptedServer server(authority);
    auto result = std::async(std::launch::async, work, std::uint32_t{server.port()});
    while (!server.has_client(Milliseconds(1)) &&
           result.wait_for(Milliseconds(0)) != std::future_status::ready) {
    }
    asked = false;
    if (server.has_client(Milliseconds(0))) {
      const auto peer = server.accept();
      try {
        if (peer->handshake()) {
          peer->read_request();
          asked = true;
          for (const std::string& piece : pieces)
            peer->send(piece);
          peer->end_sending();
          EXPECT_TRUE(peer->wait_closed());
        }
      } catch (const std::runtime_error&) {  // the client has ended the connection earlier
      }
    }
    EXPECT_EQ(result.wait_for(kPatience), std::future_status::ready);
    return result.get();
  }

  // Serves `work` with each call failing, and calls check(result, failed, asked) after each run.
  template <typename Work, typename Check>
  static void fail_each(const std::vector<std::string>& pieces, Work work, Check check) {
    bool asked = false;
    const auto untouched = served(pieces, work, asked);
    check(untouched, "", asked);
    const std::size_t open = descriptors(), running = threads();
    const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
      FailingCalls calls(CallGroup::Network, GetParam(), fail);
      const auto result = served(pieces, work, asked);
      const testing::ScopedTrace trace(__FILE__, __LINE__, calls.failed_with_number());
      check(result, calls.failed(), asked);
      EXPECT_EQ(descriptors(), open);
      EXPECT_EQ(threads(), running);
    });
    vantelink_test::report_failed_calls(runs);
  }

  // Whether the failed call is one before the request that nothing replaces.
  static bool fatal(const std::string& failed, bool asked) { return failed == "getaddrinfo" || !asked; }
};

TEST_P(UpdateFaultsTest, OfferIsCompleteOrMissing) {
  int offers = 0, missing = 0;
  const auto check = [&](const std::optional<UpdateOffer>& offer, const std::string& failed, bool asked) {
    EXPECT_FALSE(fatal(failed, asked) && offer);
    EXPECT_TRUE(offer || failed == "getaddrinfo" || failed == "read" || failed == "write");
    ++(offer ? offers : missing);
    if (!offer) return;
    EXPECT_EQ(offer->version, "0.2");
    EXPECT_EQ(offer->file, "setup.exe");
  };
  fail_each(
      {kHead, R"({"agent_version":"0.)", R"(2","agent_file":"set)", R"(up.exe"})"},
      [](std::uint32_t port) { return check_for_update("localhost", port); }, check);
  EXPECT_EQ(missing > 5, GetParam() != CallFault::Short);
  std::printf("%d fetches with an offer, %d without; ", offers, missing);
}

TEST_P(UpdateFaultsTest, KnownInstallerIsCutWhereTheConnectionFails) {
  const std::string bytes(100'000, 'M');
  int cut = 0, missing = 0;
  const auto check = [&](const std::string& installer, const std::string& failed, bool asked) {
    EXPECT_FALSE(fatal(failed, asked) && !installer.empty());
    EXPECT_TRUE(bytes.starts_with(installer));
    // The last of the calls of writing only ends the connection.
    EXPECT_TRUE(installer == bytes || failed == "getaddrinfo" || failed == "read" ||
                (failed == "write" && !asked));
    missing += static_cast<int>(installer.empty());
    cut += static_cast<int>(!installer.empty() && installer != bytes);
  };
  fail_each(
      {kHead, bytes.substr(0, 20'000), bytes.substr(20'000)},
      [](std::uint32_t port) { return fetch_installer("localhost", port, "setup.exe"); }, check);
  EXPECT_EQ(missing > 5, GetParam() != CallFault::Short);
  EXPECT_EQ(cut > 0, GetParam() != CallFault::Short);
  std::printf("%d installers were cut, %d missing\n", cut, missing);
}

INSTANTIATE_TEST_SUITE_P(Faults, UpdateFaultsTest,
                         testing::Values(CallFault::Error, CallFault::TryAgain, CallFault::Short,
                                         CallFault::Ended));

}  // namespace
}  // namespace vlk::agent
