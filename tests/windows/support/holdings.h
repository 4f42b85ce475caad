// What a process holds of the system, for tests that look for leaks.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include <windows.h>

namespace vlk::test {

// GDI objects of this process. Wine's GetGuiResources always says 0, so there the table of handles is
// counted, which the process's environment block points at: entries of 24 bytes whose type is 0 when unused.
inline DWORD gdi_objects() {
  if (const DWORD count = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS)) return count;
  constexpr std::size_t kEntries = 0x4000, kEntrySize = 24, kTypeOffset = 14, kTableOffset = 0xF8;
  const HMODULE library = GetModuleHandleW(L"ntdll.dll");
  const auto get_block = reinterpret_cast<const std::uint8_t*(WINAPI*)()>(
      reinterpret_cast<void*>(GetProcAddress(library, "RtlGetCurrentPeb")));
  const std::uint8_t* const block = get_block();
  const std::uint8_t* table = nullptr;
  std::memcpy(&table, block + kTableOffset, sizeof(table));
  DWORD count = 0;
  for (std::size_t i = 0; i < kEntries; ++i) {
    std::uint16_t type = 0;
    std::memcpy(&type, table + i * kEntrySize + kTypeOffset, sizeof(type));
    count += type != 0;
  }
  return count;
}

// Kernel handles of this process. Wine's GetProcessHandleCount always says 0, so there the system's list of
// all handles is counted: a number, then from byte 8 on entries of 24 bytes that begin with their owner.
inline DWORD kernel_handles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  if (count != 0) return count;
  constexpr ULONG kAllHandles = 16;
  constexpr std::size_t kHeaderSize = 8, kEntrySize = 24;
  const auto query = reinterpret_cast<LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  std::vector<std::uint8_t> list(1 << 20);
  if (query(kAllHandles, list.data(), static_cast<ULONG>(list.size()), nullptr) < 0) return 0;
  std::uint32_t all = 0;
  std::memcpy(&all, list.data(), sizeof(all));
  for (std::size_t i = 0; i < all; ++i) {
    std::uint32_t owner = 0;
    std::memcpy(&owner, list.data() + kHeaderSize + i * kEntrySize, sizeof(owner));
    count += owner == GetCurrentProcessId();
  }
  return count;
}

// GDI objects and kernel handles that this process holds.
struct Holdings {
  DWORD gdi = 0, handles = 0;
  bool operator==(const Holdings&) const = default;
};

inline Holdings holdings() {
  Holdings held;
  held.gdi = gdi_objects();
  held.handles = kernel_handles();
  return held;
}

}  // namespace vlk::test
