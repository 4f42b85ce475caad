// Cost of one frame of the stream, for each step and for the whole worker, on a desktop that changes all the
// time: H.264 at 1920x1080 and JPEG at 1280x720. The duplication and the H.264 encoder are the tests'
// doubles, the JPEG encoder and the GDI copy of the screen are the system's, and the network is TLS over
// loopback. `./dev bench stream` runs it on a desk. Each step's time is given as wall time and as the
// thread's CPU time.
#include <windows.h>

#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/windows/cost_win32.h"
#include "bench/windows/loopback_link_win32.h"
#include "bench/windows/painted_desktop_win32.h"
#include "bench/windows/stream_cost_win32.h"
#include "platform/threads/com_apartment.h"
#include "stream/encode/colour.h"
#include "stream/encode/jpeg_encoder.h"
#include "stream/streamer.h"
#include "tests/doubles/board_win32.h"
#include "tests/doubles/boards.h"
#include "tests/doubles/scripted_picture.h"
#include "tests/windows/stream/encode/transforms/h264_double.h"

namespace {

using namespace vlk;
using namespace vlk::agent;
using namespace vantelink_bench;
using Bytes = std::vector<std::uint8_t>;

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kJpegWidth = 1280, kJpegHeight = 720;

template <typename Step>
void report(const char* name, Step step) {
  const Cost cost = cost_of(step);
  std::printf("%-38s %8.2f %8.2f\n", name, cost.wall, cost.cpu);
}

// Creates a board for the desktop double: one output that has changed whenever a frame is asked for.
vantelink_doubles::DesktopBoard& set_desktop() {
  char folder[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, folder);
  const std::string path = std::string(folder) + "desktop.board";
  using vantelink_doubles::DesktopBoard;
  std::ofstream(path, std::ios::binary)
      .write(std::string(sizeof(DesktopBoard), '\0').data(), sizeof(DesktopBoard));
  SetEnvironmentVariableA(vantelink_doubles::kDesktopBoardVariable, path.c_str());
  static DesktopBoard unused = {};
  DesktopBoard& board = vantelink_doubles::map_board(vantelink_doubles::kDesktopBoardVariable, unused);
  board.output_count = 1;
  board.outputs[0].width = kWidth;
  board.outputs[0].height = kHeight;
  board.refresh_rate = 1000000;
  return board;
}

int count_changes(const Bytes& before, const Bytes& after) {
  int changes = 0;
  for (std::size_t i = 0; i < before.size(); ++i)
    changes += before[i] != after[i] ? 1 : 0;
  return changes;
}

bool report_steps(LoopbackLink& link) {
  const ComApartment apartment;
  ScreenCapturer capturer;
  CursorOverlay overlay;
  H264Encoder encoder;
  if (!capturer.Open(0) || !encoder.Init(kWidth, kHeight, 30, kBitrate)) return false;
  std::printf("%-38s %8s %8s\n", "1920x1080, one frame", "wall ms", "CPU ms");
  Bytes painted(std::size_t{kWidth} * kHeight * 4);
  std::uint32_t number = 0;
  report("(painting by the double, in capture)",
         [&] { vantelink_doubles::paint_picture(painted.data(), kWidth, kHeight, kWidth * 4, ++number, 0); });
  CapturedFrame frame;
  report("capture, painting included", [&] {
    frame.pixels.clear();  // keeps the memory, as the worker does
    capturer.AcquireFrame(frame, 0);
  });
  if (frame.width != kWidth) return false;
  const Bytes bare = frame.pixels;
  report("pointer", [&] { overlay.Draw(frame, 0, 0); });
  std::printf("  (it changed %d bytes)\n", count_changes(bare, frame.pixels));
  Bytes nv12(std::size_t{kWidth} * kHeight + ChromaCapacity(kWidth, kHeight));
  report("conversion", [&] {
    ConvertBgraToNv12(frame.pixels.data(), kWidth, kHeight, frame.stride, nv12.data(),
                      nv12.data() + std::size_t{kWidth} * kHeight);
  });
  Bytes out;
  std::size_t produced = 0;
  report("capture and encoding, conversion included", [&] {
    frame.pixels.clear();
    capturer.AcquireFrame(frame, 0);
    out.clear();
    encoder.Encode(frame, out, false);
    produced += out.size();
  });
  const Bytes message(produced / kRounds);
  std::printf("  (%zu bytes a frame)\n", message.size());
  report("sending", [&] { link.Send(Msg::StreamFrame, message.data(), message.size(), kBinaryPayload); });
  return true;
}

bool report_jpeg_steps(LoopbackLink& link) {
  const ComApartment apartment;
  ScreenCapturer capturer;
  CursorOverlay overlay;
  if (!capturer.Open(0)) return false;
  std::printf("\n%-38s %8s %8s\n", "JPEG, 1280x720, one frame", "wall ms", "CPU ms");
  CapturedFrame frame;
  report("capture by GDI", [&] {
    frame.pixels.clear();
    capturer.CaptureGdi(frame);
  });
  report("capture by duplication", [&] {
    frame.pixels.clear();
    capturer.AcquireFrame(frame, 0);
  });
  if (frame.width != kJpegWidth) return false;
  report("pointer", [&] { overlay.Draw(frame, 0, 0); });
  std::vector<std::uint8_t> file;
  report("encoding", [&] {
    file = EncodeJpeg(frame.pixels.data(), frame.width, frame.height,
                      static_cast<std::uint32_t>(frame.stride), kQuality);
  });
  std::printf("  (%zu bytes a frame)\n", file.size());
  report("sending", [&] { link.Send(Msg::StreamFrame, file.data(), file.size(), kBinaryPayload); });
  return !file.empty();
}

bool report_whole(LoopbackLink& link, const char* codec) {
  const std::optional<StreamCost> cost = cost_of_stream(link, codec);
  if (!cost) return false;
  std::printf("the whole worker: %.1f frames a second, %.2f ms wall and %.2f ms CPU a frame, %s\n",
              cost->frames_per_second, cost->frame.wall, cost->frame.cpu, cost->announced.c_str());
  return true;
}

}  // namespace

int main() {
  vantelink_doubles::DesktopBoard& desktop = set_desktop();
  test::Double& transforms = test::the_double();
  SetCursorPos(100, 100);
  const PaintedDesktop painted;
  LoopbackLink link;
  if (!link.connected()) {
    std::puts("the TLS connection failed");
    return 1;
  }
  for (const wchar_t* const kind : {L"sync", L"async"}) {
    if (!transforms.Register(kind)) {
      std::puts("the H.264 double could not be registered");
      return 1;
    }
    std::printf("\nH.264 double: %ls\n", kind);
    bool opened = false;
    std::thread([&] { opened = report_steps(link); }).join();
    if (!opened || !report_whole(link, "h264")) {
      std::puts("the stream on the doubles failed");
      return 1;
    }
  }
  desktop.outputs[0].width = kJpegWidth;
  desktop.outputs[0].height = kJpegHeight;
  bool encoded = false;
  std::thread([&] { encoded = report_jpeg_steps(link); }).join();
  if (!encoded || !report_whole(link, "mjpeg")) {
    std::puts("the JPEG stream failed");
    return 1;
  }
  return 0;
}
