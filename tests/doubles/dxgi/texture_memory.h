// Memory of a staging texture that ends at an inaccessible page, so that reading one byte after the last row
// ends the process.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace vantelink_doubles {

class TextureMemory {
 public:
  explicit TextureMemory(std::size_t size) {
    constexpr std::size_t kPage = 4096;
    const std::size_t pages = (size + kPage - 1) / kPage * kPage;
    base_ = static_cast<std::uint8_t*>(VirtualAlloc(nullptr, pages + kPage, MEM_RESERVE, PAGE_NOACCESS));
    VirtualAlloc(base_, pages == 0 ? kPage : pages, MEM_COMMIT, PAGE_READWRITE);
    start_ = base_ + pages - size;
  }
  ~TextureMemory() { VirtualFree(base_, 0, MEM_RELEASE); }
  TextureMemory(const TextureMemory&) = delete;
  TextureMemory& operator=(const TextureMemory&) = delete;

  std::uint8_t* get() const { return start_; }

 private:
  std::uint8_t* base_;
  std::uint8_t* start_;
};

}  // namespace vantelink_doubles
