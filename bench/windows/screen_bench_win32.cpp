// Cost of streaming a screen that cannot be duplicated, which the agent then copies by GDI. It tries to open
// the duplication again for each frame, and Wine's renderer decides what that costs. `./dev bench stream`
// runs this program with both renderers. Each line of the output is a name, the wall time and the CPU time in
// milliseconds, or a name and frames a second, separated by tabs.
#include <windows.h>

#include <cstdio>
#include <optional>
#include <string>
#include <thread>

#include "bench/windows/cost_win32.h"
#include "bench/windows/loopback_link_win32.h"
#include "bench/windows/painted_desktop_win32.h"
#include "bench/windows/stream_cost_win32.h"
#include "platform/threads/com_apartment.h"
#include "stream/capture/capture.h"
#include "stream/encode/jpeg_encoder.h"
#include "tests/windows/stream/encode/transforms/h264_double.h"

namespace {

using namespace vlk;
using namespace vlk::agent;
using namespace vantelink_bench;

constexpr int kOpenRounds = 20;
constexpr int kFrames = 60;

void print(const char* name, const Cost& cost) {
  std::printf("%s\t%.2f\t%.2f\n", name, cost.wall, cost.cpu);
}

bool print_steps() {
  const ComApartment apartment;
  ScreenCapturer capturer;
  bool duplicated = false;
  // The renderer draws on threads of its own, so the CPU time is that of the process.
  const double before = process_milliseconds();
  Cost open = cost_of([&] { duplicated = capturer.Open(0); }, kOpenRounds);
  open.cpu = (process_milliseconds() - before) / kOpenRounds;
  if (duplicated) return false;
  print("opening the duplication", open);
  CapturedFrame frame;
  print("capture by GDI", cost_of([&] {
          frame.pixels.clear();
          capturer.CaptureGdi(frame);
        }));
  return !frame.pixels.empty();
}

bool print_stream(LoopbackLink& link, const char* codec, const char* name) {
  const std::optional<StreamCost> cost = cost_of_stream(link, codec, kFrames);
  if (!cost) return false;
  print((std::string(name) + ", one frame").c_str(), cost->frame);
  std::printf("%s, frames a second\t%.1f\n", name, cost->frames_per_second);
  return true;
}

}  // namespace

int main() {
  const PaintedDesktop painted;
  LoopbackLink link;
  if (!link.connected() || !test::the_double().Register(L"sync")) {
    std::fputs("the TLS connection or the H.264 double failed\n", stderr);
    return 1;
  }
  bool captured = false;
  std::thread([&] { captured = print_steps(); }).join();
  if (!captured || !print_stream(link, "h264", "H.264") || !print_stream(link, "mjpeg", "JPEG")) {
    std::fputs("the stream failed, or the screen was duplicated\n", stderr);
    return 1;
  }
  return 0;
}
