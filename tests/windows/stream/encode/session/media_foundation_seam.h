// A scripted Media Foundation: a search that finds what a test sets, and an encoder that records each call,
// fails on demand and returns the samples a test gives it. Samples, buffers and media types are the system's
// own.
#pragma once

#include <windows.h>
#include <mfidl.h>
#include <mfobjects.h>
#include <wrl/client.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/fail_nth.h"

namespace vlk::test::mf {

using Microsoft::WRL::ComPtr;

constexpr UINT32 kHardwareSearch = 0x44, kSoftwareSearch = 0x41;  // flags of MFTEnumEx

// A sample that ProcessOutput returns.
struct Output {
  std::string bytes;
  UINT32 clean_point = 0;
  bool has_clean_point = false;  // whether the sample has the clean-point attribute
  int buffers = 1;               // the first buffer has the bytes, each further buffer one other byte
};

Output plain(const std::string& bytes);
Output key(const std::string& bytes);

// A sample that ProcessInput received.
struct Input {
  std::string bytes;
  LONGLONG time = 0, duration = 0;
};

// The scripted machine, and a record of the calls made to it.
struct Machine {
  bool hardware = false, software = true;  // encoders that the searches find
  bool hardware_async = true;  // whether the hardware encoder is asynchronous; the software encoder is not
  bool has_events = true, has_codec_api = true, has_attributes = true;
  DWORD stream_flags = 0, buffer_size = 4096;  // results of GetOutputStreamInfo
  std::string header = "<sets>";               // sequence header; empty means that there is none
  bool null_sample = false;
  bool memory_short = false;                       // samples and types cannot be created
  DWORD largest_buffer = 64u << 20;                // bytes; larger buffers cannot be created
  std::map<std::string, HRESULT> failures;         // results of failing calls, by the call's name
  vantelink_test::FailNth* nth_failure = nullptr;  // chooses the call that fails with E_FAIL
  std::function<void(Machine&)> on_input;          // called after each accepted input

  std::deque<Output> outputs;
  // When no event is left, GetEvent fails. A real encoder would wait.
  std::deque<MediaEventType> events;

  int live = 0;      // encoders and activation objects that are not released
  int startups = 0;  // MFStartup calls without their MFShutdown
  std::vector<std::string> calls;
  std::vector<Input> inputs;
  // Capacities of the caller's samples; 0 if the caller passed no sample.
  std::vector<DWORD> output_capacities;
  ComPtr<IMFMediaType> output_type, input_type;
  ComPtr<IMFAttributes> encoder_attributes;

  // Records a call and returns its result.
  HRESULT Step(const std::string& name, const std::string& details = {});
  int Count(const std::string& call) const;
};
extern Machine machine;

std::string hex(std::uint64_t number);

}  // namespace vlk::test::mf
