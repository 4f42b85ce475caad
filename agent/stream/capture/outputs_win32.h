// Numbers the monitors: enumerates all outputs of all adapters and numbers the outputs that belong to the
// desktop. The monitor list and the capture both use this enumeration, so that a number means the same
// monitor in both. For Windows files only.
#pragma once

#include <windows.h>
#include <dxgi1_2.h>
#include <wrl/client.h>

#include <cstdint>

namespace vlk::agent {

using Microsoft::WRL::ComPtr;

// Calls visit(number, adapter, output, description) for each attached output until a call returns true. The
// numbers start at 0 and continue from one adapter to the next. Returns whether a call returned true.
template <typename Visit>
bool WalkAttachedOutputs(IDXGIFactory1* factory, Visit visit) {
  std::int32_t number = 0;
  ComPtr<IDXGIAdapter1> adapter;
  for (UINT a = 0; SUCCEEDED(factory->EnumAdapters1(a, adapter.ReleaseAndGetAddressOf())); ++a) {
    ComPtr<IDXGIOutput> output;
    for (UINT o = 0; SUCCEEDED(adapter->EnumOutputs(o, output.ReleaseAndGetAddressOf())); ++o) {
      DXGI_OUTPUT_DESC description = {};
      output->GetDesc(&description);
      if (!description.AttachedToDesktop) continue;
      if (visit(number, adapter, output, description)) return true;
      ++number;
    }
  }
  return false;
}

}  // namespace vlk::agent
