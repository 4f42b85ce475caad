// The payloads of posted messages when memory runs out: whichever allocation fails, the message arrives with
// a null payload.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "shell/window_messages_win32.h"
#include "tests/support/fail_nth.h"
#include "update/manifest.h"

namespace {

// The allocation of the test's thread that fails; null while memory does not run out.
thread_local vantelink_test::FailNth* short_memory = nullptr;

}  // namespace

// Not inlined: the compiler would take the pair of malloc and free for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (short_memory != nullptr && short_memory->fails()) throw std::bad_alloc();
  if (void* const memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace vlk::agent {
namespace {

class PostedPayloads : public testing::Test {
 protected:
  PostedPayloads()
      : window_(CreateWindowExW(0, L"Static", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr)) {}
  ~PostedPayloads() override { DestroyWindow(window_); }

  // Fails each allocation of `post` in turn, and returns the payload of the run in which none failed.
  template <typename Payload>
  Payload payload_after_failures(UINT message, const std::function<void(HWND)>& post) const {
    Payload posted;
    const int runs = vantelink_test::fail_each_call([&](vantelink_test::FailNth& failure) {
      short_memory = &failure;
      EXPECT_NO_THROW(post(window_));
      short_memory = nullptr;
      MSG received = {};
      ASSERT_TRUE(PeekMessageW(&received, window_, message, message, PM_REMOVE));
      const auto payload = take_payload<Payload>(received.wParam);
      EXPECT_EQ(payload == nullptr, failure.reached());
      if (payload) posted = *payload;
    });
    EXPECT_GT(runs, 2) << "the payload and its content are two allocations";
    return posted;
  }

  const HWND window_;
};

const std::string kLongText(100, 'x');  // too long for the string object itself

TEST_F(PostedPayloads, NoticeIsNullIfItsConversionOrItsCopyFails) {
  const auto posted = payload_after_failures<std::wstring>(
      WM_STATUS_TEXT, [](HWND window) { post_status_text(window, kLongText); });
  EXPECT_EQ(posted, std::wstring(100, L'x'));
}

TEST_F(PostedPayloads, StatusTextIsNullIfItsCopyFails) {
  const std::wstring text(100, L'a');
  const auto posted = payload_after_failures<std::wstring>(
      WM_STATUS_TEXT, [&](HWND window) { post_status_text(window, text); });
  EXPECT_EQ(posted, text);
}

TEST_F(PostedPayloads, BytesAreNullIfTheirCopyFails) {
  const std::vector<std::uint8_t> bytes(1000, 7);
  const auto posted = payload_after_failures<std::vector<std::uint8_t>>(
      WM_CLIPBOARD_INBOUND, [&](HWND window) { post_payload(window, WM_CLIPBOARD_INBOUND, bytes); });
  EXPECT_EQ(posted, bytes);
}

TEST_F(PostedPayloads, UpdateOfferIsNullIfItsCopyFails) {
  const UpdateOffer offer{kLongText, kLongText};
  const auto posted = payload_after_failures<UpdateOffer>(
      WM_UPDATE_OFFER, [&](HWND window) { post_payload(window, WM_UPDATE_OFFER, offer); });
  EXPECT_EQ(posted.version, kLongText);
  EXPECT_EQ(posted.file, kLongText);
}

}  // namespace
}  // namespace vlk::agent
