// Boards: records in files that a test and a double inside the agent's process both map. The test sets what
// the machine is and which calls fail, at any time; the double records the calls it receives. A board of
// zeros, like a new file, is a machine that works. Portable: the test is a native program, the double a
// Windows DLL.
#pragma once

#include <atomic>
#include <cstdint>

namespace vantelink_doubles {

// A value that two processes share.
using Cell = std::atomic<std::int32_t>;
static_assert(Cell::is_always_lock_free && sizeof(Cell) == 4);

// Names of the environment variables with the boards' paths, as the Windows program sees them. A double
// without a board uses a zeroed one of its own.
inline constexpr char kDesktopBoardVariable[] = "VANTELINK_DESKTOP_BOARD";
inline constexpr char kCodecBoardVariable[] = "VANTELINK_CODEC_BOARD";

inline constexpr int kMostOutputs = 8;

struct OutputCells {
  Cell adapter;  // outputs of one adapter are adjacent
  Cell unattached;
  Cell left, top, width, height;  // of the desktop rectangle, in pixels
};

enum class DesktopAbsurdity : std::int32_t {
  None,
  ZeroWidth,
  ZeroHeight,
  ShortPitch,   // rows overlap: the pitch is half a row, and the memory ends with the last half row
  NullMemory,   // the mapping succeeds with a null pointer
  NullResource  // an acquired frame has no resource
};

// Results are HRESULTs; 0 is success.
struct DesktopBoard {
  Cell output_count;  // 0: one output of 1280x720 at the origin
  OutputCells outputs[kMostOutputs];
  Cell factory_result;    // CreateDXGIFactory1
  Cell device_result;     // D3D11CreateDevice
  Cell output1_result;    // the query for IDXGIOutput1
  Cell duplicate_result;  // DuplicateOutput
  Cell acquire_result;    // AcquireNextFrame; used only while `still` is 0
  Cell texture_result;    // the query for ID3D11Texture2D
  Cell staging_result;    // CreateTexture2D
  Cell map_result;        // Map
  Cell still;             // the desktop does not change: AcquireNextFrame times out
  Cell width, height;     // of the desktop's texture; 0: the output's
  Cell pitch;             // bytes per row; 0: 64 more than the pixels need
  Cell absurdity;         // DesktopAbsurdity
  Cell census_wanted;     // fills the census at the next CreateDXGIFactory1 and clears this

  // Recorded by the double.
  Cell live;            // objects that are not released
  Cell factories;       // calls of CreateDXGIFactory1
  Cell duplications;    // successful DuplicateOutput calls
  Cell device_adapter;  // of the last device
  Cell frames;          // frames given out, which is also the number in the last picture
  Cell time_outs;
  Cell losses;   // AcquireNextFrame calls with another failure
  Cell misuses;  // frames acquired while one was held, and releases without a held frame
  // Counted inside the agent's process.
  Cell census_handles, census_gdi_objects;
};

// The two transforms.
enum class Transform : std::int32_t { Sync, Async };
inline constexpr int kTransforms = 2;

// Results are HRESULTs; 0 is success. Both transforms share the board, except for the result of the
// activation.
struct CodecBoard {
  Cell activate_result[kTransforms];
  Cell output_type_result;     // SetOutputType
  Cell input_type_result;      // SetInputType
  Cell process_input_result;   // ProcessInput
  Cell process_output_result;  // ProcessOutput
  Cell buffered_frames;  // number of first frames that are delayed until one more arrives, then given out
                         // together
  Cell no_header;        // the output type has no sequence header; the stream contains it instead
  Cell header_bytes;     // grows the sequence header to about this size; 0: as it is
  Cell sample_flags;  // of GetOutputStreamInfo, 0x100 or 0x200: the transform's own samples; 0: the caller's
  Cell no_buffer_size;  // GetOutputStreamInfo returns no buffer size
  Cell null_sample;     // own samples: ProcessOutput succeeds without one
  Cell empty_sample;    // own samples: ProcessOutput succeeds with a sample that has no buffer
  Cell no_codec_api;    // there is no ICodecAPI
  Cell silent;          // asynchronous: encodes, but reports no output until this is cleared

  // Recorded by the double.
  Cell live;         // objects that are not released, without samples
  Cell activations;  // transforms created
  Cell sessions;     // encoders opened
  Cell inputs, outputs;
  Cell withheld;  // an output is not reported at this moment, because of `silent`
  Cell forced;    // requested key frames
  // The last session's settings: bit rates of the type and of the codec API, frames per second, and others.
  Cell width, height, fps, type_bitrate, bitrate, rate_control, low_latency, speed, profile, interlace;
  Cell time, duration;  // of the last input, in units of 100 ns
  Cell messages;  // ProcessMessage calls, one hexadecimal digit each: 1 flush, 2 begin, 3 start, 4 end of
                  // stream, 5 end
};

}  // namespace vantelink_doubles
