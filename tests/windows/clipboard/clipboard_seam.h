// The clipboard's system calls, controlled by a test: each call is recorded and passed on to the real
// clipboard, or fails on demand, also as a counted call (counted_calls.h). The tick count changes only when
// the test sets it.
#pragma once

#include <windows.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace clip {

using Lines = std::vector<std::string>;

struct Script {
  DWORD tick = 100'000;
  bool refuse_open = false, refuse_set = false, refuse_data = false, refuse_lock = false;
  std::size_t refuse_memory = ~std::size_t{0};  // a request for this number of bytes fails
  DWORD most_read = ~DWORD{0};                  // the largest number of bytes that one read returns
  bool refuse_read = false;
  bool refuse_stream = false, refuse_size = false;  // creating a stream over memory, and querying its size
  // Reading a stream over memory: the largest number of bytes that one read returns, and reads that fail.
  ULONG most_streamed = ~ULONG{0};
  bool refuse_stream_read = false;
  // The image library: no access to pixels, no encoders, no saving to a stream.
  bool refuse_pixels = false, no_encoders = false, refuse_save = false;

  Lines calls;
  std::map<HGLOBAL, std::size_t> memory;  // allocated blocks that were not freed, with their sizes
  std::set<HGLOBAL> given;                // those that the clipboard or a stream owns
  UINT memory_flags = GMEM_MOVEABLE;      // flags of all allocations, or the last flags that differ
  // Offset of the pixels in the last bitmap that the image library received.
  std::ptrdiff_t pixel_offset = -1;
};
extern Script script;

// Adds a line to the recorded calls.
void note(std::string line);

}  // namespace clip
