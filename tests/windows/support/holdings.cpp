// Asks the system for the counts.
#include "tests/windows/support/holdings.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace vlk::test {

// Wine's GetGuiResources always returns 0. Under Wine, the used entries in the process's table of GDI handles
// are counted instead. The process environment block points to the table. An entry has 24 bytes and type 0 if
// it is unused.
DWORD gdi_objects() {
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

// Wine's GetProcessHandleCount always returns 0. Under Wine, this process's entries in the system's list of
// all handles are counted instead. The list begins with its length. Entries of 24 bytes follow from byte 8
// on, each beginning with the owner's process id.
DWORD kernel_handles() {
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

Holdings holdings() {
  Holdings held;
  held.gdi = gdi_objects();
  held.handles = kernel_handles();
  return held;
}

Holdings left_open_by(const std::function<void()>& run, int rounds) {
  for (int i = 0; i < 3; ++i)
    run();
  const Holdings before = holdings();
  for (int i = 0; i < rounds; ++i)
    run();
  const Holdings after = holdings();
  return {after.gdi - before.gdi, after.handles - before.handles};
}

}  // namespace vlk::test
