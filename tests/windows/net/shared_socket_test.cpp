// Closing of a shared socket: its handle is closed once, whoever closes it and in whatever order, because the
// system may already have given the same value to another socket.
#include <winsock2.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "net/socket.h"

namespace {

std::vector<std::atomic<int>> closes(16384);  // by handle
std::function<void()> during_close;

int WSAAPI count_close(SOCKET handle) {
  ++closes.at(handle);
  if (during_close) during_close();
  return 0;
}

}  // namespace

extern "C" {
int(WSAAPI* __imp_closesocket)(SOCKET) = count_close;
}

namespace vlk {
namespace {

class SharedSocketTest : public testing::Test {
 protected:
  SharedSocketTest() {
    for (std::atomic<int>& count : closes)
      count = 0;
  }
  ~SharedSocketTest() override { during_close = nullptr; }

  SharedSocket socket_;
};

TEST_F(SharedSocketTest, InterruptedSocketIsNotClosedAgainByItsOwner) {
  socket_.set(8);
  socket_.interrupt();
  EXPECT_EQ(closes[8], 1);
  socket_.close();
  socket_.interrupt();
  EXPECT_EQ(closes[8], 1);
}

TEST_F(SharedSocketTest, ClosedSocketIsNotClosedAgainByAnInterruption) {
  socket_.set(8);
  socket_.close();
  socket_.interrupt();
  socket_.close();
  EXPECT_EQ(closes[8], 1);
}

TEST_F(SharedSocketTest, EmptySocketClosesNothing) {
  socket_.interrupt();
  socket_.close();
  for (const std::atomic<int>& count : closes)
    EXPECT_EQ(count, 0);
}

TEST_F(SharedSocketTest, NextConnectionsSocketIsClosedToo) {
  socket_.set(8);
  socket_.close();
  socket_.set(12);
  socket_.interrupt();
  EXPECT_EQ(closes[8], 1);
  EXPECT_EQ(closes[12], 1);
}

TEST_F(SharedSocketTest, SocketIsInvalidatedBeforeItIsClosed) {
  during_close = [this] {
    if (closes[8] < 3) socket_.interrupt();
  };
  socket_.set(8);
  socket_.close();
  EXPECT_EQ(closes[8], 1);
}

TEST_F(SharedSocketTest, TwoThreadsAtOnceCloseEachHandleOnce) {
  std::atomic<SocketHandle> begun{0}, ended{0};
  std::thread other([&] {
    for (SocketHandle handle = 1; handle < closes.size(); ++handle) {
      while (begun != handle) {
      }
      socket_.interrupt();
      ended = handle;
    }
  });
  for (SocketHandle handle = 1; handle < closes.size(); ++handle) {
    socket_.set(handle);
    begun = handle;
    // The other thread sees the round's start after some time; the varying delay makes both calls coincide in
    // some of the rounds.
    for (std::atomic<SocketHandle> delay{handle % 64}; delay > 0; --delay) {
    }
    socket_.close();
    while (ended != handle)
      std::this_thread::yield();
  }
  other.join();
  for (SocketHandle handle = 1; handle < closes.size(); ++handle)
    ASSERT_EQ(closes[handle], 1) << handle;
}

}  // namespace
}  // namespace vlk
