// The records that reach SendInput, byte for byte, the log lines, and real input in a window.
#include "input/injector.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "tests/windows/support/debug_log_file.h"
#include "tests/windows/support/painted_window.h"
#include "tests/windows/support/seam.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Script {
  bool scripted = false;  // if false, calls reach the system
  std::map<int, int> metrics;
  std::vector<int> metrics_read;
  std::vector<Bytes> sent;  // one entry per call
  int record_size = 0;
  UINT accept = 0xFFFFFFFF;  // largest number of records that the system accepts
  DWORD error = 0;
  DWORD error_before = 77;  // GetLastError() when SendInput is called
};
Script script;

UINT WINAPI send_input(UINT count, LPINPUT inputs, int size) {
  static auto* const system = vlk::test::real<decltype(send_input)>("user32.dll", "SendInput");
  script.error_before = GetLastError();
  script.record_size = size;
  const auto* first = reinterpret_cast<unsigned char*>(inputs);
  script.sent.emplace_back(first, first + count * static_cast<UINT>(size));
  if (!script.scripted) return system(count, inputs, size);
  SetLastError(script.error);
  return count < script.accept ? count : script.accept;
}

int WINAPI get_system_metrics(int index) {
  static auto* const system = vlk::test::real<decltype(get_system_metrics)>("user32.dll", "GetSystemMetrics");
  if (!script.scripted) return system(index);
  script.metrics_read.push_back(index);
  return script.metrics[index];
}

// The variable is set before main, because the agent reads it once per process. Any value enables the log.
const bool log_requested = _putenv("VLK_DEBUG_INPUT=0") == 0;

}  // namespace

extern "C" {
void* __imp_SendInput = reinterpret_cast<void*>(send_input);
void* __imp_GetSystemMetrics = reinterpret_cast<void*>(get_system_metrics);
}

namespace vlk::agent {
namespace {

void put(Bytes& bytes, std::size_t offset, std::uint32_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    bytes[offset + i] = static_cast<unsigned char>(value >> 8 * i);
}

// INPUT records in the documented layout: 40 bytes, with the type at offset 0 and the type's members from
// offset 8 on.
Bytes mouse_record(std::int32_t dx, std::int32_t dy, std::int32_t data, std::uint32_t flags) {
  Bytes record(40);
  put(record, 8, static_cast<std::uint32_t>(dx), 4);
  put(record, 12, static_cast<std::uint32_t>(dy), 4);
  put(record, 16, static_cast<std::uint32_t>(data), 4);
  put(record, 20, flags, 4);
  return record;
}

Bytes key_record(std::uint16_t vk, std::uint16_t scan, std::uint32_t flags) {
  Bytes record(40);
  put(record, 0, 1, 4);
  put(record, 8, vk, 2);
  put(record, 10, scan, 2);
  put(record, 12, flags, 4);
  return record;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class Injector : public testing::Test {
 protected:
  void SetUp() override {
    script = Script();
    script.scripted = true;
    script.metrics = {{SM_XVIRTUALSCREEN, 0},
                      {SM_YVIRTUALSCREEN, 0},
                      {SM_CXVIRTUALSCREEN, 3840},
                      {SM_CYVIRTUALSCREEN, 1080}};
    test::remove_debug_log();
    SetInputSessionActive(true);
    SetActiveMonitorRect(0, 0, 1920, 1080);
  }
  void TearDown() override {
    script = Script();
    SetInputSessionActive(false);
    SetActiveMonitorRect(0, 0, 0, 0);
    test::remove_debug_log();
  }

  static void Inject(const Bytes& payload) { InjectInputBatch(payload.data(), payload.size()); }

  static void ExpectSent(const Bytes& payload, const Bytes& records) {
    script.sent.clear();
    Inject(payload);
    ASSERT_EQ(script.sent.size(), 1u);
    EXPECT_EQ(script.sent[0], records);
  }

  static void ExpectNothingSent(const Bytes& payload) {
    script.sent.clear();
    Inject(payload);
    EXPECT_TRUE(script.sent.empty());
  }
};

TEST_F(Injector, PointerMoveUsesTheCurrentScreenMetrics) {
  // 32758 is 1919 * 65535 / 3839, and 65535 is 1079 * 65535 / 1079.
  ExpectSent({1, 1, 0xFF, 0x7F, 0xFF, 0x7F}, mouse_record(32758, 65535, 0, 0xC001));
  EXPECT_EQ(script.record_size, 40);
  EXPECT_EQ(script.metrics_read, (std::vector<int>{76, 77, 78, 79}));
  script.metrics[SM_CXVIRTUALSCREEN] = 1920;
  ExpectSent({1, 1, 0xFF, 0x7F, 0x00, 0x00}, mouse_record(65535, 0, 0, 0xC001));
  script.metrics_read.clear();
  Inject({2, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0});
  EXPECT_EQ(script.metrics_read.size(), 8u);
}

TEST_F(Injector, LeftEdgeOfAMonitorLeftOfThePrimaryIsInjectedAsZero) {
  script.metrics[SM_XVIRTUALSCREEN] = -1920;
  SetActiveMonitorRect(-1920, 0, 1920, 1080);
  ExpectSent({1, 1, 0, 0, 0, 0}, mouse_record(0, 0, 0, 0xC001));
}

TEST_F(Injector, MonitorRectangleWithoutAreaMeansTheWholeVirtualDesktop) {
  SetActiveMonitorRect(500, 300, 0, 1080);
  ExpectSent({1, 1, 0xFF, 0x7F, 0xFF, 0x7F}, mouse_record(65535, 65535, 0, 0xC001));
  SetActiveMonitorRect(500, 300, 1920, 0);
  ExpectSent({1, 1, 0xFF, 0x7F, 0xFF, 0x7F}, mouse_record(65535, 65535, 0, 0xC001));
}

TEST_F(Injector, ButtonAndWheelEventsHaveNoPosition) {
  const struct {
    unsigned char button, pressed;
    std::uint32_t flags;
  } rows[] = {{1, 1, 0x02}, {1, 0, 0x04}, {2, 200, 0x08}, {2, 0, 0x10}, {3, 1, 0x20}, {3, 0, 0x40}};
  for (const auto& row : rows)
    ExpectSent({1, 2, row.button, row.pressed}, mouse_record(0, 0, 0, row.flags));
  ExpectSent({1, 3, 0x88, 0xFF}, mouse_record(0, 0, -120, 0x0800));
  ExpectSent({1, 3, 0x78, 0x00}, mouse_record(0, 0, 120, 0x0800));
}

TEST_F(Injector, KeyEventsHaveAVirtualKeyOrAUnicodeUnit) {
  ExpectSent({1, 4, 1, 0x41, 0x00, 0x1E, 0x00, 0}, key_record(0x41, 0x1E, 0));
  ExpectSent({1, 4, 0, 0x41, 0x00, 0x1E, 0x00, 0}, key_record(0x41, 0x1E, 2));
  ExpectSent({1, 4, 1, 0x25, 0x00, 0x4B, 0xE0, 1}, key_record(0x25, 0xE04B, 1));
  ExpectSent({1, 4, 0, 0x25, 0x00, 0x4B, 0x00, 3}, key_record(0x25, 0x4B, 3));
  ExpectSent({1, 4, 1, 0x41, 0x42, 0xFE, 0x00, 2}, key_record(0, 0xFE, 4));
  ExpectSent({1, 4, 0, 0x41, 0x42, 0x3D, 0xD8, 2}, key_record(0, 0xD83D, 6));
}

TEST_F(Injector, EventsOfABatchAreInjectedInOneCallInWireOrder) {
  ExpectSent({4, 1, 0, 0, 0, 0, 2, 1, 1, 2, 1, 0, 4, 1, 0x0D, 0, 0x1C, 0, 0},
             mouse_record(0, 0, 0, 0xC001) + mouse_record(0, 0, 0, 2) + mouse_record(0, 0, 0, 4) +
                 key_record(0x0D, 0x1C, 0));
}

TEST_F(Injector, LargestBatchIsInjectedInOneCall) {
  Bytes payload = {255};
  Bytes records;
  for (int i = 0; i < 255; ++i) {
    payload = payload + Bytes{3, static_cast<unsigned char>(i), 0};
    records = records + mouse_record(0, 0, i, 0x0800);
  }
  ExpectSent(payload, records);
}

TEST_F(Injector, CountInABatchMayDifferFromItsNumberOfEvents) {
  ExpectNothingSent({0, 2, 1, 1, 2, 1, 0});
  ExpectSent({3, 2, 1, 1, 2, 1, 0}, mouse_record(0, 0, 0, 2) + mouse_record(0, 0, 0, 4));
  EXPECT_EQ(test::debug_log(), "[inject] SendInput n=2 OK\n");
  ExpectSent({1, 2, 1, 1, 2, 1, 0}, mouse_record(0, 0, 0, 2));
  ExpectNothingSent({5});
}

TEST_F(Injector, UnknownOrTruncatedEventSilentlyDiscardsTheBatch) {
  ExpectNothingSent({2, 1, 0, 0, 0, 0, 9});
  ExpectNothingSent({2, 1, 0, 0, 0, 0, 4, 1, 0x41, 0, 0x1E, 0});
  ExpectNothingSent({2, 2, 1, 1, 0, 0, 0});
  EXPECT_EQ(test::debug_log(), "");
}

TEST_F(Injector, BatchTruncatedAtAnyByteInjectsCompleteEventsOrNothing) {
  const Bytes payload = {4, 1, 0, 0, 0, 0, 2, 1, 1, 3, 120, 0, 4, 1, 0x41, 0, 0x1E, 0, 0};
  const std::map<std::size_t, std::size_t> ends = {{6, 1}, {9, 2}, {12, 3}, {19, 4}};
  for (std::size_t length = 0; length <= payload.size(); ++length) {
    script.sent.clear();
    const Bytes part(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(length));
    Inject(part);
    const auto whole = ends.find(length);
    if (whole == ends.end()) {
      EXPECT_TRUE(script.sent.empty()) << length;
    } else {
      ASSERT_EQ(script.sent.size(), 1u) << length;
      EXPECT_EQ(script.sent[0].size(), whole->second * 40) << length;
    }
  }
}

TEST_F(Injector, UnknownButtonIsSkippedButCountsAsAnEvent) {
  ExpectSent({2, 2, 4, 1, 4, 1, 0x41, 0, 0x1E, 0, 0}, key_record(0x41, 0x1E, 0));
  ExpectSent({1, 2, 1, 1, 2, 4, 1}, mouse_record(0, 0, 0, 2));
  ExpectNothingSent({1, 2, 0, 1});
}

TEST_F(Injector, InputWithoutASessionIsDroppedAndLogged) {
  SetInputSessionActive(false);
  ExpectNothingSent({1, 2, 1, 1});
  ExpectNothingSent({});
  EXPECT_EQ(test::debug_log(), "[inject] DROP: session not active\n[inject] DROP: session not active\n");
  test::remove_debug_log();
  SetInputSessionActive(true);
  ExpectNothingSent({});
  EXPECT_EQ(test::debug_log(), "");
}

TEST_F(Injector, KeyEventsAreLoggedWithTheirRawValuesEvenInADiscardedBatch) {
  ExpectSent({2, 4, 7, 0xCD, 0xAB, 0x1E, 0xE0, 3, 4, 0, 0x41, 0, 0xFE, 0, 2},
             key_record(0xABCD, 0xE01E, 1) + key_record(0, 0xFE, 6));
  EXPECT_EQ(test::debug_log(),
            "[inject] key down=7 vk=0xABCD scan=0xE01E ext=3\n"
            "[inject] key down=0 vk=0x41 scan=0xFE ext=2\n"
            "[inject] SendInput n=2 OK\n");
  test::remove_debug_log();
  ExpectNothingSent({2, 4, 1, 0x41, 0, 0x1E, 0, 0, 9});
  EXPECT_EQ(test::debug_log(), "[inject] key down=1 vk=0x41 scan=0x1E ext=0\n");
}

TEST_F(Injector, PartlyAcceptedBatchIsLoggedWithTheError) {
  script.accept = 1;
  script.error = 5;
  SetLastError(1234);
  Inject({3, 2, 1, 1, 2, 1, 0, 3, 120, 0});
  EXPECT_EQ(test::debug_log(), "[inject] SendInput n=3 sent=1 err=5 (BLOCKED?)\n");
  EXPECT_EQ(script.error_before, 0u);
  EXPECT_EQ(script.sent.size(), 1u);
}

TEST_F(Injector, RealInjectedInputReachesAWindow) {
  script.scripted = false;
  const test::PaintedWindow window(400, 200, 200, 160);
  const int width = GetSystemMetrics(SM_CXSCREEN);
  const int height = GetSystemMetrics(SM_CYSCREEN);
  SetActiveMonitorRect(0, 0, width, height);
  ASSERT_TRUE(test::pump_until([&] { return GetForegroundWindow() == window.handle(); }));
  const auto wire = [](int pixel, int size) {
    return static_cast<std::uint16_t>(pixel * 32767 / (size - 1) + 1);
  };
  const std::uint16_t x = wire(500, width);
  const std::uint16_t y = wire(280, height);
  const auto low = [](std::uint16_t value) { return static_cast<unsigned char>(value); };
  const auto high = [](std::uint16_t value) { return static_cast<unsigned char>(value >> 8); };
  Inject({7, 1,    low(x), high(x), low(y), high(y), 2,    1, 1,    2, 1, 0, 3, 120, 0, 4,    1, 0x41,
          0, 0x1E, 0,      0,       4,      0,       0x41, 0, 0x1E, 0, 0, 4, 1, 0,   0, 0xFE, 0, 2});
  EXPECT_EQ(test::debug_log().substr(test::debug_log().rfind("[inject] SendInput")),
            "[inject] SendInput n=7 OK\n");

  const auto find = [&](UINT id) -> const test::PaintedWindow::Message* {
    for (const auto& message : window.input()) {
      if (message.id == id) return &message;
    }
    return nullptr;
  };
  const auto typed = [&](WPARAM character) {
    for (const auto& message : window.input()) {
      if (message.id == WM_CHAR && message.wparam == character) return true;
    }
    return false;
  };
  EXPECT_TRUE(test::pump_until([&] {
    return find(WM_LBUTTONDOWN) && find(WM_LBUTTONUP) && find(WM_MOUSEWHEEL) && find(WM_KEYUP) &&
           typed('a') && typed(0xFE);
  }));
  const auto* press = find(WM_LBUTTONDOWN);
  ASSERT_NE(press, nullptr);
  EXPECT_NEAR(LOWORD(press->lparam), 100, 1);
  EXPECT_NEAR(HIWORD(press->lparam), 80, 1);
  ASSERT_NE(find(WM_KEYDOWN), nullptr);
  EXPECT_EQ(find(WM_KEYDOWN)->wparam, 0x41u);
}

}  // namespace
}  // namespace vlk::agent
