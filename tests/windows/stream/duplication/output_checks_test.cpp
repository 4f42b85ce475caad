// What the duplication double refuses about devices, outputs and duplications, as Windows does.
#include <chrono>

#include "tests/windows/stream/duplication/raw_desktop.h"

namespace vlk::test {
namespace {

using OutputChecks = RawDesktopTest;

TEST_F(OutputChecks, DeviceMustBeOnTheOutputsAdapter) {
  set_outputs({{0, 0, 320, 180}, {320, 0, 320, 180}});
  RawDesktop first = Open(0);
  const RawDesktop second = Open(1);
  EXPECT_EQ(first.Duplicate(second.device.Get()), E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::ForeignDevice);
  EXPECT_EQ(first.Duplicate(nullptr), E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::ForeignDevice);
  EXPECT_EQ(first.output1->DuplicateOutput(first.context.Get(), first.duplication.ReleaseAndGetAddressOf()),
            E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::ForeignDevice);
  EXPECT_EQ(first.Duplicate(first.device.Get()), S_OK);
}

TEST_F(OutputChecks, SecondDuplicationOfAnOutputIsRefusedUntilTheFirstIsReleased) {
  RawDesktop first = OpenDuplicated();
  RawDesktop second = Open();
  EXPECT_EQ(second.Duplicate(second.device.Get()), E_INVALIDARG);
  ExpectMisuse(DesktopMisuse::SecondDuplication);
  board_.acquire_result = DXGI_ERROR_ACCESS_LOST;
  EXPECT_EQ(first.Acquire(), DXGI_ERROR_ACCESS_LOST);
  EXPECT_EQ(second.Duplicate(second.device.Get()), E_INVALIDARG) << "a lost duplication must be released too";
  ExpectMisuse(DesktopMisuse::SecondDuplication);
  first.duplication.Reset();
  EXPECT_EQ(second.Duplicate(second.device.Get()), S_OK);
}

TEST_F(OutputChecks, OutputsCanBeDuplicatedAtTheSameTime) {
  set_outputs({{0, 0, 320, 180}, {320, 0, 320, 180}});
  const RawDesktop first = OpenDuplicated(0), second = OpenDuplicated(1);
  EXPECT_EQ(board_.duplications, 2);
}

TEST_F(OutputChecks, FifthProgramThatDuplicatesTheDesktopIsRefused) {
  RawDesktop raw = Open();
  board_.other_programs = 4;
  EXPECT_EQ(raw.Duplicate(raw.device.Get()), DXGI_ERROR_NOT_CURRENTLY_AVAILABLE);
  board_.other_programs = 3;
  EXPECT_EQ(raw.Duplicate(raw.device.Get()), S_OK);
}

TEST_F(OutputChecks, DeviceOnAnAdapterNeedsTheUnknownDriverTypeAndNoSoftware) {
  const RawDesktop raw = Open();
  const D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_11_0;
  const struct {
    const char* what;
    D3D_DRIVER_TYPE type;
    HMODULE software;
    UINT flags;
    const D3D_FEATURE_LEVEL* levels;
    UINT level_count, version;
  } rows[] = {
      {"driver type", D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION},
      {"software", D3D_DRIVER_TYPE_UNKNOWN, GetModuleHandleW(nullptr), 0, nullptr, 0, D3D11_SDK_VERSION},
      {"flags", D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0x80000000, nullptr, 0, D3D11_SDK_VERSION},
      {"levels without a count", D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, &level, 0, D3D11_SDK_VERSION},
      {"a count without levels", D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, nullptr, 1, D3D11_SDK_VERSION},
      {"version", D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION - 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    ComPtr<ID3D11Device> device;
    ComPtr<ID3D11DeviceContext> context;
    EXPECT_EQ(D3D11CreateDevice(raw.adapter.Get(), row.type, row.software, row.flags, row.levels,
                                row.level_count, row.version, device.ReleaseAndGetAddressOf(), nullptr,
                                context.ReleaseAndGetAddressOf()),
              E_INVALIDARG);
    ExpectMisuse(DesktopMisuse::DeviceArguments);
  }
}

TEST_F(OutputChecks, FrameMustBeReleasedOnceBeforeTheNextIsAcquired) {
  RawDesktop raw = OpenDuplicated();
  EXPECT_EQ(raw.duplication->ReleaseFrame(), DXGI_ERROR_INVALID_CALL);
  ExpectMisuse(DesktopMisuse::NoFrameHeld);
  EXPECT_EQ(raw.Acquire(), S_OK);
  EXPECT_EQ(raw.Acquire(), DXGI_ERROR_INVALID_CALL);
  ExpectMisuse(DesktopMisuse::FrameNotReleased);
  EXPECT_EQ(raw.duplication->ReleaseFrame(), S_OK);
  EXPECT_EQ(raw.duplication->ReleaseFrame(), DXGI_ERROR_INVALID_CALL);
  ExpectMisuse(DesktopMisuse::NoFrameHeld);
  EXPECT_EQ(raw.Acquire(), S_OK);
  EXPECT_EQ(board_.frames, 2);
}

TEST_F(OutputChecks, LostDuplicationStaysLost) {
  RawDesktop raw = OpenDuplicated();
  board_.acquire_result = DXGI_ERROR_ACCESS_LOST;
  EXPECT_EQ(raw.Acquire(), DXGI_ERROR_ACCESS_LOST);
  board_.acquire_result = 0;
  for (const bool still : {false, true}) {
    board_.still = still;
    EXPECT_EQ(raw.Acquire(), DXGI_ERROR_ACCESS_LOST);
  }
  board_.still = 0;
  raw.duplication.Reset();
  EXPECT_EQ(raw.Duplicate(raw.device.Get()), S_OK);
  EXPECT_EQ(raw.Acquire(), S_OK);
}

TEST_F(OutputChecks, OtherFailureOfAFrameDoesNotLoseTheDuplication) {
  RawDesktop raw = OpenDuplicated();
  board_.acquire_result = E_FAIL;
  EXPECT_EQ(raw.Acquire(), E_FAIL);
  board_.acquire_result = 0;
  EXPECT_EQ(raw.Acquire(), S_OK);
}

TEST_F(OutputChecks, ChangedModeOrDetachedOutputLosesTheDuplicationAlsoWhileAFrameIsHeld) {
  RawDesktop raw = OpenDuplicated();
  EXPECT_EQ(raw.Acquire(), S_OK);
  board_.outputs[0].width = 640;
  EXPECT_EQ(raw.duplication->ReleaseFrame(), DXGI_ERROR_ACCESS_LOST);
  board_.outputs[0].width = 320;
  EXPECT_EQ(raw.Acquire(), DXGI_ERROR_ACCESS_LOST);

  raw.duplication.Reset();
  EXPECT_EQ(raw.Duplicate(raw.device.Get()), S_OK);
  board_.outputs[0].unattached = 1;
  EXPECT_EQ(raw.Acquire(), DXGI_ERROR_ACCESS_LOST);
}

TEST_F(OutputChecks, UnchangedDesktopTimesOut) {
  RawDesktop raw = OpenDuplicated();
  board_.still = 1;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(raw.Acquire(30), DXGI_ERROR_WAIT_TIMEOUT);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_EQ(raw.Acquire(0), DXGI_ERROR_WAIT_TIMEOUT);
  EXPECT_EQ(board_.time_outs, 2);
  board_.still = 0;
  EXPECT_EQ(raw.Acquire(0), S_OK);
}

TEST_F(OutputChecks, FramesComeAtTheRefreshRateAndAreMergedIfTheyAreNotAcquired) {
  constexpr auto kInterval = std::chrono::milliseconds(100);
  board_.refresh_rate = 10;
  RawDesktop raw = OpenDuplicated();
  const auto start = std::chrono::steady_clock::now();
  // The third of three frames comes more than one interval after the first, and no frame comes twice.
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(raw.Acquire(INFINITE), S_OK);
    EXPECT_EQ(raw.duplication->ReleaseFrame(), S_OK);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, kInterval);
  // At most one of two calls without a pause meets the end of an interval.
  EXPECT_TRUE(raw.Acquire(0) == DXGI_ERROR_WAIT_TIMEOUT ||
              (raw.duplication->ReleaseFrame() == S_OK && raw.Acquire(0) == DXGI_ERROR_WAIT_TIMEOUT));

  board_.still = 1;
  EXPECT_EQ(raw.Acquire(350), DXGI_ERROR_WAIT_TIMEOUT);  // at least three intervals
  board_.still = 0;
  DXGI_OUTDUPL_FRAME_INFO info = {};
  ComPtr<IDXGIResource> resource;
  EXPECT_EQ(raw.duplication->AcquireNextFrame(0, &info, resource.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_GE(info.AccumulatedFrames, 3u);
}

TEST_F(OutputChecks, PictureOfATurnedOutputLiesOnItsSide) {
  const struct {
    DXGI_MODE_ROTATION rotation;
    UINT width, height;
  } rows[] = {{DXGI_MODE_ROTATION_IDENTITY, 180, 320},
              {DXGI_MODE_ROTATION_ROTATE90, 320, 180},
              {DXGI_MODE_ROTATION_ROTATE180, 180, 320},
              {DXGI_MODE_ROTATION_ROTATE270, 320, 180}};
  set_outputs({{0, 0, 180, 320}});
  for (const auto& row : rows) {
    board_.outputs[0].rotation = row.rotation;
    RawDesktop raw = OpenDuplicated();
    DXGI_OUTPUT_DESC output = {};
    EXPECT_EQ(raw.output->GetDesc(&output), S_OK);
    EXPECT_EQ(output.Rotation, row.rotation);
    EXPECT_EQ(output.DesktopCoordinates.right, 180);
    EXPECT_EQ(output.DesktopCoordinates.bottom, 320);
    DXGI_OUTDUPL_DESC duplicated = {};
    raw.duplication->GetDesc(&duplicated);
    EXPECT_EQ(duplicated.Rotation, row.rotation);
    EXPECT_EQ(duplicated.ModeDesc.Width, row.width);
    EXPECT_EQ(raw.Acquire(), S_OK);
    D3D11_TEXTURE2D_DESC picture = {};
    raw.picture->GetDesc(&picture);
    EXPECT_EQ(picture.Width, row.width);
    EXPECT_EQ(picture.Height, row.height);
  }
}

}  // namespace
}  // namespace vlk::test
