// Frames from a duplication on a scripted machine: the calls that get a frame, its pixels, and every failure.
#include "stream/capture/capture.h"
#include "tests/windows/stream/capture/duplication_fixture.h"
#include "tests/windows/support/debug_log_file.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::dxgi::machine;

TEST_F(Duplication, FrameIsPackedForEveryRowPitch) {
  for (const UINT pitch : {32u, 33u, 48u, 256u}) {
    machine.pitch = pitch;
    machine.memory.assign(std::size_t{pitch} * machine.height, 0);
    for (std::size_t i = 0; i < machine.memory.size(); ++i)
      machine.memory[i] = static_cast<std::uint8_t>(i * 41);
    ScreenCapturer capturer;
    ASSERT_TRUE(capturer.Open(0));
    CapturedFrame frame;
    frame.fresh = false;
    ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
    EXPECT_EQ(frame.width, 8u);
    EXPECT_EQ(frame.height, 4u);
    EXPECT_EQ(frame.stride, 32);
    EXPECT_EQ(frame.pixels, ExpectedPixels()) << pitch;
    EXPECT_TRUE(frame.fresh);
  }
}

TEST_F(Duplication, AcquiringAFrameMakesOnlyTheExpectedCallsInOrder) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  machine.calls.clear();
  CapturedFrame frame;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 250));
  EXPECT_EQ(machine.Names(), (Strings{"AcquireNextFrame", "QueryInterface(ID3D11Texture2D)",
                                      "CreateTexture2D", "CopyResource", "Map", "Unmap"}));
  EXPECT_EQ(ArgumentsOf("AcquireNextFrame"), (Arguments{250}));
  EXPECT_EQ(ArgumentsOf("CreateTexture2D"), (Arguments{8, 4, 0}));
  EXPECT_EQ(ArgumentsOf("Map"), (Arguments{0, D3D11_MAP_READ, 0}));
  EXPECT_EQ(machine.staging.Usage, D3D11_USAGE_STAGING);
  EXPECT_EQ(machine.staging.BindFlags, 0u);
  EXPECT_EQ(machine.staging.CPUAccessFlags, 0x20000u);
  EXPECT_EQ(machine.staging.MiscFlags, 0u);
  EXPECT_EQ(machine.staging.Format, DXGI_FORMAT_B8G8R8A8_UNORM);
}

TEST_F(Duplication, FrameIsHeldUntilTheNextCall) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  CapturedFrame frame;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  EXPECT_EQ(machine.Count("ReleaseFrame"), 0);
  machine.calls.clear();
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  // The staging texture is used again, so CreateTexture2D is not called a second time.
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame", "AcquireNextFrame", "QueryInterface(ID3D11Texture2D)",
                                      "CopyResource", "Map", "Unmap"}));
  machine.calls.clear();
  capturer.Close();
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame"}));
  capturer.Close();
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame"}));
}

TEST_F(Duplication, TimeOutOfAFrameKeepsTheDuplicationOpen) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  CapturedFrame frame;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  machine.failures["AcquireNextFrame"] = DXGI_ERROR_WAIT_TIMEOUT;
  machine.calls.clear();
  const auto pixels = frame.pixels;
  EXPECT_FALSE(capturer.AcquireFrame(frame, 0));
  EXPECT_FALSE(frame.fresh);
  EXPECT_EQ(frame.pixels, pixels);
  EXPECT_FALSE(capturer.AcquireFrame(frame, 0));
  // ReleaseFrame is called only once, because no frame is held after a time-out.
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame", "AcquireNextFrame", "AcquireNextFrame"}));
  machine.failures.clear();
  EXPECT_TRUE(capturer.AcquireFrame(frame, 0));
  EXPECT_TRUE(frame.fresh);
}

TEST_F(Duplication, LostDuplicationIsDroppedSilentlyUntilTheNextOpen) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  test::remove_debug_log();
  machine.failures["AcquireNextFrame"] = DXGI_ERROR_ACCESS_LOST;
  CapturedFrame frame;
  EXPECT_FALSE(capturer.AcquireFrame(frame, 0));
  EXPECT_FALSE(frame.fresh);
  machine.failures.clear();
  machine.calls.clear();
  frame.fresh = true;
  EXPECT_FALSE(capturer.AcquireFrame(frame, 0));
  EXPECT_TRUE(frame.fresh);
  EXPECT_TRUE(machine.calls.empty());
  EXPECT_EQ(test::debug_log(), "");
  EXPECT_EQ(capturer.width(), 800);
  EXPECT_TRUE(capturer.Open(0));
  EXPECT_TRUE(capturer.AcquireFrame(frame, 0));
}

TEST_F(Duplication, DesktopOfANewSizeGetsANewStagingTexture) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  CapturedFrame frame;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  machine.width = 5;
  machine.height = 3;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  EXPECT_EQ(machine.Count("CreateTexture2D"), 2);
  EXPECT_EQ(frame.width, 5u);
  EXPECT_EQ(frame.height, 3u);
  EXPECT_EQ(frame.stride, 20);
  EXPECT_EQ(frame.pixels, ExpectedPixels());
  EXPECT_EQ(capturer.width(), 800);
}

TEST_F(Duplication, AcquiredFrameThatCannotBeReadIsHeldUntilTheNextCall) {
  for (const char* const call : {"QueryInterface(ID3D11Texture2D)", "CreateTexture2D", "Map"}) {
    ScreenCapturer capturer;
    ASSERT_TRUE(capturer.Open(0));
    machine.failures = {{call, E_FAIL}};
    machine.calls.clear();
    CapturedFrame frame;
    EXPECT_FALSE(capturer.AcquireFrame(frame, 0)) << call;
    EXPECT_TRUE(frame.pixels.empty()) << call;
    EXPECT_EQ(machine.Count("ReleaseFrame"), 0) << call;
    EXPECT_EQ(machine.Count("Unmap"), 0) << call;
    machine.failures.clear();
    EXPECT_TRUE(capturer.AcquireFrame(frame, 0)) << call;
    EXPECT_EQ(machine.Count("ReleaseFrame"), 1) << call;
  }
}

TEST_F(Duplication, FrameWithInvalidDataIsDroppedAndTheNextFrameIsReturned) {
  const auto good = machine;
  const struct {
    const char* what;
    void (*spoil)();
    const char* last_call;
  } rows[] = {
      {"no resource", [] { machine.null_resource = true; }, "AcquireNextFrame"},
      {"no memory", [] { machine.memory = std::vector<std::uint8_t>(); }, "Unmap"},
      {"rows that overlap", [] { machine.pitch = machine.width * 4 - 1; }, "Unmap"},
      {"a row pitch of zero", [] { machine.pitch = 0; }, "Unmap"},
      // Four times this width is 16 in 32-bit arithmetic.
      {"a width whose row size overflows 32 bits", [] { machine.width = 0x40000004; }, "Unmap"},
  };
  for (const auto& row : rows) {
    ScreenCapturer capturer;
    ASSERT_TRUE(capturer.Open(0));
    row.spoil();
    CapturedFrame frame;
    EXPECT_FALSE(capturer.AcquireFrame(frame, 0)) << row.what;
    EXPECT_TRUE(frame.pixels.empty()) << row.what;
    EXPECT_EQ(machine.Names().back(), row.last_call) << row.what;
    machine.null_resource = false;
    machine.memory = good.memory;
    machine.pitch = good.pitch;
    machine.width = good.width;
    EXPECT_TRUE(capturer.AcquireFrame(frame, 0)) << row.what;
    EXPECT_EQ(frame.pixels, ExpectedPixels()) << row.what;
  }
}

TEST_F(Duplication, DesktopWithoutAreaGivesAFrameWithoutPixels) {
  for (const auto& [width, height] : {std::pair{0u, 4u}, {8u, 0u}, {0u, 0u}}) {
    machine.width = width;
    machine.height = height;
    ScreenCapturer capturer;
    ASSERT_TRUE(capturer.Open(0));
    CapturedFrame frame;
    EXPECT_TRUE(capturer.AcquireFrame(frame, 0));
    EXPECT_EQ(frame.width, width);
    EXPECT_EQ(frame.height, height);
    EXPECT_TRUE(frame.pixels.empty());
  }
}

TEST_F(Duplication, GdiCopiesAMonitorThatCannotBeDuplicated) {
  const test::PaintedWindow window(700, 100, 150, 90);
  machine.adapters = {{{{0, 0, 640, 720}, true}, {{640, 50, 1280, 720}, true}}};
  machine.failures["DuplicateOutput"] = E_NOTIMPL;
  ScreenCapturer capturer;
  EXPECT_FALSE(capturer.Open(1));
  CapturedFrame frame;
  EXPECT_TRUE(test::pump_until([&] {
    EXPECT_TRUE(capturer.CaptureGdi(frame));
    return test::shows_pattern(frame.pixels, 640, 60, 50, 150, 90);
  }));
  EXPECT_EQ(frame.width, 640u);
  EXPECT_EQ(frame.height, 670u);
  EXPECT_EQ(frame.stride, 2560);
}

}  // namespace
}  // namespace vlk::agent
