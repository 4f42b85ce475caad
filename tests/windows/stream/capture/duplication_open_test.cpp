// The walk over adapters and outputs on a scripted machine: the list of monitors, and opening a duplication.
#include "stream/capture/capture.h"
#include "stream/capture/monitors.h"
#include "tests/windows/stream/capture/duplication_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

using test::dxgi::machine;

TEST_F(Duplication, MonitorsAreNumberedInTheOrderOfAdaptersAndOutputs) {
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

TEST_F(Duplication, MonitorListHasThePrimaryScreenIfThereIsNoFactory) {
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

TEST_F(Duplication, MonitorListHasThePrimaryScreenIfNoOutputIsAttached) {
  machine.adapters = {{{kFirst, false}}, {}};
  EXPECT_EQ(EnumerateMonitors().at(0).name, "Primary");
  const auto thumbnails = CaptureThumbnails(320);
  ASSERT_EQ(thumbnails.size(), 1u);
  EXPECT_EQ(thumbnails[0].id, 0);
  machine.adapters.clear();
  EXPECT_EQ(EnumerateMonitors().at(0).name, "Primary");
}

TEST_F(Duplication, EachMonitorWithAnAreaHasAThumbnail) {
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

TEST_F(Duplication, DeviceIsCreatedOnTheMonitorsAdapter) {
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(1));
  // The arguments after the adapter: unknown driver type, no module, no flags, no feature levels and their
  // count 0, SDK version 7, and no result for the level.
  EXPECT_EQ(ArgumentsOf("D3D11CreateDevice"), (Arguments{1, D3D_DRIVER_TYPE_UNKNOWN, 0, 0, 0, 0, 7, 0}));
  EXPECT_EQ(ArgumentsOf("DuplicateOutput"), (Arguments{1, 0}));
  EXPECT_EQ(capturer.left(), 800);
  EXPECT_EQ(capturer.top(), -200);
  EXPECT_EQ(capturer.width(), 1280);
  EXPECT_EQ(capturer.height(), 1024);
  EXPECT_EQ(test::debug_log(), "capture: DXGI duplication started hr=0x00000000\n");
}

TEST_F(Duplication, OutputThatIsNotAttachedHasNoMonitorNumber) {
  machine.adapters = {{{kSecond, false}, {kFirst, true}, {kSecond, false}, {kThird, true}}};
  ScreenCapturer capturer;
  ASSERT_TRUE(capturer.Open(1));
  EXPECT_EQ(ArgumentsOf("DuplicateOutput"), (Arguments{0, 3}));
  EXPECT_EQ(capturer.left(), -1280);
}

TEST_F(Duplication, UnknownMonitorIsLoggedAndTheRectangleOfTheLastMonitorIsKept) {
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

TEST_F(Duplication, EachFailureToOpenADuplicationIsLogged) {
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

TEST_F(Duplication, AcquiringAFrameBeforeOpeningLeavesTheFrameUnchanged) {
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

TEST_F(Duplication, NothingStaysOpenWhicheverCallFails) {
  const int runs = vantelink_test::fail_each_call([](vantelink_test::FailNth& failure) {
    machine.nth_failure = &failure;
    {
      ScreenCapturer capturer;
      CapturedFrame frame;
      capturer.Open(1);
      capturer.AcquireFrame(frame, 0);
      capturer.AcquireFrame(frame, 0);
      capturer.Open(0);
      capturer.AcquireFrame(frame, 0);
    }
    EXPECT_EQ(machine.live, 0);
    EnumerateMonitors();
    EXPECT_EQ(machine.live, 0);
    machine.nth_failure = nullptr;
  });
  EXPECT_GT(runs, 17);
}

}  // namespace
}  // namespace vlk::agent
