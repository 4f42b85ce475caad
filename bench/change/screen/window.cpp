// Calls Xlib. An error of the X server ends the program with Xlib's own message.
#include "screen/window.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "support/waiting.h"

namespace vantelink_bench {
namespace {

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// The window that covers the whole screen: Wine's desktop. 0 if there is none.
Window desktop_of(Display* display) {
  Window root = 0, parent = 0, found = 0, *children = nullptr;
  unsigned count = 0;
  XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count);
  for (unsigned i = 0; i < count; ++i) {
    XWindowAttributes window{};
    if (XGetWindowAttributes(display, children[i], &window) != 0 && window.map_state == IsViewable &&
        window.width == DisplayWidth(display, 0) && window.height == DisplayHeight(display, 0))
      found = children[i];
  }
  if (children != nullptr) XFree(children);
  return found;
}

}  // namespace

struct CoveringWindow::State {
  Display* display = nullptr;
  Window window = 0;
  GC context = nullptr;
  bool covered = false;
  XImage* film = nullptr;
  XShmSegmentInfo memory{};
};

CoveringWindow::CoveringWindow(const std::string& display) : state_(std::make_unique<State>()) {
  state_->display = XOpenDisplay(display.c_str());
  require(state_->display != nullptr, "the display cannot be opened");
  Window desktop = 0;
  require(vantelink_test::eventually([&] { return (desktop = desktop_of(state_->display)) != 0; }),
          "Wine's desktop has no window that covers the screen");
  require(DefaultDepth(state_->display, 0) == 24, "the screen has another depth than 24");
  state_->window = XCreateSimpleWindow(state_->display, desktop, 0, 0, static_cast<unsigned>(width()),
                                       static_cast<unsigned>(height()), 0, 0, 0xFFFFFF);
  state_->context = XCreateGC(state_->display, state_->window, 0, nullptr);
  XSelectInput(state_->display, state_->window, VisibilityChangeMask);
  XSetGraphicsExposures(state_->display, state_->context, False);
  XWarpPointer(state_->display, 0, desktop, 0, 0, 0, 0, width() - 1, height() - 1);
  finish();
}

CoveringWindow::~CoveringWindow() {
  if (state_->film != nullptr) {
    XShmDetach(state_->display, &state_->memory);
    state_->film->data = nullptr;  // shared memory, which XDestroyImage must not free
    XDestroyImage(state_->film);
    ::shmdt(state_->memory.shmaddr);
  }
  if (state_->display != nullptr) XCloseDisplay(state_->display);
}

int CoveringWindow::width() const {
  return DisplayWidth(state_->display, 0);
}

int CoveringWindow::height() const {
  return DisplayHeight(state_->display, 0);
}

void CoveringWindow::show() {
  XMapRaised(state_->display, state_->window);
  XSync(state_->display, True);  // discards the reports from the time before
  state_->covered = false;
}

void CoveringWindow::hide() {
  XUnmapWindow(state_->display, state_->window);
  finish();
}

void CoveringWindow::fill(std::uint32_t colour) {
  XSetForeground(state_->display, state_->context, colour);
  XFillRectangle(state_->display, state_->window, state_->context, 0, 0, static_cast<unsigned>(width()),
                 static_cast<unsigned>(height()));
}

void CoveringWindow::put(const Pixels& pixels, int left, int top, int width) {
  const int rows = static_cast<int>(pixels.size()) / width;
  // XPutImage only reads the pixels.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
  char* const data = reinterpret_cast<char*>(const_cast<std::uint32_t*>(pixels.data()));
  XImage* const image = XCreateImage(state_->display, DefaultVisual(state_->display, 0), 24, ZPixmap, 0, data,
                                     static_cast<unsigned>(width), static_cast<unsigned>(rows), 32, 0);
  require(image != nullptr, "an image cannot be made");
  XPutImage(state_->display, state_->window, state_->context, image, 0, 0, left, top,
            static_cast<unsigned>(width), static_cast<unsigned>(rows));
  image->data = nullptr;  // the caller's pixels, which XDestroyImage must not free
  XDestroyImage(image);
}

void CoveringWindow::move_up(int top, int height, int rows) {
  XCopyArea(state_->display, state_->window, state_->window, state_->context, 0, top + rows,
            static_cast<unsigned>(width()), static_cast<unsigned>(height - rows), 0, top);
}

void CoveringWindow::store_film(const Pixels& pixels, int width, int height) {
  XShmSegmentInfo& memory = state_->memory;
  const std::size_t size = pixels.size() * sizeof pixels[0];
  memory.shmid = ::shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
  require(memory.shmid >= 0, "shared memory cannot be made");
  memory.shmaddr = static_cast<char*>(::shmat(memory.shmid, nullptr, 0));
  memory.readOnly = True;
  std::memcpy(memory.shmaddr, pixels.data(), size);
  XShmAttach(state_->display, &memory);
  finish();
  ::shmctl(memory.shmid, IPC_RMID, nullptr);  // freed when the last program has detached it
  state_->film =
      XShmCreateImage(state_->display, DefaultVisual(state_->display, 0), 24, ZPixmap, memory.shmaddr,
                      &memory, static_cast<unsigned>(width), static_cast<unsigned>(height));
  require(state_->film != nullptr, "an image cannot be made");
}

void CoveringWindow::put_film(int row, int rows, int left, int top) {
  XShmPutImage(state_->display, state_->window, state_->context, state_->film, 0, row, left, top,
               static_cast<unsigned>(state_->film->width), static_cast<unsigned>(rows), False);
}

void CoveringWindow::finish() {
  XSync(state_->display, False);
}

bool CoveringWindow::was_covered() {
  finish();
  while (XPending(state_->display) > 0) {
    XEvent event;
    XNextEvent(state_->display, &event);
    state_->covered |= event.type == VisibilityNotify && event.xvisibility.state != VisibilityUnobscured;
  }
  return state_->covered;
}

vantelink_test::PngPicture CoveringWindow::screen() const {
  XImage* const image =
      XGetImage(state_->display, DefaultRootWindow(state_->display), 0, 0, static_cast<unsigned>(width()),
                static_cast<unsigned>(height()), AllPlanes, ZPixmap);
  require(image != nullptr && image->bits_per_pixel == 32, "the screen cannot be read");
  vantelink_test::PngPicture picture{image->width, image->height, {}};
  for (int y = 0; y < image->height; ++y) {
    const char* const row = image->data + y * image->bytes_per_line;
    for (int x = 0; x < image->width; ++x)
      picture.pixels.append({row[x * 4 + 2], row[x * 4 + 1], row[x * 4], '\xFF'});
  }
  XDestroyImage(image);
  return picture;
}

}  // namespace vantelink_bench
