// One session of the real encoder behind the transforms. No Windows in it.
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

class Engine {
 public:
  // Pixels, frames a second, bits a second. Without a sequence header of its own the stream carries the
  // parameter sets in front of each key frame. Check opened() before all else.
  Engine(int width, int height, int fps, int bitrate, bool parameter_sets_in_stream);
  ~Engine();
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  bool opened() const;
  const Bytes& parameter_sets() const;
  // `nv12`: width * height bytes of luma, then half as many of U and V in turn.
  EncodedFrame encode(const std::uint8_t* nv12, bool force_key);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vantelink_doubles
