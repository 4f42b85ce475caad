// The writer of the memory in mirror_memory.h.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/doubles/mirror_memory.h"

namespace vantelink_doubles {

// In pixels; right and bottom are outside.
struct Rectangle {
  std::int32_t left = 0, top = 0, right = 0, bottom = 0;
};

class PictureFile {
 public:
  // Creates the file; a file of this name is replaced, not changed, because a program may still have it
  // mapped. Throws std::runtime_error on failure.
  PictureFile(const std::string& path, int port);
  ~PictureFile();
  PictureFile(const PictureFile&) = delete;
  PictureFile& operator=(const PictureFile&) = delete;

  // Publishes a picture of this size that differs from the previous one in `changes` only. `draw` gets the
  // picture's pixels with the previous content, which is meaningless if the size differs, and draws the
  // changes. If `draw` returns false, nothing is published, and the next picture has to contain these changes
  // too.
  bool publish(std::int32_t width, std::int32_t height, const std::vector<Rectangle>& changes,
               const std::function<bool(std::uint8_t*)>& draw);

 private:
  std::uint8_t* memory_;
  std::vector<Rectangle> last_changes_;  // of the last published picture
};

// Copies a rectangle between two pictures whose rows have these numbers of pixels and no padding.
void copy_rectangle(std::uint8_t* to, std::int32_t to_width, const std::uint8_t* from,
                    std::int32_t from_width, const Rectangle& at, std::int32_t from_left,
                    std::int32_t from_top);

}  // namespace vantelink_doubles
