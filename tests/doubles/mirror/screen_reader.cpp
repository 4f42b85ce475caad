// Reads a display with the extensions DAMAGE, XFIXES and MIT-SHM. A picture does not contain the pointer,
// because the X server removes it from its memory while it reads pixels.
#include "tests/doubles/mirror/screen_reader.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <vector>

// The macros of these headers must not replace names in the headers above.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>

namespace vantelink_doubles {
namespace {

// With more rectangles, one that contains all is cheaper than a request for each.
constexpr int kMostRectangles = 8;
constexpr int kDepth = 24;

bool request_failed = false;

int note_error(Display*, XErrorEvent*) {
  request_failed = true;
  return 0;
}

[[noreturn]] int end_with_display(Display*) {
  std::_Exit(0);
}

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

Rectangle rectangle_of(const XRectangle& area) {
  return {area.x, area.y, area.x + area.width, area.y + area.height};
}

}  // namespace

struct ScreenReader::State {
  Display* display = XOpenDisplay(nullptr);
  Window root = 0;
  Visual* visual = nullptr;
  XShmSegmentInfo segment = {};
  Damage damage = 0;
  int damage_event = 0;
  std::int32_t width = 0, height = 0;
  bool changed = true;
  bool whole = true;  // the next picture must not rely on the previous one

  void RequireExtensions();
  void AttachMemory();
  void FollowSize(int new_width, int new_height);
  std::vector<Rectangle> TakeChanges();
  bool Fetch(const Rectangle& area, std::uint8_t* pixels);
};

void ScreenReader::State::RequireExtensions() {
  int error = 0, major = 1, minor = 1;
  require(XDamageQueryExtension(display, &damage_event, &error) != 0 &&
              XDamageQueryVersion(display, &major, &minor) != 0,
          "the display has no extension DAMAGE");
  major = 2;
  minor = 0;
  require(XFixesQueryVersion(display, &major, &minor) != 0, "the display has no extension XFIXES");
  require(XShmQueryExtension(display) != 0, "the display has no extension MIT-SHM");
}

void ScreenReader::State::AttachMemory() {
  segment.shmid = ::shmget(IPC_PRIVATE, kMirrorSlotSize, IPC_CREAT | 0600);
  require(segment.shmid >= 0, "cannot create shared memory");
  segment.shmaddr = static_cast<char*>(::shmat(segment.shmid, nullptr, 0));
  XShmAttach(display, &segment);
  XSync(display, False);
  // The system removes the memory when the display and this process have detached it.
  ::shmctl(segment.shmid, IPC_RMID, nullptr);
  require(!request_failed, "the display cannot attach shared memory");
}

void ScreenReader::State::FollowSize(int new_width, int new_height) {
  if (new_width == width && new_height == height) return;
  require(static_cast<std::size_t>(new_width) * static_cast<std::size_t>(new_height) * kMirrorPixelSize <=
              kMirrorSlotSize,
          "the screen is too large for the mirror");
  width = new_width;
  height = new_height;
  changed = whole = true;
}

// Empties the list of changes that the display keeps, so that it reports the next change again.
std::vector<Rectangle> ScreenReader::State::TakeChanges() {
  const XserverRegion region = XFixesCreateRegion(display, nullptr, 0);
  XDamageSubtract(display, damage, 0, region);
  int count = 0;
  XRectangle bounds = {};
  const std::unique_ptr<XRectangle, int (*)(void*)> rectangles(
      XFixesFetchRegionAndBounds(display, region, &count, &bounds), XFree);
  XFixesDestroyRegion(display, region);
  if (whole) return {{0, 0, width, height}};
  std::vector<Rectangle> changes;
  if (count > kMostRectangles) {
    changes.push_back(rectangle_of(bounds));
  } else {
    for (int i = 0; i < count; ++i)
      changes.push_back(rectangle_of(rectangles.get()[i]));
  }
  for (Rectangle& one : changes) {
    one = {std::max(one.left, 0), std::max(one.top, 0), std::min(one.right, width),
           std::min(one.bottom, height)};
  }
  std::erase_if(changes, [](const Rectangle& one) { return one.left >= one.right || one.top >= one.bottom; });
  return changes;
}

bool ScreenReader::State::Fetch(const Rectangle& area, std::uint8_t* pixels) {
  const std::int32_t columns = area.right - area.left, rows = area.bottom - area.top;
  XImage* const image = XShmCreateImage(display, visual, kDepth, ZPixmap, segment.shmaddr, &segment,
                                        static_cast<unsigned>(columns), static_cast<unsigned>(rows));
  if (image == nullptr) return false;
  const bool fetched = XShmGetImage(display, root, image, area.left, area.top, AllPlanes) != 0;
  image->data = nullptr;  // belongs to the segment
  XDestroyImage(image);
  if (fetched) {
    copy_rectangle(pixels, width, reinterpret_cast<const std::uint8_t*>(segment.shmaddr), columns, area, 0,
                   0);
  }
  return fetched;
}

ScreenReader::ScreenReader() : state_(std::make_unique<State>()) {
  State& s = *state_;
  require(s.display != nullptr, "cannot connect to the X display");
  XSetErrorHandler(note_error);
  XSetIOErrorHandler(end_with_display);
  s.RequireExtensions();
  s.root = DefaultRootWindow(s.display);
  XWindowAttributes attributes = {};
  XGetWindowAttributes(s.display, s.root, &attributes);
  s.visual = attributes.visual;
  require(attributes.depth == kDepth && s.visual->red_mask == 0xFF0000 && s.visual->green_mask == 0xFF00 &&
              s.visual->blue_mask == 0xFF && ImageByteOrder(s.display) == LSBFirst,
          "the display's pixels are not blue, green, red and an unused byte");
  s.AttachMemory();
  XSelectInput(s.display, s.root, StructureNotifyMask);
  s.damage = XDamageCreate(s.display, s.root, XDamageReportNonEmpty);
  s.FollowSize(attributes.width, attributes.height);
}

ScreenReader::~ScreenReader() {
  XCloseDisplay(state_->display);
  ::shmdt(state_->segment.shmaddr);
}

int ScreenReader::descriptor() const {
  return ConnectionNumber(state_->display);
}

bool ScreenReader::changed() const {
  return state_->changed;
}

void ScreenReader::read_events() {
  State& s = *state_;
  while (XPending(s.display) > 0) {
    XEvent event;
    XNextEvent(s.display, &event);
    if (event.type == s.damage_event + XDamageNotify) {
      s.changed = true;
    } else if (event.type == ConfigureNotify && event.xconfigure.window == s.root) {
      s.FollowSize(event.xconfigure.width, event.xconfigure.height);
    }
  }
}

void ScreenReader::publish(PictureFile& file) {
  State& s = *state_;
  s.changed = false;  // changes that are drawn from here on are reported again
  const std::vector<Rectangle> changes = s.TakeChanges();
  const bool done = file.publish(s.width, s.height, changes, [&](std::uint8_t* pixels) {
    return std::all_of(changes.begin(), changes.end(),
                       [&](const Rectangle& one) { return s.Fetch(one, pixels); });
  });
  s.whole = s.changed = !done;
}

}  // namespace vantelink_doubles
