// Desktop duplication and the monitor walk on a scripted machine.
#include <gtest/gtest.h>

#include "stream/capture/capture.h"
#include "stream/capture/monitors.h"
#include "tests/windows/stream/capture/fake_dxgi.h"
#include "tests/windows/support/painted_window.h"
#include "tests/windows/support/seam.h"

namespace vlk::agent {
namespace {

using test::dxgi::machine;
using test::dxgi::Machine;
using Strings = std::vector<std::string>;
using Arguments = std::vector<std::int64_t>;

constexpr RECT kFirst = {0, 0, 800, 600};
constexpr RECT kSecond = {800, -200, 2080, 824};
constexpr RECT kThird = {-1280, 0, 0, 720};

class Duplication : public testing::Test {
 protected:
  void SetUp() override {
    test::remove_debug_log();
    machine = Machine();
    machine.adapters = {{{kFirst, true}}, {{kSecond, true}}};
    machine.pitch = 48;  // 8 pixels and 16 bytes that are nobody's
    machine.memory.resize(std::size_t{machine.pitch} * machine.height);
    for (std::size_t i = 0; i < machine.memory.size(); ++i) {
      machine.memory[i] = static_cast<std::uint8_t>(i * 37 + 11);
    }
  }
  void TearDown() override {
    EXPECT_EQ(machine.live, 0) << "objects left";
    test::remove_debug_log();
  }

  static Arguments ArgumentsOf(const std::string& name) {
    for (const auto& call : machine.calls) {
      if (call.name == name) return call.arguments;
    }
    return {-1};
  }

  static std::vector<std::uint8_t> ExpectedPixels() {
    std::vector<std::uint8_t> pixels;
    for (std::size_t row = 0; row < machine.height; ++row) {
      const auto first = machine.memory.begin() + static_cast<std::ptrdiff_t>(row * machine.pitch);
      pixels.insert(pixels.end(), first, first + static_cast<std::ptrdiff_t>(machine.width * 4));
    }
    return pixels;
  }
};

TEST_F(Duplication, MonitorsAreNumberedInTheOrderOfTheWalk) {
  machine.adapters = {{{kSecond, true}, {{0, 0, 1, 1}, false}, {kFirst, true}}, {}, {{kThird, true}}};
  const auto monitors = EnumerateMonitors();
  ASSERT_EQ(monitors.size(), 3u);
  const RECT* const areas[] = {&kSecond, &kFirst, &kThird};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(monitors[i].id, static_cast<std::int32_t>(i));
    EXPECT_EQ(monitors[i].left, areas[i]->left);
    EXPECT_EQ(monitors[i].top, areas[i]->top);
    EXPECT_EQ(monitors[i].width, areas[i]->right - areas[i]->left);
    EXPECT_EQ(monitors[i].height, areas[i]->bottom - areas[i]->top);
    EXPECT_EQ(monitors[i].name, "Display " + std::to_string(i + 1));
  }
  EXPECT_EQ(machine.calls, (std::vector<test::dxgi::Call>{{"CreateDXGIFactory1", {1}}}));
}

TEST_F(Duplication, WithoutAFactoryThereIsThePrimaryScreen) {
  machine.failures["CreateDXGIFactory1"] = E_NOINTERFACE;
  const auto monitors = EnumerateMonitors();
  ASSERT_EQ(monitors.size(), 1u);
  EXPECT_EQ(monitors[0].id, 0);
  EXPECT_EQ(monitors[0].left, 0);
  EXPECT_EQ(monitors[0].top, 0);
  EXPECT_EQ(monitors[0].width, GetSystemMetrics(SM_CXSCREEN));
  EXPECT_EQ(monitors[0].height, GetSystemMetrics(SM_CYSCREEN));
  EXPECT_EQ(monitors[0].name, "Primary");
}

TEST_F(Duplication, WithoutAttachedOutputsThereIsThePrimaryScreen) {
  machine.adapters = {{{kFirst, false}}, {}};
  EXPECT_EQ(EnumerateMonitors().at(0).name, "Primary");
  const auto thumbnails = CaptureThumbnails(320);
  ASSERT_EQ(thumbnails.size(), 1u);
  EXPECT_EQ(thumbnails[0].id, 0);
  machine.adapters.clear();
  EXPECT_EQ(EnumerateMonitors().at(0).name, "Primary");
}

TEST_F(Duplication, EachMonitorHasItsThumbnailAndOneWithoutAreaHasNone) {
  machine.adapters = {{{{0, 0, 640, 720}, true}, {{10, 10, 10, 500}, true}, {{640, 0, 1280, 720}, true}},
                      {{{0, 0, 200, 100}, true}}};
  const auto thumbnails = CaptureThumbnails(320);
  ASSERT_EQ(thumbnails.size(), 3u);
  EXPECT_EQ(thumbnails[0].id, 0);
  EXPECT_EQ(thumbnails[1].id, 2);
  EXPECT_EQ(thumbnails[2].id, 3);
  EXPECT_EQ(thumbnails[1].width, 284);
  EXPECT_EQ(thumbnails[1].height, 320);
  EXPECT_EQ(thumbnails[2].width, 200);
  EXPECT_EQ(thumbnails[2].pixels.size(), 200u * 100 * 4);
}

TEST_F(Duplication, SecondMonitorIsMadeOnTheSecondAdapter) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(1));
  // Unknown driver type, no module, no flags, no feature levels, SDK version 7, level not asked for.
  EXPECT_EQ(ArgumentsOf("D3D11CreateDevice"), (Arguments{1, D3D_DRIVER_TYPE_UNKNOWN, 0, 0, 0, 0, 7, 0}));
  EXPECT_EQ(ArgumentsOf("DuplicateOutput"), (Arguments{1, 0}));
  EXPECT_EQ(capturer.left(), 800);
  EXPECT_EQ(capturer.top(), -200);
  EXPECT_EQ(capturer.width(), 1280);
  EXPECT_EQ(capturer.height(), 1024);
  EXPECT_EQ(test::debug_log(), "capture: DXGI duplication started hr=0x00000000\n");
}

TEST_F(Duplication, UnattachedOutputUsesUpNoIndex) {
  machine.adapters = {{{kSecond, false}, {kFirst, true}, {kSecond, false}, {kThird, true}}};
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(1));
  EXPECT_EQ(ArgumentsOf("DuplicateOutput"), (Arguments{0, 3}));
  EXPECT_EQ(capturer.left(), -1280);
}

TEST_F(Duplication, UnknownMonitorIsLoggedAndLeavesTheRectangle) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(1));
  test::remove_debug_log();
  EXPECT_FALSE(capturer.Open(-1));
  EXPECT_FALSE(capturer.Open(2));
  EXPECT_EQ(test::debug_log(),
            "capture: no attached output for monitor hr=0xffffffff\n"
            "capture: no attached output for monitor hr=0x00000002\n");
  EXPECT_EQ(capturer.left(), 800);
  EXPECT_EQ(capturer.top(), -200);
  EXPECT_EQ(capturer.width(), 1280);
  EXPECT_EQ(capturer.height(), 1024);
  CapturedFrame frame;
  EXPECT_FALSE(capturer.AcquireFrame(frame, 0));
}

TEST_F(Duplication, EachFailureOfOpenHasItsLine) {
  const struct {
    const char* call;
    HRESULT result;
    const char* line;
  } rows[] = {
      {"CreateDXGIFactory1", E_FAIL, ""},
      {"D3D11CreateDevice", static_cast<HRESULT>(0x887A0004),
       "capture: D3D11CreateDevice failed hr=0x887a0004\n"},
      {"QueryInterface(IDXGIOutput1)", E_NOINTERFACE, "capture: IDXGIOutput1 QI failed hr=0x00000000\n"},
      {"DuplicateOutput", E_ACCESSDENIED, "capture: DuplicateOutput failed hr=0x80070005\n"},
  };
  for (const auto& row : rows) {
    test::remove_debug_log();
    machine.failures = {{row.call, row.result}};
    ScreenCapturer capturer;
    EXPECT_FALSE(capturer.Open(0)) << row.call;
    EXPECT_EQ(test::debug_log(), row.line);
    EXPECT_EQ(capturer.width(), std::string(row.call) == "CreateDXGIFactory1" ? 0 : 800) << row.call;
    CapturedFrame frame;
    EXPECT_FALSE(capturer.AcquireFrame(frame, 0)) << row.call;
    EXPECT_TRUE(frame.fresh) << row.call;
  }
}

TEST_F(Duplication, BeforeOpenNoFrameIsTouched) {
  ScreenCapturer capturer;
  CapturedFrame frame;
  EXPECT_FALSE(capturer.AcquireFrame(frame, 100));
  EXPECT_EQ(frame.width, 0u);
  EXPECT_EQ(frame.height, 0u);
  EXPECT_EQ(frame.stride, 0);
  EXPECT_TRUE(frame.pixels.empty());
  EXPECT_TRUE(frame.fresh);
  EXPECT_TRUE(machine.calls.empty());
}

TEST_F(Duplication, FrameIsPackedWhateverTheRowPitch) {
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

TEST_F(Duplication, AFrameTakesTheseSteps) {
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

TEST_F(Duplication, AFrameIsHeldUntilTheNextCall) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  CapturedFrame frame;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  EXPECT_EQ(machine.Count("ReleaseFrame"), 0);
  machine.calls.clear();
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  // The staging texture serves again: no second CreateTexture2D.
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame", "AcquireNextFrame", "QueryInterface(ID3D11Texture2D)",
                                      "CopyResource", "Map", "Unmap"}));
  machine.calls.clear();
  capturer.Close();
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame"}));
  capturer.Close();
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame"}));
}

TEST_F(Duplication, OpeningAgainReleasesTheHeldFrameFirst) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(0));
  CapturedFrame frame;
  ASSERT_TRUE(capturer.AcquireFrame(frame, 0));
  machine.calls.clear();
  ASSERT_TRUE(capturer.Open(1));
  EXPECT_EQ(machine.Names().at(0), "ReleaseFrame");
  EXPECT_EQ(machine.Count("ReleaseFrame"), 1);
}

TEST_F(Duplication, TimeOutKeepsTheDuplication) {
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
  // Released once: nothing is held after a time-out.
  EXPECT_EQ(machine.Names(), (Strings{"ReleaseFrame", "AcquireNextFrame", "AcquireNextFrame"}));
  machine.failures.clear();
  EXPECT_TRUE(capturer.AcquireFrame(frame, 0));
  EXPECT_TRUE(frame.fresh);
}

TEST_F(Duplication, LostDuplicationIsDroppedSilentlyAndOnlyOpenBringsItBack) {
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

TEST_F(Duplication, DesktopOfANewSizeGivesANewStagingTextureAndFrameSize) {
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

TEST_F(Duplication, FailureAfterAcquiringLeavesTheFrameHeldForTheNextCall) {
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

TEST_F(Duplication, AbsurdAnswersCostTheFrameAndNothingElse) {
  const auto good = machine;
  const struct {
    const char* what;
    void (*spoil)();
    const char* last_call;
  } rows[] = {
      {"no resource", [] { machine.null_resource = true; }, "AcquireNextFrame"},
      {"no memory", [] { machine.memory = std::vector<std::uint8_t>(); }, "Unmap"},
      {"rows that overlap", [] { machine.pitch = machine.width * 4 - 1; }, "Unmap"},
      {"rows without length", [] { machine.pitch = 0; }, "Unmap"},
      // Four times this width is 16 in 32 bits.
      {"a width whose bytes outgrow the pitch's type", [] { machine.width = 0x40000004; }, "Unmap"},
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

// Walks a whole life and fails its Nth call, for every N until none is left to fail.
TEST_F(Duplication, WhateverFailsNothingIsLeftOpen) {
  int failing = 1;
  for (;; ++failing) {
    machine.fail_at = failing;
    machine.fallible_calls = 0;
    {
      ScreenCapturer capturer;
      CapturedFrame frame;
      capturer.Open(1);
      capturer.AcquireFrame(frame, 0);
      capturer.AcquireFrame(frame, 0);
      capturer.Open(0);
      capturer.AcquireFrame(frame, 0);
    }
    ASSERT_EQ(machine.live, 0) << "call " << failing;
    EnumerateMonitors();
    ASSERT_EQ(machine.live, 0) << "call " << failing;
    if (machine.fallible_calls < failing) break;
  }
  EXPECT_GT(failing, 17);
}

TEST_F(Duplication, GdiCopiesTheRectangleOfAMonitorThatCannotBeDuplicated) {
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
