// The clipboard's system calls as a test controls them: each call is recorded in order and passed on to the
// real clipboard, fails on demand, and the clock stands still.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <windows.h>

namespace clip {

using Lines = std::vector<std::string>;

struct Script {
  DWORD tick = 100'000;
  bool refuse_open = false, refuse_set = false, refuse_data = false;
  std::size_t refuse_memory = ~std::size_t{0};  // a request for this number of bytes fails
  DWORD most_read = ~DWORD{0};                  // bytes that one read returns at most
  bool refuse_read = false;
  bool refuse_stream = false, refuse_size = false;  // a stream over memory, and asking for its size
  bool refuse_pixels = false, no_encoders = false;  // of the image library

  Lines calls;
  std::map<HGLOBAL, std::size_t> memory;  // allocated blocks that were not freed, with their sizes
  UINT memory_flags = GMEM_MOVEABLE;      // of all allocations, or the last other flags
  std::ptrdiff_t pixel_offset = -1;       // of the last bitmap handed to the image library
};
extern Script script;

// Adds a line to the recorded calls.
void note(std::string line);

}  // namespace clip
