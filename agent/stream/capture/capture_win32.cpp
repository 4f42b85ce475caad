// Screen capture on Windows: DXGI desktop duplication, or GDI where duplication is unavailable.
#include "stream/capture/capture.h"

#include <d3d11.h>

#include <cstring>

#include "platform/debug_log.h"
#include "platform/win32/handles_win32.h"
#include "stream/capture/outputs_win32.h"
#include "stream/capture/screen_copy_win32.h"

namespace vlk::agent {
namespace {

constexpr std::size_t kBytesPerPixel = 4;

void LogCapture(const char* message, std::int32_t code) {
  append_debug_log("capture: %s hr=0x%08lx\n", message, static_cast<unsigned long>(code));
}

// Sets the width, the height and the stride.
void set_size(CapturedFrame& frame, std::uint32_t width, std::uint32_t height) {
  frame.width = width;
  frame.height = height;
  frame.stride = static_cast<std::int32_t>(width * kBytesPerPixel);
}

}  // namespace

// Members are released in the reverse of this order.
struct ScreenCapturer::State {
  ComPtr<ID3D11Device> device;
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<ID3D11Texture2D> staging;  // readable by the CPU; kept while the size stays the same
  UINT staging_width = 0, staging_height = 0;
  ComPtr<IDXGIOutputDuplication> duplication;  // null if not started or ended by the system
  bool frame_held = false;                     // a frame is acquired and not yet released
  std::int32_t width = 0, height = 0, left = 0, top = 0, monitor_index = 0;

  bool StartDuplication(IDXGIAdapter1* adapter, IDXGIOutput* output);
  void ReleaseHeldFrame();
  bool PrepareStaging(D3D11_TEXTURE2D_DESC description);
  bool CopyTexture(ID3D11Texture2D* texture, CapturedFrame& frame);
};

bool ScreenCapturer::State::StartDuplication(IDXGIAdapter1* adapter, IDXGIOutput* output) {
  HRESULT result =
      D3D11CreateDevice(adapter, D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION,
                        device.ReleaseAndGetAddressOf(), nullptr, context.ReleaseAndGetAddressOf());
  if (FAILED(result)) {
    LogCapture("D3D11CreateDevice failed", result);
    return false;
  }
  ComPtr<IDXGIOutput1> output1;
  if (FAILED(output->QueryInterface(IID_PPV_ARGS(output1.ReleaseAndGetAddressOf())))) {
    LogCapture("IDXGIOutput1 QI failed", 0);
    return false;
  }
  result = output1->DuplicateOutput(device.Get(), duplication.ReleaseAndGetAddressOf());
  if (FAILED(result)) {
    LogCapture("DuplicateOutput failed", result);
    return false;
  }
  LogCapture("DXGI duplication started", 0);
  return true;
}

void ScreenCapturer::State::ReleaseHeldFrame() {
  if (!frame_held) return;
  duplication->ReleaseFrame();
  frame_held = false;
}

// Creates a new staging texture if the desktop's size has changed, which can happen while the duplication
// runs.
bool ScreenCapturer::State::PrepareStaging(D3D11_TEXTURE2D_DESC description) {
  if (staging && staging_width == description.Width && staging_height == description.Height) return true;
  description.Usage = D3D11_USAGE_STAGING;
  description.BindFlags = 0;
  description.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
  description.MiscFlags = 0;
  staging.Reset();
  if (FAILED(device->CreateTexture2D(&description, nullptr, staging.ReleaseAndGetAddressOf()))) return false;
  staging_width = description.Width;
  staging_height = description.Height;
  return true;
}

// Copies the texture to `frame`. The pixel format is not checked, because duplication delivers four bytes per
// pixel.
bool ScreenCapturer::State::CopyTexture(ID3D11Texture2D* texture, CapturedFrame& frame) {
  D3D11_TEXTURE2D_DESC description = {};
  texture->GetDesc(&description);
  if (!PrepareStaging(description)) return false;

  context->CopyResource(staging.Get(), texture);
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  if (FAILED(context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped))) return false;
  // An invalid result of a driver must lose one frame, not crash the process.
  if (mapped.pData == nullptr || mapped.RowPitch / kBytesPerPixel < description.Width) {
    context->Unmap(staging.Get(), 0);
    return false;
  }
  set_size(frame, description.Width, description.Height);
  frame.pixels.resize(std::size_t{frame.height} * frame.width * kBytesPerPixel);
  const auto* source = static_cast<const std::uint8_t*>(mapped.pData);
  const auto stride = static_cast<std::size_t>(frame.stride);
  if (mapped.RowPitch == stride) {
    std::memcpy(frame.pixels.data(), source, frame.pixels.size());
  } else {
    for (std::size_t row = 0; row < frame.height; ++row) {
      std::memcpy(frame.pixels.data() + row * stride, source + row * mapped.RowPitch, stride);
    }
  }
  context->Unmap(staging.Get(), 0);
  frame.fresh = true;
  return true;
}

ScreenCapturer::ScreenCapturer() : state_(std::make_unique<State>()) {}

ScreenCapturer::~ScreenCapturer() {
  Close();
}

bool ScreenCapturer::Open(std::int32_t monitor_index) {
  worker_thread_.check();
  Close();
  ComPtr<IDXGIFactory1> factory;
  if (FAILED(CreateDXGIFactory1(IID_PPV_ARGS(factory.ReleaseAndGetAddressOf())))) return false;

  ComPtr<IDXGIAdapter1> adapter;
  ComPtr<IDXGIOutput> output;
  RECT area = {};
  const bool found = WalkAttachedOutputs(factory.Get(), [&](std::int32_t number, const auto& its_adapter,
                                                            const auto& its_output, const auto& d) {
    if (number != monitor_index) return false;
    adapter = its_adapter;
    output = its_output;
    area = d.DesktopCoordinates;
    return true;
  });
  if (!found) {
    LogCapture("no attached output for monitor", monitor_index);  // the index is logged as the result code
    return false;
  }

  state_->width = area.right - area.left;
  state_->height = area.bottom - area.top;
  state_->left = area.left;
  state_->top = area.top;
  state_->monitor_index = monitor_index;
  return state_->StartDuplication(adapter.Get(), output.Get());
}

void ScreenCapturer::Close() {
  worker_thread_.check();
  if (state_->duplication) {
    state_->ReleaseHeldFrame();
    state_->duplication.Reset();
  }
  state_->staging.Reset();
  state_->context.Reset();
  state_->device.Reset();
  state_->staging_width = 0;
  state_->staging_height = 0;
}

bool ScreenCapturer::AcquireFrame(CapturedFrame& frame, std::uint32_t timeout_ms) {
  worker_thread_.check();
  if (!state_->duplication) return false;
  state_->ReleaseHeldFrame();

  DXGI_OUTDUPL_FRAME_INFO info = {};
  ComPtr<IDXGIResource> resource;
  const HRESULT result =
      state_->duplication->AcquireNextFrame(timeout_ms, &info, resource.ReleaseAndGetAddressOf());
  if (result == DXGI_ERROR_WAIT_TIMEOUT) {
    frame.fresh = false;
    return false;
  }
  if (FAILED(result)) {
    // The system has ended the duplication. It is released silently and not started again here: the caller
    // then captures with GDI.
    state_->duplication.Reset();
    frame.fresh = false;
    return false;
  }
  state_->frame_held = true;
  if (!resource) return false;
  ComPtr<ID3D11Texture2D> texture;
  if (FAILED(resource->QueryInterface(IID_PPV_ARGS(texture.ReleaseAndGetAddressOf())))) return false;
  return state_->CopyTexture(texture.Get(), frame);
}

bool ScreenCapturer::CaptureGdi(CapturedFrame& frame) {
  worker_thread_.check();
  const int width = state_->width != 0 ? state_->width : GetSystemMetrics(SM_CXSCREEN);
  const int height = state_->height != 0 ? state_->height : GetSystemMetrics(SM_CYSCREEN);

  // If the copy fails, the frame is black and still counts as a frame.
  const ScreenDc screen;
  copy_screen(screen.get(), width, height, frame.pixels, [&](HDC memory) {
    BitBlt(memory, 0, 0, width, height, screen.get(), state_->left, state_->top, SRCCOPY | CAPTUREBLT);
  });
  set_size(frame, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height));
  frame.fresh = true;
  return true;
}

std::int32_t ScreenCapturer::width() const {
  return state_->width;
}

std::int32_t ScreenCapturer::height() const {
  return state_->height;
}

std::int32_t ScreenCapturer::left() const {
  return state_->left;
}

std::int32_t ScreenCapturer::top() const {
  return state_->top;
}

}  // namespace vlk::agent
