// The interfaces of one output, its device and its duplication, for tests that call the duplication double
// without the agent's code.
#pragma once

#include <windows.h>
#include <d3d11.h>
#include <dxgi1_2.h>
#include <wrl/client.h>

#include "tests/windows/stream/duplication/desktop_fixture.h"

namespace vlk::test {

using Microsoft::WRL::ComPtr;
using vantelink_doubles::DesktopMisuse;

// Members are released in the reverse of this order.
struct RawDesktop {
  ComPtr<IDXGIAdapter1> adapter;
  ComPtr<IDXGIOutput> output;
  ComPtr<IDXGIOutput1> output1;
  ComPtr<ID3D11Device> device;
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<IDXGIOutputDuplication> duplication;
  ComPtr<ID3D11Texture2D> picture;  // of the acquired frame

  HRESULT Duplicate(ID3D11Device* with) {
    return output1->DuplicateOutput(with, duplication.ReleaseAndGetAddressOf());
  }

  // Acquires a frame, and stores its texture if there is one.
  HRESULT Acquire(UINT timeout_ms = 1000) {
    DXGI_OUTDUPL_FRAME_INFO info = {};
    ComPtr<IDXGIResource> resource;
    picture.Reset();
    const HRESULT result =
        duplication->AcquireNextFrame(timeout_ms, &info, resource.ReleaseAndGetAddressOf());
    if (SUCCEEDED(result)) resource->QueryInterface(IID_PPV_ARGS(picture.ReleaseAndGetAddressOf()));
    return result;
  }

  // A staging texture that fits the picture.
  D3D11_TEXTURE2D_DESC StagingOfPicture() const {
    D3D11_TEXTURE2D_DESC desc = {};
    picture->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = desc.MiscFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    return desc;
  }

  ComPtr<ID3D11Texture2D> Create(const D3D11_TEXTURE2D_DESC& desc) const {
    ComPtr<ID3D11Texture2D> texture;
    device->CreateTexture2D(&desc, nullptr, texture.ReleaseAndGetAddressOf());
    return texture;
  }
};

class RawDesktopTest : public DesktopDouble {
 protected:
  // The adapter with this number, its first output, and a device on it.
  static RawDesktop Open(UINT adapter = 0) {
    RawDesktop raw;
    ComPtr<IDXGIFactory1> factory;
    CreateDXGIFactory1(IID_PPV_ARGS(factory.ReleaseAndGetAddressOf()));
    factory->EnumAdapters1(adapter, raw.adapter.ReleaseAndGetAddressOf());
    raw.adapter->EnumOutputs(0, raw.output.ReleaseAndGetAddressOf());
    raw.output->QueryInterface(IID_PPV_ARGS(raw.output1.ReleaseAndGetAddressOf()));
    EXPECT_EQ(D3D11CreateDevice(raw.adapter.Get(), D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, nullptr, 0,
                                D3D11_SDK_VERSION, raw.device.ReleaseAndGetAddressOf(), nullptr,
                                raw.context.ReleaseAndGetAddressOf()),
              S_OK);
    return raw;
  }

  static RawDesktop OpenDuplicated(UINT adapter = 0) {
    RawDesktop raw = Open(adapter);
    EXPECT_EQ(raw.Duplicate(raw.device.Get()), S_OK);
    return raw;
  }

  // Expects that this misuse, and no other, was recorded since the last call.
  void ExpectMisuse(DesktopMisuse kind) {
    EXPECT_EQ(board_.misuses, 1);
    EXPECT_EQ(board_.last_misuse, static_cast<std::int32_t>(kind));
    board_.misuses = 0;
  }
};

}  // namespace vlk::test
