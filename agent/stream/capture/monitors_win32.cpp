// The monitor list from DXGI, and thumbnails by a scaled GDI copy of the screen.
#include "platform/win32/handles_win32.h"
#include "stream/capture/monitors.h"
#include "stream/capture/outputs_win32.h"

namespace vlk::agent {
namespace {

// The copied pixels of one monitor, shrunk. No result is looked at: a failed copy gives a black picture.
MonitorThumbnail capture_thumbnail(HDC screen, const MonitorInfo& monitor, std::int32_t max_dimension) {
  const ThumbnailSize size = FitThumbnail(monitor.width, monitor.height, max_dimension);
  MonitorThumbnail thumbnail;
  thumbnail.id = monitor.id;
  thumbnail.width = size.width;
  thumbnail.height = size.height;

  const UniqueMemoryDc memory(CreateCompatibleDC(screen));
  const UniqueBitmap bitmap(CreateCompatibleBitmap(screen, size.width, size.height));
  const Selection selection(memory.get(), bitmap.get());
  SetStretchBltMode(memory.get(), HALFTONE);  // legible at this size
  StretchBlt(memory.get(), 0, 0, size.width, size.height, screen, monitor.left, monitor.top, monitor.width,
             monitor.height, SRCCOPY | CAPTUREBLT);

  BITMAPINFO info = top_down_bitmap(size.width, size.height);
  thumbnail.pixels.resize(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4);
  GetDIBits(memory.get(), bitmap.get(), 0, static_cast<UINT>(size.height), thumbnail.pixels.data(), &info,
            DIB_RGB_COLORS);
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
