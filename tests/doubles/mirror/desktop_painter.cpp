// Covers an X display with the numbered pictures of scripted_picture.h, so that a test or a measurement knows
// what the screen shows.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tests/doubles/scripted_picture.h"

namespace {

constexpr long kNanoseconds = 1000000000;

struct Canvas {
  Display* display;
  Window window;
  XShmSegmentInfo segment;
  XImage* image;
};

// Creates a window above all others that no window manager handles. Its memory is never freed.
bool open_canvas(Canvas& canvas) {
  canvas.display = XOpenDisplay(nullptr);
  if (canvas.display == nullptr || XShmQueryExtension(canvas.display) == 0) return false;
  const int screen = DefaultScreen(canvas.display);
  const auto width = static_cast<unsigned>(DisplayWidth(canvas.display, screen)),
             height = static_cast<unsigned>(DisplayHeight(canvas.display, screen));
  XSetWindowAttributes attributes = {};
  attributes.override_redirect = True;
  canvas.window = XCreateWindow(canvas.display, RootWindow(canvas.display, screen), 0, 0, width, height, 0,
                                CopyFromParent, InputOutput, CopyFromParent, CWOverrideRedirect, &attributes);
  XMapRaised(canvas.display, canvas.window);
  canvas.segment.shmid = ::shmget(IPC_PRIVATE, std::size_t{width} * height * 4, IPC_CREAT | 0600);
  canvas.segment.shmaddr = static_cast<char*>(::shmat(canvas.segment.shmid, nullptr, 0));
  XShmAttach(canvas.display, &canvas.segment);
  XSync(canvas.display, False);
  ::shmctl(canvas.segment.shmid, IPC_RMID, nullptr);
  canvas.image = XShmCreateImage(canvas.display, DefaultVisual(canvas.display, screen), 24, ZPixmap,
                                 canvas.segment.shmaddr, &canvas.segment, width, height);
  return canvas.image != nullptr;
}

void paint(const Canvas& canvas, std::uint32_t number) {
  const auto width = static_cast<unsigned>(canvas.image->width),
             height = static_cast<unsigned>(canvas.image->height);
  vantelink_doubles::paint_picture(reinterpret_cast<std::uint8_t*>(canvas.image->data), width, height,
                                   static_cast<std::size_t>(canvas.image->bytes_per_line), number, 0);
  XShmPutImage(canvas.display, canvas.window, DefaultGC(canvas.display, DefaultScreen(canvas.display)),
               canvas.image, 0, 0, 0, 0, width, height, False);
  XSync(canvas.display, False);
}

int usage() {
  std::fputs(
      "Usage: desktop_painter NUMBER [RATE]\n"
      "Covers the X display DISPLAY with the picture NUMBER, and with RATE shows the next one RATE times a\n"
      "second. Prints \"ready\" after the first picture and runs until killed.\n",
      stderr);
  return 2;
}

}  // namespace

int main(int count, char** words) {
  if (count < 2 || count > 3) return usage();
  auto number = static_cast<std::uint32_t>(std::atoi(words[1]));
  const long rate = count == 3 ? std::atol(words[2]) : 0;
  Canvas canvas = {};
  if (!open_canvas(canvas)) return 1;
  paint(canvas, number);
  std::puts("ready");
  std::fflush(stdout);
  if (rate <= 0) {
    // The picture stays as long as the connection, which nothing but a signal ends.
    for (XEvent event;;)
      XNextEvent(canvas.display, &event);
  }
  timespec due = {};
  ::clock_gettime(CLOCK_MONOTONIC, &due);
  for (;;) {
    due.tv_nsec += kNanoseconds / rate;
    due.tv_sec += due.tv_nsec / kNanoseconds;
    due.tv_nsec %= kNanoseconds;
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
    paint(canvas, ++number);
  }
}
