// Boards: records in files that a test and a double inside the agent's process both map. The test sets what
// the machine is and which calls fail, at any time; the double records the calls it receives. A board of
// zeros, such as a new file, describes a machine on which everything works. The code is portable, because the
// test is a native program and the double a Windows DLL.
#pragma once

#include <atomic>
#include <cstdint>

namespace vantelink_doubles {

// A value that two processes share.
using Cell = std::atomic<std::int32_t>;
static_assert(Cell::is_always_lock_free && sizeof(Cell) == 4);

// Names of the environment variables with the boards' paths, as the Windows program sees them. A double
// without a board's file uses a zeroed board of its own.
inline constexpr char kDesktopBoardVariable[] = "VANTELINK_DESKTOP_BOARD";
inline constexpr char kCodecBoardVariable[] = "VANTELINK_CODEC_BOARD";

inline constexpr int kMostOutputs = 8;

struct OutputCells {
  Cell adapter;                   // number of the output's adapter; the outputs of an adapter are adjacent
  Cell unattached;                // if not 0, the output is not attached to the desktop
  Cell left, top, width, height;  // the output's rectangle on the desktop, in pixels
  Cell rotation;                  // a DXGI_MODE_ROTATION; 0 means not turned
};

enum class DesktopAbsurdity : std::int32_t {
  None,
  ZeroWidth,
  ZeroHeight,
  ShortPitch,   // the pitch is half a row, so that rows overlap; the memory ends after the last half row
  NullMemory,   // the mapping succeeds with a null pointer
  NullResource  // an acquired frame has no resource
};

// Calls that Windows forbids. The double refuses them as Windows does, and records them.
enum class DesktopMisuse : std::int32_t {
  None,
  NullArgument,
  ReleasedTooOften,     // Release without a reference
  DeviceArguments,      // D3D11CreateDevice with other arguments than an adapter permits
  ForeignDevice,        // DuplicateOutput without a device of the output's adapter
  SecondDuplication,    // DuplicateOutput while the program has a duplication of the output
  FrameNotReleased,     // AcquireNextFrame while a frame is held
  NoFrameHeld,          // ReleaseFrame without a held frame
  ReleasedFrameUsed,    // CopyResource from the texture of a released frame
  TextureDescription,   // CreateTexture2D of anything but a readable staging texture without initial data
  CopyArguments,        // CopyResource between textures that differ in device, size or format
  CopyWhileMapped,      // CopyResource while one of the textures is mapped
  MapArguments,         // Map of anything but a staging texture for reading
  MappedTwice,          // Map of a mapped texture
  NotMapped,            // Unmap of a texture that is not mapped
  ReleasedWhileMapped,  // the last reference of a mapped texture released
};

// A cell named `..._result` holds the HRESULT that the call in its comment returns; 0 is success.
struct DesktopBoard {
  Cell output_count;  // 0 means one output of 1280x720 at the origin
  OutputCells outputs[kMostOutputs];
  Cell factory_result;    // CreateDXGIFactory1
  Cell device_result;     // D3D11CreateDevice
  Cell output1_result;    // the query for IDXGIOutput1
  Cell duplicate_result;  // DuplicateOutput
  Cell acquire_result;    // AcquireNextFrame; used only while `still` is 0. A duplication that returned
                          // DXGI_ERROR_ACCESS_LOST returns it at each later call
  Cell texture_result;    // the query for ID3D11Texture2D
  Cell staging_result;    // CreateTexture2D
  Cell map_result;        // Map
  Cell still;             // if not 0, the desktop does not change and AcquireNextFrame times out
  Cell refresh_rate;      // changes of the desktop per second; 0 means 60
  Cell other_programs;    // programs that duplicate the desktop too; Windows permits four in all
  Cell width, height;     // size of the desktop's texture; 0 means the output's size
  Cell pitch;             // bytes per row; 0 means 64 more than the pixels need
  Cell absurdity;         // a DesktopAbsurdity
  Cell census_wanted;     // if not 0, the next CreateDXGIFactory1 fills the census cells and clears this cell

  // Recorded by the double.
  Cell live;            // objects that are not destroyed; a child keeps its parent alive
  Cell references;      // references that the program holds
  Cell factories;       // calls of CreateDXGIFactory1
  Cell duplications;    // successful DuplicateOutput calls
  Cell device_adapter;  // number of the last device's adapter
  Cell frames;          // number of returned frames; the last picture shows the same number
  Cell time_outs;
  Cell wakes;        // frames of the mirrored desktop for which AcquireNextFrame waited
  Cell wait;         // timeout of the last AcquireNextFrame, in milliseconds
  Cell losses;       // AcquireNextFrame calls that failed, except by a time-out
  Cell misuses;      // number of forbidden calls
  Cell last_misuse;  // a DesktopMisuse
  // The census: counts of what the agent's process has open.
  Cell census_handles, census_gdi_objects;
};

// The two H.264 encoder transforms.
enum class Transform : std::int32_t { Sync, Async };
inline constexpr int kTransforms = 2;

// Encoders whose output type contains the sequence header only after the first output.
enum class LateHeader : std::int32_t {
  None,
  InStream,     // the stream contains the header too
  NotInStream,  // the output type is the only source of the header
};

// A cell named `..._result` holds the HRESULT that the call in its comment returns; 0 is success. Both
// transforms use the same cells, except for `activate_result`.
struct CodecBoard {
  Cell activate_result[kTransforms];  // creation of a transform, indexed by Transform
  Cell output_type_result;            // SetOutputType
  Cell input_type_result;             // SetInputType
  Cell process_input_result;          // ProcessInput
  Cell process_output_result;         // ProcessOutput
  Cell buffered_frames;  // number of frames at the start that are delayed until one more arrives; all are
                         // then output together
  Cell no_header;        // if not 0, the stream contains the sequence header, not the output type
  Cell header_bytes;     // extends the sequence header to about this many bytes; 0 means no change
  Cell sample_flags;     // flags of GetOutputStreamInfo: with 0x100 or 0x200 the transform provides samples,
                         // with 0 the caller
  Cell no_buffer_size;   // GetOutputStreamInfo returns no buffer size
  Cell null_sample;      // if the transform provides samples: ProcessOutput succeeds without a sample
  Cell empty_sample;     // if the transform provides samples: ProcessOutput returns a sample without a buffer
  Cell no_codec_api;     // the transform has no ICodecAPI
  Cell silent;           // the asynchronous transform encodes, but reports no output until this is cleared
  Cell first_requests;   // number of inputs that the asynchronous transform requests at the start; 0 means 1
  Cell asks_at_once;     // the asynchronous transform requests the next input before it reports an output
  Cell lagging_frames;   // number of frames that stay in the transform until more arrive
  Cell stream_change;    // no output is returned until the client has set the output type again
  Cell failing_input;    // number of the input to which the asynchronous transform reports MEError and after
                         // which it does nothing more; 0 means that none fails
  Cell late_header;      // a LateHeader
  Cell slices;           // number of slices in each picture; 0 means 1
  Cell delimiters;       // an access unit delimiter and an SEI message precede each picture
  Cell fixed_properties;  // properties other than the request for a key frame are refused after the types are
                          // set
  Cell d3d_aware;         // the transform accepts a Direct3D device manager
  // The asynchronous transform uses one of the sessions that a graphics card has.
  Cell session_limit;       // number of sessions that can be open at the same time; 0 means no limit
  Cell sessions_elsewhere;  // sessions that other programs have open
  Cell limits_creation;     // a transform takes its session when it is created, not in SetOutputType
  Cell keeps_session;       // a session stays open after its transform's release, except after IMFShutdown

  // Recorded by the double.
  Cell live;         // transforms that are not released
  Cell activations;  // transforms created
  Cell sessions;     // encoders opened
  Cell inputs, outputs;
  Cell withheld;   // 1 while an output is not reported because of `silent`
  Cell misuses;    // calls of ProcessInput and ProcessOutput that no event allowed
  Cell stalled;    // 1 while the client waits for an event and the asynchronous transform has nothing to do
                   // before the client's next call
  Cell shutdowns;  // calls of IMFShutdown::Shutdown
  Cell open_sessions;       // sessions of the card that transforms have open
  Cell refused_properties;  // refusals because of `fixed_properties`
  Cell forced;              // key frames that the agent requested
  // The last session's settings. `type_bitrate` comes from the media type, `bitrate` from the codec API.
  Cell width, height, fps, type_bitrate, bitrate, rate_control, low_latency, speed, profile, interlace;
  Cell time, duration;  // time and duration of the last input, in units of 100 ns
  Cell messages;  // ProcessMessage calls, one hexadecimal digit each: 1 flush, 2 begin, 3 start, 4 end of
                  // stream, 5 end, 6 Direct3D device manager
};

}  // namespace vantelink_doubles
