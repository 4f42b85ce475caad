// A scripted DXGI and Direct3D: adapters, outputs, a duplication and its textures as small COM objects that
// count their references, record each call and fail on demand. It replaces the system's two entry points.
#pragma once

#include <windows.h>
#include <d3d11.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fail_nth.h"

namespace vlk::test::dxgi {

struct Output {
  RECT area;
  bool attached;
};

struct Call {
  std::string name;
  std::vector<std::int64_t> arguments;
  bool operator==(const Call&) const = default;
};

// The scripted machine, and a record of the calls made to it.
struct Machine {
  std::vector<std::vector<Output>> adapters;
  UINT width = 8, height = 4, pitch = 32;          // the mapped desktop texture; pitch in bytes
  std::vector<std::uint8_t> memory;                // `height` rows of `pitch` bytes
  std::map<std::string, HRESULT> failures;         // results of failing calls, by the call's name
  vantelink_test::FailNth* nth_failure = nullptr;  // chooses the call that fails with E_FAIL
  bool null_resource = false;                      // acquired frames have no resource
  int live = 0;                                    // objects that are not released
  std::vector<Call> calls;
  D3D11_TEXTURE2D_DESC staging = {};

  // Records a call that may fail, and returns its result.
  HRESULT Step(const std::string& name, std::vector<std::int64_t> arguments = {});
  // Records a call that cannot fail.
  void Note(const std::string& name, std::vector<std::int64_t> arguments = {});
  std::vector<std::string> Names() const;
  int Count(const std::string& name) const;
};

extern Machine machine;

}  // namespace vlk::test::dxgi
