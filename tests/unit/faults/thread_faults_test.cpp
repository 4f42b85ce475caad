// What the agent does when the system gives it no thread.
#include <csignal>
#include <future>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>

#include "platform/threads/detached_thread.h"
#include "stream/streamer.h"
#include "support/temp_folder.h"
#include "transfer/file_transfer.h"
#include "unit/faults/failing_calls_seam.h"
#include "unit/support/link_fixture.h"
#include "unit/support/threads.h"

namespace vlk::agent {
namespace {

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::descriptors;
using vantelink_test::eventually;
using vantelink_test::FailingCalls;
using vantelink_test::FailNth;
using vantelink_test::TempFolder;
using vantelink_test::threads;

class ThreadFaultsTest : public LinkTest {
 protected:
  // Runs work(true) on a thread of the agent with its one thread refused, and then work(false). Checks that
  // both leave no thread and no open file behind.
  template <typename Work>
  static void refuse_each(Work work) {
    std::thread([] {}).join();  // ThreadSanitizer starts a thread of its own together with the first one
    const std::size_t open = descriptors(), running = threads();
    bool refused = true;
    const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
      FailingCalls calls(CallGroup::Threads, CallFault::Error, fail);
      std::async(std::launch::async, work, refused).get();
      EXPECT_EQ(fail.reached(), refused);
      EXPECT_TRUE(eventually([&] { return threads() == running; }));
      EXPECT_EQ(descriptors(), open);
      refused = false;
    });
    EXPECT_EQ(runs, 2);
    vantelink_test::report_failed_calls(runs);
  }

  // Calls start(), which must throw if the thread is refused.
  template <typename Start>
  static void start_refused(bool refused, Start start) {
    if (refused) {
      EXPECT_THROW(start(), std::system_error);
    } else {
      EXPECT_NO_THROW(start());
    }
  }
};

TEST_F(ThreadFaultsTest, ClientWithoutAThreadReportsItToItsCallerAndNeverConnects) {
  ScriptedServer server(authority());
  refuse_each([&](bool refused) {
    std::unique_ptr<ServerConnection> peer;
    log_.clear();
    make_client(server);
    start_refused(refused, [&] { client_->start(); });
    if (refused) {
      client_->start();
      EXPECT_FALSE(server.has_client(Milliseconds(0))) << "the client counts as started";
      EXPECT_EQ(log_.lines(), std::vector<std::string>());
    } else {
      peer = server.accept_upgraded();
      peer->read_until(Msg::Login);
    }
    client_->stop();
    client_.reset();
  });
}

TEST_F(ThreadFaultsTest, StreamWithoutAThreadReportsItToItsCallerAndCapturesNothing) {
  refuse_each([&](bool refused) {
    vantelink_fakes::clear_journal();
    const auto send = [](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) { return true; };
    ScreenStreamer streamer(1, send);
    start_refused(refused, [&] { streamer.Start(0, 100, 70, 1); });
    if (!refused) {
      EXPECT_TRUE(vantelink_fakes::wait_for("CaptureGdi"));
    }
    streamer.Stop();
    EXPECT_EQ(vantelink_fakes::count("Open 0") == 0, refused);
  });
}

TEST_F(ThreadFaultsTest, DownloadWithoutAThreadReportsItToItsCallerAndReleasesEverything) {
  const TempFolder folder;
  folder.write("file", "bytes");
  refuse_each([&](bool refused) {
    auto messages = std::make_shared<std::atomic<int>>(0);
    const std::weak_ptr<std::atomic<int>> held = messages;
    start_refused(refused, [&] {
      StartDownload(1, 7, folder.windows_path("file"),
                    [messages](Msg, unsigned, const unsigned char*, std::size_t, unsigned char) {
                      ++*messages;
                      return true;
                    });
    });
    EXPECT_TRUE(refused || eventually([&] { return *messages == 2; }));
    EXPECT_EQ(*messages, refused ? 0 : 2);
    messages.reset();
    EXPECT_TRUE(refused ? held.expired() : eventually([&] { return held.expired(); }));
  });
}

// The threads of updates are detached ones.
TEST_F(ThreadFaultsTest, DetachedThreadThatIsRefusedIsReportedAndItsWorkIsReleased) {
  refuse_each([&](bool refused) {
    auto work = std::make_shared<std::atomic<bool>>(false);
    const std::weak_ptr<std::atomic<bool>> held = work;
    start_refused(refused, [&] { start_detached_thread([work] { *work = true; }); });
    EXPECT_TRUE(refused || eventually([&] { return work->load(); }));
    EXPECT_EQ(*work, !refused);
    work.reset();
    EXPECT_TRUE(refused ? held.expired() : eventually([&] { return held.expired(); }));
  });
}

class ThreadDeathTest : public LinkTest {
 protected:
  // Sends a message to a client that gets no further thread. Ends the process with status 0 if the client
  // survives it.
  void send_without_threads(Msg type, const char* text) {
    ScriptedServer server(authority());
    const auto peer = connect(server);
    FailNth fail(1);
    const FailingCalls calls(CallGroup::Threads, CallFault::Error, fail);
    peer->send_envelope(type, 5, text);
    (void)peer->wait_closed();
    std::_Exit(0);
  }
};

// The exception of a handler leaves the connection thread, so it ends the agent, which its service starts
// again.
TEST_F(ThreadDeathTest, StreamOrDownloadThatGetsNoThreadEndsTheAgent) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const auto& [type, text] :
       {std::pair(Msg::StreamStart, "{}"), {Msg::DownloadRequest, R"({"transfer_id":7,"path":"C:\\x"})"}}) {
    EXPECT_EXIT(send_without_threads(type, text), testing::KilledBySignal(SIGABRT), "system_error");
  }
}

}  // namespace
}  // namespace vlk::agent
