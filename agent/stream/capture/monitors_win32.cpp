// The monitor list from DXGI, and thumbnails copied from the screen and scaled with GDI.
#include "stream/capture/monitors.h"

#include "stream/capture/outputs_win32.h"
#include "stream/capture/screen_copy_win32.h"

namespace vlk::agent {
namespace {

// Copies one monitor's pixels, scaled down. A failed copy gives a black picture.
MonitorThumbnail capture_thumbnail(HDC screen, const MonitorInfo& monitor, std::int32_t max_dimension) {
  const ThumbnailSize size = FitThumbnail(monitor.width, monitor.height, max_dimension);
  MonitorThumbnail thumbnail;
  thumbnail.id = monitor.id;
  thumbnail.width = size.width;
  thumbnail.height = size.height;

  copy_screen(screen, size.width, size.height, thumbnail.pixels, [&](HDC memory) {
    SetStretchBltMode(memory, HALFTONE);  // keeps text legible at this size
    StretchBlt(memory, 0, 0, size.width, size.height, screen, monitor.left, monitor.top, monitor.width,
               monitor.height, SRCCOPY | CAPTUREBLT);
  });
  return thumbnail;
}

}  // namespace

std::vector<MonitorInfo> EnumerateMonitors() {
  std::vector<MonitorInfo> monitors;
  ComPtr<IDXGIFactory1> factory;
  if (SUCCEEDED(CreateDXGIFactory1(IID_PPV_ARGS(factory.ReleaseAndGetAddressOf())))) {
    WalkAttachedOutputs(
        factory.Get(), [&](std::int32_t number, const auto&, const auto&, const DXGI_OUTPUT_DESC& d) {
          const RECT& area = d.DesktopCoordinates;
          monitors.push_back({number, area.left, area.top, area.right - area.left, area.bottom - area.top,
                              "Display " + std::to_string(number + 1)});
          return false;
        });
  }
  if (monitors.empty()) {
    monitors.push_back({0, 0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), "Primary"});
  }
  return monitors;
}

std::vector<MonitorThumbnail> CaptureThumbnails(std::int32_t max_dimension) {
  const ScreenDc screen;
  std::vector<MonitorThumbnail> thumbnails;
  for (const MonitorInfo& monitor : EnumerateMonitors()) {
    if (monitor.width <= 0 || monitor.height <= 0) continue;
    thumbnails.push_back(capture_thumbnail(screen.get(), monitor, max_dimension));
  }
  return thumbnails;
}

}  // namespace vlk::agent
