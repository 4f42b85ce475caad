// One session of the real encoder that the transforms use. The code is portable.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vantelink_doubles {

using Bytes = std::vector<std::uint8_t>;

struct EncodedFrame {
  Bytes bytes;  // Annex B
  bool key = false;
};

struct EngineFormat {
  int width = 0, height = 0;              // pixels
  int fps = 0, bitrate = 0;               // frames and bits per second
  int slices = 1;                         // in each picture
  bool parameter_sets_in_stream = false;  // before each key frame
};

class Engine {
 public:
  // No other call is allowed unless opened() is true.
  explicit Engine(const EngineFormat& format);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  bool opened() const;
  const Bytes& parameter_sets() const;
  // Encodes one picture. `nv12` is width * height bytes of luma, then half as many bytes in which U and V
  // alternate.
  EncodedFrame encode(const std::uint8_t* nv12, bool force_key);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vantelink_doubles
