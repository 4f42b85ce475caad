// Injects input with SendInput, and the secure-attention sequence with "sas.dll".
#include "input/injector.h"

#include <array>
#include <atomic>

#include "input/batch.h"
#include "platform/debug_log.h"
#include "platform/win32/handles_win32.h"

namespace vlk::agent {
namespace {

constexpr std::size_t kMaxEvents = 255;  // the largest value of a batch's count byte

std::atomic<bool> InputSessionActive{false};

// Four separate values: during a change a reader may see a mix of the old and the new rectangle.
struct {
  std::atomic<std::int32_t> left{0}, top{0}, width{0}, height{0};
} ActiveMonitorRect;

OptionalDebugLog InputDebugLog;

DesktopRect virtual_desktop() {
  const int left = GetSystemMetrics(SM_XVIRTUALSCREEN);
  const int top = GetSystemMetrics(SM_YVIRTUALSCREEN);
  const int width = GetSystemMetrics(SM_CXVIRTUALSCREEN);
  const int height = GetSystemMetrics(SM_CYVIRTUALSCREEN);
  return {left, top, width, height};
}

DesktopRect active_monitor() {
  return {ActiveMonitorRect.left, ActiveMonitorRect.top, ActiveMonitorRect.width, ActiveMonitorRect.height};
}

void log_key(const KeyEvent& key) {
  InputDebugLog.write("[inject] key down=%u vk=0x%X scan=0x%X ext=%u\n", unsigned{key.down}, unsigned{key.vk},
                      unsigned{key.scan}, unsigned{key.ext});
}

INPUT to_system(const InputRecord& record) {
  INPUT input = {};
  if (record.kind == InputKind::Keyboard) {
    input.type = INPUT_KEYBOARD;
    input.ki.wVk = record.vk;
    input.ki.wScan = record.scan;
    input.ki.dwFlags = record.flags;
  } else {
    input.type = INPUT_MOUSE;
    input.mi.dx = record.dx;
    input.mi.dy = record.dy;
    input.mi.mouseData = record.mouse_data;
    input.mi.dwFlags = record.flags;
  }
  return input;
}

}  // namespace

void InjectInputBatch(const unsigned char* payload, std::size_t length) {
  if (!InputSessionActive) {
    InputDebugLog.write("[inject] DROP: session not active\n");
    return;
  }
  if (length == 0) return;
  const auto records = ParseInputBatch(payload, length, {virtual_desktop, active_monitor, log_key});
  if (!records || records->empty()) return;

  // All events are injected in one call, so that no other input comes between them.
  std::array<INPUT, kMaxEvents> inputs = {};
  std::size_t count = 0;
  for (const InputRecord& record : *records)
    inputs[count++] = to_system(record);
  SetLastError(ERROR_SUCCESS);
  const UINT sent = SendInput(static_cast<UINT>(count), inputs.data(), sizeof(INPUT));
  if (sent != count) {
    InputDebugLog.write("[inject] SendInput n=%zu sent=%u err=%lu (BLOCKED?)\n", count, sent, GetLastError());
  } else {
    InputDebugLog.write("[inject] SendInput n=%zu OK\n", count);
  }
}

void SendSecureAttention() {
  using SendSas = void(WINAPI*)(BOOL as_user);
  const UniqueLibrary library(LoadLibraryA("sas.dll"));
  if (!library) {
    InputDebugLog.write("[sas] sas.dll not available\n");
    return;
  }
  // The cast goes through void*, because GCC warns about a direct cast between function types.
  const auto send_sas =
      reinterpret_cast<SendSas>(reinterpret_cast<void*>(GetProcAddress(library.get(), "SendSAS")));
  if (send_sas) {
    send_sas(FALSE);
    InputDebugLog.write("[sas] SendSAS issued\n");
  } else {
    InputDebugLog.write("[sas] SendSAS entrypoint missing\n");
  }
}

void SetInputSessionActive(bool active) {
  InputSessionActive.exchange(active);
}

void SetActiveMonitorRect(std::int32_t left, std::int32_t top, std::int32_t width, std::int32_t height) {
  ActiveMonitorRect.left.exchange(left);
  ActiveMonitorRect.top.exchange(top);
  ActiveMonitorRect.width.exchange(width);
  ActiveMonitorRect.height.exchange(height);
}

}  // namespace vlk::agent
