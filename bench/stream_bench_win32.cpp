// Cost of one frame of the stream, for each step and for the whole worker, on a desktop that changes all the
// time: H.264 at 1920x1080 and JPEG at 1280x720. The duplication and the H.264 encoder are the tests'
// doubles, the JPEG encoder and the GDI copy of the screen are the system's, and the network is TLS over
// loopback. `./dev bench stream` runs it on a desk. Each step's time is given as wall time and as the
// thread's CPU time.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "net/socket.h"
#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "platform/threads/com_apartment.h"
#include "platform/win32/gdiplus_win32.h"
#include "platform/win32/handles_win32.h"
#include "stream/encode/colour.h"
#include "stream/encode/jpeg_encoder.h"
#include "stream/streamer.h"
#include "tests/doubles/board_win32.h"
#include "tests/doubles/boards.h"
#include "tests/doubles/scripted_picture.h"
#include "tests/support/certificates.h"
#include "tests/windows/stream/encode/transforms/h264_double.h"
#include "tests/windows/support/painted_window.h"
#include "wire/message_frame.h"

namespace {

using namespace vlk;
using namespace vlk::agent;
using Bytes = std::vector<std::uint8_t>;

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kJpegWidth = 1280, kJpegHeight = 720;
constexpr int kQuality = 70;
constexpr int kRounds = 150;         // the number of calls of each step
constexpr std::int32_t kFps = 2000;  // more than any machine reaches, so that the worker never waits
constexpr std::int32_t kBitrate = 6000000;
constexpr double kMillisecond = 10000;         // one millisecond in the thread clock's units of 100 ns
constexpr std::chrono::seconds kPatience{60};  // the timeout for all frames of one stream
constexpr std::size_t kReadSize = 262144;

// The CPU time of a thread or process, in the kernel and in user mode together. `get_times` is GetThreadTimes
// or GetProcessTimes.
template <typename GetTimes>
double cpu_milliseconds(GetTimes get_times, HANDLE of) {
  FILETIME created, ended, kernel, user;
  get_times(of, &created, &ended, &kernel, &user);
  const auto count = [](const FILETIME& time) {
    return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
  };
  return (count(kernel) + count(user)) / kMillisecond;
}

double thread_milliseconds(HANDLE thread) {
  return cpu_milliseconds(GetThreadTimes, thread);
}

double process_milliseconds() {
  return cpu_milliseconds(GetProcessTimes, GetCurrentProcess());
}

double wall_milliseconds() {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

template <typename Step>
void report(const char* name, Step step) {
  const double wall = wall_milliseconds(), own = thread_milliseconds(GetCurrentThread());
  for (int round = 0; round < kRounds; ++round)
    step();
  std::printf("%-38s %8.2f %8.2f\n", name, (wall_milliseconds() - wall) / kRounds,
              (thread_milliseconds(GetCurrentThread()) - own) / kRounds);
}

// A TLS connection over loopback: the agent's client end, and a server that discards what it reads.
class LoopbackLink {
 public:
  LoopbackLink() : server_(SSL_CTX_new(TLS_server_method())), client_(SSL_CTX_new(TLS_client_method())) {
    start_sockets();
    const vantelink_test::TestAuthority authority;
    const auto identity = authority.issue({"localhost"});
    SSL_CTX_use_certificate(server_.get(), identity.certificate.get());
    SSL_CTX_use_PrivateKey(server_.get(), identity.key.get());
    const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    (void)::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    ::listen(listener, 1);
    int size = sizeof(address);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    socket_ = connect_socket("127.0.0.1", ntohs(address.sin_port));
    send_at_once(socket_);
    peer_ = ::accept(listener, nullptr, nullptr);
    ::closesocket(listener);
    reader_ = std::thread([this] { Read(); });
    connection_ = std::make_unique<TlsConnection>(client_.get(), socket_, "localhost");
    connected_ = connection_->connect();
  }
  ~LoopbackLink() {
    interrupt_socket(socket_);
    reader_.join();
    ::closesocket(peer_);
    end_sockets();
  }
  LoopbackLink(const LoopbackLink&) = delete;
  LoopbackLink& operator=(const LoopbackLink&) = delete;

  bool connected() const { return connected_; }
  bool Send(Msg type, const unsigned char* data, std::size_t length, std::uint8_t flags) {
    const WireBytes frame = encode_message_frame(type, 1, data, length, flags);
    return connection_->write(frame.data.get(), frame.size);
  }
  double reader_milliseconds() { return thread_milliseconds(reader_handle_.get()); }

 private:
  void Read() {
    HANDLE own = nullptr;
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &own, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    reader_handle_.reset(own);
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(server_.get()), &SSL_free);
    SSL_set_fd(ssl.get(), static_cast<int>(peer_));
    if (SSL_accept(ssl.get()) != 1) return;
    Bytes buffer(kReadSize);
    while (SSL_read(ssl.get(), buffer.data(), static_cast<int>(buffer.size())) > 0) {
    }
  }

  SslContext server_, client_;
  SocketHandle socket_ = kInvalidSocket;
  SOCKET peer_ = INVALID_SOCKET;
  UniqueKernelHandle reader_handle_;
  std::thread reader_;
  std::unique_ptr<TlsConnection> connection_;
  bool connected_ = false;
};

// Creates a board for the desktop double: one output that changes all the time.
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
  constexpr int kFrames = 300;
  std::mutex lock;
  std::condition_variable changed;
  int frames = 0;
  std::string announced;
  ScreenStreamer streamer(
      1, [&](Msg type, unsigned, const unsigned char* data, std::size_t length, unsigned char flags) {
        const bool sent = link.Send(type, data, length, flags);
        const std::lock_guard guard(lock);
        if (type == Msg::StreamConfig) announced.assign(reinterpret_cast<const char*>(data), length);
        if (type == Msg::StreamFrame) ++frames;
        changed.notify_all();
        return sent;
      });
  const auto wait_for = [&](int wanted) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, kPatience, [&] { return frames >= wanted; });
  };
  streamer.SetCodec(codec);
  streamer.Start(0, kFps, kQuality, kBitrate);
  if (!wait_for(1)) return false;
  const double wall = wall_milliseconds(), all = process_milliseconds(), reader = link.reader_milliseconds();
  if (!wait_for(kFrames + 1)) return false;
  const double taken = wall_milliseconds() - wall;
  const double own = process_milliseconds() - all - (link.reader_milliseconds() - reader);
  streamer.Stop();
  std::printf("the whole worker: %.1f frames a second, %.2f ms wall and %.2f ms CPU a frame, %s\n",
              kFrames * 1000 / taken, taken / kFrames, own / kFrames, announced.c_str());
  return true;
}

}  // namespace

int main() {
  const Gdiplus::GdiplusStartupInput input;
  ULONG_PTR gdiplus = 0;
  Gdiplus::GdiplusStartup(&gdiplus, &input, nullptr);
  vantelink_doubles::DesktopBoard& desktop = set_desktop();
  test::Double& transforms = test::the_double();
  const test::PaintedWindow window(0, 0, 300, 300, test::pattern, LoadCursorW(nullptr, IDC_ARROW));
  SetCursorPos(100, 100);
  test::pump_messages();
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
